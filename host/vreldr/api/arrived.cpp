// Which of the snapshots that a plan has sent its replica really has.
#include "vreldr/arrived.h"

#include <algorithm>

#include "base/boundary.h"
#include "plan/host_plan.h"
#include "plan/plan_text.h"

namespace VrelDR {

namespace {

using Operation::Snapshot;

// The record of a snapshot; empty when there is none.
Snapshot FindRecord(const std::vector<SnapshotRow>& rows, const std::string& snapId) {
  const auto found = std::find_if(rows.begin(), rows.end(), [&](const SnapshotRow& each) {
    return each.snapshot.snap_id == snapId;
  });
  return found == rows.end() ? Snapshot() : found->snapshot;
}

// A replica may also have what a reprotection has kept of it, which never was sent to it.
bool IsKeptAside(const Snapshot& snapshot) {
  return snapshot.meta.description == kBeforeReprotect;
}

}  // namespace

Status HostPlan::FindRecorded(Snapshot& recorded) const {
  std::vector<LockRow> locks;
  std::vector<SnapshotRow> arrived;
  std::vector<SnapshotRow> sent;
  const std::string& replica = Get().GetReplicaTargetId();
  Status status = Records().ListLocksOfPlan(Get().GetPlanId(), locks);
  if (status.IsOk()) status = GetStore().ListSnapshots(replica, arrived);
  if (status.IsOk()) status = GetStore().ListSnapshots(Get().GetSourceTargetId(), sent);
  for (const LockRow& each : locks) {
    if (!status.IsOk()) break;
    if (each.target_id != replica) continue;
    // Its record may be gone with its bytes: the other side knows when it was taken, too.
    Snapshot found = FindRecord(arrived, each.snap_id);
    if (found.snap_id.empty()) found = FindRecord(sent, each.snap_id);
    found.snap_id = each.snap_id;
    if (recorded.snap_id.empty() || found > recorded) recorded = std::move(found);
  }
  return status;
}

Status HostPlan::LookAtArrived(ArrivedSnapshots& arrived) {
  arrived = {};
  Snapshot recorded;
  std::vector<Snapshot> snapshots;
  Status status = FindRecorded(recorded);
  arrived.recorded_id = recorded.snap_id;
  if (status.IsOk()) status = ListReplicaSnapshots(snapshots);
  if (!status.IsOk()) return status;
  const auto isRecorded = [&](const Snapshot& each) { return each.snap_id == recorded.snap_id; };
  arrived.is_gone =
      !recorded.snap_id.empty() && std::none_of(snapshots.begin(), snapshots.end(), isRecorded);
  for (const Snapshot& each : snapshots) {
    // What is newer than the last that arrived is the replica's own, from when it worked.
    const bool isOlder =
        arrived.is_gone && !IsKeptAside(each) && (recorded.create_time == 0 || recorded > each);
    const bool counts = isRecorded(each) || each.snap_id == GetRow().hand_snap_id || isOlder;
    if (counts && (arrived.newest.snap_id.empty() || each > arrived.newest)) arrived.newest = each;
  }
  return {};
}

bool ArrivedReporter::Read(ArrivedSnapshots& arrived) const {
  return RunAndRecord(*this, [&] {
    HostPlan plan;
    Status status = plan.OpenToRead(plan_id_);
    return status.IsOk() ? plan.LookAtArrived(arrived) : status;
  });
}

}  // namespace VrelDR
