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

// A target that is recorded on a volume, and what of it is there.
struct VREL_API RecordedTarget {
  std::string target_id;
  bool is_existed = false;
  std::vector<std::string> snapshots;  // that are recorded and there
  std::vector<std::string> missing_snapshots;
};

// What initialising a volume would find.
struct VREL_API VolumeExamination {
  std::string where;
  bool is_initialised = false;  // it has the identity that is recorded for it
  // Whether it needs to be adopted to be used: it has another identity, or not what is recorded on
  // it. `why` says what is wrong.
  bool needs_adoption = false;
  std::string why;
  std::vector<RecordedTarget> targets;
};

// The volumes of this node, in the order of the configuration.
class VREL_API VolumeManager : public DRErrRecorder {
 public:
  // Appends every configured volume, also those that cannot be used. False when the configuration
  // cannot be read; nothing is appended then.
  bool List(std::vector<VolumeInfo>& volumes) const;

  // Looks at what a volume is and what of its targets is there; changes nothing on it.
  bool Examine(const std::string& volume, VolumeExamination& examination) const;
  // Gives the volume an identity of its own, on it and in the host's records, by which it is known
  // from then on, and puts it into `id`. One that needs to be adopted is refused unless `adopt`
  // (kErrVolumeMissing), one that has its identity always is (kErrExists). Touches no target. Makes
  // the host where there is no trace of one.
  bool Initialise(const std::string& volume, bool adopt, std::string& id) const;
};

}  // namespace VrelDR
