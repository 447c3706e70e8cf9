#pragma once

#include <vreldrcore/err_recorder.h>

#include <string>
#include <vector>

#include "vreldrgroup/export.h"
#include "vreldrgroup/record/gsnapshot.h"

namespace VrelDRGroup::Operation {

// Rolls every target of a group back to its snapshot in one group snapshot, one after the other.
//
// Run ends with code 0, 401 (no identifier), 622 (the group snapshot cannot be read or has no
// time), 621 (a target snapshot is not valid; the message is that target snapshot) or what the
// target's own restore failed with. The first failure ends the run: targets before it are restored
// and stay so, targets after it are as they were. The status of the group snapshot is not looked
// at.
class VRELDRGROUP_API GsnapshotRestore : public VrelDRCore::ErrRecorder {
 public:
  explicit GsnapshotRestore(const std::string& gsnapId);
  GsnapshotRestore(const GsnapshotRestore&) = delete;
  GsnapshotRestore& operator=(const GsnapshotRestore&) = delete;
  ~GsnapshotRestore() override;

  virtual bool Run();

  // The step of Run that restores.
  bool RestoreTargetSnapshots(const std::vector<TargetSnapshot>& targetSnapshots) const;

 private:
  std::string gsnapId_;
  GsnapshotInfo info_;
};

}  // namespace VrelDRGroup::Operation
