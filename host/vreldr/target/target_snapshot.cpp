#include "target/target_snapshot.h"

#include <algorithm>
#include <ctime>

#include "base/kill_point.h"
#include "vreldrcore/uuid.h"

namespace VrelDR {

namespace {

using Operation::Snapshot;

// The time of a new snapshot: when it was begun, as everything written before that is in it. Times
// are in whole seconds, and callers name things by them: a time is never used twice for a target.
std::uint32_t NextTime(std::uint32_t begun, std::uint32_t last) {
  return std::max(begun, last + 1);
}

// Makes the record of a new snapshot, before its bytes; one of a cut has a record.
Status Record(const HostTarget& opened, const SnapshotOrder& order, Snapshot& snapshot) {
  const Store& store = opened.GetStore();
  if (const BorrowedPart* part = opened.GetPart()) {
    snapshot = part->GetSnapshot();
    snapshot.meta = order.meta;
    return order.plan != nullptr ? store.Plans().TakeInHand(*order.plan, snapshot.snap_id)
                                 : Status();
  }
  snapshot.snap_id = order.snap_id.empty() ? VrelDRCore::GenerateUUID() : order.snap_id;
  snapshot.meta = order.meta;
  snapshot.maker = Operation::ThisMaker();
  if (order.cut) snapshot.cut_id = order.cut->id;
  return store.AddSnapshot(opened.GetTarget().GetId(), snapshot, order.plan, order.cut);
}

Status MakeBytes(const HostTarget& opened, const SnapshotOrder& order, Snapshot& snapshot) {
  const StorageEngine& engine = opened.GetEngine();
  Watcher& watcher = order.watcher != nullptr ? *order.watcher : opened.GetWatcher();
  if (opened.GetPart() != nullptr) {
    Status status = engine.TakeUp(opened.GetPlace(), snapshot.snap_id, watcher);
    KillPoint(kTakeUpRenamed);
    return status;
  }
  snapshot.create_time = static_cast<std::uint32_t>(std::time(nullptr));
  return order.make ? order.make(engine, opened.GetPlace(), snapshot.snap_id)
                    : engine.TakeSnapshot(opened.GetPlace(), snapshot.snap_id, watcher);
}

}  // namespace

Status TakeSnapshotOf(const HostTarget& opened, const SnapshotOrder& order, Snapshot& taken) {
  Snapshot snapshot;
  Status status = Record(opened, order, snapshot);
  if (!status.IsOk()) return status;
  // Whatever comes of it, nobody else shall have it.
  if (opened.GetPart() != nullptr) opened.GetPart()->Spend();
  KillPoint(kTakeRecorded);
  status = InContext(opened.Cannot("take a snapshot of"), MakeBytes(opened, order, snapshot));
  KillPoint(kTakeWhole);
  if (status.IsOk()) {
    snapshot.create_time =
        NextTime(snapshot.create_time, std::max(opened.GetRow().last_snap_time, order.after));
    status = opened.GetStore().FinishSnapshot(opened.GetTarget().GetId(), snapshot,
                                              snapshot.create_time);
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
  std::optional<Snapshot> known;
  Status status = opened.GetSnapshot(snapId, known);
  if (!status.IsOk()) return status;
  if (known) {
    found = *std::move(known);
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
  status = store.MarkSnapshotDeleting(opened.GetTarget().GetId(), found);
  if (!status.IsOk()) return status;
  KillPoint(kDeleteMarked);
  status =
      InContext(opened.Cannot("delete a snapshot of"),
                opened.GetEngine().RemoveSnapshot(opened.GetPlace(), snapId, opened.GetWatcher()));
  KillPoint(kDeleteBytesGone);
  if (status.IsOk()) status = store.RemoveSnapshot(opened.GetTarget().GetId(), found);
  KillPoint(kDeleteDone);
  return status;
}

}  // namespace VrelDR
