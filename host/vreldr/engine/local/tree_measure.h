#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "engine/support/watch.h"

namespace VrelDR::Local {

// How many bytes the paths below a directory may have for the program that carries them.
struct PathLimits {
  const char* program;
  std::size_t entry;   // of anything
  std::size_t folder;  // of a folder
};

// Looks through the directory `path` and sums up the sizes of its files; those of several names
// count once for each. What cannot be looked at is passed over. kErrUnsupported, with its name,
// when a path is longer than the limits allow.
Status MeasureTree(const std::string& path, const PathLimits& limits, Watch& watch,
                   std::uint64_t& size);

}  // namespace VrelDR::Local
