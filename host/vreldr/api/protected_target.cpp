#include "vreldr/protected_target.h"

#include <algorithm>

#include "base/boundary.h"
#include "plan/host_plan.h"
#include "plan/plan_text.h"
#include "vreldr/snapshot_history.h"
#include "vreldr/target_operation.h"

namespace VrelDR::Operation {

namespace {

// The newest snapshot before that one that both sides of the plan have; empty when there is none.
Status FindOlder(HostPlan& plan, const std::string& snapId, std::string& older) {
  std::vector<Snapshot> sent;
  std::vector<Snapshot> arrived;
  HostTarget source(plan.GetHost());
  Status status = source.OpenToRead(plan.Get().GetSourceTargetId());
  if (status.IsOk()) status = source.ListSnapshots(sent);
  if (status.IsOk()) status = plan.ListReplicaSnapshots(arrived);
  older = SnapshotHistory::NewestCommon(arrived, sent, snapId);
  return status;
}

// The plan whose locker it is, of those that have the target; kErrBadArgument when there is none.
Status FindPlan(const std::string& targetId, const std::string& locker, std::string& planId) {
  const std::shared_ptr<Host> host = TheHost();
  std::vector<PlanRow> rows;
  Status status = host->Open();
  if (status.IsOk()) status = host->store->Plans().SelectPlans(targetId, rows);
  for (const PlanRow& each : rows) {
    if (GetRetentionLocker(each.plan.GetPlanId()) == locker) planId = each.plan.GetPlanId();
  }
  if (!status.IsOk() || !planId.empty()) return status;
  return {kErrBadArgument, "target " + Quoted(targetId) + " has no plan that locks as " +
                               Quoted(locker) + "; list the plans"};
}

Status Release(const std::string& targetId, const std::string& snapId, const std::string& locker) {
  std::string planId;
  HostPlan plan;
  Status status = FindPlan(targetId, locker, planId);
  if (status.IsOk()) status = plan.OpenToRead(planId);
  if (status.IsOk()) {
    status = InContext("cannot release a snapshot of " + NameOf(plan.Get()), plan.Claim());
  }
  if (status.IsOk()) status = plan.Settle();
  if (!status.IsOk()) return status;
  std::vector<LockRow> locks;
  status = plan.Records().ListLocksOfTarget(targetId, locks);
  if (!status.IsOk()) return status;
  if (std::none_of(locks.begin(), locks.end(), [&](const LockRow& each) {
        return each.snap_id == snapId && each.locker == locker;
      })) {
    return {kErrSnapshotMissing, NameOf(plan.Get()) + " does not hold snapshot " + Quoted(snapId) +
                                     " of target " + Quoted(targetId) + "; look at what it holds"};
  }
  // What the plan holds next is what both sides still have when this one is gone.
  std::string older;
  status = FindOlder(plan, snapId, older);
  return status.IsOk() ? plan.Records().MoveLock(plan.Get(), snapId, older) : status;
}

// Kinds differ in nothing here: the host keeps the targets of all of them alike.
class LocalProtectedTarget : public ProtectedTarget {
 public:
  LocalProtectedTarget(int type, const std::string& targetId) : operation_(type, targetId) {}

  bool ReleaseRetentionLock(const std::string& snapId, const std::string& locker) override {
    return RunAndRecord(*this,
                        [&] { return Release(operation_.GetTarget().GetId(), snapId, locker); });
  }

  bool DeleteSnapshot(const std::string& snapId) override {
    const bool deleted = operation_.DeleteSnapshot(snapId);
    SetErr(operation_.GetErrCode(), operation_.GetErrMsg());
    return deleted;
  }

 private:
  TargetOperation operation_;
};

}  // namespace

std::unique_ptr<ProtectedTarget> ProtectedTarget::CreateTarget(int type,
                                                               const std::string& targetId) {
  if (type < kTargetLun || type > kTargetGuest) return nullptr;
  return std::make_unique<LocalProtectedTarget>(type, targetId);
}

}  // namespace VrelDR::Operation
