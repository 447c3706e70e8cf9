#include "action/plans.h"

#include <vreldr/report.h>

#include "action/removal.h"
#include "host/host.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

using VrelDR::DRPlan;

Failure CannotRead(const VrelDR::PlanReader& reader, const std::string& what) {
  return {FromHostError(reader.GetErrCode()),
          "cannot look up " + what + ": " + HostMessage(reader)};
}

}  // namespace

std::vector<DRPlan> PlansOf(const std::string& target) {
  const VrelDR::PlanReader reader;
  std::vector<DRPlan> plans;
  if (!reader.Select(target, plans))
    throw CannotRead(reader, "the plans of target " + Quote(target));
  return plans;
}

std::vector<DRPlan> AllPlans() {
  const VrelDR::PlanReader reader;
  std::vector<DRPlan> plans;
  if (!reader.List(plans)) throw CannotRead(reader, "the plans of this host");
  return plans;
}

std::optional<DRPlan> FindPlan(const std::string& planId) {
  const VrelDR::PlanReader reader;
  DRPlan plan;
  if (reader.Get(planId, plan)) return plan;
  if (reader.GetErrCode() == VrelDR::kErrPlanMissing) return std::nullopt;
  throw CannotRead(reader, "plan " + Quote(planId));
}

DRPlan RequirePlan(const std::string& planId) {
  if (const std::optional<DRPlan> plan = FindPlan(planId)) return *plan;
  for (const VrelDR::TargetRemains& each : ListRemains()) {
    if (each.plan_id != planId) continue;
    throw Failure(ExitCode::kNotFound,
                  "plan " + Quote(planId) + " is deleted: its " + RemainsText(each));
  }
  throw Failure(ExitCode::kNotFound, "there is no plan " + Quote(planId) +
                                         ": name one that \"drgroupctl plan list\" shows");
}

DRPlan RequireOnePlan(const std::string& target) {
  const std::vector<DRPlan> plans = PlansOf(target);
  if (plans.size() != 1) throw NoOnePlan(target, plans);
  return plans.front();
}

Failure NoOnePlan(const std::string& target, const std::vector<DRPlan>& plans) {
  const std::string named = "target " + Quote(target);
  if (plans.empty()) {
    return {ExitCode::kNotFound, named +
                                     " has no plan: protect its group with \"drgroupctl protect\" "
                                     "first"};
  }
  return {ExitCode::kRefused, named + " has " + Count(plans.size(), "plan") + ", " +
                                  PlanNames(plans) +
                                  ", and it cannot be told which is meant: finish an interrupted "
                                  "\"drgroupctl edit\" by running it again, or remove one with "
                                  "\"drgroupctl plan delete\""};
}

const std::string& OtherCopyOf(const DRPlan& plan) {
  return plan.GetWorkingTargetId() == plan.GetSourceTargetId() ? plan.GetReplicaTargetId()
                                                               : plan.GetSourceTargetId();
}

std::string LastArrived(const std::string& planId) {
  VrelDR::RetentionLockReport report;
  const VrelDR::RetentionLockReporter reporter(planId);
  if (!reporter.ReadReport(report)) ThrowHostError(reporter);
  return report.GetLastSnapshot();
}

bool IsSame(const DRPlan& a, const DRPlan& b) {
  return a.GetPlanId() == b.GetPlanId() && a.GetStatus() == b.GetStatus() &&
         a.GetDirection() == b.GetDirection();
}

std::string DirectionName(const DRPlan& plan) {
  return plan.GetDirection() == VrelDR::kDRToMain ? "DR to main" : "main to DR";
}

std::string StateName(const DRPlan& plan) {
  return plan.GetStatus() == VrelDR::kPlanFailover ? "failed over" : "protected";
}

std::string StateName(const std::vector<DRPlan>& plans) {
  if (plans.empty()) return "unprotected";
  return plans.size() == 1 ? StateName(plans.front()) : Count(plans.size(), "plan");
}

std::string DescribeState(const std::vector<DRPlan>& plans) {
  if (plans.size() != 1) return StateName(plans);
  return StateName(plans.front()) + ", " + Printable(plans.front().GetWorkingTargetId()) + " works";
}

std::string PlanNames(const std::vector<DRPlan>& plans) {
  std::vector<std::string> names;
  names.reserve(plans.size());
  for (const DRPlan& each : plans) names.push_back(Quote(each.GetPlanId()));
  return Join(names, ", ");
}

std::vector<Column> PlanColumns() {
  return {{"plan_id", "PLAN"},           {"target_id", "TARGET"}, {"dr_target_id", "DR COPY"},
          {"dr_volume", "DR VOLUME"},    {"state", "STATE"},      {"direction", "DIRECTION"},
          {"working_target_id", "WORKS"}};
}

Json::Value PlanRow(const DRPlan& plan) {
  Json::Value row(Json::objectValue);
  row["plan_id"] = plan.GetPlanId();
  row["target_id"] = plan.GetProtectedTargetId();
  row["dr_target_id"] = plan.GetDRTargetId();
  VrelDR::TargetEntry entry;
  row["dr_volume"] = FindTarget(plan.GetDRTargetId(), entry) ? entry.volume : "";
  row["state"] = StateName(plan);
  row["direction"] = DirectionName(plan);
  row["working_target_id"] = plan.GetWorkingTargetId();
  return row;
}

}  // namespace drgroupctl
