// What acts on one site of plans outside the actions.
#include <vreldr/operation.h>
#include <vreldr/plan.h>
#include <vreldr/protected_target.h>
#include <vreldr/report.h>
#include <vreldr/target_operation.h>

#include "log.h"
#include "replication/plan_use.h"
#include "vreldrgroup/replication/replica_op.h"
#include "vreldrgroup/snapshot/gsnap_op.h"

namespace VrelDRGroup::Operation {

namespace {

constexpr char kUnit[] = "replication/replica_op";

}  // namespace

int PlanSitePromote(const std::string& target) {
  const auto plan = OnlyPlan(target);
  if (!plan) {
    LOG_SHORT_ERR("Failed to get DRPlan of target [%s]", target.c_str());
    return -1;
  }
  VrelDR::Operation::SitePromote promote(*plan);
  if (promote.Run(false)) return 0;
  LOG_SHORT_ERR("Failed to promote, Err [%s]", ErrorText(promote).c_str());
  return -1;
}

int DrSnapRollback(const std::string& target) {
  const auto plan = OnlyPlan(target);
  if (!plan) {
    LOG_SHORT_ERR("Failed to select plans of target [%s]", target.c_str());
    return -1;
  }
  const std::string& planId = plan->GetPlanId();
  const auto protectedTarget =
      VrelDR::Operation::ProtectedTarget::CreateTarget(VrelDR::kTargetLun, target);
  VrelDR::RetentionLockReport report;
  VrelDR::RetentionLockReporter(planId).ReadReport(report);
  const std::string snapId = report.GetLastSnapshot();
  const std::string locker = VrelDR::GetRetentionLocker(planId);
  if (!protectedTarget || !protectedTarget->ReleaseRetentionLock(snapId, locker)) {
    LOG_SHORT_ERR("Failed to unlock retention lock of snapshot [%s], locker [%s]", snapId.c_str(),
                  locker.c_str());
    return -1;
  }
  if (!protectedTarget->DeleteSnapshot(snapId)) {
    LOG_SHORT_ERR("Failed to delete snapshot [%s] of target [%s]", snapId.c_str(), target.c_str());
    return -1;
  }
  return 0;
}

int GsnapToPendingSnapOp(const std::string& gsnapId, PendingSnapOp op) {
  const int number = static_cast<int>(op);
  if (op != PendingSnapOp::kAdd && op != PendingSnapOp::kRemove) {
    LOG_SHORT_ERR("Bad PendingSnapOp, %d", number);
    return -1;
  }
  GsnapshotInfo info("");
  if (!GsnapshotInfoGet(gsnapId, info)) {
    LOG_SHORT_ERR("Failed to get info of gsnap [%s]", gsnapId.c_str());
    return -1;
  }
  for (const TargetSnapshot& each : info.target_snapshots) {
    const VrelDR::Operation::Snapshot snapshot =
        VrelDR::TargetOperation(each.target).GetSnapshot(each.tsnap_id);
    const auto plan = OnlyPlan(each.target.GetId());
    if (!plan) {
      LOG_SHORT_ERR("Failed to select a plan on target [%s]", each.target.GetId().c_str());
      return -1;
    }
    const VrelDR::PendingSnapReporter reporter(plan->GetPlanId());
    if (op == PendingSnapOp::kAdd ? !reporter.Add(snapshot) : !reporter.Remove(snapshot)) {
      LOG_SHORT_ERR("Failed to do the operation [%d] for the taken snapshot [%s] to pending list.",
                    number, each.tsnap_id.c_str());
      return -1;
    }
  }
  return 0;
}

}  // namespace VrelDRGroup::Operation
