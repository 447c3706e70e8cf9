#include <vreldr/operation.h>

#include "action/plans.h"
#include "host/host.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

Report RunPlanDropShipment(const Arguments& args, Warnings& /*warnings*/) {
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

}  // namespace

Verb PlanDropShipment() {
  return {"plan drop-shipment",
          "give up the snapshot that a sync has on its way",
          {"What has arrived of it goes, and the next sync takes and sends a new snapshot. The "
           "source keeps the snapshot, which no plan holds then and which does not wait to be sent "
           "any more; \"snapshot prune\" deletes it unless a catalogue records it. For a DR volume "
           "that is too small for it; a sync does so itself once it has found no room twice."},
          "What has arrived of a snapshot that is not whole yet is lost.",
          {PlanArgument()},
          {},
          RunPlanDropShipment};
}

}  // namespace drgroupctl
