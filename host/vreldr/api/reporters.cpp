#include <algorithm>

#include "base/boundary.h"
#include "plan/host_plan.h"
#include "vreldr/report.h"

namespace VrelDR {

namespace {

using Operation::Snapshot;

Json::Value SnapshotsJson(const std::vector<std::string>& snapIds) {
  Json::Value json(Json::objectValue);
  Json::Value& list = json["snapshots"] = Json::Value(Json::arrayValue);
  for (const std::string& each : snapIds) list.append(each);
  return json;
}

// Those of `snapIds` that a target has a record of, oldest first; then the others.
void SortByAge(const std::vector<SnapshotRow>& rows, std::vector<std::string>& snapIds) {
  std::vector<Snapshot> recorded;
  recorded.reserve(rows.size());
  for (const SnapshotRow& each : rows) recorded.push_back(each.snapshot);
  std::sort(recorded.begin(), recorded.end(), [](const auto& a, const auto& b) { return b > a; });
  const auto place = [&recorded](const std::string& snapId) {
    return std::find_if(recorded.begin(), recorded.end(),
                        [&](const Snapshot& each) { return each.snap_id == snapId; });
  };
  std::stable_sort(snapIds.begin(), snapIds.end(),
                   [&](const std::string& a, const std::string& b) { return place(a) < place(b); });
}

Status ReadPending(const HostPlan& plan, Json::Value& json) {
  std::vector<std::string> snapIds;
  std::vector<SnapshotRow> rows;
  Status status = plan.Records().ListPending(plan.Get().GetPlanId(), snapIds);
  if (status.IsOk()) status = plan.GetStore().ListSnapshots(plan.Get().GetSourceTargetId(), rows);
  SortByAge(rows, snapIds);
  json = SnapshotsJson(snapIds);
  return status;
}

// Those on the replica: what the plan holds on the source alone has not arrived yet.
Status ReadLocks(const HostPlan& plan, Json::Value& json) {
  std::vector<LockRow> locks;
  std::vector<std::string> snapIds;
  std::vector<SnapshotRow> rows;
  const std::string& replica = plan.Get().GetReplicaTargetId();
  Status status = plan.Records().ListLocksOfPlan(plan.Get().GetPlanId(), locks);
  if (status.IsOk()) status = plan.GetStore().ListSnapshots(replica, rows);
  for (const LockRow& each : locks) {
    if (each.target_id == replica) snapIds.push_back(each.snap_id);
  }
  SortByAge(rows, snapIds);
  json = SnapshotsJson(snapIds);
  return status;
}

// What a crash left behind still says that it runs.
OPState Actual(const HostPlan& plan, OPState state) {
  return state == OPState::kRunning && plan.CheckIdle().IsOk() ? OPState::kInterrupted : state;
}

Status NothingTold(const HostPlan& plan, const char* what) {
  return {kErrNotRun, "plan " + Quoted(plan.Get().GetPlanId()) + " has no " + what + " yet"};
}

Status ReadSync(const HostPlan& plan, Json::Value& json) {
  std::optional<SyncRow> row;
  Status status = plan.Records().GetSyncReport(plan.Get().GetPlanId(), row);
  if (!status.IsOk()) return status;
  if (!row) return NothingTold(plan, "sync report");
  json["state"] = ToString(Actual(plan, row->state));
  json["snap_id"] = row->snap_id;
  json["record"] = row->record.ToResponse();
  return {};
}

Status ReadJournal(const HostPlan& plan, Json::Value& json) {
  JournalRow row;
  Status status = plan.Records().GetJournal(plan.Get().GetPlanId(), row);
  if (!status.IsOk()) return status;
  if (row.op == kOpNone) return NothingTold(plan, "journal");
  json["op_status"] = static_cast<int>(row.op);
  json["state"] = ToString(Actual(plan, row.state));
  json["progress"] = row.progress;
  json["begin_time"] = row.begin_time;
  json["message"] = row.message;
  return {};
}

Status Read(const std::string& planId, DRReportType type, Json::Value& json) {
  HostPlan plan;
  Status status = plan.OpenToRead(planId);
  if (!status.IsOk()) return status;
  switch (type) {
    case kReportPendingSnaps:
      return ReadPending(plan, json);
    case kReportRetentionLock:
      return ReadLocks(plan, json);
    case kReportSync:
      return ReadSync(plan, json);
    case kReportJournal:
      return ReadJournal(plan, json);
  }
  return {kErrBadArgument, "report " + std::to_string(type) + " is not known"};
}

// Runs `change` on the plan's list of pending snapshots.
template <class Change>
bool ChangePending(const VrelDRCore::ErrRecorder& reporter, const std::string& planId,
                   const Snapshot& snapshot, Change&& change) {
  return RunAndRecord(reporter, [&]() -> Status {
    if (snapshot.snap_id.empty()) {
      return {kErrBadArgument,
              "a snapshot without an identifier cannot be pending; name one that "
              "the target has"};
    }
    HostPlan plan;
    Status status = plan.OpenToRead(planId);
    return status.IsOk() ? change(plan) : status;
  });
}

}  // namespace

bool Reporter::ReadReport(Report& report) const {
  return RunAndRecord(*this, [&] {
    Json::Value json(Json::objectValue);
    Status status = Read(plan_id_, type_, json);
    if (status.IsOk()) report.FromJson(json);
    return status;
  });
}

bool PendingSnapReporter::Add(const Snapshot& snapshot) const {
  return ChangePending(*this, plan_id_, snapshot, [&](const HostPlan& plan) -> Status {
    std::vector<SnapshotRow> rows;
    const std::string& source = plan.Get().GetSourceTargetId();
    Status status = plan.GetStore().ListSnapshots(source, rows);
    if (!status.IsOk()) return status;
    if (std::none_of(rows.begin(), rows.end(), [&](const SnapshotRow& each) {
          return each.state == RecordState::kWhole && each.snapshot.snap_id == snapshot.snap_id;
        })) {
      return {kErrSnapshotMissing, "target " + Quoted(source) + " has no snapshot " +
                                       Quoted(snapshot.snap_id) + "; list its snapshots"};
    }
    return plan.Records().AddPending(plan_id_, snapshot.snap_id);
  });
}

bool PendingSnapReporter::Remove(const Snapshot& snapshot) const {
  return ChangePending(*this, plan_id_, snapshot, [&](const HostPlan& plan) {
    return plan.Records().RemovePending(plan_id_, snapshot.snap_id);
  });
}

}  // namespace VrelDR
