// The actions that change the parts of a plan's sites, and how they are undone.
#include "replication/action.h"
#include "vreldrgroup/snapshot/gsnap_op.h"

namespace VrelDRGroup::ActionPolicy {

namespace {

using VrelDR::DRPlan;
using VrelDRCore::JsonUtil::AsBool;
using VrelDRCore::JsonUtil::AsText;
using VrelDRCore::JsonUtil::HasMember;
using VrelDRCore::JsonUtil::Member;
namespace Plan = VrelDR::Operation;

// Runs what undoes an operation on a plan; `kind` names it in the log.
bool Undo(const OperationPtr& operation, const char* kind, const DRPlan& plan) {
  if (operation && operation->Run(false)) return true;
  LOG_SHORT_ERR("Failed to run %s rollback of plan [%s] with err [%s].", kind,
                plan.GetPlanId().c_str(), operation ? ErrorText(*operation).c_str() : "{}");
  return false;
}

bool SwitchBack(const DRPlan& plan, const VrelDR::DataSyncParam& param) {
  return Undo(NewOperation<Plan::PlanSwitchover>(plan.GetPlanId(), Json::Value(), param.ToJson()),
              "switchover", plan);
}

// The failover's snapshot for a target: the group snapshot's, or its last for a target that the
// group snapshot has not. False when it has none.
bool FindSnapshot(const FailoverState& state, const std::string& target, std::string& snapId) {
  if (!HasMember(state.target_snap_map, target)) {
    return Operation::SnapLastVerGet(target, snapId) == 0;
  }
  snapId = AsText(Member(state.target_snap_map, target));
  return true;
}

}  // namespace

int PreFailover(FailoverState& state, const Targets& /*targets*/, Json::Value& params) {
  const std::string gsnapId = AsText(TakeMember(params, Param::kGsnap));
  GsnapshotInfo info("");
  if (!Operation::GsnapshotInfoGet(gsnapId, info)) {
    LOG_SHORT_ERR("Failed to find records in drgroup.db by gsnap_id [%s]", gsnapId.c_str());
    return -1;
  }
  for (const TargetSnapshot& each : info.target_snapshots) {
    state.target_snap_map[each.target.GetId()] = each.tsnap_id;
  }
  state.is_forced = AsBool(Member(params, Param::kIsForced));
  return 0;
}

int PreReprotect(ReprotectState& state, const Targets& /*targets*/, Json::Value& params) {
  state.is_mainsite = TakeFlag(params, Param::kIsMainSite);
  state.reprotect_flag = false;
  return 0;
}

OperationPtr FailoverOf(FailoverState& state, const DRPlan& plan, const std::string& target) {
  std::string snapId;
  if (!FindSnapshot(state, target, snapId)) return nullptr;
  if (state.is_forced) {
    return NewOperation<Plan::PlanForcedFailover>(plan.GetPlanId(), snapId, Json::Value());
  }
  return NewOperation<Plan::PlanFailover>(plan.GetPlanId(), snapId, Json::Value());
}

int RevertSwitchover(SwitchoverState& state, Targets& targets) {
  state.sync_param.stop_source = true;
  return RevertEach(targets, [&state](const DRPlan& plan, const std::string& /*target*/) {
    return SwitchBack(plan, state.sync_param);
  });
}

int RevertFailover(FailoverState& /*state*/, Targets& targets) {
  const int result = RevertEach(targets, [](const DRPlan& plan, const std::string& /*target*/) {
    // The log calls this one a switchover too.
    return Undo(NewOperation<Plan::DRSiteReprotect>(plan, VrelDR::kOpFailover), "switchover", plan);
  });
  targets.clear();
  return result;
}

int RevertReprotect(ReprotectState& state, Targets& targets) {
  return RevertEach(targets, [&state](const DRPlan& plan, const std::string& target) {
    if (state.is_mainsite) {
      VrelDR::DataSyncParam param;
      param.with_pending = true;
      param.stop_source = true;
      param.is_encrypted = true;
      param.meta = ActionSnapshotMeta();
      return SwitchBack(plan, param);
    }
    std::string snapId;
    if (Operation::SnapLastVerGet(target, snapId) != 0) {
      LOG_SHORT_ERR("Failed to get snapshot list of target [%s].", target.c_str());
      return false;
    }
    return Undo(NewOperation<Plan::PlanForcedFailover>(plan.GetPlanId(), snapId, Json::Value()),
                "force failover", plan);
  });
}

}  // namespace VrelDRGroup::ActionPolicy
