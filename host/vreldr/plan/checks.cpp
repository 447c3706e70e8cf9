#include "plan/checks.h"

#include "plan/plan_text.h"
#include "vreldr/snapshot_history.h"

namespace VrelDR::Check {

namespace {

using Operation::Snapshot;

Status Normal(const DRPlan& plan) {
  if (plan.GetStatus() == kPlanNormal) return {};
  return {kErrPlanState, "it is failed over: target " + Quoted(plan.GetWorkingTargetId()) + " (" +
                             SideOf(plan, plan.GetWorkingTargetId()) +
                             ") works and nothing is replicated; reprotect it first"};
}

Status FailedOver(const DRPlan& plan) {
  if (plan.GetStatus() == kPlanFailover) return {};
  return {kErrPlanState, "it is in normal state: target " + Quoted(plan.GetSourceTargetId()) +
                             " (" + SideOf(plan, plan.GetSourceTargetId()) +
                             ") works and is replicated to " + Quoted(plan.GetReplicaTargetId()) +
                             "; this is for a plan that is failed over"};
}

// One of the plan's copies is there, and its volume can be written.
Status Copy(HostPlan& plan, const std::string& targetId) {
  HostTarget target(plan.GetHost());
  Status status = target.OpenToRead(targetId);
  if (status.IsOk()) {
    status =
        InContext(target.Cannot("change"), target.GetEngine().CheckWritable(target.GetWatcher()));
  }
  return InContext(SideOf(plan.Get(), targetId), status);
}

// The bytes of one of the copies can be replicated to where the other one is.
Status Linked(HostPlan& plan, const std::string& fromId, const std::string& toId) {
  HostPlan::Pair pair;
  Status status = plan.OpenPair(fromId, toId, pair);
  return status.IsOk() ? pair.link->Check(pair.source, plan.GetHost().watcher) : status;
}

// What is to be done to a copy's place can be done to it.
Status Place(HostPlan& plan, const std::string& targetId, PlaceUse use) {
  HostTarget target(plan.GetHost());
  Status status = target.OpenToRead(targetId);
  if (status.IsOk()) {
    status = InContext(target.Cannot("change"),
                       target.GetEngine().CheckPlace(target.GetPlace(), use, target.GetWatcher()));
  }
  return InContext(SideOf(plan.Get(), targetId), status);
}

Status BothCopies(HostPlan& plan) {
  Status status = Copy(plan, plan.Get().GetSourceTargetId());
  return status.IsOk() ? Copy(plan, plan.Get().GetReplicaTargetId()) : status;
}

// The target's plans but this one.
Status SelectOthers(const Store& store, const DRPlan& plan, const std::string& targetId,
                    std::vector<PlanRow>& others) {
  Status status = store.Plans().SelectPlans(targetId, others);
  std::erase_if(others,
                [&](const PlanRow& each) { return each.plan.GetPlanId() == plan.GetPlanId(); });
  return status;
}

// No other plan has made a replica of the target, or keeps it from working.
Status Works(const Store& store, const DRPlan& plan, const std::string& targetId) {
  std::vector<PlanRow> others;
  Status status = SelectOthers(store, plan, targetId, others);
  for (const PlanRow& each : others) {
    if (each.plan.GetWorkingTargetId() == targetId) continue;
    return {kErrPlanState, "target " + Quoted(targetId) + " does not work: by " +
                               NameOf(each.plan) + " target " +
                               Quoted(each.plan.GetWorkingTargetId()) +
                               " works in its place; delete one of the two plans"};
  }
  return status;
}

// The parts of a target that has two plans cannot be exchanged by one of them.
Status Alone(const Store& store, const DRPlan& plan, const std::string& targetId) {
  std::vector<PlanRow> others;
  Status status = SelectOthers(store, plan, targetId, others);
  if (others.empty()) return status;
  const DRPlan& other = others.front().plan;
  return {kErrPlanState, "target " + Quoted(targetId) + " has another plan, " +
                             Quoted(other.GetPlanId()) + " with the DR copy " +
                             Quoted(other.GetDRTargetId()) + "; delete one of the two plans first"};
}

std::string Describe(HostPlan& plan, const std::string& targetId) {
  HostTarget target(plan.GetHost());
  std::vector<Snapshot> snapshots;
  Status status = target.OpenToRead(targetId);
  if (status.IsOk()) {
    status = targetId == plan.Get().GetReplicaTargetId() ? plan.ListReplicaSnapshots(snapshots)
                                                         : target.ListSnapshots(snapshots);
  }
  const std::string side = SideOf(plan.Get(), targetId);
  if (!status.IsOk()) return side + " cannot be looked at (" + status.message + ")";
  return side + ", target " + Quoted(targetId) + " on volume " + Quoted(target.GetRow().volume) +
         ", has: " + ListText(snapshots);
}

Status HasSnapshot(HostPlan& plan, const std::string& snapId) {
  std::vector<Snapshot> snapshots;
  const DRPlan& record = plan.Get();
  Status status = plan.SelectReplicaSnapshots({snapId}, snapshots);
  if (!status.IsOk() || !snapshots.empty()) return status;
  ArrivedSnapshots arrived;
  if (snapId.empty()) status = plan.LookAtArrived(arrived);
  if (!status.IsOk()) return status;
  const std::string missing =
      arrived.is_gone ? "the last snapshot that arrived, " + Quoted(arrived.recorded_id) +
                            ", is gone from " + SideOf(record, record.GetReplicaTargetId())
      : snapId.empty()
          ? SideOf(record, record.GetReplicaTargetId()) + " has got no snapshot yet"
          : SideOf(record, record.GetReplicaTargetId()) + " has no snapshot " + Quoted(snapId);
  return {kErrSnapshotMissing,
          missing + "; " + Describe(plan, record.GetReplicaTargetId()) + "; " +
              Describe(plan, record.GetSourceTargetId()) +
              (snapId.empty() ? "; sync it first" : "; name one that the replica has")};
}

Status Replica(HostPlan& plan, const std::string& snapId) {
  const std::string& replica = plan.Get().GetReplicaTargetId();
  Status status = Copy(plan, replica);
  if (status.IsOk()) status = HasSnapshot(plan, snapId);
  return status.IsOk() ? Place(plan, replica, PlaceUse::kReplacement) : status;
}

// A replica that stays gets the bytes of the last snapshot that arrived. One that cannot be reached
// stays as it is.
Status Keep(HostPlan& plan) {
  if (plan.Get().GetStatus() == kPlanFailover) return {};
  ArrivedSnapshots arrived;
  if (!plan.LookAtArrived(arrived).IsOk() || arrived.newest.snap_id.empty()) return {};
  Status status = Place(plan, plan.Get().GetReplicaTargetId(), PlaceUse::kReplacement);
  return status.code == kErrUnsupported ? status : Status();
}

}  // namespace

Status Sync(HostPlan& plan) {
  Status status = Normal(plan.Get());
  if (status.IsOk()) {
    status = Works(plan.GetStore(), plan.Get(), plan.Get().GetSourceTargetId());
  }
  if (status.IsOk()) status = BothCopies(plan);
  if (status.IsOk()) {
    status = Linked(plan, plan.Get().GetSourceTargetId(), plan.Get().GetReplicaTargetId());
  }
  return status.IsOk() ? Place(plan, plan.Get().GetSourceTargetId(), PlaceUse::kSnapshot) : status;
}

Status Switchover(HostPlan& plan) {
  Status status = Sync(plan);
  if (status.IsOk()) {
    status = Place(plan, plan.Get().GetReplicaTargetId(), PlaceUse::kReplacement);
  }
  if (!status.IsOk()) return status;
  return Alone(plan.GetStore(), plan.Get(), plan.Get().GetSourceTargetId());
}

Status Failover(HostPlan& plan, const std::string& snapId) {
  Status status = Normal(plan.Get());
  if (status.IsOk()) status = Replica(plan, snapId);
  if (status.IsOk()) status = Copy(plan, plan.Get().GetSourceTargetId());
  if (status.IsOk()) status = Place(plan, plan.Get().GetSourceTargetId(), PlaceUse::kDemotion);
  if (!status.IsOk()) return status;
  return Alone(plan.GetStore(), plan.Get(), plan.Get().GetSourceTargetId());
}

Status FailoverToLast(HostPlan& plan) {
  ArrivedSnapshots arrived;
  Status status = Normal(plan.Get());
  if (status.IsOk()) status = Copy(plan, plan.Get().GetReplicaTargetId());
  if (status.IsOk()) status = plan.LookAtArrived(arrived);
  return status.IsOk() ? Failover(plan, arrived.newest.snap_id) : status;
}

Status ForcedFailover(HostPlan& plan, const std::string& snapId) {
  Status status = Normal(plan.Get());
  return !status.IsOk() || GoesBack(plan) ? status : Replica(plan, snapId);
}

Status ForcedFailoverToLast(HostPlan& plan) {
  ArrivedSnapshots arrived;
  Status status = Normal(plan.Get());
  if (!status.IsOk() || GoesBack(plan)) return status;
  status = Copy(plan, plan.Get().GetReplicaTargetId());
  if (status.IsOk()) status = plan.LookAtArrived(arrived);
  return status.IsOk() ? ForcedFailover(plan, arrived.newest.snap_id) : status;
}

bool GoesBack(HostPlan& plan) {
  return plan.GetRow().is_reprotected && Copy(plan, plan.Get().GetSourceTargetId()).IsOk();
}

Status Reprotect(HostPlan& plan, const std::string& siteId) {
  const DRPlan& record = plan.Get();
  if (siteId != record.GetMainSite() && siteId != record.GetDRSite()) {
    return {kErrBadArgument, "node " + Quoted(siteId) + " is not one of its sites, " +
                                 Quoted(record.GetMainSite()) + " and " +
                                 Quoted(record.GetDRSite()) + "; name one of them"};
  }
  Status status = FailedOver(record);
  if (status.IsOk()) status = BothCopies(plan);
  if (status.IsOk()) {
    status = Linked(plan, record.GetReplicaTargetId(), record.GetSourceTargetId());
  }
  return status.IsOk() ? Place(plan, record.GetSourceTargetId(), PlaceUse::kSnapshot) : status;
}

Status Revert(HostPlan& plan, DRPlanOPStatus undone) {
  if (undone != kOpFailover) {
    return {kErrBadArgument, "operation " + std::to_string(undone) +
                                 " cannot be taken back by this; only a failover (" +
                                 std::to_string(kOpFailover) + ") can"};
  }
  Status status = FailedOver(plan.Get());
  if (status.IsOk()) status = BothCopies(plan);
  return status.IsOk() ? Place(plan, plan.Get().GetReplicaTargetId(), PlaceUse::kDemotion) : status;
}

Status Delete(HostPlan& plan, bool withData) {
  const DRPlan& record = plan.Get();
  if (!withData) return Keep(plan);
  if (record.GetStatus() == kPlanFailover) {
    return {kErrPlanState, "its data would go with it, and after the failover target " +
                               Quoted(record.GetSourceTargetId()) + " (" +
                               SideOf(record, record.GetSourceTargetId()) +
                               ") may hold what target " + Quoted(record.GetReplicaTargetId()) +
                               " has not; keep the data, or reprotect it first"};
  }
  Status status = Copy(plan, record.GetReplicaTargetId());
  if (status.IsOk()) status = Place(plan, record.GetReplicaTargetId(), PlaceUse::kRemoval);
  return status.IsOk() ? Alone(plan.GetStore(), record, record.GetReplicaTargetId()) : status;
}

Status Protectable(const Store& store, const std::string& targetId) {
  std::vector<PlanRow> rows;
  Status status = store.Plans().SelectPlans(targetId, rows);
  for (const PlanRow& each : rows) {
    if (each.plan.GetDRTargetId() == targetId) {
      return {kErrPlanState, "it is the DR copy of " + NameOf(each.plan) +
                                 "; protect a target that is not a copy, or delete that plan"};
    }
    if (each.plan.GetWorkingTargetId() != targetId) {
      return {kErrPlanState, "it does not work: by plan " + Quoted(each.plan.GetPlanId()) +
                                 " target " + Quoted(each.plan.GetWorkingTargetId()) +
                                 " works in its place; switch back first, or delete that plan"};
    }
  }
  return status;
}

}  // namespace VrelDR::Check
