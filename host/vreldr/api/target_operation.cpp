#include "vreldr/target_operation.h"

#include "base/boundary.h"
#include "base/fail_point.h"
#include "plan/guard.h"
#include "target/host.h"
#include "target/target_creation.h"
#include "target/target_snapshot.h"

namespace VrelDR {

namespace {

using Operation::Snapshot;

Status Take(const Target& target, const Operation::SnapshotMeta& meta, std::string& snapId) {
  const std::shared_ptr<Host> host = TheHost();
  HostTarget opened(*host);
  Status status = opened.OpenToTake(target.GetId());
  if (status.IsOk()) {
    status = InContext(opened.Cannot("take a snapshot of"),
                       Guard::CheckChangeable(opened.GetStore(), target.GetId()));
  }
  if (!status.IsOk()) return status;
  SnapshotOrder order;
  order.meta = meta;
  Snapshot taken;
  status = TakeSnapshotOf(opened, order, taken);
  if (status.IsOk()) snapId = taken.snap_id;
  return status;
}

Status Delete(const Target& target, const std::string& snapId) {
  const std::shared_ptr<Host> host = TheHost();
  HostTarget opened(*host);
  Status status = opened.OpenToWrite(target.GetId());
  if (status.IsOk()) {
    status = InContext(opened.Cannot("delete a snapshot of"),
                       Guard::CheckReleased(opened.GetStore(), target.GetId(), snapId));
  }
  return status.IsOk() ? DeleteSnapshotOf(opened, snapId) : status;
}

Status Restore(const Target& target, const std::string& snapId) {
  const std::shared_ptr<Host> host = TheHost();
  HostTarget opened(*host);
  Snapshot found;
  Status status = opened.OpenToWrite(target.GetId());
  if (status.IsOk()) status = FindSnapshot(opened, snapId, found);
  if (status.IsOk()) {
    status = InContext(opened.Cannot("restore"),
                       Guard::CheckChangeable(opened.GetStore(), target.GetId()));
  }
  if (!status.IsOk()) return status;
  status = InContext(opened.Cannot("restore"),
                     opened.GetEngine().RestoreSnapshot(opened.GetPlace(), snapId, host->watcher));
  // What cannot be cleaned up now goes with the next change of the target.
  if (!status.IsOk()) (void)opened.GetEngine().CleanUp(opened.GetPlace(), host->watcher);
  return status;
}

Status Clone(const Target& target, const std::string& snapId, const std::string& uuid) {
  if (!IsAllowedId(uuid)) {
    return {kErrBadArgument, "a clone cannot be called " + Quoted(uuid) + "; give it a UUID"};
  }
  const std::shared_ptr<Host> host = TheHost();
  // Its lock keeps the snapshot in place.
  HostTarget opened(*host);
  Snapshot found;
  Status status = opened.OpenToWrite(target.GetId());
  if (status.IsOk()) status = FindSnapshot(opened, snapId, found);
  if (!status.IsOk()) return status;
  const Target clone(uuid, opened.GetTarget().GetType());
  return InContext(opened.Cannot("clone a snapshot of"),
                   CreateTarget(*host, clone, opened.GetRow().volume,
                                [&](const StorageEngine& engine, const TargetPlace& place) {
                                  return engine.CloneSnapshot(opened.GetPlace(), snapId, place,
                                                              host->watcher);
                                }));
}

Status List(const Target& target, std::vector<Snapshot>& snapshots) {
  const std::shared_ptr<Host> host = TheHost();
  HostTarget opened(*host);
  Status status = opened.OpenToRead(target.GetId());
  return status.IsOk() ? opened.ListSnapshots(snapshots) : status;
}

}  // namespace

TargetOperation::TargetOperation(const Target& target) : target_(target) {}

TargetOperation::TargetOperation(int type, const std::string& targetId) : target_(targetId, type) {}

bool TargetOperation::IsExisted() const {
  bool exists = false;
  RunAndRecord(*this, [&]() -> Status {
    const std::shared_ptr<Host> host = TheHost();
    HostTarget opened(*host);
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
  return RunAndRecord(*this, [this] { return FailPoint(kFailAsk, target_.GetId()); }) &&
         !GetSnapshot(snapId).snap_id.empty();
}

Snapshot TargetOperation::GetSnapshot(const std::string& snapId) const {
  Snapshot found;
  RunAndRecord(*this, [&] {
    const std::shared_ptr<Host> host = TheHost();
    HostTarget opened(*host);
    std::optional<Snapshot> known;
    Status status = opened.OpenToRead(target_.GetId());
    if (status.IsOk()) status = opened.GetSnapshot(snapId, known);
    if (known) found = *std::move(known);
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
