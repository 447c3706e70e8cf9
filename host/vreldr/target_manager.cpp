#include "vreldr/target_manager.h"

#include "boundary.h"
#include "host.h"
#include "kill_point.h"

namespace VrelDR {

namespace {

Status CheckSpec(const TargetSpec& spec) {
  if (!IsAllowedId(spec.target.GetId())) {
    return {kErrBadArgument,
            "the identifier " + Quoted(spec.target.GetId()) +
                " is not allowed; it must have 1 to 200 bytes, none of them \"/\" or a control "
                "character, and not begin with \".\""};
  }
  const int type = spec.target.GetType();
  if (type < kTargetLun || type > kTargetGuest) {
    return {kErrBadArgument, "the target type " + std::to_string(type) +
                                 " is not known; it must be 1 (lun), 2 (share) or 3 (guest)"};
  }
  return {};
}

// Removes the target's bytes and records; the caller has its lock. `row` is marked before.
Status Forget(const Host& host, const TargetRow& row) {
  const StorageEngine* engine = nullptr;
  Status status = host.FindEngine(row.volume, engine);
  if (status.IsOk()) status = engine->RemoveTarget(row.target);
  KillPoint(kForgetBytesGone);
  if (status.IsOk()) status = host.store->RemoveTarget(row.target.GetId());
  KillPoint(kForgetDone);
  return status;
}

// Finishes what crashes left of creations and removals. A target that somebody works on right now
// is passed over, and so is one whose volume cannot be reached: the next call tries again.
Status FinishInterrupted(const Host& host) {
  std::vector<TargetRow> rows;
  Status status = host.store->ListTargets(rows);
  for (const TargetRow& each : rows) {
    if (each.state == RecordState::kWhole) continue;
    TargetLock lock;
    if (!lock.Acquire(host.config.state_dir, each.target.GetId()).IsOk()) continue;
    std::optional<TargetRow> now;
    if (!host.store->GetTarget(each.target.GetId(), now).IsOk() || !now) continue;
    if (now->state != RecordState::kWhole) (void)Forget(host, *now);
  }
  return status;
}

std::string CannotCreate(const TargetSpec& spec) {
  return "cannot create target " + Quoted(spec.target.GetId()) + " on volume " +
         Quoted(spec.volume);
}

Status CreateLocked(const Host& host, const StorageEngine& engine, const TargetSpec& spec) {
  std::optional<TargetRow> existing;
  Status status = host.store->GetTarget(spec.target.GetId(), existing);
  if (!status.IsOk()) return status;
  if (existing) {
    const bool whole = existing->state == RecordState::kWhole;
    return {kErrExists, "target " + Quoted(spec.target.GetId()) + " exists already on volume " +
                            Quoted(existing->volume) +
                            (whole ? "; choose another identifier"
                                   : " in part, left by an interrupted call; make that volume "
                                     "reachable and run it again")};
  }
  status = InContext(CannotCreate(spec), engine.PreparePlace(spec.target));
  if (!status.IsOk()) return status;

  TargetRow row;
  row.target = spec.target;
  row.volume = spec.volume;
  status = host.store->AddTarget(row);
  if (!status.IsOk()) return status;
  KillPoint(kCreateRecorded);
  status = InContext(CannotCreate(spec),
                     engine.CreateTarget(spec.target, {spec.size_bytes, spec.sources}));
  KillPoint(kCreateWhole);
  if (!status.IsOk()) {
    // What cannot be cleaned up now goes with the next call.
    if (engine.CleanUp(spec.target).IsOk()) (void)host.store->RemoveTarget(spec.target.GetId());
    return status;
  }
  status = host.store->SetTargetState(spec.target.GetId(), RecordState::kWhole);
  if (!status.IsOk()) (void)Forget(host, row);
  KillPoint(kCreateDone);
  return status;
}

Status CreateTarget(const TargetSpec& spec) {
  Status status = CheckSpec(spec);
  if (!status.IsOk()) return status;
  Host host;
  status = host.Open();
  const StorageEngine* engine = nullptr;
  if (status.IsOk()) status = InContext(CannotCreate(spec), host.FindEngine(spec.volume, engine));
  if (status.IsOk()) status = FinishInterrupted(host);
  if (!status.IsOk()) return status;
  TargetLock lock;
  status = InContext(CannotCreate(spec), lock.Acquire(host.config.state_dir, spec.target.GetId()));
  return status.IsOk() ? CreateLocked(host, *engine, spec) : status;
}

// Whether the target may be removed: its volume can be reached and written, and no snapshots are in
// the way.
Status CheckRemovable(const HostTarget& opened, bool withSnapshots) {
  bool found = false;
  std::vector<Operation::Snapshot> snapshots;
  Status status = opened.GetEngine().FindTarget(opened.GetTarget(), found);
  if (status.IsOk()) status = opened.GetEngine().CheckWritable();
  status = InContext(opened.Cannot("remove"), status);
  if (status.IsOk()) status = opened.ListSnapshots(snapshots);
  if (!status.IsOk() || snapshots.empty() || withSnapshots) return status;
  return {kErrExists, opened.Cannot("remove") + ": it has " + std::to_string(snapshots.size()) +
                          " snapshots; delete them first or have them removed with it"};
}

Status RemoveTarget(const std::string& targetId, bool withSnapshots) {
  Host host;
  HostTarget opened(host);
  Status status = opened.Claim(targetId);
  // What an interrupted call left is nobody's any more: no question is asked then.
  if (status.IsOk() && opened.GetRow().state == RecordState::kWhole) {
    status = CheckRemovable(opened, withSnapshots);
    if (status.IsOk()) status = host.store->SetTargetState(targetId, RecordState::kDeleting);
  }
  if (!status.IsOk()) return status;
  KillPoint(kForgetMarked);
  return InContext(opened.Cannot("remove"), Forget(host, opened.GetRow()));
}

TargetEntry Describe(Host& host, const TargetRow& row) {
  TargetEntry entry;
  entry.target = row.target;
  entry.volume = row.volume;
  HostTarget opened(host);
  if (!opened.Adopt(row).IsOk()) return entry;
  entry.path = opened.GetEngine().GetTargetPath(row.target);
  std::vector<Operation::Snapshot> snapshots;
  if (opened.GetEngine().FindTarget(row.target, entry.is_existed).IsOk() &&
      opened.ListSnapshots(snapshots).IsOk()) {
    entry.snapshots = snapshots.size();
  }
  return entry;
}

}  // namespace

bool TargetManager::Create(const TargetSpec& spec) const {
  return RunAndRecord(*this, [&] { return CreateTarget(spec); });
}

bool TargetManager::List(std::vector<TargetEntry>& targets) const {
  return RunAndRecord(*this, [&]() -> Status {
    Host host;
    Status status = host.Open();
    std::vector<TargetRow> rows;
    if (status.IsOk()) status = host.store->ListTargets(rows);
    for (const TargetRow& row : rows) {
      if (row.state == RecordState::kWhole) targets.push_back(Describe(host, row));
    }
    return status;
  });
}

bool TargetManager::Get(const std::string& targetId, TargetEntry& entry) const {
  bool found = false;
  return RunAndRecord(*this,
                      [&]() -> Status {
                        Host host;
                        Status status = host.Open();
                        std::optional<TargetRow> row;
                        if (status.IsOk()) status = host.store->GetTarget(targetId, row);
                        found = row && row->state == RecordState::kWhole;
                        if (found) entry = Describe(host, *row);
                        return status;
                      }) &&
         found;
}

bool TargetManager::Remove(const std::string& targetId, bool withSnapshots) const {
  return RunAndRecord(*this, [&] { return RemoveTarget(targetId, withSnapshots); });
}

}  // namespace VrelDR
