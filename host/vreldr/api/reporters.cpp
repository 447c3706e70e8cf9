#include "base/boundary.h"
#include "plan/host_plan.h"
#include "plan/some_snapshots.h"
#include "vreldr/report.h"
#include "vreldr/snapshot_history.h"

namespace VrelDR {

namespace {

using Operation::Snapshot;

Json::Value SnapshotsJson(const std::vector<std::string>& snapIds) {
  Json::Value json(Json::objectValue);
  Json::Value& list = json["snapshots"] = Json::Value(Json::arrayValue);
  for (const std::string& each : snapIds) list.append(each);
  return json;
}

Status ReadPending(const HostPlan& plan, Json::Value& json) {
  std::vector<std::string> snapIds;
  std::vector<Snapshot> recorded;
  Status status = plan.Records().ListPending(plan.Get().GetPlanId(), snapIds);
  if (status.IsOk()) {
    status = SelectRecorded(plan.GetStore(), plan.Get().GetSourceTargetId(), snapIds, recorded);
  }
  SnapshotHistory::SortByAge(std::move(recorded), snapIds);
  json = SnapshotsJson(snapIds);
  return status;
}

Status ReadLocks(const HostPlan& plan, Json::Value& json) {
  std::vector<std::string> snapIds;
  std::vector<Snapshot> recorded;
  Status status = plan.ListHeld(snapIds);
  if (status.IsOk()) {
    status = SelectRecorded(plan.GetStore(), plan.Get().GetReplicaTargetId(), snapIds, recorded);
  }
  SnapshotHistory::SortByAge(std::move(recorded), snapIds);
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
    std::optional<SnapshotRow> row;
    const std::string& source = plan.Get().GetSourceTargetId();
    Status status = plan.GetStore().GetSnapshot(source, snapshot.snap_id, row);
    if (!status.IsOk()) return status;
    if (!row) {
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
