#include "action/plan_status.h"

#include <set>

#include "action/plans.h"
#include "host/arrived.h"
#include "host/host.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

using VrelDR::DRPlan;
using VrelDR::OPState;
using VrelDR::PlanStanding;

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

// Which copies of a plan cannot be reached.
std::string MissingCopies(const PlanStanding& standing) {
  std::vector<std::string> texts;
  for (const VrelDR::CopyStanding* copy : {&standing.source, &standing.replica}) {
    if (copy->is_there) continue;
    texts.push_back("target " + Quote(copy->target_id) +
                    (copy->volume.empty()
                         ? " does not exist any more"
                         : " on volume " + Quote(copy->volume) + " is out of reach"));
  }
  return Join(texts, ", ");
}

// Whether an operation that ends half way may have made the copy that works unwritable.
bool ChangesRoles(VrelDR::DRPlanOPStatus operation) {
  return operation == VrelDR::kOpSwitchover || operation == VrelDR::kOpFailover ||
         operation == VrelDR::kOpPromote || operation == VrelDR::kOpReprotect;
}

std::string Problem(const PlanStanding& standing) {
  const std::string task = VrelDR::Utils::ToString(standing.op);
  switch (standing.site) {
    case VrelDR::kSiteUnreachable:
      return MissingCopies(standing);
    case VrelDR::kSiteInterrupted:
      return (task.empty() ? "an action" : task) + " was interrupted" +
             (ChangesRoles(standing.op)
                  ? ", and target " + Quote(standing.plan.GetWorkingTargetId()) +
                        ", which works, may be unwritable until the next action on the plan "
                        "settles "
                        "it"
                  : "; the next action on the plan settles it");
    case VrelDR::kSiteUnknown:
      return "how the plan stands cannot be found out";
    default:
      if (standing.op_state == OPState::kFailed) {
        return "the last " + task + " failed: " + standing.op_message;
      }
      // What it could not do and went on without.
      return standing.site == VrelDR::kSiteFailover ? standing.op_message : std::string();
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

}  // namespace

PlanSight LookAtPlans(const std::vector<std::string>& targets) {
  PlanSight sight;
  const VrelDR::StandingReader reader;
  const std::set<std::string> wanted(targets.begin(), targets.end());
  if (!reader.Read(wanted, sight.standings)) ThrowHostError(reader);
  for (const PlanStanding& each : sight.standings) {
    for (const std::string& id : {each.plan.GetProtectedTargetId(), each.plan.GetDRTargetId()}) {
      if (wanted.count(id) != 0) sight.by_target[id].push_back(&each);
    }
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

Json::Value StatusRow(const PlanStanding& standing) {
  const DRPlan& plan = standing.plan;
  Json::Value row = UnprotectedRow();
  row["plan_id"] = plan.GetPlanId();
  row["state"] = StateName(plan);
  row["direction"] = DirectionName(plan);
  row["working_target_id"] = plan.GetWorkingTargetId();
  row["replica_target_id"] = OtherCopyOf(plan);
  row["site"] = SiteName(standing.site);
  Arrived arrived = ToArrived(standing.arrived, standing.arrived_problem);
  arrived.is_recorded_known = standing.is_recorded_known;
  SetLastArrived(arrived, row);
  if (standing.site == VrelDR::kSiteWorking) {
    row["operation"] = VrelDR::Utils::ToString(standing.op);
    row["progress"] = standing.op_progress;
    row["operation_text"] =
        row["operation"].asString() + " " + std::to_string(standing.op_progress) + " %";
  }
  row["pending_count"] =
      standing.pending_count ? Json::Value(Json::UInt64(*standing.pending_count)) : Json::Value();
  std::vector<std::string> problems = {Problem(standing)};
  for (const std::string& each : standing.unread) problems.push_back(Printable(each));
  problems.push_back(ArrivedProblem(plan, arrived));
  std::erase(problems, "");
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
