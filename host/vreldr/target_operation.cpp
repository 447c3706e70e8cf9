#include "vreldr/target_operation.h"

#include <algorithm>
#include <ctime>
#include <limits>

#include "boundary.h"
#include "host.h"
#include "kill_point.h"
#include "target_creation.h"
#include "vreldrcore/uuid.h"

namespace VrelDR {

namespace {

using Operation::Snapshot;

// The time of a new snapshot: when it was begun, as everything written before that is in it. Times
// are in whole seconds, and callers name things by them: a time is never used twice for a target.
std::uint32_t NextTime(std::time_t begun, const TargetRow& row) {
  const auto now = static_cast<std::uint32_t>(begun);
  return std::max(now, row.last_snap_time + 1);
}

Status Take(const Target& target, const Operation::SnapshotMeta& meta, std::string& snapId) {
  Host host;
  HostTarget opened(host);
  Status status = opened.OpenToWrite(target.GetId());
  if (!status.IsOk()) return status;
  const Store& store = opened.GetStore();
  const Target& found = opened.GetTarget();

  Snapshot snapshot;
  snapshot.snap_id = VrelDRCore::GenerateUUID();
  snapshot.meta = meta;
  status = store.AddSnapshot(found.GetId(), snapshot);
  if (!status.IsOk()) return status;
  KillPoint(kTakeRecorded);
  const std::time_t begun = std::time(nullptr);
  status = InContext(opened.Cannot("take a snapshot of"),
                     opened.GetEngine().TakeSnapshot(found, snapshot.snap_id));
  KillPoint(kTakeWhole);
  if (status.IsOk()) {
    status = store.FinishSnapshot(found.GetId(), snapshot, NextTime(begun, opened.GetRow()));
  }
  if (!status.IsOk()) {
    // What cannot be cleaned up now is not listed, and goes with the next change of the target.
    (void)CleanUpSnapshots(store, opened.GetEngine(), found);
    return status;
  }
  KillPoint(kTakeDone);
  snapId = snapshot.snap_id;
  return {};
}

// A snapshot of the target; kErrSnapshotMissing when it has none of that name.
Status FindSnapshot(const HostTarget& opened, const std::string& snapId, Snapshot& found) {
  std::vector<Snapshot> snapshots;
  Status status = opened.ListSnapshots(snapshots);
  if (!status.IsOk()) return status;
  for (Snapshot& each : snapshots) {
    if (each.snap_id != snapId) continue;
    found = std::move(each);
    return {};
  }
  return {kErrSnapshotMissing, "target " + Quoted(opened.GetTarget().GetId()) +
                                   " has no snapshot " + Quoted(snapId) + "; list its snapshots"};
}

Status Delete(const Target& target, const std::string& snapId) {
  Host host;
  HostTarget opened(host);
  Status status = opened.OpenToWrite(target.GetId());
  if (!status.IsOk()) return status;
  const Store& store = opened.GetStore();
  Snapshot found;
  status = FindSnapshot(opened, snapId, found);
  if (!status.IsOk()) return status;

  // Once it is marked it is not listed any more, so that its bytes may go piece by piece.
  status = store.MarkSnapshotDeleting(found);
  if (!status.IsOk()) return status;
  KillPoint(kDeleteMarked);
  status = InContext(opened.Cannot("delete a snapshot of"),
                     opened.GetEngine().RemoveSnapshot(opened.GetTarget(), snapId));
  KillPoint(kDeleteBytesGone);
  if (status.IsOk()) status = store.RemoveSnapshot(found);
  KillPoint(kDeleteDone);
  return status;
}

Status Restore(const Target& target, const std::string& snapId) {
  Host host;
  HostTarget opened(host);
  Snapshot found;
  Status status = opened.OpenToWrite(target.GetId());
  if (status.IsOk()) status = FindSnapshot(opened, snapId, found);
  if (!status.IsOk()) return status;
  status = InContext(opened.Cannot("restore"),
                     opened.GetEngine().RestoreSnapshot(opened.GetTarget(), snapId));
  // What cannot be cleaned up now goes with the next change of the target.
  if (!status.IsOk()) (void)opened.GetEngine().CleanUp(opened.GetTarget());
  return status;
}

Status Clone(const Target& target, const std::string& snapId, const std::string& uuid) {
  if (!IsAllowedId(uuid)) {
    return {kErrBadArgument, "a clone cannot be called " + Quoted(uuid) + "; give it a UUID"};
  }
  Host host;
  // Its lock keeps the snapshot in place.
  HostTarget opened(host);
  Snapshot found;
  Status status = opened.OpenToWrite(target.GetId());
  if (status.IsOk()) status = FindSnapshot(opened, snapId, found);
  if (!status.IsOk()) return status;
  const Target clone(uuid, opened.GetTarget().GetType());
  return InContext(
      opened.Cannot("clone a snapshot of"),
      CreateTarget(host, clone, opened.GetRow().volume, [&](const StorageEngine& engine) {
        return engine.CloneSnapshot(opened.GetTarget(), snapId, clone);
      }));
}

Status List(const Target& target, std::vector<Snapshot>& snapshots) {
  Host host;
  HostTarget opened(host);
  Status status = opened.OpenToRead(target.GetId());
  return status.IsOk() ? opened.ListSnapshots(snapshots) : status;
}

}  // namespace

TargetOperation::TargetOperation(const Target& target) : target_(target) {}

TargetOperation::TargetOperation(int type, const std::string& targetId) : target_(targetId, type) {}

bool TargetOperation::IsExisted() const {
  bool exists = false;
  RunAndRecord(*this, [&]() -> Status {
    Host host;
    HostTarget opened(host);
    Status status = opened.OpenToRead(target_.GetId());
    exists = status.IsOk();
    return status.code == kErrTargetMissing ? Status() : status;
  });
  return exists;
}

std::vector<Snapshot> TargetOperation::ListSnapshots() const {
  std::vector<Snapshot> snapshots;
  RunAndRecord(*this, [&] { return List(target_, snapshots); });
  return snapshots;
}

bool TargetOperation::ListSnapshotIds(std::set<std::string>& snapIds) const {
  return RunAndRecord(*this, [&] {
    std::vector<Snapshot> snapshots;
    Status status = List(target_, snapshots);
    for (const Snapshot& each : snapshots) snapIds.insert(each.snap_id);
    return status;
  });
}

bool TargetOperation::IsSnapshotExisted(const std::string& snapId) const {
  return !GetSnapshot(snapId).snap_id.empty();
}

Snapshot TargetOperation::GetSnapshot(const std::string& snapId) const {
  Snapshot found;
  RunAndRecord(*this, [&] {
    std::vector<Snapshot> snapshots;
    Status status = List(target_, snapshots);
    for (Snapshot& each : snapshots) {
      if (each.snap_id == snapId) found = std::move(each);
    }
    return status;
  });
  return found;
}

bool TargetOperation::TakeSnapshot(const Operation::SnapshotMeta& meta, std::string& snapId) const {
  return RunAndRecord(*this, [&] { return Take(target_, meta, snapId); });
}

bool TargetOperation::DeleteSnapshot(const std::string& snapId) const {
  return RunAndRecord(*this, [&] { return Delete(target_, snapId); });
}

bool TargetOperation::RestoreSnapshot(const std::string& snapId) const {
  return RunAndRecord(*this, [&] { return Restore(target_, snapId); });
}

bool TargetOperation::CloneSnapshot(const std::string& snapId, const std::string& uuid,
                                    std::string& cloneId) const {
  if (!RunAndRecord(*this, [&] { return Clone(target_, snapId, uuid); })) return false;
  cloneId = uuid;
  return true;
}

}  // namespace VrelDR
