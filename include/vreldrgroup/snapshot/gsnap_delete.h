#pragma once

#include <vreldrcore/err_recorder.h>
#include <vreldrcore/sqlite_command.h>

#include <string>

#include "vreldrgroup/export.h"
#include "vreldrgroup/record/gsnapshot.h"

namespace VrelDRGroup::Operation {

// Removes a group snapshot: the snapshot of every target, then its rows in the catalogue.
//
// A target whose snapshot cannot be removed fails the run with that target's error; the other
// targets are attempted all the same, the group snapshot stays listed, and the run can be repeated.
// Once the target snapshots are gone the run succeeds, also when rows could not be removed.
class VRELDRGROUP_API GsnapshotDelete : public VrelDRCore::ErrRecorder {
 public:
  explicit GsnapshotDelete(const std::string& gsnapId);
  GsnapshotDelete(const GsnapshotDelete&) = delete;
  GsnapshotDelete& operator=(const GsnapshotDelete&) = delete;
  ~GsnapshotDelete() override;

  virtual bool Run();

  // The steps of Run, in its order.
  bool DeleteTargetSnapshots() const;
  bool DeleteTargetSnapshot(const TargetSnapshot& tsnap) const;
  bool DeleteGroupSnapRecord() const;
  bool DeleteTargetSnapshotRecords() const;
  bool DeleteTargetReplicaRecords() const;

 private:
  // Removes the group snapshot's rows of a table of its parts; `function` is who does so.
  bool DeleteParts(const VrelDRCore::SqliteTableHandler& table, const char* function) const;

  std::string gsnapId_;
  GsnapshotInfo info_;
};

}  // namespace VrelDRGroup::Operation
