#include <vreldr/operation.h>

#include "action/group_action.h"
#include "action/plans.h"
#include "console.h"
#include "text.h"
#include "verb_functions.h"

namespace drgroupctl {

Report PlanPromote(const Arguments& args) {
  const VrelDR::DRPlan plan = RequireOnePlan(args.Text("TARGET"));
  const auto make = [&plan](const std::string&) {
    return std::make_unique<VrelDR::Operation::SitePromote>(plan);
  };
  const Prepared prepared = PrepareOnPlan(std::make_unique<DirectAction>("promote", make), plan);
  if (const auto report = CheckFirst(prepared, args)) return *report;
  Confirm(args, "let " + Quote(plan.GetReplicaTargetId()) + " take over from " +
                    Quote(plan.GetSourceTargetId()) +
                    " and give up what was written since the last snapshot that arrived");
  Run(prepared, args);

  const VrelDR::DRPlan now = RequirePlan(plan.GetPlanId());
  Report report;
  report.AddText("Target " + Quote(now.GetWorkingTargetId()) + " works.");
  report.AddField({"plan_id", "Plan"}, now.GetPlanId());
  report.AddField({"state", "State"}, StateName(now));
  report.AddField({"working_target_id", "Works"}, now.GetWorkingTargetId());
  return report;
}

}  // namespace drgroupctl
