#include "store/plan_store.h"

#include <ctime>
#include <map>

#include "store/rows.h"

namespace VrelDR {

namespace {

using namespace Rows;  // short forms of commands on rows

PlanRow ReadPlan(const SqliteValueList& values) {
  PlanRow row;
  DRPlan& plan = row.plan;
  plan.SetPlanId(GetText(values, "id"));
  plan.SetSolutionType(GetInt(values, "solution_type"));
  plan.SetProtectedTargetType(GetInt(values, "target_type"));
  plan.SetProtectedTargetId(GetText(values, "protected_target_id"));
  plan.SetDRTargetId(GetText(values, "dr_target_id"));
  plan.SetScheduleMode(GetInt(values, "schedule_mode"));
  plan.SetMainSite(GetText(values, "main_site"));
  plan.SetDRSite(GetText(values, "dr_site"));
  plan.SetStatus(GetInt(values, "status"));
  plan.SetDirection(static_cast<DRPlanDirection>(GetInt(values, "direction")));
  values.GetValue("is_reprotected", row.is_reprotected);
  row.hand_snap_id = GetText(values, "hand_snap_id");
  row.hand_failures = GetInt(values, "hand_failures");
  return row;
}

// Plans by the order in which they were made.
using OrderedPlans = std::map<long, PlanRow>;

// Adds the plans that the condition selects and that are in the state.
bool AddPlans(const Database& db, const SqliteCondition& condition, RecordState state,
              OrderedPlans& plans) {
  return db.Get().SelectEach(Select(kPlans, condition, nullptr), [&](const SqliteValueList& row) {
    if (GetState(row) == state) plans.emplace(GetSeq(row), ReadPlan(row));
    return true;
  });
}

void Append(OrderedPlans& plans, std::vector<PlanRow>& rows) {
  for (auto& [seq, row] : plans) rows.push_back(std::move(row));
}

JournalRow ReadJournal(const SqliteValueList& values) {
  JournalRow row;
  row.op = static_cast<DRPlanOPStatus>(GetInt(values, "op"));
  row.state = static_cast<OPState>(GetInt(values, "state"));
  row.progress = GetInt(values, "progress");
  values.GetValue("begin_time", row.begin_time);
  row.message = GetText(values, "message");
  row.snap_id = GetText(values, "snap_id");
  values.GetValue("pid", row.pid);
  values.GetValue("is_stop_asked", row.is_stop_asked);
  return row;
}

SyncRow ReadSync(const SqliteValueList& values) {
  SyncRow row;
  row.state = static_cast<OPState>(GetInt(values, "state"));
  row.snap_id = GetText(values, "snap_id");
  row.record.sync_size_byte = GetSize(values, "done_bytes");
  row.record.total_size_byte = GetSize(values, "total_bytes");
  row.record.sent_size_byte = GetSize(values, "sent_bytes");
  values.GetValue("begin_time", row.record.begin_time);
  values.GetValue("end_time", row.record.end_time);
  return row;
}

SqliteValueList ValuesOf(const std::string& planId, const JournalRow& row) {
  SqliteValueList values;
  values.AddValue("plan_id", planId);
  values.AddValue("op", static_cast<int>(row.op));
  values.AddValue("state", static_cast<int>(row.state));
  values.AddValue("progress", row.progress);
  values.AddValue("begin_time", static_cast<long>(row.begin_time));
  values.AddValue("message", row.message);
  values.AddValue("snap_id", row.snap_id);
  values.AddValue("pid", row.pid);
  values.AddValue("is_stop_asked", row.is_stop_asked);
  return values;
}

SqliteValueList ValuesOf(const std::string& planId, const SyncRow& row) {
  SqliteValueList values;
  values.AddValue("plan_id", planId);
  values.AddValue("state", static_cast<int>(row.state));
  values.AddValue("snap_id", row.snap_id);
  values.AddValue("done_bytes", static_cast<long>(row.record.sync_size_byte));
  values.AddValue("total_bytes", static_cast<long>(row.record.total_size_byte));
  values.AddValue("sent_bytes", static_cast<long>(row.record.sent_size_byte));
  values.AddValue("begin_time", static_cast<long>(row.record.begin_time));
  values.AddValue("end_time", static_cast<long>(row.record.end_time));
  return values;
}

}  // namespace

Status PlanStore::ListPlans(std::vector<PlanRow>& rows) const {
  OrderedPlans found;
  if (!AddPlans(db_, {}, RecordState::kWhole, found)) return db_.Result(false);
  Append(found, rows);
  return {};
}

Status PlanStore::SelectPlans(const std::string& targetId, std::vector<PlanRow>& rows,
                              RecordState state) const {
  OrderedPlans found;
  for (const char* side : {"protected_target_id", "dr_target_id"}) {
    if (!AddPlans(db_, SqliteEqual(side, targetId), state, found)) return db_.Result(false);
  }
  Append(found, rows);
  return {};
}

Status PlanStore::GetPlan(const std::string& planId, std::optional<PlanRow>& row) const {
  row.reset();
  OrderedPlans found;
  if (!AddPlans(db_, SqliteEqual("id", planId), RecordState::kWhole, found)) {
    return db_.Result(false);
  }
  if (!found.empty()) row = std::move(found.begin()->second);
  return {};
}

Status PlanStore::FinishChange(const PlanRow& row, const std::string& message) const {
  const std::string& planId = row.plan.GetPlanId();
  UpdateCommand change = Update(kPlans, SqliteEqual("id", planId));
  change.AddFieldValue("status", row.plan.GetStatus());
  change.AddFieldValue("direction", static_cast<int>(row.plan.GetDirection()));
  change.AddFieldValue("is_reprotected", row.is_reprotected);
  UpdateCommand end = Update(kJournals, SqliteEqual("plan_id", planId));
  end.AddFieldValue("state", static_cast<int>(OPState::kDone));
  end.AddFieldValue("progress", 100);
  end.AddFieldValue("snap_id", "");
  end.AddFieldValue("message", message);
  return db_.Transact(
      [&] { return db_.Get().UpdateRecord(change) && db_.Get().UpdateRecord(end); });
}

Status PlanStore::BeginRemoval(const std::string& planId, const std::string& targetId) const {
  const UpdateCommand plan = UpdateState(kPlans, SqliteEqual("id", planId), RecordState::kDeleting);
  const UpdateCommand target =
      UpdateState(kTargets, SqliteEqual("id", targetId), RecordState::kDeleting);
  return db_.Transact([&] {
    return db_.Get().UpdateRecord(plan) && db_.Get().UpdateRecord(target) &&
           RemoveLocksWithin(planId, {});
  });
}

Status PlanStore::RemovePlan(const std::string& planId) const {
  return db_.Transact([&] { return RemoveWithin(planId); });
}

Status PlanStore::GetJournal(const std::string& planId, JournalRow& row) const {
  std::optional<JournalRow> found;
  const bool good = SelectOne(db_, kJournals, SqliteEqual("plan_id", planId), ReadJournal, found);
  row = std::move(found).value_or(JournalRow());
  return db_.Result(good);
}

Status PlanStore::WriteJournal(const std::string& planId, const JournalRow& row) const {
  return db_.Transact([&] {
    std::optional<SyncRow> sync;
    if (!Replace(db_, kJournals, planId, ValuesOf(planId, row)) ||
        !SelectOne(db_, kSyncReports, SqliteEqual("plan_id", planId), ReadSync, sync)) {
      return false;
    }
    if (!sync || sync->state != OPState::kRunning) return true;
    sync->state = OPState::kInterrupted;
    return Replace(db_, kSyncReports, planId, ValuesOf(planId, *sync));
  });
}

Status PlanStore::AskToStop(const std::string& planId) const {
  UpdateCommand command = Update(kJournals, SqliteEqual("plan_id", planId));
  command.AddFieldValue("is_stop_asked", true);
  return db_.Result(db_.Get().UpdateRecord(command));
}

Status PlanStore::GetSyncReport(const std::string& planId, std::optional<SyncRow>& row) const {
  return db_.Result(SelectOne(db_, kSyncReports, SqliteEqual("plan_id", planId), ReadSync, row));
}

Status PlanStore::WriteSyncReport(const std::string& planId, const SyncRow& row,
                                  int progress) const {
  UpdateCommand journal = Update(kJournals, SqliteEqual("plan_id", planId));
  journal.AddFieldValue("progress", progress);
  return db_.Transact([&] {
    return Replace(db_, kSyncReports, planId, ValuesOf(planId, row)) &&
           db_.Get().UpdateRecord(journal);
  });
}

bool PlanStore::AddWithin(const DRPlan& plan) const {
  SqliteValueList values;
  values.AddValue("id", plan.GetPlanId());
  values.AddValue("state", static_cast<int>(RecordState::kBuilding));
  values.AddValue("solution_type", plan.GetSolutionType());
  values.AddValue("target_type", plan.GetProtectedTargetType());
  values.AddValue("protected_target_id", plan.GetProtectedTargetId());
  values.AddValue("dr_target_id", plan.GetDRTargetId());
  values.AddValue("schedule_mode", plan.GetScheduleMode());
  values.AddValue("main_site", plan.GetMainSite());
  values.AddValue("dr_site", plan.GetDRSite());
  values.AddValue("status", plan.GetStatus());
  values.AddValue("direction", static_cast<int>(plan.GetDirection()));
  JournalRow creation;  // not seen before the plan is whole
  creation.op = kOpCreate;
  creation.progress = 100;
  creation.begin_time = static_cast<std::uint32_t>(std::time(nullptr));
  return Insert(db_, kPlans, values) &&
         Insert(db_, kJournals, ValuesOf(plan.GetPlanId(), creation));
}

}  // namespace VrelDR
