#include "base/boundary.h"
#include "base/kill_point.h"
#include "plan/checks.h"
#include "plan/plan_work.h"
#include "target/target_creation.h"
#include "vreldr/operation.h"

namespace VrelDR::Operation {

namespace {

// Once they are marked, plan and copy are not there for callers any more and never come back: what
// a failure or a crash leaves of the copy is not whole. Everything that can be found out is found
// out before.
Status DeleteWithData(HostPlan& plan) {
  HostTarget replica(plan.GetHost());
  Status status = plan.OpenToWrite(plan.Get().GetReplicaTargetId(), replica);
  if (status.IsOk()) status = plan.Detach();
  if (status.IsOk()) status = plan.BeginRemoval(replica.GetTarget().GetId());
  if (!status.IsOk()) return status;
  KillPoint(kPlanDeleteMarked);
  status = RemoveMarkedTarget(plan.GetHost(), replica);
  if (!status.IsOk()) status.message += "; the plan is gone";
  return status.IsOk() ? plan.Remove() : status;
}

// The copy that does not work becomes an ordinary target. One that cannot be reached is no reason
// to keep the plan.
Status DeleteKeepingData(HostPlan& plan) {
  const DRPlan& record = plan.Get();
  const bool failedOver = record.GetStatus() == kPlanFailover;
  const std::string copyId = failedOver ? record.GetSourceTargetId() : record.GetReplicaTargetId();
  ArrivedSnapshots arrived;
  Status status;
  if (!failedOver) status = plan.LookAtArrived(arrived);
  if (status.IsOk()) {
    // Forced: the other copy goes on working, and the two are a pair no more.
    status = plan.Promote(copyId, arrived.newest.snap_id, Manner::kForced);
  }
  if (IsOutOfReach(status) || status.code == kErrTargetMissing) status = {};
  KillPoint(kPlanDeletePromoted);
  if (status.IsOk()) status = plan.Detach();
  if (status.IsOk()) status = plan.Remove();
  if (!status.IsOk()) return status;
  HostTarget copy(plan.GetHost());
  if (copy.OpenToWrite(copyId).IsOk()) (void)plan.DropShipments(copy, {});
  return {};
}

}  // namespace

PlanDelete::PlanDelete(const std::string& planId, bool isDataDeleted, bool isDRSiteDeleted,
                       bool isLast)
    : plan_id_(planId),
      is_data_deleted_(isDataDeleted),
      is_drsite_deleted_(isDRSiteDeleted),
      is_last_(isLast) {}

bool PlanDelete::Run(bool checkOnly) {
  return RunAndRecord(*this, [&] {
    const bool withData = is_data_deleted_ && is_drsite_deleted_;
    PlanWork work;
    work.op = kOpDelete;
    work.what = "delete";
    work.check = [withData](HostPlan& plan) { return Check::Delete(plan, withData); };
    work.act = withData ? DeleteWithData : DeleteKeepingData;
    work.is_forced = true;
    Status status = RunPlanWork(plan_id_, checkOnly, work);
    if (status.IsOk()) KillPoint(kPlanDeleteDone);
    return status;
  });
}

SiteDelete::SiteDelete(const std::string& planId, bool isDataDeleted, bool isLast)
    : plan_id_(planId), is_data_deleted_(isDataDeleted), is_last_(isLast) {}

bool SiteDelete::Run(bool checkOnly) {
  PlanDelete both(plan_id_, is_data_deleted_, is_data_deleted_, is_last_);
  const bool deleted = both.Run(checkOnly);
  SetErr(both.GetErrCode(), both.GetErrMsg());
  return deleted;
}

}  // namespace VrelDR::Operation
