#include <vreldr/operation.h>

#include "action/group_action.h"
#include "action/plans.h"
#include "console.h"
#include "text.h"
#include "verb_functions.h"

namespace drgroupctl {

Report PlanDelete(const Arguments& args) {
  const VrelDR::DRPlan plan = RequirePlan(args.Text("PLAN"));
  const bool withData = args.Has("--delete-data");
  const auto make = [&plan, withData](const std::string&) {
    return std::make_unique<VrelDR::Operation::PlanDelete>(plan.GetPlanId(), withData, withData,
                                                           false);
  };
  const Prepared prepared = PrepareOnPlan(std::make_unique<DirectAction>("delete", make), plan);
  const Json::Value row = PlanRow(plan);
  if (const auto report = CheckFirst(prepared, args)) return *report;
  Confirm(args, "remove plan " + Quote(plan.GetPlanId()) + " of target " +
                    Quote(plan.GetProtectedTargetId()) +
                    (withData ? " with its copy that does not work and the snapshots of that"
                              : std::string()));
  Run(prepared, args);

  Report report;
  report.AddText("Removed plan " + Quote(plan.GetPlanId()) + ".");
  report.AddField({"plan_id", "Plan"}, row["plan_id"]);
  report.AddField({"target_id", "Target"}, row["target_id"]);
  report.AddField({"dr_target_id", "DR copy"}, row["dr_target_id"]);
  report.AddField({"is_data_deleted", "Data deleted"}, withData);
  return report;
}

}  // namespace drgroupctl
