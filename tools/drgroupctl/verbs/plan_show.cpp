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
Json::Value SnapshotRows(const VrelDR::DRPlan& plan) {
  VrelDR::RetentionLockReport held;
  const VrelDR::RetentionLockReporter locks(plan.GetPlanId());
  if (!locks.ReadReport(held)) ThrowHostError(locks);
  VrelDR::PendingSnapReport pending;
  const VrelDR::PendingSnapReporter waiting(plan.GetPlanId());
  if (!waiting.ReadReport(pending)) ThrowHostError(waiting);
  const std::set<std::string> heldIds(held.GetSnapshots().begin(), held.GetSnapshots().end());
  const std::set<std::string> pendingIds(pending.GetSnapshots().begin(),
                                         pending.GetSnapshots().end());
  Json::Value rows(Json::arrayValue);
  for (const std::string& id : {plan.GetProtectedTargetId(), plan.GetDRTargetId()}) {
    const VrelDR::TargetOperation operation(plan.GetProtectedTargetType(), id);
    for (const VrelDR::Operation::Snapshot& each : operation.ListSnapshots()) {
      Json::Value row(Json::objectValue);
      row["target_id"] = id;
      row["snap_id"] = each.snap_id;
      row["time"] = each.create_time;
      row["is_held"] = heldIds.count(each.snap_id) != 0;
      row["is_pending"] = id == plan.GetSourceTargetId() && pendingIds.count(each.snap_id) != 0;
      row["description"] = each.meta.description;
      rows.append(row);
    }
  }
  return rows;
}

Json::Value StatusOf(const VrelDR::DRPlan& plan) {
  for (const VrelDR::PlanStanding& each : LookAtPlans({plan.GetProtectedTargetId()}).standings) {
    if (each.plan.GetPlanId() == plan.GetPlanId()) return StatusRow(each);
  }
  return UnprotectedRow();  // it has gone meanwhile
}

Report RunPlanShow(const Arguments& args, Warnings& /*warnings*/) {
  const VrelDR::DRPlan plan = RequirePlan(args.Text("PLAN"));
  const Json::Value row = PlanRow(plan);
  const Json::Value status = StatusOf(plan);
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
                  SnapshotRows(plan));
  return report;
}

}  // namespace

Verb PlanShow() {
  return {"plan show",
          "show a plan and the snapshots of both its copies",
          {"Shows how it stands, its last sync, and of each snapshot whether the plan holds it "
           "against deletion and whether it waits to be sent."},
          "Nothing.",
          {PlanArgument()},
          {},
          RunPlanShow};
}

}  // namespace drgroupctl
