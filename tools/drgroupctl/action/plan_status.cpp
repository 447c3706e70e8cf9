#include "action/plan_status.h"

#include <vreldr/report.h>
#include <vreldrgroup/replication/replica_op.h>

#include <algorithm>
#include <set>

#include "action/plans.h"
#include "host/arrived.h"
#include "host/host.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

using VrelDR::DRPlan;
using VrelDR::OPState;

// The word of a status, as programs get it.
std::string SiteName(VrelDR::DRSiteStatus status) {
  switch (status) {
    case VrelDR::kSiteUnreachable:
      return "unreachable";
    case VrelDR::kSiteWorking:
      return "working";
    case VrelDR::kSiteNormal:
      return "normal";
    case VrelDR::kSiteFailover:
      return "failover";
    case VrelDR::kSiteInterrupted:
      return "interrupted";
    default:
      return "unknown";
  }
}

// Which copy of a plan cannot be reached.
std::string MissingCopies(const DRPlan& plan) {
  std::vector<std::string> texts;
  for (const std::string& id : {plan.GetProtectedTargetId(), plan.GetDRTargetId()}) {
    VrelDR::TargetEntry entry;
    const bool known = FindTarget(id, entry);
    if (known && entry.is_existed) continue;
    texts.push_back("target " + Quote(id) +
                    (known ? " on volume " + Quote(entry.volume) + " is out of reach"
                           : " does not exist any more"));
  }
  return Join(texts, ", ");
}

// Whether an operation that ends half way may have made the copy that works unwritable.
bool ChangesRoles(VrelDR::DRPlanOPStatus operation) {
  return operation == VrelDR::kOpSwitchover || operation == VrelDR::kOpFailover ||
         operation == VrelDR::kOpPromote || operation == VrelDR::kOpReprotect;
}

std::string Problem(const DRPlan& plan, VrelDR::DRSiteStatus status,
                    const VrelDR::SiteOPJournal& journal) {
  const std::string task = VrelDR::Utils::ToString(journal.GetOPStatus());
  switch (status) {
    case VrelDR::kSiteUnreachable:
      return MissingCopies(plan);
    case VrelDR::kSiteInterrupted:
      return (task.empty() ? "an action" : task) + " was interrupted" +
             (ChangesRoles(journal.GetOPStatus())
                  ? ", and target " + Quote(plan.GetWorkingTargetId()) +
                        ", which works, may be unwritable until the next action on the plan "
                        "settles "
                        "it"
                  : "; the next action on the plan settles it");
    case VrelDR::kSiteUnknown:
      return "how the plan stands cannot be found out";
    default:
      if (journal.GetState() == OPState::kFailed) {
        return "the last " + task + " failed: " + journal.GetMessage();
      }
      // What it could not do and went on without.
      return status == VrelDR::kSiteFailover ? journal.GetMessage() : std::string();
  }
}

// The last snapshot that arrived and is there: a failover would go to it.
void SetLastArrived(const Arrived& arrived, Json::Value& row) {
  row["last_snap_id"] = arrived.snap_id;
  const bool isNone =
      arrived.is_recorded_known && arrived.recorded.empty() && arrived.snap_id.empty();
  row["last_snap_state"] = isNone                                   ? "none"
                           : arrived.presence == Presence::kMissing ? "gone"
                           : arrived.presence == Presence::kUnknown ? "unknown"
                                                                    : "present";
  row["gone_snap_id"] = arrived.presence == Presence::kMissing ? arrived.recorded : "";
  if (arrived.time != 0) row["last_snap_time"] = arrived.time;
  SetAge(arrived.time, row);
}

// Reads a report, which stays empty when there is none yet. False when it cannot be told: then the
// reason is in `problems`.
template <class Reporter, class Report>
bool Read(const Reporter& reporter, Report& report, std::vector<std::string>& problems) {
  if (reporter.ReadReport(report) || reporter.GetErrCode() == VrelDR::kErrNotRun) return true;
  const std::string problem = HostMessage(reporter);
  if (std::find(problems.begin(), problems.end(), problem) == problems.end()) {
    problems.push_back(problem);
  }
  return false;
}

}  // namespace

