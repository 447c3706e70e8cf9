// The tables that only plans have.
#include <algorithm>

#include "store/record_sets.h"

namespace VrelDR {

using VrelDRCore::SqliteValueList;

namespace {

PlanRow ReadPlan(const SqliteValueList& values) {
  PlanRow row;
  DRPlan& plan = row.plan;
  plan.SetPlanId(GetText(values, "id"));
  plan.SetSolutionType(GetNumber<int>(values, "solution_type"));
  plan.SetProtectedTargetType(GetNumber<int>(values, "target_type"));
  plan.SetProtectedTargetId(GetText(values, "protected_target_id"));
  plan.SetDRTargetId(GetText(values, "dr_target_id"));
  plan.SetScheduleMode(GetNumber<int>(values, "schedule_mode"));
  plan.SetMainSite(GetText(values, "main_site"));
  plan.SetDRSite(GetText(values, "dr_site"));
  plan.SetStatus(GetNumber<int>(values, "status"));
  plan.SetDirection(GetNumber<DRPlanDirection>(values, "direction"));
  values.GetValue("is_reprotected", row.is_reprotected);
  row.hand_snap_id = GetText(values, "hand_snap_id");
  row.hand_failures = GetNumber<int>(values, "hand_failures");
  row.state = GetNumber<RecordState>(values, "state");
  row.seq = GetNumber<long>(values, "seq");
  return row;
}

LockRow ReadLock(const SqliteValueList& values) {
  return {GetText(values, "target_id"), GetText(values, "snap_id"), GetText(values, "locker")};
}

std::string ReadPending(const SqliteValueList& values) {
  return GetText(values, "snap_id");
}

std::string ReadPlanId(const SqliteValueList& values) {
  return GetText(values, "plan_id");
}

SyncRow ReadSync(const SqliteValueList& values) {
  SyncRow row;
  row.state = GetNumber<OPState>(values, "state");
  row.snap_id = GetText(values, "snap_id");
  row.record.sync_size_byte = GetNumber<std::uint64_t>(values, "done_bytes");
  row.record.total_size_byte = GetNumber<std::uint64_t>(values, "total_bytes");
  row.record.sent_size_byte = GetNumber<std::uint64_t>(values, "sent_bytes");
  values.GetValue("begin_time", row.record.begin_time);
  values.GetValue("end_time", row.record.end_time);
  return row;
}

JournalRow ReadJournal(const SqliteValueList& values) {
  JournalRow row;
  row.op = GetNumber<DRPlanOPStatus>(values, "op");
  row.state = GetNumber<OPState>(values, "state");
  row.progress = GetNumber<int>(values, "progress");
  values.GetValue("begin_time", row.begin_time);
  row.message = GetText(values, "message");
  row.snap_id = GetText(values, "snap_id");
  values.GetValue("pid", row.pid);
  values.GetValue("is_stop_asked", row.is_stop_asked);
  return row;
}

std::pair<std::string, JournalRow> ReadJournalWithPlan(const SqliteValueList& values) {
  return {ReadPlanId(values), ReadJournal(values)};
}

VrelDRCore::SqliteEqual OfPlan(const std::string& planId) {
  return {"plan_id", planId};
}

}  // namespace

bool PlanRecords::ListOfAnyState(std::vector<PlanRow>& rows) const {
  return List({}, "seq", ReadPlan, rows);
}

bool PlanRecords::SelectOfAnyState(const std::string& targetId, std::vector<PlanRow>& rows) const {
  for (const char* side : {"protected_target_id", "dr_target_id"}) {
    if (!List({{side, targetId}}, nullptr, ReadPlan, rows)) return false;
  }
  std::ranges::sort(rows, {}, &PlanRow::seq);
  return true;
}

bool PlanRecords::GetOfAnyState(const std::string& planId, std::optional<PlanRow>& row) const {
  return Get({{"id", planId}}, ReadPlan, row);
}

bool PlanRecords::Add(const DRPlan& plan) const {
  return Insert({{"id", plan.GetPlanId()},
                 {"state", Number(RecordState::kBuilding)},
                 {"solution_type", plan.GetSolutionType()},
                 {"target_type", plan.GetProtectedTargetType()},
                 {"protected_target_id", plan.GetProtectedTargetId()},
                 {"dr_target_id", plan.GetDRTargetId()},
                 {"schedule_mode", plan.GetScheduleMode()},
                 {"main_site", plan.GetMainSite()},
                 {"dr_site", plan.GetDRSite()},
                 {"status", plan.GetStatus()},
                 {"direction", Number(plan.GetDirection())}});
}

bool PlanRecords::Change(const PlanRow& row) const {
  return Update({{"id", row.plan.GetPlanId()}}, {{"status", row.plan.GetStatus()},
                                                 {"direction", Number(row.plan.GetDirection())},
                                                 {"is_reprotected", row.is_reprotected}});
}

bool LockRecords::List(std::vector<LockRow>& rows) const {
  return Table::List({}, "seq", ReadLock, rows);
}

bool LockRecords::ListOfTarget(const std::string& targetId, std::vector<LockRow>& rows) const {
  return Table::List({{"target_id", targetId}}, "seq", ReadLock, rows);
}

bool LockRecords::ListOfPlan(const std::string& planId, std::vector<LockRow>& rows) const {
  return Table::List({HeldBy(planId)}, "seq", ReadLock, rows);
}

bool LockRecords::Add(const std::string& planId, const std::string& targetId,
                      const std::string& snapId) const {
  std::vector<LockRow> rows;
  if (!ListOfPlan(planId, rows)) return false;
  const auto isThis = [&](const LockRow& each) {
    return each.target_id == targetId && each.snap_id == snapId;
  };
  return std::ranges::any_of(rows, isThis) || Insert({{"target_id", targetId},
                                                      {"snap_id", snapId},
                                                      {"locker", GetRetentionLocker(planId)}});
}

bool LockRecords::AddBoth(const DRPlan& plan, const std::string& snapId) const {
  return Add(plan.GetPlanId(), plan.GetSourceTargetId(), snapId) &&
         Add(plan.GetPlanId(), plan.GetReplicaTargetId(), snapId);
}

bool PendingRecords::List(const std::string& planId, std::vector<std::string>& snapIds) const {
  return Table::List({OfPlan(planId)}, "seq", ReadPending, snapIds);
}

bool PendingRecords::ListPlans(std::vector<std::string>& planIds) const {
  return Table::List({}, nullptr, ReadPlanId, planIds);
}

bool SyncRecords::Get(const std::string& planId, std::optional<SyncRow>& row) const {
  return Table::Get({OfPlan(planId)}, ReadSync, row);
}

bool SyncRecords::Replace(const std::string& planId, const SyncRow& row) const {
  return Remove(planId) && Insert({{"plan_id", planId},
                                   {"state", Number(row.state)},
                                   {"snap_id", row.snap_id},
                                   {"done_bytes", Number(row.record.sync_size_byte)},
                                   {"total_bytes", Number(row.record.total_size_byte)},
                                   {"sent_bytes", Number(row.record.sent_size_byte)},
                                   {"begin_time", Number(row.record.begin_time)},
                                   {"end_time", Number(row.record.end_time)}});
}

bool JournalRecords::Get(const std::string& planId, std::optional<JournalRow>& row) const {
  return Table::Get({OfPlan(planId)}, ReadJournal, row);
}

bool JournalRecords::List(std::vector<std::pair<std::string, JournalRow>>& rows) const {
  return Table::List({}, nullptr, ReadJournalWithPlan, rows);
}

bool JournalRecords::Replace(const std::string& planId, const JournalRow& row) const {
  return Remove(planId) && Insert({{"plan_id", planId},
                                   {"op", Number(row.op)},
                                   {"state", Number(row.state)},
                                   {"progress", row.progress},
                                   {"begin_time", Number(row.begin_time)},
                                   {"message", row.message},
                                   {"snap_id", row.snap_id},
                                   {"pid", row.pid},
                                   {"is_stop_asked", row.is_stop_asked}});
}

bool JournalRecords::Finish(const std::string& planId, const std::string& message) const {
  return Update({OfPlan(planId)}, {{"state", Number(OPState::kDone)},
                                   {"progress", 100},
                                   {"snap_id", ""},
                                   {"message", message}});
}

bool Records::TakeInHand(const DRPlan& plan, const std::string& snapId) const {
  return plans.SetHand(plan.GetPlanId(), snapId) &&
         locks.Add(plan.GetPlanId(), plan.GetSourceTargetId(), snapId);
}

bool Records::RemovePlan(const std::string& planId) const {
  return locks.RemoveAll(planId) && pending.RemoveAll(planId) && syncs.Remove(planId) &&
         journals.Remove(planId) && plans.Remove(planId);
}

}  // namespace VrelDR
