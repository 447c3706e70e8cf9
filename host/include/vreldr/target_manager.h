#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vrelcore/export.h"
#include "vreldr/error.h"
#include "vreldr/target.h"

namespace VrelDR {

// A target of this node as the host's records have it.
struct VREL_API TargetEntry {
  Target target;
  std::string volume;
  std::string path;             // where its bytes are, for whoever uses the target
  bool is_existed = false;      // false when its bytes are gone or cannot be reached
  std::uint64_t snapshots = 0;  // how many complete snapshots it has
};

// What a new target is made from.
struct VREL_API TargetSpec {
  Target target;       // the identifier is the caller's choice and unique on this node
  std::string volume;  // name of a configured volume
  // A LUN's size in bytes when it is made empty; not used otherwise.
  std::uint64_t size_bytes = 0;
  // Files and folders whose content the target takes over, empty to make an empty target. A LUN
  // takes one image file, a guest any files (a definition and its disks), a share any files and
  // folders.
  std::vector<std::string> sources;
};

// Making, listing and removing the targets of this node. Every call that fails records a code of
// ErrCode and a message that names the thing; every call that succeeds records 0.
class VREL_API TargetManager : public DRErrRecorder {
 public:
  // Makes a target, whole and on disk when the call returns; a failure leaves nothing of it. The
  // sources are only read.
  bool Create(const TargetSpec& spec) const;

  // Appends all targets, ordered by identifier.
  bool List(std::vector<TargetEntry>& targets) const;

  // The target's record. False with code 0 when there is none.
  bool Get(const std::string& targetId, TargetEntry& entry) const;

  // Removes a target with all its bytes. Refused with kErrExists while it has snapshots, unless
  // `withSnapshots`.
  bool Remove(const std::string& targetId, bool withSnapshots) const;
};

}  // namespace VrelDR
