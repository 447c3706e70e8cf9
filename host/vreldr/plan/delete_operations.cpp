#include <set>

#include "../boundary.h"
#include "../kill_point.h"
#include "../target_creation.h"
#include "checks.h"
#include "plan_work.h"
#include "vreldr/operation.h"

namespace VrelDR::Operation {

namespace {

// Whether the target and all its recorded snapshots are there.
bool IsUntouched(const HostTarget& target) {
  bool found = false;
  std::set<std::string> existing;
  std::vector<SnapshotRow> rows;
  if (!target.GetEngine().FindTarget(target.GetTarget(), found).IsOk() || !found ||
      !target.GetEngine().ListSnapshots(target.GetTarget(), existing).IsOk() ||
      !target.GetStore().ListSnapshots(target.GetTarget().GetId(), rows).IsOk()) {
    return false;
  }
  for (const SnapshotRow& each : rows) {
    if (existing.count(each.snapshot.snap_id) == 0) return false;
  }
  return true;
}

// Once they are marked, plan and copy are not there for callers any more, and what a crash leaves
// of them goes with the next target that is made.
Status DeleteWithData(HostPlan& plan) {
  const std::string planId = plan.Get().GetPlanId();
  HostTarget replica(plan.GetHost());
  Status status = plan.OpenToWrite(plan.Get().GetReplicaTargetId(), replica);
  const std::string& copyId = replica.GetTarget().GetId();
  if (status.IsOk()) status = plan.Records().SetDeleting(planId, copyId, true);
  if (!status.IsOk()) return status;
  KillPoint(kPlanDeleteMarked);
  status = InContext(replica.Cannot("remove"), ForgetTarget(plan.GetHost(), replica.GetRow()));
  if (status.IsOk()) return plan.Remove();
  if (IsUntouched(replica) && plan.Records().SetDeleting(planId, copyId, false).IsOk()) {
    return status;
  }
  (void)plan.Remove();
  status.message +=
      "; the plan is deleted, and what is left of the copy goes with the next target "
      "that is made";
  return status;
}

// The copy that does not work becomes an ordinary target. One that cannot be reached is no reason
// to keep the plan.
Status DeleteKeepingData(HostPlan& plan) {
  const DRPlan& record = plan.Get();
  const bool failedOver = record.GetStatus() == kPlanFailover;
  const std::string copyId = failedOver ? record.GetSourceTargetId() : record.GetReplicaTargetId();
  std::string last;
  Status status;
  if (!failedOver) status = plan.FindLastArrived(last);
  if (status.IsOk()) status = plan.MakeWritable(copyId, last);
  if (status.code == kErrVolumeMissing || status.code == kErrTargetMissing) status = {};
  KillPoint(kPlanDeletePromoted);
  if (status.IsOk()) status = plan.Remove();
  if (!status.IsOk()) return status;
  HostTarget copy(plan.GetHost());
  if (copy.OpenToWrite(copyId).IsOk()) (void)copy.GetEngine().DropShipments(copy.GetTarget(), {});
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
