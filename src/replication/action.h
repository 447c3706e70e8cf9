#pragma once

#include <json/value.h>
#include <vreldr/operation.h>

#include <memory>
#include <set>
#include <string>

#include "log.h"
#include "replication/plan_use.h"
#include "vreldrgroup/replication/replica.h"

// What the actions do, as functions of their state. Which action does what stands in replica.cpp.
namespace VrelDRGroup::ActionPolicy {

inline constexpr char kUnit[] = "replication/replica";

using OperationPtr = std::unique_ptr<VrelDR::DROperation>;
using Targets = std::set<std::string>;

// The member, added as null when it is missing. Null for parameters that can have no members.
inline Json::Value TakeMember(Json::Value& params, const char* key) {
  return params.isNull() || params.isObject() ? params[key] : Json::Value();
}
inline bool TakeFlag(Json::Value& params, const char* key) {
  return VrelDRCore::JsonUtil::AsBool(TakeMember(params, key));
}

// What the snapshots say that are taken for an action.
VrelDR::Operation::SnapshotMeta ActionSnapshotMeta();

// Runs `undo`, which takes a plan and its target and returns success, for the one plan of each
// target. Afterwards `targets` holds those that were undone. 0, or -1 when any was not.
template <class Undo>
int RevertEach(Targets& targets, Undo&& undo) {
  Targets undone;
  for (const std::string& target : targets) {
    if (const auto plan = OnlyPlan(target)) {
      if (undo(*plan, target)) undone.insert(target);
    } else {
      LOG_SHORT_ERR("Failed to select plan of target [%s] to revert.", target.c_str());
    }
  }
  const int result = undone.size() == targets.size() ? 0 : -1;
  targets.swap(undone);
  return result;
}

// Making plans (replica_create.cpp).
int PreCreate(CreationState& state, const Targets& targets, Json::Value& params);
int PreEditPrepare(EditPrepareState& state, const Targets& targets, Json::Value& params);
OperationPtr GenCreate(CreationState& state, const std::string& target, int& err);
OperationPtr GenEditPrepare(EditPrepareState& state, const std::string& target, int& err);
int RevertCreate(CreationState& state, Targets& targets);
int RevertEditPrepare(EditPrepareState& state, Targets& targets);

// Changing the parts of the sites (replica_role.cpp).
int PreFailover(FailoverState& state, const Targets& targets, Json::Value& params);
int PreReprotect(ReprotectState& state, const Targets& targets, Json::Value& params);
OperationPtr FailoverOf(FailoverState& state, const VrelDR::DRPlan& plan,
                        const std::string& target);
OperationPtr ReprotectOf(ReprotectState& state, const VrelDR::DRPlan& plan,
                         const std::string& target);
int RevertSwitchover(SwitchoverState& state, Targets& targets);
int RevertFailover(FailoverState& state, Targets& targets);
int RevertReprotect(ReprotectState& state, Targets& targets);

}  // namespace VrelDRGroup::ActionPolicy
