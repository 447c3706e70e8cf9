#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vrelcore/export.h"
#include "vreldr/error.h"

namespace VrelDR {

// A volume of the configuration and what its engine says of it.
struct VREL_API VolumeInfo {
  std::string name;
  std::string engine;         // the engine's name, such as "local"
  std::string where;          // what the configuration says: the directory of a local volume
  std::string method;         // how a snapshot is made, such as "btrfs", "reflink" or "copy"
  bool is_atomic = false;     // whether a snapshot is of one instant although somebody writes
  bool is_immutable = false;  // whether the system refuses to change a snapshot's bytes
  std::uint64_t size_bytes = 0;
  std::uint64_t free_bytes = 0;
  std::string problem;  // why the volume cannot be used; empty when it can
};

// The volumes of this node, in the order of the configuration.
class VREL_API VolumeManager : public DRErrRecorder {
 public:
  // Appends every configured volume, also those that cannot be used. False when the configuration
  // cannot be read; nothing is appended then.
  bool List(std::vector<VolumeInfo>& volumes) const;
};

}  // namespace VrelDR