PlanSight LookAtPlans(const std::vector<std::string>& targets) {
  PlanSight sight;
  const std::set<std::string> wanted(targets.begin(), targets.end());
  std::set<std::string> ids;
  for (const DRPlan& plan : AllPlans()) {
    for (const std::string& target : {plan.GetProtectedTargetId(), plan.GetDRTargetId()}) {
      if (wanted.count(target) == 0) continue;
      sight.by_target[target].push_back(plan);
      ids.insert(plan.GetPlanId());
    }
  }
  Json::Value statuses(Json::objectValue);
  VrelDRGroup::Operation::PlanInfoGet(ids, statuses);
  for (const std::string& id : statuses.getMemberNames()) {
    sight.statuses[id] = static_cast<VrelDR::DRSiteStatus>(statuses[id].asInt());
  }
  return sight;
}

Json::Value UnprotectedRow() {
  Json::Value row(Json::objectValue);
  row["state"] = "unprotected";
  for (const char* key :
       {"plan_id", "direction", "working_target_id", "replica_target_id", "site", "last_snap_id",
        "gone_snap_id", "operation", "operation_text", "problem"}) {
    row[key] = "";
  }
  row["last_snap_time"] = Json::Value();
  row["last_snap_state"] = "none";
  SetAge(0, row);
  row["progress"] = 0;
  row["pending_count"] = 0U;
  return row;
}

Json::Value StatusRow(const DRPlan& plan, VrelDR::DRSiteStatus status) {
  Json::Value row = UnprotectedRow();
  row["plan_id"] = plan.GetPlanId();
  row["state"] = StateName(plan);
  row["direction"] = DirectionName(plan);
  row["working_target_id"] = plan.GetWorkingTargetId();
  row["replica_target_id"] = plan.GetWorkingTargetId() == plan.GetReplicaTargetId()
                                 ? plan.GetSourceTargetId()
                                 : plan.GetReplicaTargetId();
  row["site"] = SiteName(status);
  const Arrived arrived = LookAtArrived(plan);
  SetLastArrived(arrived, row);

  std::vector<std::string> unread;
  VrelDR::SiteOPJournal journal;
  Read(VrelDR::SiteOPJournalReporter(plan.GetPlanId()), journal, unread);
  if (status == VrelDR::kSiteWorking) {
    row["operation"] = VrelDR::Utils::ToString(journal.GetOPStatus());
    row["progress"] = journal.GetProgress();
    row["operation_text"] =
        row["operation"].asString() + " " + std::to_string(journal.GetProgress()) + " %";
  }
  VrelDR::PendingSnapReport pending;
  const bool isPendingKnown = Read(VrelDR::PendingSnapReporter(plan.GetPlanId()), pending, unread);
  row["pending_count"] =
      isPendingKnown ? Json::Value(Json::UInt64(pending.GetSnapshots().size())) : Json::Value();
  std::vector<std::string> problems = {Problem(plan, status, journal)};
  problems.insert(problems.end(), unread.begin(), unread.end());
  problems.push_back(ArrivedProblem(plan, arrived));
  problems.erase(std::remove(problems.begin(), problems.end(), ""), problems.end());
  row["problem"] = Join(problems, "; ");
  return row;
}

std::vector<Column> StatusColumns() {
  return {{"state", "STATE"},
          {"working_target_id", "WORKS"},
          {"replica_target_id", "OTHER COPY"},
          {"last_snap_time", "LAST ARRIVED", Shown::kTime},
          {"age_seconds", "AGE", Shown::kAge},
          {"operation_text", "RUNNING", Shown::kIfAny},
          {"pending_count", "PENDING"},
          {"problem", "PROBLEM", Shown::kIfAny}};
}

}  // namespace drgroupctl
