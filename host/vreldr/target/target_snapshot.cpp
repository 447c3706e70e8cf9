#include "target/target_snapshot.h"

#include <algorithm>
#include <ctime>

#include "base/kill_point.h"
#include "vreldr/snapshot_history.h"
#include "vreldrcore/uuid.h"

namespace VrelDR {

namespace {

using Operation::Snapshot;

// The time of a new snapshot: when it was begun, as everything written before that is in it. Times
// are in whole seconds, and callers name things by them: a time is never used twice for a target.
std::uint32_t NextTime(std::time_t begun, std::uint32_t last) {
  return std::max(static_cast<std::uint32_t>(begun), last + 1);
}

}  // namespace

Status TakeSnapshotOf(const HostTarget& opened, const SnapshotOrder& order, Snapshot& taken) {
  const Store& store = opened.GetStore();
  const Target& target = opened.GetTarget();
  Snapshot snapshot;
  snapshot.snap_id = order.snap_id.empty() ? VrelDRCore::GenerateUUID() : order.snap_id;
  snapshot.meta = order.meta;
  snapshot.maker = Operation::ThisMaker();
  Status status = store.AddSnapshot(target.GetId(), snapshot, order.plan);
  if (!status.IsOk()) return status;
  KillPoint(kTakeRecorded);
  const std::time_t begun = std::time(nullptr);
  Watcher& watcher = order.watcher != nullptr ? *order.watcher : opened.GetWatcher();
  const StorageEngine& engine = opened.GetEngine();
  status = order.make ? order.make(engine, opened.GetPlace(), snapshot.snap_id)
                      : engine.TakeSnapshot(opened.GetPlace(), snapshot.snap_id, watcher);
  status = InContext(opened.Cannot("take a snapshot of"), status);
  KillPoint(kTakeWhole);
  if (status.IsOk()) {
    snapshot.create_time = NextTime(begun, std::max(opened.GetRow().last_snap_time, order.after));
    status = store.FinishSnapshot(target.GetId(), snapshot, snapshot.create_time);
  }
  if (!status.IsOk()) {
    // What cannot be cleaned up now is not listed, and goes with the next change of the target.
    (void)CleanUpSnapshots(opened);
    return status;
  }
  KillPoint(kTakeDone);
  taken = std::move(snapshot);
  return {};
}

Status FindSnapshot(const HostTarget& opened, const std::string& snapId, Snapshot& found) {
  std::vector<Snapshot> snapshots;
  Status status = opened.ListSnapshots(snapshots);
  if (!status.IsOk()) return status;
  if (const Snapshot* known = SnapshotHistory::Find(snapshots, snapId)) {
    found = *known;
    return {};
  }
  return {kErrSnapshotMissing, "target " + Quoted(opened.GetTarget().GetId()) +
                                   " has no snapshot " + Quoted(snapId) + "; list its snapshots"};
}

Status DeleteSnapshotOf(const HostTarget& opened, const std::string& snapId) {
  const Store& store = opened.GetStore();
  Snapshot found;
  Status status = FindSnapshot(opened, snapId, found);
  if (!status.IsOk()) return status;
  // Once it is marked it is not listed any more, so that its bytes may go piece by piece.
  status = store.MarkSnapshotDeleting(found);
  if (!status.IsOk()) return status;
  KillPoint(kDeleteMarked);
  status =
      InContext(opened.Cannot("delete a snapshot of"),
                opened.GetEngine().RemoveSnapshot(opened.GetPlace(), snapId, opened.GetWatcher()));
  KillPoint(kDeleteBytesGone);
  if (status.IsOk()) status = store.RemoveSnapshot(found);
  KillPoint(kDeleteDone);
  return status;
}

}  // namespace VrelDR
