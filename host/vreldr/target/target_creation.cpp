#include "target/target_creation.h"

#include "base/kill_point.h"
#include "target/volume_admission.h"

namespace VrelDR {

namespace {

// Finishes what crashes left of creations and removals. A target that somebody works on right now
// is passed over, and so is one whose volume cannot be reached: the next call tries again.
Status FinishInterrupted(Host& host) {
  std::vector<TargetRow> rows;
  Status status = host.store->ListTargetsOfAnyState(rows);
  for (const TargetRow& each : rows) {
    if (!IsHalfDone(each.state)) continue;
    TargetLock lock;
    if (!lock.Acquire(host.config.state_dir, each.target.GetId()).IsOk()) continue;
    std::optional<TargetRow> now;
    if (!host.store->GetTargetOfAnyState(each.target.GetId(), now).IsOk() || !now) continue;
    if (IsHalfDone(now->state)) (void)ForgetTarget(host, *now);
  }
  return status;
}

// kErrExists when there is a record of the target.
Status CheckUnrecorded(const Host& host, const Target& target) {
  std::optional<TargetRow> existing;
  Status status = host.store->GetTargetOfAnyState(target.GetId(), existing);
  if (!status.IsOk() || !existing) return status;
  const bool whole = existing->state == RecordState::kWhole;
  return {kErrExists, "target " + Quoted(target.GetId()) + " exists already on volume " +
                          Quoted(existing->volume) +
                          (whole ? "; choose another identifier"
                                 : " in part, left by an interrupted call; make that volume "
                                   "reachable and run it again")};
}

}  // namespace

Status ForgetTarget(Host& host, const TargetRow& row) {
  const StorageEngine* engine = nullptr;
  Status status = host.FindEngine(row.volume, engine);
  if (status.IsOk()) status = engine->RemoveTarget(PlaceOf(row), host.watcher);
  KillPoint(kForgetBytesGone);
  if (status.IsOk()) status = host.store->RemoveTarget(row.target.GetId());
  KillPoint(kForgetDone);
  return status;
}

Status RemoveMarkedTarget(Host& host, const HostTarget& target) {
  Status status = InContext(target.Cannot("remove"), ForgetTarget(host, target.GetRow()));
  if (!status.IsOk()) {
    status.message +=
        "; its removal has begun, and what is left of it is not whole any more: mend that and "
        "remove it again";
  }
  return status;
}

Status CreateTarget(
    Host& host, const Target& target, const std::string& volume,
    const std::function<Status(const StorageEngine&, const TargetPlace&)>& makeBytes,
    const DRPlan* plan) {
  const std::string cannot =
      "cannot create target " + Quoted(target.GetId()) + " on volume " + Quoted(volume);
  const StorageEngine* engine = nullptr;
  Volume* place = nullptr;
  Status status = InContext(cannot, host.FindVolume(volume, place));
  // Before a new volume is judged by what is on it and what is recorded on it.
  if (status.IsOk()) status = FinishInterrupted(host);
  if (status.IsOk()) status = InContext(cannot, host.FindEngine(volume, engine));
  if (!status.IsOk()) return status;
  TargetLock lock;
  status = InContext(cannot, lock.Acquire(host.config.state_dir, target.GetId()));
  if (status.IsOk()) status = CheckUnrecorded(host, target);
  if (status.IsOk()) status = InContext(cannot, InitialiseVolume(host, *place));
  TargetRow row;
  row.target = target;
  row.volume = volume;
  if (status.IsOk()) {
    status = InContext(cannot, engine->PreparePlace(target, row.locator, host.watcher));
  }
  if (!status.IsOk()) return status;
  status = host.store->AddTarget(row, plan);
  if (!status.IsOk()) return status;
  KillPoint(kCreateRecorded);
  status = InContext(cannot, makeBytes(*engine, PlaceOf(row)));
  KillPoint(kCreateWhole);
  if (!status.IsOk()) {
    // What cannot be cleaned up now goes with the next call.
    if (engine->CleanUp(PlaceOf(row), host.watcher).IsOk())
      (void)host.store->RemoveTarget(target.GetId());
    return status;
  }
  status = host.store->FinishTarget(target.GetId());
  if (!status.IsOk()) (void)ForgetTarget(host, row);
  KillPoint(kCreateDone);
  return status;
}

}  // namespace VrelDR
