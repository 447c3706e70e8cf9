#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vrelcore/export.h"
#include "vreldr/error.h"
#include "vreldr/place_use.h"
#include "vreldr/target.h"

namespace VrelDR {

// A target of this node as the host's records have it.
struct VREL_API TargetEntry {
  Target target;
  std::string volume;
  std::string path;         // where its bytes are, for whoever uses the target
  bool is_existed = false;  // false when its bytes are gone, or cannot be reached
  // How many snapshots are recorded as complete. Nobody has looked whether the bytes of each are
  // still there, which ListSnapshots of the target does.
  std::uint64_t snapshots = 0;
  // Why its bytes cannot be reached, so that they may be there although `is_existed` is false, or
  // why its snapshots cannot be counted. Empty when both are known.
  std::string problem;
};

// What is left of a target whose removal has begun and has not come to its end: it may run, or have
// failed or been interrupted. To every other call the target does not exist, and neither does the
// plan that goes with it.
struct VREL_API TargetRemains {
  Target target;
  std::string volume;
  std::string plan_id;          // the plan that goes with it; empty when none does
  std::string other_target_id;  // and that plan's other target, which stays
  bool is_dr_side = false;      // whether it was the plan's DR copy
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

  // Appends what is left of targets, ordered by identifier.
  bool ListRemains(std::vector<TargetRemains>& remains) const;

  // The target's record. False with code 0 when there is none.
  bool Get(const std::string& targetId, TargetEntry& entry) const;

  // Removes a target with all its bytes. Refused with kErrExists while it has snapshots, unless
  // `withSnapshots`. A failure after the first byte has gone leaves remains, which the same call
  // removes, and so does the next creation of a target.
  bool Remove(const std::string& targetId, bool withSnapshots) const;

  // Whether that could be done to the target without touching or losing what stands in its place
  // and is no part of it. Refused with kErrUnsupported, with the paths, when something is mounted
  // in it (which is no reason against a snapshot) or subvolumes are nested in it, and when a LUN's
  // bytes are not in its own file. Every call that does it asks the same.
  bool CheckPlace(const std::string& targetId, PlaceUse use) const;
  // Appends the paths inside the target where something is mounted: no snapshot has what is there.
  bool FindMounts(const std::string& targetId, std::vector<std::string>& paths) const;
};

}  // namespace VrelDR
