// The operations that change which copy works.
#include "base/boundary.h"
#include "base/kill_point.h"
#include "plan/checks.h"
#include "plan/plan_text.h"
#include "plan/plan_work.h"
#include "plan/sync.h"
#include "target/target_snapshot.h"
#include "vreldr/operation.h"
#include "vreldr/snapshot_history.h"
#include "vreldr/switchover_cut.h"
#include "vreldrcore/uuid.h"

namespace VrelDR::Operation {

namespace {

DRPlanDirection Turned(DRPlanDirection direction) {
  return direction == kMainToDR ? kDRToMain : kMainToDR;
}

Status SwitchOver(HostPlan& plan, const DataSyncParam& param) {
  constexpr int kShareOfSync = 90;
  const std::string source = plan.Get().GetSourceTargetId();
  std::string snapId;
  bool isUnwritable = false;
  Status status;
  if (param.stop_source) status = plan.Quiesce(source);
  KillPoint(kSwitchoverQuiet);
  // What is written from now on by whoever had it open before would be in no snapshot.
  if (status.IsOk()) status = plan.CheckUnwritten(source, isUnwritable);
  PlanSyncer sync(plan, param, kShareOfSync);
  if (param.stop_source && status.IsOk()) {
    sync.TakeAsOf(SwitchoverCut::Join(plan.Get().GetPlanId(), isUnwritable));
  }
  // A cut of before is not the last that the source has.
  if (status.IsOk()) status = sync.Run(Cuts::kUnused, snapId);
  KillPoint(kSwitchoverSynced);
  if (status.IsOk()) status = plan.Demote(source);
  KillPoint(kSwitchoverDemoted);
  if (status.IsOk()) {
    status = plan.Promote(plan.Get().GetReplicaTargetId(), snapId, Manner::kOrderly);
  }
  KillPoint(kSwitchoverPromoted);
  if (!status.IsOk()) return status;
  PlanRow changed = plan.GetRow();
  changed.plan.SetDirection(Turned(changed.plan.GetDirection()));
  changed.is_reprotected = false;
  status = plan.Commit(changed);
  KillPoint(kSwitchoverTurned);
  return status;
}

// What was being sent to the copy that works now is of no use any more. What cannot be removed now
// goes with the next shipment.
void DropShipments(HostPlan& plan, const PlanRow& before) {
  if (!before.hand_snap_id.empty()) {
    (void)plan.Records().DropHand(before.plan, before.hand_snap_id);
  }
  HostTarget replica(plan.GetHost());
  if (plan.OpenToWrite(before.plan.GetReplicaTargetId(), replica).IsOk()) {
    (void)plan.DropShipments(replica, {});
  }
}

Status CommitFailover(HostPlan& plan, PlanRow changed) {
  changed.plan.SetStatus(kPlanFailover);
  changed.is_reprotected = false;
  Status status = plan.Commit(changed);
  KillPoint(kFailoverTurned);
  return status;
}

// The replica takes over at the snapshot. In an orderly way the source has to give up its part.
Status FailOver(HostPlan& plan, const std::string& snapId, Manner manner) {
  // Without a snapshot the replica would work with whatever bytes it has.
  if (snapId.empty()) {
    return {kErrSnapshotMissing, "no snapshot that has arrived is recorded; run it again"};
  }
  const PlanRow before = plan.GetRow();
  const std::string& source = before.plan.GetSourceTargetId();
  Status status = plan.Demote(source);
  if (manner == Manner::kForced && !status.IsOk()) {
    plan.Note("target " + Quoted(source) + " may still be written: " + status.message);
    status = {};
  }
  KillPoint(kFailoverDemoted);
  if (status.IsOk()) status = plan.Promote(before.plan.GetReplicaTargetId(), snapId, manner);
  KillPoint(kFailoverPromoted);
  if (status.IsOk()) status = CommitFailover(plan, before);
  if (status.IsOk()) DropShipments(plan, before);
  return status;
}

Status FailOverForced(HostPlan& plan, const std::string& snapId) {
  if (!Check::GoesBack(plan)) return FailOver(plan, snapId, Manner::kForced);
  PlanRow changed = plan.GetRow();
  changed.plan.SetDirection(Turned(changed.plan.GetDirection()));
  return CommitFailover(plan, changed);
}

Status Reprotect(HostPlan& plan, const std::string& snapId) {
  const DRPlan before = plan.Get();
  Status status;
  {
    HostTarget target(plan.GetHost());
    SnapshotOrder order;
    order.snap_id = snapId;
    order.meta.description = SnapshotHistory::kBeforeReprotect;
    order.meta.taken_by = GetRetentionLocker(before.GetPlanId());
    order.make = [&plan](const StorageEngine& engine, const TargetPlace& place,
                         const std::string& keptId) {
      return engine.Rejoin(place, keptId, plan.GetHost().watcher);
    };
    Snapshot taken;
    status = plan.OpenToWrite(before.GetSourceTargetId(), target);
    if (status.IsOk()) status = TakeSnapshotOf(target, order, taken);
  }
  KillPoint(kReprotectKept);
  if (!status.IsOk()) return status;
  PlanRow changed = plan.GetRow();
  changed.plan.SetDirection(Turned(before.GetDirection()));
  changed.plan.SetStatus(kPlanNormal);
  changed.is_reprotected = true;
  status = plan.Commit(changed);
  KillPoint(kReprotectTurned);
  return status;
}

Status Revert(HostPlan& plan) {
  PlanRow changed = plan.GetRow();
  Status status = plan.Demote(changed.plan.GetReplicaTargetId());
  KillPoint(kRevertDemoted);
  if (status.IsOk()) {
    status = plan.Promote(changed.plan.GetSourceTargetId(), {}, Manner::kOrderly);
  }
  KillPoint(kRevertPromoted);
  if (!status.IsOk()) return status;
  changed.plan.SetStatus(kPlanNormal);
  status = plan.Commit(changed);
  KillPoint(kRevertTurned);
  return status;
}

}  // namespace

PlanSwitchover::PlanSwitchover(const std::string& planId, const Json::Value& siteParam,
                               const Json::Value& syncParam)
    : plan_id_(planId), site_param_(siteParam), sync_param_(syncParam) {}

bool PlanSwitchover::Run(bool checkOnly) {
  return RunAndRecord(*this, [&] {
    DataSyncParam param;
    (void)param.FromJson(sync_param_);  // what is no object reads as an empty one
    PlanWork work;
    work.op = kOpSwitchover;
    work.what = "switch over";
    work.check = Check::Switchover;
    work.act = [&](HostPlan& plan) { return SwitchOver(plan, param); };
    return RunPlanWork(plan_id_, checkOnly, work);
  });
}

PlanFailover::PlanFailover(const std::string& planId, const std::string& snapId,
                           const Json::Value& siteParam)
    : plan_id_(planId), snap_id_(snapId), site_param_(siteParam) {}

bool PlanFailover::Run(bool checkOnly) {
  return RunAndRecord(*this, [&] {
    PlanWork work;
    work.op = kOpFailover;
    work.what = "fail over";
    work.check = [&](HostPlan& plan) { return Check::Failover(plan, snap_id_); };
    work.act = [&](HostPlan& plan) { return FailOver(plan, snap_id_, Manner::kOrderly); };
    return RunPlanWork(plan_id_, checkOnly, work);
  });
}

PlanForcedFailover::PlanForcedFailover(const std::string& planId, const std::string& snapId,
                                       const Json::Value& siteParam)
    : plan_id_(planId), snap_id_(snapId), site_param_(siteParam) {}

bool PlanForcedFailover::Run(bool checkOnly) {
  return RunAndRecord(*this, [&] {
    PlanWork work;
    work.op = kOpFailover;
    work.what = "fail over";
    work.check = [&](HostPlan& plan) { return Check::ForcedFailover(plan, snap_id_); };
    work.act = [&](HostPlan& plan) { return FailOverForced(plan, snap_id_); };
    work.is_forced = true;
    return RunPlanWork(plan_id_, checkOnly, work);
  });
}

PlanReprotect::PlanReprotect(const std::string& planId, const std::string& siteId, bool withSync)
    : plan_id_(planId), site_id_(siteId), with_sync_(withSync) {}

bool PlanReprotect::Run(bool checkOnly) {
  return RunAndRecord(*this, [&] {
    PlanWork work;
    work.op = kOpReprotect;
    work.what = "reprotect";
    work.check = [&](HostPlan& plan) { return Check::Reprotect(plan, site_id_); };
    work.snap_id = VrelDRCore::GenerateUUID();
    work.act = [&](HostPlan& plan) { return Reprotect(plan, work.snap_id); };
    Status status = RunPlanWork(plan_id_, checkOnly, work);
    if (!status.IsOk() || checkOnly || !with_sync_) return status;
    return SyncPlan(plan_id_, DataSyncParam(), false);
  });
}

DRSiteReprotect::DRSiteReprotect(const DRPlan& plan, DRPlanOPStatus undone)
    : plan_(plan), undone_(undone) {}

bool DRSiteReprotect::Run(bool checkOnly) {
  return RunAndRecord(*this, [&] {
    PlanWork work;
    work.op = kOpReprotect;
    work.what = "take back the failover of";
    work.check = [&](HostPlan& plan) { return Check::Revert(plan, undone_); };
    work.act = Revert;
    return RunPlanWork(plan_.GetPlanId(), checkOnly, work);
  });
}

SitePromote::SitePromote(const DRPlan& plan) : plan_(plan) {}

bool SitePromote::Run(bool checkOnly) {
  return RunAndRecord(*this, [&] {
    PlanWork work;
    work.op = kOpPromote;
    work.what = "promote the replica of";
    work.check = Check::ForcedFailoverToLast;
    work.act = [](HostPlan& plan) {
      ArrivedSnapshots arrived;
      Status status = Check::GoesBack(plan) ? Status() : plan.LookAtArrived(arrived);
      return status.IsOk() ? FailOverForced(plan, arrived.newest.snap_id) : status;
    };
    work.is_forced = true;
    return RunPlanWork(plan_.GetPlanId(), checkOnly, work);
  });
}

}  // namespace VrelDR::Operation
