#pragma once

#include <vreldr/target.h>
#include <vreldrcore/err_recorder.h>

#include <map>
#include <string>
#include <vector>

#include "vreldrgroup/export.h"
#include "vreldrgroup/record/target_snapshot.h"

namespace VrelDRGroup::Operation {

// Makes a new, independent target from every target snapshot of one group snapshot; all or nothing.
//
// Run ends with code 0, 401 (no identifier), 622 (the group snapshot cannot be read or has no time,
// or a target snapshot is gone), 634 (a target does not exist) or what a target's own clone failed
// with. After a failure the clones made before it are removed again.
class VRELDRGROUP_API GsnapshotClone : public VrelDRCore::ErrRecorder {
 public:
  explicit GsnapshotClone(const std::string& gsnapId);
  GsnapshotClone(const GsnapshotClone&) = delete;
  GsnapshotClone& operator=(const GsnapshotClone&) = delete;
  ~GsnapshotClone() override;

  virtual bool Run();

  // The steps of Run: cloning, and removing what was cloned when that fails. Removing is always
  // true: what could not be removed is logged and keeps its identifier in the clones.
  bool CloneTargetSnapshots(const std::vector<TargetSnapshot>& targetSnapshots);
  bool DeleteClonedTargets();

  // The identifier of the clone by source target. After a failed run the identifiers of clones that
  // were removed are empty; one that is not empty is a clone that could not be removed.
  const std::map<VrelDR::Target, std::string>& GetClones() const { return clones_; }

 private:
  std::string gsnapId_;
  std::map<VrelDR::Target, std::string> clones_;
};

}  // namespace VrelDRGroup::Operation
