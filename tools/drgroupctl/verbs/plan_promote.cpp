#include <vreldr/operation.h>

#include "action/group_action.h"
#include "action/plan_uses.h"
#include "action/plans.h"
#include "action/takeover.h"
#include "command/confirm.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

Report RunPlanPromote(const Arguments& args, Warnings& warnings) {
  const VrelDR::DRPlan plan = RequireOnePlan(args.Text("TARGET"));
  const Takeover takeover = PlanTakeoverToLast("promotion of plan " + Quote(plan.GetPlanId()),
                                               plan.GetProtectedTargetId(), plan, true);
  // The snapshot that is shown is the one that is taken.
  const auto make = [&](const std::string&) {
    return std::make_unique<VrelDR::Operation::PlanForcedFailover>(plan.GetPlanId(),
                                                                   takeover.snap_id, Json::Value());
  };
  const Prepared prepared = PrepareOnPlan(std::make_unique<DirectAction>("promote", make), plan);
  InUse inUse(takeover.is_going_back ? std::vector<PlannedUse>() : UsesOfTurning(plan), args);
  inUse.GoOn("as it is forced");
  if (std::optional<Report> report = CheckFirst(prepared, args, inUse, warnings)) {
    AddTakeover(*report, {takeover});
    return *report;
  }
  // Nothing is lost by going back.
  if (!takeover.is_going_back) {
    Confirm(args,
            "let " + Quote(plan.GetReplicaTargetId()) + " take over from " +
                Quote(plan.GetSourceTargetId()) + " with snapshot " + Quote(takeover.snap_id) +
                " and give up what was written since that was taken" +
                (IsOlderThanRecorded({takeover}) ? ", as the last one that arrived is gone" : ""),
            LossDetails({takeover}));
  }
  Run(prepared, args);

  const VrelDR::DRPlan now = RequirePlan(plan.GetPlanId());
  Report report;
  report.AddText("Target " + Quote(now.GetWorkingTargetId()) + " works.");
  report.AddField({"plan_id", "Plan"}, now.GetPlanId());
  report.AddField({"state", "State"}, StateName(now));
  report.AddField({"working_target_id", "Works"}, now.GetWorkingTargetId());
  AddTakeover(report, {takeover});
  return report;
}

}  // namespace

Verb PlanPromote() {
  return {"plan promote",
          "let the replica of one target take over",
          {"As a forced failover to the last snapshot that arrived, or to the newest that is there "
           "when that is gone, of one target alone. Who uses the copies meanwhile is said."},
          "Which copy works. What was written since the snapshot is given up.",
          {PlanTarget()},
          {DryRun(), Yes()},
          RunPlanPromote};
}

}  // namespace drgroupctl
