// Which of the snapshots that a plan has sent its replica really has.
#include "vreldr/arrived.h"

#include "base/boundary.h"
#include "plan/checks.h"
#include "plan/host_plan.h"
#include "vreldr/snapshot_history.h"

namespace VrelDR {

Status HostPlan::FindRecorded(Operation::Snapshot& recorded) const {
  std::vector<std::string> held;
  std::vector<SnapshotRow> arrived;
  std::vector<SnapshotRow> sent;
  Status status = ListHeld(held);
  if (status.IsOk())
    status = GetStore().ListSnapshotsOfAnyState(Get().GetReplicaTargetId(), arrived);
  if (status.IsOk()) status = GetStore().ListSnapshotsOfAnyState(Get().GetSourceTargetId(), sent);
  if (!status.IsOk()) return status;
  recorded = SnapshotHistory::NewestHeld(held, SnapshotsOf(arrived), SnapshotsOf(sent));
  return {};
}

Status HostPlan::LookAtArrived(ArrivedSnapshots& arrived) {
  arrived = {};
  Operation::Snapshot recorded;
  std::vector<Operation::Snapshot> snapshots;
  Status status = FindRecorded(recorded);
  arrived.recorded_id = recorded.snap_id;
  arrived.recorded_time = recorded.create_time;
  if (status.IsOk()) status = ListReplicaSnapshots(snapshots);
  if (!status.IsOk()) return status;
  arrived = SnapshotHistory::WhatArrived(recorded, GetRow().hand_snap_id, snapshots);
  return {};
}

bool ArrivedReporter::Read(ArrivedSnapshots& arrived) const {
  return RunAndRecord(*this, [&] {
    HostPlan plan;
    Status status = plan.OpenToRead(plan_id_);
    if (!status.IsOk()) return status;
    status = plan.LookAtArrived(arrived);
    arrived.is_going_back = Check::GoesBack(plan);
    return status;
  });
}

}  // namespace VrelDR
