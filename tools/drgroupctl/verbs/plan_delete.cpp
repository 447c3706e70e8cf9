#include <vreldr/operation.h>

#include "action/group_action.h"
#include "action/plan_loss.h"
#include "action/plan_uses.h"
#include "action/plans.h"
#include "action/removal.h"
#include "command/confirm.h"
#include "host/host.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

// Finishes a removal of the plan and its copy that has begun before; nothing when there is none.
std::optional<Report> FinishRemoval(const Arguments& args) {
  const std::string planId = args.Text("PLAN");
  for (const VrelDR::TargetRemains& each : ListRemains()) {
    if (each.plan_id != planId || args.Has("--dry-run")) continue;
    const Removal removal({}, {each.target.GetId()});
    removal.Finish();
    Report report;
    report.AddText("Removed " + removal.Text() + ", with which plan " + Quote(planId) + " went.");
    report.AddField({"plan_id", "Plan"}, planId);
    report.AddField({"is_data_deleted", "Data deleted"}, true);
    removal.AddTo(report);
    return report;
  }
  return std::nullopt;
}

Report RunPlanDelete(const Arguments& args, Warnings& warnings) {
  if (const auto report = FinishRemoval(args)) return *report;
  const VrelDR::DRPlan plan = RequirePlan(args.Text("PLAN"));
  const bool withData = args.Has("--delete-data");
  const auto make = [&plan, withData](const std::string&) {
    return std::make_unique<VrelDR::Operation::PlanDelete>(plan.GetPlanId(), withData, withData,
                                                           false);
  };
  const Prepared prepared = PrepareOnPlan(std::make_unique<DirectAction>("delete", make), plan);
  const Json::Value row = PlanRow(plan);
  const InUse inUse(UsesOfDeletion(plan, withData), args);
  std::optional<Report> checked = CheckFirst(prepared, args, inUse, warnings);
  const Removal removal(withData ? std::vector{plan} : std::vector<VrelDR::DRPlan>(), {});
  removal.RequireUnclaimed(prepared.title, args);
  if (checked) {
    if (withData) removal.AddTo(*checked);
    return *checked;
  }
  Confirm(args,
          "remove plan " + Quote(plan.GetPlanId()) + " of target " +
              Quote(plan.GetProtectedTargetId()) +
              (withData ? ", and with it " + removal.Text() : std::string()),
          LossDetails({plan}, withData));
  Run(prepared, args);

  Report report;
  report.AddText("Removed plan " + Quote(plan.GetPlanId()) + ".");
  report.AddField({"plan_id", "Plan"}, row["plan_id"]);
  report.AddField({"target_id", "Target"}, row["target_id"]);
  report.AddField({"dr_target_id", "DR copy"}, row["dr_target_id"]);
  report.AddField({"is_data_deleted", "Data deleted"}, withData);
  if (withData) removal.AddTo(report);
  return report;
}

}  // namespace

Verb PlanDelete() {
  return {"plan delete",
          "remove one plan",
          {"As \"unprotect\" does for a whole group. It is the way out for a target with several "
           "plans.",
           kClaims, kInUse},
          "The plan; with --delete-data the copy that does not work is lost with its snapshots.",
          {PlanArgument()},
          {Flag("--delete-data", "remove the copy that does not work, with its snapshots"),
           ForceClaims(), GoOnInUse(), DryRun(), Yes()},
          RunPlanDelete};
}

}  // namespace drgroupctl
