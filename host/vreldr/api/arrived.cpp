// Which of the snapshots that a plan has sent its replica really has.
#include "vreldr/arrived.h"

#include "base/boundary.h"
#include "plan/checks.h"
#include "plan/host_plan.h"
#include "plan/some_snapshots.h"
#include "vreldr/snapshot_history.h"

namespace VrelDR {

Status HostPlan::FindRecorded(Operation::Snapshot& recorded) const {
  std::vector<std::string> held;
  std::vector<Operation::Snapshot> arrived;
  std::vector<Operation::Snapshot> sent;
  Status status = ListHeld(held);
  if (status.IsOk()) status = SelectRecorded(GetStore(), Get().GetReplicaTargetId(), held, arrived);
  if (status.IsOk()) status = SelectRecorded(GetStore(), Get().GetSourceTargetId(), held, sent);
  if (!status.IsOk()) return status;
  recorded = SnapshotHistory::NewestHeld(held, arrived, sent);
  return {};
}

Status HostPlan::LookAtArrived(ArrivedSnapshots& arrived) {
  arrived = {};
  Operation::Snapshot recorded;
  std::vector<Operation::Snapshot> snapshots;
  Status status = FindRecorded(recorded);
  arrived.recorded_id = recorded.snap_id;
  arrived.recorded_time = recorded.create_time;
  const std::string& inHand = GetRow().hand_snap_id;
  if (status.IsOk()) status = SelectReplicaSnapshots({recorded.snap_id, inHand}, snapshots);
  if (!status.IsOk()) return status;
  arrived = SnapshotHistory::WhatArrived(recorded, inHand, snapshots);
  if (!arrived.is_gone) return {};
  // Then the older ones count, too.
  snapshots.clear();
  status = ListReplicaSnapshots(snapshots);
  if (status.IsOk()) arrived = SnapshotHistory::WhatArrived(recorded, inHand, snapshots);
  return status;
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
