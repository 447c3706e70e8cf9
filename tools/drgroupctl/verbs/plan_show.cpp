#include <vreldr/report.h>
#include <vreldr/target_operation.h>
#include <vreldrgroup/replication/replica_op.h>

#include <set>

#include "action/plan_status.h"
#include "action/plans.h"
#include "host/host.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

// The snapshots of both copies of a plan, with which of them each has and who waits.
// `inHand` is being sent, or was when that ended early.
Json::Value SnapshotRows(const VrelDR::DRPlan& plan, const std::string& inHand) {
  VrelDR::RetentionLockReport held;
  const VrelDR::RetentionLockReporter locks(plan.GetPlanId());
  if (!locks.ReadReport(held)) ThrowHostError(locks);
  VrelDR::PendingSnapReport pending;
  const VrelDR::PendingSnapReporter waiting(plan.GetPlanId());
  if (!waiting.ReadReport(pending)) ThrowHostError(waiting);
  const std::set<std::string> heldIds(held.GetSnapshots().begin(), held.GetSnapshots().end());
  std::set<std::string> pendingIds(pending.GetSnapshots().begin(), pending.GetSnapshots().end());
  pendingIds.insert(inHand);
  Json::Value rows(Json::arrayValue);
  for (const std::string& id : {plan.GetProtectedTargetId(), plan.GetDRTargetId()}) {
    const VrelDR::TargetOperation operation(plan.GetProtectedTargetType(), id);
    for (const VrelDR::Operation::Snapshot& each : operation.ListSnapshots()) {
      Json::Value row(Json::objectValue);
      row["target_id"] = id;
      row["snap_id"] = each.snap_id;
      row["time"] = each.create_time;
      const bool isOfSource = id == plan.GetSourceTargetId();
      row["is_held"] = heldIds.count(each.snap_id) != 0 || (isOfSource && each.snap_id == inHand);
      row["is_pending"] = isOfSource && pendingIds.count(each.snap_id) != 0;
      row["description"] = each.meta.description;
      rows.append(row);
    }
  }
  return rows;
}

// Null when the plan has gone meanwhile.
const VrelDR::PlanStanding* StandingOf(const VrelDR::DRPlan& plan, const PlanSight& sight) {
  for (const VrelDR::PlanStanding& each : sight.standings) {
    if (each.plan.GetPlanId() == plan.GetPlanId()) return &each;
  }
  return nullptr;
}

Report RunPlanShow(const Arguments& args, Warnings& /*warnings*/) {
  const VrelDR::DRPlan plan = RequirePlan(args.Text("PLAN"));
  const Json::Value row = PlanRow(plan);
  const PlanSight sight = LookAtPlans({plan.GetProtectedTargetId()});
  const VrelDR::PlanStanding* standing = StandingOf(plan, sight);
  const Json::Value status = standing == nullptr ? UnprotectedRow() : StatusRow(*standing);
  Report report;
  report.AddField({"plan_id", "Plan"}, row["plan_id"]);
  report.AddField({"target_id", "Target"}, row["target_id"]);
  report.AddField({"dr_target_id", "DR copy"}, row["dr_target_id"]);
  report.AddField({"dr_volume", "Volume of the DR copy"}, row["dr_volume"]);
  report.AddField({"main_site", "Main node"}, plan.GetMainSite());
  report.AddField({"dr_site", "DR node"}, plan.GetDRSite());
  report.AddField({"state", "State"}, row["state"]);
  report.AddField({"site", "On this node"}, status["site"]);
  report.AddField({"direction", "Direction"}, row["direction"]);
  report.AddField({"working_target_id", "Works"}, row["working_target_id"]);
  report.AddField({"last_snap_id", "Last arrived"}, status["last_snap_id"]);
  report.AddField({"last_snap_time", "Of", Shown::kTime}, status["last_snap_time"]);
  report.AddField({"last_snap_state", "It is"}, status["last_snap_state"]);
  report.AddField({"gone_snap_id", "Gone"}, status["gone_snap_id"]);
  report.AddField({"operation", "Running"}, status["operation"]);
  report.AddField({"progress", "Progress"}, status["progress"]);
  report.AddField({"problem", "Problem"}, status["problem"]);
  Json::Value syncs(Json::objectValue);
  VrelDRGroup::Operation::PlanSyncReportGet({plan.GetPlanId()}, syncs);
  const Json::Value sync = syncs[plan.GetPlanId()];
  report.AddField({"sync_state", "Last sync"}, sync["state"]);
  report.AddField({"sync_size_bytes", "Looked at", Shown::kBytes},
                  sync["record"]["total_size_byte"]);
  report.AddField({"sync_sent_bytes", "Sent", Shown::kBytes}, sync["record"]["sent_size_byte"]);
  report.AddField({"sync_end_time", "Ended", Shown::kTime}, sync["record"]["end_time"]);
  report.AddTable({"snapshots", "Snapshots"},
                  {{"target_id", "TARGET"},
                   {"snap_id", "SNAPSHOT"},
                   {"time", "TIME", Shown::kTime},
                   {"is_held", "HELD"},
                   {"is_pending", "PENDING"},
                   {"description", "DESCRIPTION"}},
                  SnapshotRows(plan, standing == nullptr ? "" : standing->hand_snap_id));
  return report;
}

}  // namespace

Verb PlanShow() {
  return {"plan show",
          "show a plan and the snapshots of both its copies",
          {"Shows how it stands, its last sync, and of each snapshot whether the plan holds it "
           "against deletion and whether it waits to be sent or is being sent."},
          "Nothing.",
          {PlanArgument()},
          {},
          RunPlanShow};
}

}  // namespace drgroupctl
