#include <vreldr/report.h>
#include <vreldrgroup/replication/replica_op.h>
#include <vreldrgroup/snapshot/gsnap_utils.h>

#include <algorithm>

#include "action/plans.h"
#include "groups/catalogue_view.h"
#include "groups/group_store.h"
#include "groups/gsnap_check.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

using VrelDRGroup::Operation::PendingSnapOp;

// Whether each target snapshot waits to be sent, as rows of a report.
Json::Value Rows(const VrelDRGroup::GsnapshotInfo& info) {
  Json::Value rows(Json::arrayValue);
  for (const VrelDRGroup::TargetSnapshot& each : info.target_snapshots) {
    const std::string planId = RequireOnePlan(each.target.GetId()).GetPlanId();
    VrelDR::PendingSnapReport report;
    VrelDR::PendingSnapReporter(planId).ReadReport(report);
    const std::vector<std::string>& pending = report.GetSnapshots();
    Json::Value row(Json::objectValue);
    row["target_id"] = each.target.GetId();
    row["tsnap_id"] = each.tsnap_id;
    row["plan_id"] = planId;
    row["is_pending"] = std::find(pending.begin(), pending.end(), each.tsnap_id) != pending.end();
    rows.append(row);
  }
  return rows;
}

// What is going to fail should not be begun: the library stops in the middle of the list.
void CheckShippable(const VrelDRGroup::GsnapshotInfo& info) {
  for (const VrelDRGroup::TargetSnapshot& each : info.target_snapshots) {
    const std::string& target = each.target.GetId();
    const VrelDR::DRPlan plan = RequireOnePlan(target);
    if (plan.GetSourceTargetId() != target) {
      throw Failure(ExitCode::kRefused, "group snapshot " + Quote(info.gsnap_id) + ": target " +
                                            Quote(target) + " is the replica of target " +
                                            Quote(plan.GetSourceTargetId()) +
                                            ", and snapshots are sent from there");
    }
  }
}

Report RunSnapshotShip(const Arguments& args, Warnings& /*warnings*/) {
  const std::string gsnapId = args.Text("GSNAP");
  const bool isUndo = args.Has("--undo");
  const GroupLock lock(VrelDRGroup::Utils::ParseGroupId(gsnapId));
  const VrelDRGroup::GsnapshotInfo info = RequireGsnap(gsnapId);
  if (!isUndo) {
    CheckUsable(info);
    CheckShippable(info);
  }
  const PendingSnapOp op = isUndo ? PendingSnapOp::kRemove : PendingSnapOp::kAdd;
  if (VrelDRGroup::Operation::GsnapToPendingSnapOp(gsnapId, op) != 0) {
    for (const VrelDRGroup::TargetSnapshot& each : info.target_snapshots) {
      RequireOnePlan(each.target.GetId());
    }
    if (!isUndo) {
      VrelDRGroup::Operation::GsnapToPendingSnapOp(gsnapId, PendingSnapOp::kRemove);
    }
    throw Failure(ExitCode::kFailed,
                  "group snapshot " + Quote(gsnapId) +
                      ": the host could not change what waits to be sent; run it again, the system "
                      "log says more");
  }

  Report report;
  report.AddText("Group snapshot " + Quote(gsnapId) +
                 (isUndo ? " is not sent with the next sync." : " is sent with the next sync."));
  report.AddField({"gsnap_id", "Snapshot"}, gsnapId);
  report.AddTable(
      {"targets", "Targets"},
      {{"target_id", "TARGET"}, {"tsnap_id", "TARGET SNAPSHOT"}, {"is_pending", "WAITS"}},
      Rows(info));
  return report;
}

}  // namespace

Verb SnapshotShip() {
  return {"snapshot ship",
          "let the next sync send a group snapshot too",
          {"Puts every target snapshot of it on the list of those that wait to be sent. Afterwards "
           "the next sync, or switchover, of the group brings them to the replicas under the same "
           "identifiers. A failure takes them off the list again."},
          "What waits to be sent.",
          {Gsnap()},
          {Flag("--undo", "take it off the list again")},
          RunSnapshotShip};
}

}  // namespace drgroupctl
