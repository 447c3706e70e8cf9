#include <vreldr/target_operation.h>
#include <vreldrgroup/replication/replica_op.h>

#include "action/plan_status.h"
#include "action/plans.h"
#include "action/removal.h"
#include "command/confirm.h"
#include "host/arrived.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

void RequireUnclaimed(const std::string& target, const VrelDR::Operation::Snapshot& snapshot) {
  const std::vector<std::string> claims = ClaimsOn(target, snapshot);
  if (claims.empty()) return;
  throw Failure(ExitCode::kRefused, "snapshot " + Quote(snapshot.snap_id) + " of target " +
                                        Quote(target) + " was not dropped: " + Join(claims, "; ") +
                                        "; add --force to lose it all the same");
}

void RequireIdle(const VrelDR::DRPlan& plan) {
  for (const VrelDR::PlanStanding& each : LookAtPlans({plan.GetProtectedTargetId()}).standings) {
    if (each.plan.GetPlanId() != plan.GetPlanId() || each.site != VrelDR::kSiteWorking) continue;
    throw Failure(ExitCode::kBusy, "nothing of plan " + Quote(plan.GetPlanId()) +
                                       " was dropped: " + VrelDR::Utils::ToString(each.op) +
                                       " runs on it; wait for its end, or stop it if it is a sync");
  }
}

Report RunPlanDropArrived(const Arguments& args, Warnings& /*warnings*/) {
  const VrelDR::DRPlan plan = RequireOnePlan(args.Text("TARGET"));
  const std::string& replica = plan.GetReplicaTargetId();
  RequireIdle(plan);
  const std::string snapId = LastArrived(plan.GetPlanId());
  if (snapId.empty()) {
    throw Failure(ExitCode::kNotFound, "no snapshot has arrived at target " + Quote(replica) +
                                           " yet: there is nothing to drop");
  }
  const VrelDR::Operation::Snapshot snapshot =
      VrelDR::TargetOperation(plan.GetProtectedTargetType(), replica).GetSnapshot(snapId);
  if (!snapshot.snap_id.empty() && !args.Has("--force")) RequireUnclaimed(replica, snapshot);
  const bool wasGone = LookAtArrived(plan).presence == Presence::kMissing;
  Confirm(args,
          "drop snapshot " + Quote(snapId) + ", the last that arrived at target " + Quote(replica));
  // One whose bytes are gone is let go of, and there is nothing to delete then.
  const bool isDropped = VrelDRGroup::Operation::DrSnapRollback(replica) == 0 ||
                         (wasGone && LastArrived(plan.GetPlanId()) != snapId);
  if (!isDropped) {
    throw Failure(ExitCode::kFailed,
                  "snapshot " + Quote(snapId) + " of target " + Quote(replica) +
                      " could not be dropped: check with \"drgroupctl plan show " +
                      plan.GetPlanId() + "\" what holds it; the system log says more");
  }
  Report report;
  report.AddText("Dropped snapshot " + Quote(snapId) + " of target " + Quote(replica) + ".");
  report.AddField({"plan_id", "Plan"}, plan.GetPlanId());
  report.AddField({"target_id", "Target"}, replica);
  report.AddField({"dropped_snap_id", "Dropped"}, snapId);
  report.AddField({"last_snap_id", "Last arrived now"}, LastArrived(plan.GetPlanId()));
  return report;
}

}  // namespace

Verb PlanDropArrived() {
  return {
      "plan drop-arrived",
      "drop the last snapshot that arrived for one target",
      {"Afterwards the one before it is the last that arrived. Refused without --force when it is "
       "locked or recorded in any group's catalogue, or when a catalogue cannot be read."},
      "The snapshot of the replica is lost.",
      {PlanTarget()},
      {Flag("--force", "drop it although it is locked or recorded"), Yes()},
      RunPlanDropArrived};
}

}  // namespace drgroupctl
