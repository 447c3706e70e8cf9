// The actions that give targets new plans.
#include <vreldrnode/dr_node.h>

#include "replication/action.h"
#include "vreldrgroup/replication/replica_op.h"

namespace VrelDRGroup::ActionPolicy {

namespace {

using VrelDRCore::JsonUtil::AsText;
using VrelDRCore::JsonUtil::Member;

constexpr int kControllerId = 0;
constexpr int kReplicaPort = 5566;

std::string Text(const Json::Value& params, const char* key) {
  return AsText(Member(params, key));
}

// A connection that cannot be made stays empty; the plan's creation then fails when it is run.
VrelDR::PlanRemoteConn MakeConn(const std::string& credId, const std::string& address) {
  Json::Value json(Json::objectValue);
  json["controller_id"] = kControllerId;
  json["cred_id"] = credId;
  json["replica_port"] = kReplicaPort;
  json["replica_addr"] = address;
  VrelDR::PlanRemoteConn conn;
  if (conn.FromJson(json)) return conn;
  LOG_SHORT_ERR("Failed to set PlanRemoteConn from json [%s].",
                VrelDRCore::JsonUtil::ToString(json).c_str());
  return {};
}

void ParseCreation(CreationState& state, const Json::Value& params) {
  const std::string localNode = VrelDRNode::DRNode::getLocalNodeId();
  const std::string drNode = Text(params, Param::kNode);
  state.dst_vol = Text(params, Param::kVolume);
  state.schedule = VrelDR::AsyncSchedulePolicy();
  state.schedule.SetDisabled();
  state.plan.SetSolutionType(VrelDR::kSolutionGroup);
  state.plan.SetProtectedTargetType(VrelDR::kTargetLun);
  state.plan.SetScheduleMode(VrelDR::kScheduleAsyncGroup);
  state.plan.SetMainSite(VrelDRNode::DRNode::getLocalNodeId());
  state.plan.SetDRSite(drNode);
  state.plan.SetStatus(VrelDR::kPlanNormal);
  state.is_local = drNode == localNode;
  if (state.is_local) {
    VrelDR::Operation::PlanCreateBase::GetLocalReplicaConns(state.dst_vol, state.src_conn,
                                                            state.dst_conn);
    return;
  }
  // Each side opens the other: its credential belongs to the address there.
  state.src_conn =
      MakeConn(Text(params, Param::kSourceCredential), Text(params, Param::kDestinationAddress));
  state.dst_conn =
      MakeConn(Text(params, Param::kDestinationCredential), Text(params, Param::kSourceAddress));
}

OperationPtr CreationOf(CreationState& state, const std::string& target) {
  state.plan.SetProtectedTargetId(target);
  if (state.is_local) {
    return NewOperation<VrelDR::Operation::PlanLocalCreate>(
        state.plan, state.dst_vol, "", state.src_conn, state.dst_conn, state.schedule);
  }
  return NewOperation<VrelDR::Operation::PlanCreate>(
      state.plan, state.dst_vol, "", std::vector<VrelDR::PlanRemoteConn>{state.src_conn},
      std::vector<VrelDR::PlanRemoteConn>{state.dst_conn}, state.schedule, false);
}

// Deletes a plan that was just made, with its DR copy.
bool DeletePlan(const std::string& planId, const std::string& target) {
  const OperationPtr operation =
      NewOperation<VrelDR::Operation::PlanDelete>(planId, true, true, true);
  if (operation && operation->Run(false)) return true;
  LOG_SHORT_ERR("Failed to delete replica plan of target [%s].", target.c_str());
  if (!operation) LOG_SHORT_ERR("Failed to new DROperation.");
  return false;
}

}  // namespace

int PreCreate(CreationState& state, const Targets& /*targets*/, Json::Value& params) {
  ParseCreation(state, params);
  return 0;
}

int PreEditPrepare(EditPrepareState& state, const Targets& targets, Json::Value& params) {
  Json::Value own;  // for parameters that can have no members
  Json::Value& map = params.isNull() || params.isObject() ? params[Param::kTargetPlans] : own;
  if (!map.isObject() && !map.isNull()) map = Json::Value();
  ParseCreation(state.creation, params);
  for (const std::string& target : targets) {
    std::string planId;
    if (Operation::ReplicaPlanIdGet(target, planId) != 0) {
      LOG_SHORT_ERR("Failed to get plan id of target [%s]", target.c_str());
      return -1;
    }
    map[target] = planId;
  }
  state.target_plan_map = map;
  return 0;
}

// A target that has a plan is protected already. One whose plans cannot be looked up gets one.
OperationPtr GenCreate(CreationState& state, const std::string& target, int& /*err*/) {
  std::vector<VrelDR::DRPlan> plans;
  if (Utils::PlanSelect(target, plans) > 0) return nullptr;
  return CreationOf(state, target);
}

OperationPtr GenEditPrepare(EditPrepareState& state, const std::string& target, int& /*err*/) {
  return CreationOf(state.creation, target);
}

int RevertCreate(CreationState& /*state*/, Targets& targets) {
  const int result = RevertEach(targets, [](const VrelDR::DRPlan& plan, const std::string& target) {
    return DeletePlan(plan.GetPlanId(), target);
  });
  targets.clear();
  return result;
}

int RevertEditPrepare(EditPrepareState& state, Targets& targets) {
  int result = 0;
  for (const std::string& target : targets) {
    std::vector<VrelDR::DRPlan> plans;
    if (Utils::PlanSelect(target, plans) <= 1) continue;
    const std::string before = AsText(Member(state.target_plan_map, target));
    for (const VrelDR::DRPlan& plan : plans) {
      if (plan.GetPlanId() == before) continue;
      if (!DeletePlan(plan.GetPlanId(), target)) result = -1;
      break;
    }
  }
  targets.clear();
  return result;
}

}  // namespace VrelDRGroup::ActionPolicy
