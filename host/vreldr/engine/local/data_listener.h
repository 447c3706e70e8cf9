#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "base/status.h"

namespace VrelDR::Local {

// Hears the data of files while it passes, in ascending order, each byte and each hole at most
// once, and may object. There is one of the source of a shipment, which hears what is read to be
// told and nothing else, and one of its sink, which hears all of each file: what was told and what
// was taken from the base.
class DataListener {
 public:
  virtual ~DataListener() = default;

  // A file of `size` bytes, by its path below the top. A file of several names is heard once, under
  // the first of them; of the others the one of a sink hears, too.
  virtual Status BeginFile(const std::string& path, std::uint64_t size) = 0;
  virtual Status Data(std::uint64_t offset, std::span<const char> bytes) = 0;
  virtual Status Hole(std::uint64_t offset, std::uint64_t length) = 0;
  virtual Status EndFile() = 0;
  // `path` is one more name of what is heard, if at all, as `first`.
  virtual Status Name(const std::string& path, const std::string& first) = 0;
};

}  // namespace VrelDR::Local
