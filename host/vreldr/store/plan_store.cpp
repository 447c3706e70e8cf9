#include "store/plan_store.h"

namespace VrelDR {

Status PlanStore::GetPlan(const std::string& planId, std::optional<PlanRow>& row) const {
  const bool good = db_.GetRecords().plans.GetOfAnyState(planId, row);
  if (row && (!good || row->state != RecordState::kWhole)) row.reset();
  return db_.Result(good);
}

Status PlanStore::FinishChange(const PlanRow& row, const std::string& message) const {
  return db_.Transact([&](const Records& records) {
    return records.plans.Change(row) && records.journals.Finish(row.plan.GetPlanId(), message);
  });
}

Status PlanStore::BeginRemoval(const std::string& planId, const std::string& targetId) const {
  return db_.Transact([&](const Records& records) {
    return records.plans.SetState(planId, RecordState::kDeleting) &&
           records.targets.SetState(targetId, RecordState::kDeleting) &&
           records.locks.RemoveAll(planId);
  });
}

Status PlanStore::GetJournal(const std::string& planId, JournalRow& row) const {
  std::optional<JournalRow> found;
  const bool good = db_.GetRecords().journals.Get(planId, found);
  row = std::move(found).value_or(JournalRow());
  return db_.Result(good);
}

Status PlanStore::WriteJournal(const std::string& planId, const JournalRow& row) const {
  return db_.Transact([&](const Records& records) {
    std::optional<SyncRow> sync;
    if (!records.journals.Replace(planId, row) || !records.syncs.Get(planId, sync)) return false;
    if (!sync || sync->state != OPState::kRunning) return true;
    sync->state = OPState::kInterrupted;
    return records.syncs.Replace(planId, *sync);
  });
}

Status PlanStore::WriteSyncReport(const std::string& planId, const SyncRow& row,
                                  int progress) const {
  return db_.TransactLoosely([&](const Records& records) {
    return records.syncs.Replace(planId, row) && records.journals.SetProgress(planId, progress);
  });
}

Status PlanStore::MoveLock(const DRPlan& plan, const std::string& oldId,
                           const std::string& newId) const {
  return db_.Transact([&](const Records& records) {
    return records.locks.Remove(plan.GetPlanId(), oldId) &&
           (newId.empty() || records.locks.AddBoth(plan, newId));
  });
}

Status PlanStore::AddPending(const std::string& planId, const std::string& snapId) const {
  return db_.Transact([&](const Records& records) {
    return records.pending.Remove(planId, snapId) && records.pending.Add(planId, snapId);
  });
}

Status PlanStore::RemovePending(const std::string& planId, const std::string& snapId) const {
  return db_.Transact(
      [&](const Records& records) { return records.pending.Remove(planId, snapId); });
}

Status PlanStore::DropHand(const DRPlan& plan, const std::string& snapId) const {
  return db_.Transact([&](const Records& records) {
    return records.locks.Remove(plan.GetPlanId(), snapId) &&
           records.plans.SetHand(plan.GetPlanId(), {});
  });
}

Status PlanStore::DropShipment(const DRPlan& plan, const std::string& snapId) const {
  return db_.Transact([&](const Records& records) {
    return records.locks.Remove(plan.GetPlanId(), snapId) &&
           records.plans.SetHand(plan.GetPlanId(), {}) &&
           records.pending.Remove(plan.GetPlanId(), snapId);
  });
}

Status PlanStore::CountHandFailure(const std::string& planId) const {
  return db_.Transact([&](const Records& records) {
    std::optional<PlanRow> row;
    if (!records.plans.GetOfAnyState(planId, row)) return false;
    return !row || row->state != RecordState::kWhole ||
           records.plans.SetHandFailures(planId, row->hand_failures + 1);
  });
}

}  // namespace VrelDR
