#include "action/task.h"

#include <vreldrcore/json.h>
#include <vreldrgroup/replication/replica.h>

#include <algorithm>

#include "action/plans.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

namespace Policy = VrelDRGroup::ActionPolicy;
using VrelDRCore::JsonUtil::AsBool;
using VrelDRCore::JsonUtil::AsText;
using VrelDRCore::JsonUtil::Member;
using Kind = TaskParam::Kind;

// The members of a task beyond its name, see Task.
struct Traits {
  std::string checker = {};
  std::vector<TaskParam> params = {};
  bool is_reverted = false;
  bool may_pass_over = false;
  bool needs_no_lock = false;
};

template <class Tag>
Task MakeTask(const Traits& traits) {
  using Impl = Policy::ActionImpl<Tag>;
  const std::string name = Impl().GetTaskName();
  return {name,
          []() -> std::unique_ptr<Action> { return std::make_unique<LibraryAction<Impl>>(); },
          traits.checker,
          traits.params,
          name.starts_with("can_"),
          traits.is_reverted,
          traits.may_pass_over,
          traits.needs_no_lock};
}

std::vector<TaskParam> CreationParams() {
  return {{"dst_vol", Kind::kText}, {"dr_node_id", Kind::kText},  {"dst_ip", Kind::kText},
          {"src_ip", Kind::kText},  {"src_cred_id", Kind::kText}, {"dst_cred_id", Kind::kText}};
}

std::vector<TaskParam> EditPrepareParams() {
  std::vector<TaskParam> params = CreationParams();
  params.push_back({"target_plan_map", Kind::kObject});
  return params;
}

const std::vector<TaskParam>& SyncParams() {
  static const std::vector<TaskParam> params = {{"is_encrypted", Kind::kFlag}};
  return params;
}

const std::vector<TaskParam>& ReprotectParams() {
  static const std::vector<TaskParam> params = {{"is_mainsite", Kind::kFlag}};
  return params;
}

std::string NameOf(Kind kind) {
  switch (kind) {
    case Kind::kText:
      return "a text";
    case Kind::kFlag:
      return "true or false";
    default:
      return "an object";
  }
}

bool Fits(const Json::Value& value, Kind kind) {
  return kind == Kind::kText   ? value.isString()
         : kind == Kind::kFlag ? value.isBool()
                               : value.isObject();
}

}  // namespace

const std::vector<Task>& Tasks() {
  // clang-format off
  static const std::vector<Task> tasks = {
      MakeTask<Policy::CreatePartial>({.params = CreationParams(), .is_reverted = true, .may_pass_over = true}),
      MakeTask<Policy::Create>({.params = CreationParams(), .is_reverted = true, .may_pass_over = true}),
      MakeTask<Policy::Sync>({.checker = "can_sync", .params = SyncParams()}),
      MakeTask<Policy::Del>({.checker = "can_delete",
                             .params = {{"is_site_del", Kind::kFlag}, {"is_data_deleted", Kind::kFlag},
                                        {"is_drsite_deleted", Kind::kFlag}}}),
      MakeTask<Policy::Stop>({.needs_no_lock = true}),
      MakeTask<Policy::Switchover>({.checker = "can_switchover",
                                    .params = {{"is_encrypted", Kind::kFlag}, {"target_map", Kind::kObject}},
                                    .is_reverted = true}),
      MakeTask<Policy::Failover>({.checker = "can_failover",
                                  .params = {{"gsnap_id", Kind::kText}, {"is_forced", Kind::kFlag}},
                                  .is_reverted = true}),
      MakeTask<Policy::Reprotect>({.checker = "can_reprotect", .params = ReprotectParams(), .is_reverted = true}),
      MakeTask<Policy::EditPrepare>({.params = EditPrepareParams(), .is_reverted = true}),
      MakeTask<Policy::EditCleanup>({.params = {{"is_site_del", Kind::kFlag}, {"target_plan_map", Kind::kObject}},
                                     .may_pass_over = true}),
      MakeTask<Policy::SyncChecker>({.needs_no_lock = true}),
      MakeTask<Policy::DelChecker>({.needs_no_lock = true}),
      MakeTask<Policy::SwitchoverChecker>({.needs_no_lock = true}),
      MakeTask<Policy::FailoverChecker>({.needs_no_lock = true}),
      MakeTask<Policy::ReprotectChecker>({.params = ReprotectParams(), .needs_no_lock = true}),
      MakeTask<Policy::TmpCreate>({.params = CreationParams(), .may_pass_over = true}),
      MakeTask<Policy::TmpSync>({.checker = "can_sync"}),
      MakeTask<Policy::TmpSyncStop>({.needs_no_lock = true}),
      MakeTask<Policy::TmpSwitchover>({.checker = "can_switchover"}),
      MakeTask<Policy::TmpDel>({.checker = "can_delete"}),
  };
  // clang-format on
  return tasks;
}

const Task& FindTask(const std::string& name) {
  for (const Task& each : Tasks()) {
    if (each.name == name) return each;
  }
  std::vector<std::string> names;
  for (const Task& each : Tasks()) names.push_back(each.name);
  throw Failure(ExitCode::kUsage,
                "there is no task " + Quote(name) + ": there are " + Join(names, ", "));
}

void CheckParams(const Task& task, const Json::Value& params, const std::string& from) {
  std::vector<std::string> known;
  for (const TaskParam& each : task.params) known.push_back(each.name);
  for (const std::string& name : params.getMemberNames()) {
    const auto found = std::find_if(task.params.begin(), task.params.end(),
                                    [&](const TaskParam& each) { return each.name == name; });
    if (found == task.params.end()) {
      throw Failure(ExitCode::kUsage,
                    from + ": task " + Quote(task.name) + " has no parameter " + Quote(name) +
                        (known.empty() ? ": it takes none" : ": there are " + Join(known, ", ")));
    }
    if (!Fits(params[name], found->kind)) {
      throw Failure(ExitCode::kUsage, from + ": the parameter " + Quote(name) + " of task " +
                                          Quote(task.name) + " should be " + NameOf(found->kind));
    }
  }
}

std::string LossOf(const std::string& task, const Json::Value& params) {
  if (task == "failover" && AsBool(Member(params, "is_forced"))) {
    return "give up what was written since the snapshots that the replicas have";
  }
  return {};
}

bool RemovesCopies(const std::string& task, const Json::Value& params) {
  const auto flag = [&params](const char* name) { return AsBool(Member(params, name)); };
  return task == "tmp_del" || task == "edit" ||
         (task == "delete" && flag("is_data_deleted") &&
          (flag("is_drsite_deleted") || flag("is_site_del")));
}

std::vector<VrelDR::DRPlan> PlansLostBy(const std::string& task, const Json::Value& params,
                                        const std::vector<std::string>& targets) {
  std::vector<VrelDR::DRPlan> lost;
  if (!RemovesCopies(task, params)) return lost;
  for (const std::string& target : targets) {
    if (task != "edit") {
      for (const VrelDR::DRPlan& plan : PlansOf(target)) lost.push_back(plan);
      continue;
    }
    // The plan that the target had before it was edited, unless it is gone already.
    const std::string planId = AsText(Member(Member(params, "target_plan_map"), target));
    VrelDR::DRPlan plan;
    if (!planId.empty() && VrelDR::PlanAPI::GetPlan(planId, plan) == 0) lost.push_back(plan);
  }
  return lost;
}

}  // namespace drgroupctl
