#include "plan/put_in_hand.h"

#include <algorithm>
#include <map>
#include <memory>

#include "base/kill_point.h"
#include "engine/support/side_by_side.h"
#include "plan/checks.h"
#include "plan/host_plan.h"
#include "plan/plan_text.h"
#include "target/target_snapshot.h"

namespace VrelDR {

namespace {

// Each waits for the disk, and for nothing else.
constexpr std::size_t kMostTakeUps = 8;

// The snapshots on their way into the hands of plans that are claimed.
class Handing {
 public:
  Handing(const TargetCut& cut, const Operation::SnapshotMeta& meta) : cut_(cut), meta_(meta) {}

  // Claims the plan and opens its source.
  Status Add(const std::string& planId);
  // Until then what was not taken up before is given back to the cut; from then on it is gone after
  // a failure.
  Status TakeUpAndRecord(bool isMadeBySync);

 private:
  Status Open(HostPlan& plan);
  Status TakeUp();

  const TargetCut& cut_;
  const Operation::SnapshotMeta& meta_;
  std::vector<std::unique_ptr<HostPlan>> plans_;
  std::map<std::string, std::unique_ptr<HostTarget>> sources_;  // which several plans may share
};

Status Handing::Add(const std::string& planId) {
  HostPlan& plan = *plans_.emplace_back(std::make_unique<HostPlan>());
  Status status = plan.OpenToRead(planId);
  if (!status.IsOk()) return status;
  status = plan.Claim();
  if (status.IsOk()) status = plan.Settle();
  if (status.IsOk()) status = Check::Sync(plan);
  if (status.IsOk() && !plan.GetRow().hand_snap_id.empty()) {
    status = {kErrPlanState, "it has snapshot " + Quoted(plan.GetRow().hand_snap_id) +
                                 " of an earlier sync in hand; send that first"};
  }
  if (status.IsOk()) status = Open(plan);
  return InContext("cannot put a cut in hand of " + NameOf(plan.Get()), status);
}

Status Handing::Open(HostPlan& plan) {
  const std::string& id = plan.Get().GetSourceTargetId();
  const Operation::Snapshot* snapshot = cut_.FindSnapshot(id);
  if (snapshot == nullptr) {
    return {kErrBadArgument, "its source, target " + Quoted(id) +
                                 ", is not in the cut; prepare the cut over the sources"};
  }
  std::unique_ptr<HostTarget>& source = sources_[id];
  if (source) return {};
  source = std::make_unique<HostTarget>(plan.GetHost());
  Status status = plan.OpenToTake(id, *source);
  Operation::Snapshot found;
  if (status.IsOk() && source->GetPart() == nullptr) {
    status = FindSnapshot(*source, snapshot->snap_id, found);
  }
  return status;
}

Status Handing::TakeUp() {
  std::vector<Job> jobs;
  for (const auto& [id, opened] : sources_) {
    if (opened->GetPart() == nullptr) continue;
    opened->GetPart()->Spend();
    jobs.emplace_back([source = opened.get()](Watcher& watcher) {
      return InContext(source->Cannot("take a snapshot of"),
                       source->GetEngine().TakeUp(
                           source->GetPlace(), source->GetPart()->GetSnapshot().snap_id, watcher));
    });
  }
  return RunSideBySide(jobs, kMostTakeUps, plans_.front()->GetHost().watcher);
}

Status Handing::TakeUpAndRecord(bool isMadeBySync) {
  std::vector<Store::TakenUp> takenUp;
  for (const auto& [id, source] : sources_) {
    if (source->GetPart() == nullptr) continue;
    takenUp.push_back({id, source->GetPart()->GetSnapshot()});
    takenUp.back().snapshot.meta = meta_;
  }
  std::vector<Store::InHand> inHand;
  for (const auto& plan : plans_) {
    const std::string& id = plan->Get().GetSourceTargetId();
    inHand.push_back({plan->Get(), cut_.FindSnapshot(id)->snap_id});
  }
  CutInfo info = cut_.GetInfo();
  info.is_made_by_sync = isMadeBySync;
  Status status = TakeUp();
  KillPoint(kHandTakenUp);
  if (status.IsOk()) status = plans_.front()->GetStore().PutInHand(takenUp, inHand, info);
  if (!status.IsOk()) {
    // What cannot be cleaned up now is not listed, and goes with the next change of its target.
    for (const Store::TakenUp& each : takenUp) (void)CleanUpSnapshots(*sources_.at(each.target_id));
    return status;
  }
  KillPoint(kHandRecorded);
  for (const Store::InHand& each : inHand) {
    CutParts::NoteInHand(info.id, each.plan.GetPlanId(), each.snap_id);
  }
  return {};
}

}  // namespace

Status PutInHand(const TargetCut& cut, std::vector<std::string> planIds,
                 const Operation::SnapshotMeta& meta, bool isMadeBySync) {
  if (planIds.empty()) return {kErrBadArgument, "no plan is named; name one"};
  // In one order, so that of two who want the same plans one gets them all.
  std::ranges::sort(planIds);
  planIds.erase(std::unique(planIds.begin(), planIds.end()), planIds.end());
  Handing handing(cut, meta);
  Status status;
  for (const std::string& each : planIds) {
    if (status.IsOk()) status = handing.Add(each);
  }
  return status.IsOk() ? handing.TakeUpAndRecord(isMadeBySync) : status;
}

}  // namespace VrelDR
