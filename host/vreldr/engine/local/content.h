#pragma once

#include <string>

#include "engine/engine.h"
#include "engine/support/watch.h"

namespace VrelDR::Local {

// The file that holds a LUN's bytes, in the target's directory.
inline constexpr const char* kDiskImage = "disk.img";

// Where whoever uses a target or a snapshot finds its bytes, in its directory.
inline std::string BytesIn(const std::string& dirPath, const TargetPlace& target) {
  return target.type == kTargetLun ? dirPath + "/" + kDiskImage : dirPath;
}

// Fills the empty directory `dirFd` of a new target with what its sources hold: a LUN's image (or
// an empty one of the size asked for), a guest's files, a share's files and folders under their own
// names or, when that is all, the content of one folder. `volumePath` may not be in a source.
Status FillTarget(const TargetPlace& target, const TargetContent& content,
                  const std::string& volumePath, int dirFd, Watch& watch);

// Whether the directory `dirFd` of a target or a snapshot, which has the path `dirPath`, holds what
// its kind asks for: a LUN's image is a file, and nothing else leads to its bytes. kErrUnsupported
// otherwise.
enum class Missing { kAllowed, kRefused };
Status CheckImage(const TargetPlace& target, int dirFd, const std::string& dirPath,
                  Missing missing);

}  // namespace VrelDR::Local
