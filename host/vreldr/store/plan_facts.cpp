// All that the tables have of many plans, in one look at each table.
#include <algorithm>
#include <unordered_map>

#include "store/plan_store.h"

namespace VrelDR {

namespace {

// The plans, by a text that each of them has.
using Index = std::unordered_map<std::string, PlanFacts*>;

PlanFacts* Find(const Index& index, const std::string& key) {
  const auto found = index.find(key);
  return found == index.end() ? nullptr : found->second;
}

bool ReadJournals(const Records& records, const Index& byPlan) {
  std::vector<std::pair<std::string, JournalRow>> journals;
  if (!records.journals.List(journals)) return false;
  for (auto& [planId, journal] : journals) {
    if (PlanFacts* plan = Find(byPlan, planId)) plan->journal = std::move(journal);
  }
  return true;
}

bool ReadPending(const Records& records, const Index& byPlan) {
  std::vector<std::string> planIds;
  if (!records.pending.ListPlans(planIds)) return false;
  for (const std::string& each : planIds) {
    if (PlanFacts* plan = Find(byPlan, each)) ++plan->pending_count;
  }
  return true;
}

bool ReadTargets(const Records& records, std::vector<PlanFacts>& facts) {
  std::vector<TargetRow> targets;
  if (!records.targets.ListOfAnyState(targets)) return false;
  std::unordered_map<std::string, const TargetRow*> byId;
  for (const TargetRow& each : targets) byId.emplace(each.target.GetId(), &each);
  const auto take = [&](const std::string& id, std::optional<TargetRow>& row) {
    const auto found = byId.find(id);
    if (found != byId.end()) row = *found->second;
  };
  for (PlanFacts& each : facts) {
    take(each.row.plan.GetSourceTargetId(), each.source);
    take(each.row.plan.GetReplicaTargetId(), each.replica);
  }
  return true;
}

// Looks up a snapshot that the plan holds on its replica, there and else at the source, and takes
// it unless the plan holds a newer one.
bool TakeHeld(const Records& records, const std::string& snapId, PlanFacts& plan) {
  const DRPlan& record = plan.row.plan;
  std::optional<SnapshotRow> there;
  std::optional<SnapshotRow> found;
  if (!records.snapshots.GetOfAnyState(record.GetReplicaTargetId(), snapId, there)) return false;
  found = there;
  if (!found && !records.snapshots.GetOfAnyState(record.GetSourceTargetId(), snapId, found)) {
    return false;
  }
  Operation::Snapshot held = found ? std::move(found->snapshot) : Operation::Snapshot();
  held.snap_id = snapId;
  if (plan.recorded.snap_id.empty() || held > plan.recorded) {
    plan.recorded = std::move(held);
    plan.is_recorded_whole = there && there->state == RecordState::kWhole;
  }
  return true;
}

bool ReadHeld(const Records& records, std::vector<PlanFacts>& facts) {
  std::vector<LockRow> locks;
  if (!records.locks.List(locks)) return false;
  Index byLocker;
  for (PlanFacts& each : facts) {
    byLocker.emplace(GetRetentionLocker(each.row.plan.GetPlanId()), &each);
  }
  return std::ranges::all_of(locks, [&](const LockRow& each) {
    PlanFacts* plan = Find(byLocker, each.locker);
    return plan == nullptr || each.target_id != plan->row.plan.GetReplicaTargetId() ||
           TakeHeld(records, each.snap_id, *plan);
  });
}

}  // namespace

Status PlanStore::ReadFacts(const std::set<std::string>& targetIds, ManyPlanFacts& facts) const {
  return db_.ReadAtOnce([&](const Records& records) {
    std::vector<PlanRow> rows;
    if (!records.plans.ListOfAnyState(rows)) return false;
    for (PlanRow& each : rows) {
      const DRPlan& plan = each.plan;
      if (each.state != RecordState::kWhole || (targetIds.count(plan.GetProtectedTargetId()) == 0 &&
                                                targetIds.count(plan.GetDRTargetId()) == 0)) {
        continue;
      }
      facts.plans.emplace_back().row = std::move(each);
    }
    if (!ReadTargets(records, facts.plans)) return false;
    Index byPlan;
    for (PlanFacts& each : facts.plans) byPlan.emplace(each.row.plan.GetPlanId(), &each);
    facts.journals = db_.Result(ReadJournals(records, byPlan));
    facts.pending = db_.Result(ReadPending(records, byPlan));
    facts.recorded = db_.Result(ReadHeld(records, facts.plans));
    return true;
  });
}

}  // namespace VrelDR
