#pragma once

#include <string>

#include "../engine.h"

namespace VrelDR::Local {

// The file that holds a LUN's bytes, in the target's directory.
inline constexpr const char* kDiskImage = "disk.img";

// Fills the empty directory `dirFd` of a new target with what its sources hold: a LUN's image (or
// an empty one of the size asked for), a guest's files, a share's files and folders under their own
// names or, when that is all, the content of one folder. `volumePath` may not be in a source.
Status FillTarget(const Target& target, const TargetContent& content, const std::string& volumePath,
                  int dirFd);

}  // namespace VrelDR::Local
