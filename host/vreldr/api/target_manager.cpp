#include "vreldr/target_manager.h"

#include "base/boundary.h"
#include "base/kill_point.h"
#include "plan/guard.h"
#include "target/host.h"
#include "target/target_creation.h"
#include "target/target_look.h"

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

Status CreateTarget(const TargetSpec& spec) {
  Status status = CheckSpec(spec);
  if (!status.IsOk()) return status;
  const std::shared_ptr<Host> host = TheHost();
  status = host->Open(Making::kWhenAbsent);
  if (!status.IsOk()) return status;
  return CreateTarget(
      *host, spec.target, spec.volume, [&](const StorageEngine& engine, const TargetPlace& place) {
        if (spec.target.GetType() == kTargetLun && spec.sources.empty() && spec.size_bytes == 0) {
          return Status{kErrBadArgument, "a lun needs an image file or a size; give one of them"};
        }
        return engine.CreateTarget(place, {spec.size_bytes, spec.sources}, host->watcher);
      });
}

// Whether the target may be removed: its volume can be reached and written, and no snapshots are in
// the way.
Status CheckRemovable(const HostTarget& opened, bool withSnapshots) {
  bool found = false;
  std::vector<Operation::Snapshot> snapshots;
  Status status = opened.GetEngine().FindTarget(opened.GetPlace(), found, opened.GetWatcher());
  if (status.IsOk()) status = opened.GetEngine().CheckWritable(opened.GetWatcher());
  if (status.IsOk()) {
    status =
        opened.GetEngine().CheckPlace(opened.GetPlace(), PlaceUse::kRemoval, opened.GetWatcher());
  }
  status = InContext(opened.Cannot("remove"), status);
  if (status.IsOk()) status = opened.ListSnapshots(snapshots);
  if (!status.IsOk() || snapshots.empty() || withSnapshots) return status;
  return {kErrExists, opened.Cannot("remove") + ": it has " + std::to_string(snapshots.size()) +
                          " snapshots; delete them first or have them removed with it"};
}

Status RemoveTarget(const std::string& targetId, bool withSnapshots) {
  const std::shared_ptr<Host> host = TheHost();
  HostTarget opened(*host);
  Status status = opened.Claim(targetId);
  // What an interrupted call left is nobody's any more: no question is asked then.
  if (status.IsOk() && !IsHalfDone(opened.GetRow().state)) {
    status = InContext(opened.Cannot("remove"), Guard::CheckRemovable(opened.GetStore(), targetId));
    if (status.IsOk()) status = CheckRemovable(opened, withSnapshots);
    if (status.IsOk()) status = host->store->MarkTargetDeleting(targetId);
  }
  if (!status.IsOk()) return status;
  KillPoint(kForgetMarked);
  return RemoveMarkedTarget(*host, opened);
}

// With the plan that goes with it, if one does.
Status DescribeRemains(const Store& store, const TargetRow& row, TargetRemains& remains) {
  remains.target = row.target;
  remains.volume = row.volume;
  std::vector<PlanRow> plans;
  Status status = store.Plans().SelectPlansOfAnyState(row.target.GetId(), plans);
  for (const PlanRow& each : plans) {
    if (each.state != RecordState::kDeleting) continue;
    const DRPlan& plan = each.plan;
    remains.plan_id = plan.GetPlanId();
    remains.other_target_id = plan.GetDRTargetId() == row.target.GetId()
                                  ? plan.GetProtectedTargetId()
                                  : plan.GetDRTargetId();
    remains.is_dr_side = plan.GetDRTargetId() == row.target.GetId();
  }
  return status;
}

