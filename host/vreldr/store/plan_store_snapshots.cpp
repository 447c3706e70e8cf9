// What plans have to do with snapshots: retention locks, pending ones, the one in hand; and what
// happens to plans together with targets.
#include "store/plan_store.h"
#include "store/rows.h"

namespace VrelDR {

using namespace Rows;  // short forms of commands on rows

namespace {

LockRow ReadLock(const SqliteValueList& values) {
  LockRow row;
  values.GetValue("seq", row.seq);
  row.target_id = GetText(values, "target_id");
  row.snap_id = GetText(values, "snap_id");
  row.locker = GetText(values, "locker");
  return row;
}

}  // namespace

Status PlanStore::ListLocksOfTarget(const std::string& targetId, std::vector<LockRow>& rows) const {
  return db_.Result(
      SelectInto(db_, Select(kLocks, SqliteEqual("target_id", targetId), "seq"), ReadLock, rows));
}

Status PlanStore::ListLocksOfPlan(const std::string& planId, std::vector<LockRow>& rows) const {
  return db_.Result(
      SelectInto(db_, Select(kLocks, SqliteEqual("locker", GetRetentionLocker(planId)), "seq"),
                 ReadLock, rows));
}

Status PlanStore::MoveLock(const DRPlan& plan, const std::string& oldId,
                           const std::string& newId) const {
  return db_.Transact([&] {
    return RemoveLocksWithin(plan.GetPlanId(), oldId) &&
           (newId.empty() || AddLocksWithin(plan, newId));
  });
}

Status PlanStore::ListPending(const std::string& planId, std::vector<std::string>& snapIds) const {
  return db_.Result(db_.Get().SelectEach(Select(kPending, SqliteEqual("plan_id", planId), "seq"),
                                         [&snapIds](const SqliteValueList& values) {
                                           snapIds.push_back(GetText(values, "snap_id"));
                                           return true;
                                         }));
}

Status PlanStore::AddPending(const std::string& planId, const std::string& snapId) const {
  return db_.Transact([&] {
    if (!RemovePendingWithin(planId, snapId)) return false;
    SqliteValueList values;
    values.AddValue("plan_id", planId);
    values.AddValue("snap_id", snapId);
    return Insert(db_, kPending, values);
  });
}

Status PlanStore::RemovePending(const std::string& planId, const std::string& snapId) const {
  return db_.Transact([&] { return RemovePendingWithin(planId, snapId); });
}

Status PlanStore::TakeInHand(const DRPlan& plan, const std::string& snapId) const {
  return db_.Transact([&] { return TakeInHandWithin(plan, snapId); });
}

Status PlanStore::DropHand(const DRPlan& plan, const std::string& snapId) const {
  return db_.Transact(
      [&] { return RemoveLocksWithin(plan.GetPlanId(), snapId) && SetHandWithin(plan, {}); });
}

Status PlanStore::DropShipment(const DRPlan& plan, const std::string& snapId) const {
  return db_.Transact([&] {
    return RemoveLocksWithin(plan.GetPlanId(), snapId) && SetHandWithin(plan, {}) &&
           RemovePendingWithin(plan.GetPlanId(), snapId);
  });
}

Status PlanStore::CountHandFailure(const std::string& planId) const {
  return db_.Transact([&] {
    std::optional<PlanRow> row;
    if (!GetPlan(planId, row).IsOk()) return false;
    if (!row) return true;
    UpdateCommand command = Update(kPlans, SqliteEqual("id", planId));
    command.AddFieldValue("hand_failures", row->hand_failures + 1);
    return db_.Get().UpdateRecord(command);
  });
}

bool PlanStore::FinishWithin(const std::string& drTargetId) const {
  return db_.Get().UpdateRecord(
      UpdateState(kPlans, SqliteEqual("dr_target_id", drTargetId), RecordState::kWhole));
}

bool PlanStore::RemoveUnfinishedWithin(const std::string& targetId) const {
  std::vector<std::string> unfinished;
  const auto look = [&unfinished](const SqliteValueList& values) {
    if (GetState(values) != RecordState::kWhole) unfinished.push_back(GetText(values, "id"));
    return true;
  };
  for (const char* side : {"protected_target_id", "dr_target_id"}) {
    if (!db_.Get().SelectEach(Select(kPlans, SqliteEqual(side, targetId), nullptr), look)) {
      return false;
    }
  }
  for (const std::string& planId : unfinished) {
    if (!RemoveWithin(planId)) return false;
  }
  return true;
}

bool PlanStore::TakeInHandWithin(const DRPlan& plan, const std::string& snapId) const {
  return SetHandWithin(plan, snapId) &&
         AddLockWithin(plan.GetSourceTargetId(), snapId, plan.GetPlanId());
}

bool PlanStore::KeepWithin(const DRPlan& plan, const std::string& snapId, bool isNewest) const {
  const std::string& planId = plan.GetPlanId();
  UpdateCommand sent = Update(kPlans, SqliteEqual("id", planId));
  sent.AddFieldValue("is_reprotected", false);
  return db_.Get().UpdateRecord(sent) && SetHandWithin(plan, {}) &&
         RemovePendingWithin(planId, snapId) &&
         RemoveLocksWithin(planId, isNewest ? std::string() : snapId) &&
         (!isNewest || AddLocksWithin(plan, snapId));
}

bool PlanStore::RemoveWithin(const std::string& planId) const {
  return RemoveLocksWithin(planId, {}) && Delete(db_, kPending, SqliteEqual("plan_id", planId)) &&
         Delete(db_, kSyncReports, SqliteEqual("plan_id", planId)) &&
         Delete(db_, kJournals, SqliteEqual("plan_id", planId)) &&
         Delete(db_, kPlans, SqliteEqual("id", planId));
}

bool PlanStore::RemovePendingWithin(const std::string& planId, const std::string& snapId) const {
  std::vector<long> found;
  const auto look = [&](const SqliteValueList& values) {
    if (GetText(values, "snap_id") == snapId) found.push_back(GetSeq(values));
    return true;
  };
  return db_.Get().SelectEach(Select(kPending, SqliteEqual("plan_id", planId), nullptr), look) &&
         DeleteAll(db_, kPending, found);
}

bool PlanStore::SetHandWithin(const DRPlan& plan, const std::string& snapId) const {
  UpdateCommand command = Update(kPlans, SqliteEqual("id", plan.GetPlanId()));
  command.AddFieldValue("hand_snap_id", snapId);
  command.AddFieldValue("hand_failures", 0);
  return db_.Get().UpdateRecord(command);
}

bool PlanStore::AddLockWithin(const std::string& targetId, const std::string& snapId,
                              const std::string& planId) const {
  const std::string locker = GetRetentionLocker(planId);
  bool found = false;
  const auto look = [&](const SqliteValueList& values) {
    found = GetText(values, "target_id") == targetId && GetText(values, "snap_id") == snapId;
    return !found;
  };
  if (!db_.Get().SelectEach(Select(kLocks, SqliteEqual("locker", locker), nullptr), look)) {
    return false;
  }
  SqliteValueList values;
  values.AddValue("target_id", targetId);
  values.AddValue("snap_id", snapId);
  values.AddValue("locker", locker);
  return found || Insert(db_, kLocks, values);
}

bool PlanStore::AddLocksWithin(const DRPlan& plan, const std::string& snapId) const {
  return AddLockWithin(plan.GetSourceTargetId(), snapId, plan.GetPlanId()) &&
         AddLockWithin(plan.GetReplicaTargetId(), snapId, plan.GetPlanId());
}

bool PlanStore::RemoveLocksWithin(const std::string& planId, const std::string& snapId) const {
  std::vector<long> found;
  const auto look = [&](const SqliteValueList& values) {
    if (snapId.empty() || GetText(values, "snap_id") == snapId) found.push_back(GetSeq(values));
    return true;
  };
  const SelectCommand ofPlan =
      Select(kLocks, SqliteEqual("locker", GetRetentionLocker(planId)), nullptr);
  return db_.Get().SelectEach(ofPlan, look) && DeleteAll(db_, kLocks, found);
}

}  // namespace VrelDR
