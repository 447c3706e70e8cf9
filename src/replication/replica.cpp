#include "vreldrgroup/replication/replica.h"

#include <vreldr/checker.h>

#include <optional>

#include "replication/action.h"

namespace VrelDRGroup::ActionPolicy {

namespace {

using VrelDR::DRPlan;
using VrelDRCore::JsonUtil::AsBool;
using VrelDRCore::JsonUtil::AsText;
using VrelDRCore::JsonUtil::HasMember;
using VrelDRCore::JsonUtil::Member;
namespace Checker = VrelDR::Checker;
namespace Plan = VrelDR::Operation;

// --- What the actions take from their parameters

// The flags of a sync in their order; those without a value stay as they are.
struct SyncFlags {
  bool with_pending;
  std::optional<bool> is_full;
  std::optional<bool> stop_source;
  bool is_encrypted;
};

void Set(VrelDR::DataSyncParam& param, const SyncFlags& flags) {
  param.with_pending = flags.with_pending;
  if (flags.is_full) param.is_full = *flags.is_full;
  if (flags.stop_source) param.stop_source = *flags.stop_source;
  param.is_encrypted = flags.is_encrypted;
  param.meta = ActionSnapshotMeta();
}

bool IsEncrypted(const Json::Value& params) {
  return AsBool(Member(params, Param::kIsEncrypted));
}

int PreSync(SyncState& state, const Targets& /*targets*/, Json::Value& params) {
  Set(state.sync_param, {true, false, false, IsEncrypted(params)});
  return 0;
}

int PreTmpSync(SyncState& state, const Targets& /*targets*/, Json::Value& /*params*/) {
  Set(state.sync_param, {true, false, false, true});
  return 0;
}

int PreSwitchover(SwitchoverState& state, const Targets& /*targets*/, Json::Value& params) {
  Set(state.sync_param, {true, {}, {}, IsEncrypted(params)});
  state.target_map = Member(params, Param::kQuietTargets);
  return 0;
}

int PreTmpSwitchover(SyncState& state, const Targets& /*targets*/, Json::Value& /*params*/) {
  Set(state.sync_param, {true, {}, true, true});
  return 0;
}

std::string LastOf(const Targets& targets) {
  return targets.empty() ? std::string() : *targets.rbegin();
}

int PreDel(DeleteState& state, const Targets& targets, Json::Value& params) {
  state.is_site_del = TakeFlag(params, Param::kIsSiteDeleted);
  state.is_data_deleted = TakeFlag(params, Param::kIsDataDeleted);
  state.is_drsite_deleted = TakeFlag(params, Param::kIsDrSiteDeleted);
  state.last_target = LastOf(targets);
  return 0;
}

int PreTmpDel(DeleteState& state, const Targets& targets, Json::Value& /*params*/) {
  state = {false, true, true, LastOf(targets)};
  return 0;
}

int PreEditCleanup(EditCleanupState& state, const Targets& /*targets*/, Json::Value& params) {
  state.is_site_del = TakeFlag(params, Param::kIsSiteDeleted);
  state.target_plan_map = TakeMember(params, Param::kTargetPlans);
  return 0;
}

int PreReprotectChecker(ReprotectCheckerState& state, const Targets& /*targets*/,
                        Json::Value& params) {
  state.is_mainsite = TakeFlag(params, Param::kIsMainSite);
  return 0;
}

template <class State>
int NoParams(State& /*state*/, const Targets& /*targets*/, Json::Value& /*params*/) {
  return 0;
}

// --- The operation on a target's plan

template <class State>
OperationPtr SyncOf(State& state, const DRPlan& plan, const std::string& /*target*/) {
  return NewOperation<Plan::PlanSync>(plan.GetPlanId(), state.sync_param);
}

template <class State>
OperationPtr SwitchoverOf(State& state, const DRPlan& plan, const std::string& target) {
  // What the caller has not made quiet itself is stopped by the switchover.
  if constexpr (std::is_same_v<State, SwitchoverState>) {
    state.sync_param.stop_source = !HasMember(state.target_map, target);
  }
  return NewOperation<Plan::PlanSwitchover>(plan.GetPlanId(), Json::Value(),
                                            state.sync_param.ToJson());
}

OperationPtr DeleteOf(DeleteState& state, const DRPlan& plan, const std::string& target) {
  const bool isLast = target == state.last_target;
  if (state.is_site_del) {
    return NewOperation<Plan::SiteDelete>(plan.GetPlanId(), state.is_data_deleted, isLast);
  }
  return NewOperation<Plan::PlanDelete>(plan.GetPlanId(), state.is_data_deleted,
                                        state.is_drsite_deleted, isLast);
}

// An operation that needs nothing but its plan.
template <class Operation>
OperationPtr Only(NoState& /*state*/, const DRPlan& plan, const std::string& /*target*/) {
  return NewOperation<Operation>(plan.GetPlanId());
}

const std::string& SiteOf(const DRPlan& plan, bool isMainsite) {
  return isMainsite ? plan.GetMainSite() : plan.GetDRSite();
}

// What becomes of a target whose plan cannot be selected.
struct OnNoPlan {
  bool is_target_named;
  bool is_error;
};
constexpr OnNoPlan kNamedError{true, true};
constexpr OnNoPlan kNamedNoError{true, false};
constexpr OnNoPlan kPlainError{false, true};

OperationPtr Refuse(OnNoPlan how, const std::string& target, int& err) {
  if (how.is_target_named) {
    LOG_SHORT_ERR("Failed to select plan of target [%s]", target.c_str());
  } else {
    LOG_SHORT_ERR("Failed to select plan");
  }
  if (how.is_error) err = -1;
  return nullptr;
}

// Build's operation on the one plan of the target.
template <auto Build, OnNoPlan How, class State>
OperationPtr OnPlan(State& state, const std::string& target, int& err) {
  const auto plan = OnlyPlan(target);
  return plan ? Build(state, *plan, target) : Refuse(How, target, err);
}

// A target without a plan has nothing to reprotect.
OperationPtr GenReprotectChecker(ReprotectCheckerState& state, const std::string& target,
                                 int& err) {
  std::vector<DRPlan> plans;
  const int found = Utils::PlanSelect(target, plans);
  if (found == 0) return nullptr;
  if (found != 1) return Refuse(kPlainError, target, err);
  return NewOperation<Checker::PlanReprotectChecker>(plans.front().GetPlanId(),
                                                     SiteOf(plans.front(), state.is_mainsite));
}

// The plan is the one that the target had before it was edited: it has two now.
OperationPtr GenEditCleanup(EditCleanupState& state, const std::string& target, int& /*err*/) {
  if (!HasMember(state.target_plan_map, target)) return nullptr;
  const std::string planId = AsText(Member(state.target_plan_map, target));
  if (state.is_site_del) return NewOperation<Plan::SiteDelete>(planId, true, true);
  return NewOperation<Plan::PlanDelete>(planId, true, true, true);
}

template <class State>
int NothingToUndo(State& /*state*/, Targets& targets) {
  targets.clear();
  return 0;
}

// --- Which action does what

template <class Tag>
struct Rules {
  using State = typename StateOf<Tag>::Type;
  const char* task_name;
  int (*pre_act)(State&, const Targets&, Json::Value&);
  OperationPtr (*gen_operation)(State&, const std::string&, int&);
  int (*revert)(State&, Targets&);
};

template <class Tag>
constexpr Rules<Tag> kRules{};

// clang-format off
template <> constexpr Rules<CreatePartial> kRules<CreatePartial>{
    "create_partial", PreCreate, GenCreate, RevertCreate};
template <> constexpr Rules<Create> kRules<Create>{
    "create", PreCreate, GenCreate, RevertCreate};
template <> constexpr Rules<Sync> kRules<Sync>{
    "sync", PreSync, OnPlan<SyncOf<SyncState>, kNamedError>, NothingToUndo};
template <> constexpr Rules<Del> kRules<Del>{
    "delete", PreDel, OnPlan<DeleteOf, kNamedNoError>, NothingToUndo};
template <> constexpr Rules<Stop> kRules<Stop>{
    "stop", NoParams, OnPlan<Only<Plan::PlanStop>, kNamedError>, NothingToUndo};
template <> constexpr Rules<Switchover> kRules<Switchover>{
    "switchover", PreSwitchover, OnPlan<SwitchoverOf<SwitchoverState>, kNamedError>, RevertSwitchover};
template <> constexpr Rules<Failover> kRules<Failover>{
    "failover", PreFailover, OnPlan<FailoverOf, kNamedError>, RevertFailover};
template <> constexpr Rules<Reprotect> kRules<Reprotect>{
    "reprotect", PreReprotect, OnPlan<ReprotectOf, kNamedError>, RevertReprotect};
template <> constexpr Rules<EditPrepare> kRules<EditPrepare>{
    "edit_prepare", PreEditPrepare, GenEditPrepare, RevertEditPrepare};
template <> constexpr Rules<EditCleanup> kRules<EditCleanup>{
    "edit", PreEditCleanup, GenEditCleanup, NothingToUndo};
template <> constexpr Rules<SyncChecker> kRules<SyncChecker>{
    "can_sync", NoParams, OnPlan<Only<Checker::PlanSyncChecker>, kNamedError>, NothingToUndo};
template <> constexpr Rules<DelChecker> kRules<DelChecker>{
    "can_delete", NoParams, OnPlan<Only<Checker::PlanDeleteChecker>, kNamedNoError>, NothingToUndo};
template <> constexpr Rules<SwitchoverChecker> kRules<SwitchoverChecker>{
    "can_switchover", NoParams, OnPlan<Only<Checker::PlanSwitchoverChecker>, kPlainError>, NothingToUndo};
template <> constexpr Rules<FailoverChecker> kRules<FailoverChecker>{
    "can_failover", NoParams, OnPlan<Only<Checker::PlanFailoverChecker>, kPlainError>, NothingToUndo};
template <> constexpr Rules<ReprotectChecker> kRules<ReprotectChecker>{
    "can_reprotect", PreReprotectChecker, GenReprotectChecker, NothingToUndo};
template <> constexpr Rules<TmpCreate> kRules<TmpCreate>{
    "tmp_create", PreCreate, GenCreate, NothingToUndo};
template <> constexpr Rules<TmpSync> kRules<TmpSync>{
    "tmp_sync", PreTmpSync, OnPlan<SyncOf<SyncState>, kNamedError>, NothingToUndo};
template <> constexpr Rules<TmpSyncStop> kRules<TmpSyncStop>{
    "tmp_sync_stop", NoParams, OnPlan<Only<Plan::PlanStop>, kNamedError>, NothingToUndo};
template <> constexpr Rules<TmpSwitchover> kRules<TmpSwitchover>{
    "tmp_switchover", PreTmpSwitchover, OnPlan<SwitchoverOf<SyncState>, kNamedError>, NothingToUndo};
template <> constexpr Rules<TmpDel> kRules<TmpDel>{
    "tmp_del", PreTmpDel, OnPlan<DeleteOf, kNamedNoError>, NothingToUndo};
// clang-format on

}  // namespace

VrelDR::Operation::SnapshotMeta ActionSnapshotMeta() {
  return {kTakenByActions, false, false, ""};
}

OperationPtr ReprotectOf(ReprotectState& state, const DRPlan& plan, const std::string& /*target*/) {
  return NewOperation<Plan::PlanReprotect>(plan.GetPlanId(), SiteOf(plan, state.is_mainsite),
                                           state.reprotect_flag);
}

template <class Tag>
std::string ActionImpl<Tag>::GetTaskName() {
  static_assert(kRules<Tag>.task_name != nullptr, "the tag has no row in the table");
  return kRules<Tag>.task_name;
}

template <class Tag>
int ActionImpl<Tag>::PreAct(const std::set<std::string>& targets, Json::Value& params) {
  return kRules<Tag>.pre_act(state_, targets, params);
}

template <class Tag>
OperationPtr ActionImpl<Tag>::GenOperation(const std::string& target, int& err) {
  return kRules<Tag>.gen_operation(state_, target, err);
}

template <class Tag>
int ActionImpl<Tag>::Revert(std::set<std::string>& targets) {
  return kRules<Tag>.revert(state_, targets);
}

template class ActionImpl<CreatePartial>;
template class ActionImpl<Create>;
template class ActionImpl<Sync>;
template class ActionImpl<Del>;
template class ActionImpl<Stop>;
template class ActionImpl<Switchover>;
template class ActionImpl<Failover>;
template class ActionImpl<Reprotect>;
template class ActionImpl<EditPrepare>;
template class ActionImpl<EditCleanup>;
template class ActionImpl<SyncChecker>;
template class ActionImpl<DelChecker>;
template class ActionImpl<SwitchoverChecker>;
template class ActionImpl<FailoverChecker>;
template class ActionImpl<ReprotectChecker>;
template class ActionImpl<TmpCreate>;
template class ActionImpl<TmpSync>;
template class ActionImpl<TmpSyncStop>;
template class ActionImpl<TmpSwitchover>;
template class ActionImpl<TmpDel>;

}  // namespace VrelDRGroup::ActionPolicy