// Appends what is to be said of the targets, in their order: each volume is asked once, and the
// records for no more than a count of each.
void Describe(Host& host, const std::vector<TargetRow>& rows, std::vector<TargetEntry>& entries) {
  std::vector<TargetLook> looks;
  looks.reserve(rows.size());
  for (const TargetRow& row : rows) looks.push_back({&row, row.target.GetId(), {}, {}, false, {}});
  LookAtTargets(host, looks);
  for (const TargetLook& look : looks) {
    const TargetRow& row = *look.row;
    TargetEntry& entry = entries.emplace_back();
    entry.target = row.target;
    entry.volume = row.volume;
    HostTarget opened(host);
    Status status = opened.Adopt(row);
    if (status.IsOk()) entry.path = opened.GetEngine().GetTargetPath(PlaceOf(row));
    entry.is_existed = look.status.IsOk();
    if (status.IsOk() && look.status.code != kErrTargetMissing) status = look.status;
    if (status.IsOk()) status = host.store->CountSnapshots(row.target.GetId(), entry.snapshots);
    entry.problem = status.message;
  }
}

}  // namespace

bool TargetManager::Create(const TargetSpec& spec) const {
  return RunAndRecord(*this, [&] { return CreateTarget(spec); });
}

bool TargetManager::List(std::vector<TargetEntry>& targets) const {
  return RunAndRecord(*this, [&]() -> Status {
    const std::shared_ptr<Host> host = TheHost();
    Status status = host->OpenIfMade();
    std::vector<TargetRow> rows;
    if (host->store) status = host->store->ListTargets(rows);
    if (status.IsOk()) Describe(*host, rows, targets);
    return status;
  });
}

bool TargetManager::ListRemains(std::vector<TargetRemains>& remains) const {
  return RunAndRecord(*this, [&]() -> Status {
    const std::shared_ptr<Host> host = TheHost();
    Status status = host->OpenIfMade();
    std::vector<TargetRow> rows;
    if (host->store) status = host->store->ListTargetsOfAnyState(rows);
    for (const TargetRow& row : rows) {
      if (!status.IsOk() || row.state != RecordState::kDeleting) continue;
      TargetRemains found;
      status = DescribeRemains(*host->store, row, found);
      if (status.IsOk()) remains.push_back(std::move(found));
    }
    return status;
  });
}

bool TargetManager::Get(const std::string& targetId, TargetEntry& entry) const {
  bool found = false;
  return RunAndRecord(*this,
                      [&]() -> Status {
                        const std::shared_ptr<Host> host = TheHost();
                        Status status = host->OpenIfMade();
                        std::optional<TargetRow> row;
                        if (host->store) status = host->store->GetTarget(targetId, row);
                        found = row.has_value();
                        std::vector<TargetEntry> entries;
                        if (found) Describe(*host, {*row}, entries);
                        if (found) entry = std::move(entries.front());
                        return status;
                      }) &&
         found;
}

bool TargetManager::Remove(const std::string& targetId, bool withSnapshots) const {
  return RunAndRecord(*this, [&] { return RemoveTarget(targetId, withSnapshots); });
}

bool TargetManager::CheckPlace(const std::string& targetId, PlaceUse use) const {
  return RunAndRecord(*this, [&] {
    const std::shared_ptr<Host> host = TheHost();
    HostTarget opened(*host);
    Status status = opened.OpenToRead(targetId);
    if (!status.IsOk()) return status;
    const std::string what = use == PlaceUse::kSnapshot      ? "take a snapshot of"
                             : use == PlaceUse::kReplacement ? "restore"
                             : use == PlaceUse::kRemoval     ? "remove"
                                                             : "make unwritable";
    return InContext(opened.Cannot(what),
                     opened.GetEngine().CheckPlace(opened.GetPlace(), use, host->watcher));
  });
}

bool TargetManager::FindMounts(const std::string& targetId, std::vector<std::string>& paths) const {
  return RunAndRecord(*this, [&] {
    const std::shared_ptr<Host> host = TheHost();
    HostTarget opened(*host);
    Status status = opened.OpenToRead(targetId);
    return status.IsOk() ? opened.GetEngine().FindLeftOut(opened.GetPlace(), paths, host->watcher)
                         : status;
  });
}

}  // namespace VrelDR
