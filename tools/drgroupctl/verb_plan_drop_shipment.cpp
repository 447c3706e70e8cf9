#include <vreldr/operation.h>

#include "action/plans.h"
#include "failure.h"
#include "host.h"
#include "text.h"
#include "verb_functions.h"

namespace drgroupctl {

Report PlanDropShipment(const Arguments& args) {
  const VrelDR::DRPlan plan = RequirePlan(args.Text("PLAN"));
  VrelDR::Operation::PlanDropShipment drop(plan.GetPlanId());
  if (!drop.Run(false)) ThrowHostError(drop);
  const std::string& snapId = drop.GetDropped();
  Report report;
  report.AddText(snapId.empty()
                     ? "Nothing was on its way to target " + Quote(plan.GetReplicaTargetId()) + "."
                     : "Dropped the shipment of snapshot " + Quote(snapId) + " to target " +
                           Quote(plan.GetReplicaTargetId()) + ". Target " +
                           Quote(plan.GetSourceTargetId()) +
                           " keeps it until \"snapshot prune\" takes it, which spares what a "
                           "catalogue records.");
  report.AddField({"plan_id", "Plan"}, plan.GetPlanId());
  report.AddField({"source_target_id", "Source"}, plan.GetSourceTargetId());
  report.AddField({"replica_target_id", "Replica"}, plan.GetReplicaTargetId());
  report.AddField({"dropped_snap_id", "Dropped"}, snapId);
  return report;
}

}  // namespace drgroupctl
