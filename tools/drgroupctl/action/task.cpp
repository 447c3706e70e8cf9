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
  bool is_sync = false;
  bool needs_gsnap = false;
  Loss loss = Loss::kNothing;
  Goal goal = Goal::kNone;
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
          traits.needs_no_lock,
          traits.is_sync,
          traits.needs_gsnap,
          traits.loss,
          traits.goal};
}

std::vector<TaskParam> CreationParams() {
  return {{Param::kVolume, Kind::kText},
          {Param::kNode, Kind::kText},
          {Param::kDestinationAddress, Kind::kText},
          {Param::kSourceAddress, Kind::kText},
          {Param::kSourceCredential, Kind::kText},
          {Param::kDestinationCredential, Kind::kText}};
}

std::vector<TaskParam> EditPrepareParams() {
  std::vector<TaskParam> params = CreationParams();
  params.push_back({Param::kTargetPlans, Kind::kObject});
  return params;
}

const std::vector<TaskParam>& SyncParams() {
  static const std::vector<TaskParam> params = {{Param::kIsEncrypted, Kind::kFlag}};
  return params;
}

const std::vector<TaskParam>& ReprotectParams() {
  static const std::vector<TaskParam> params = {{Param::kIsMainSite, Kind::kFlag}};
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
      MakeTask<Policy::Sync>({.checker = "can_sync", .params = SyncParams(), .is_sync = true}),
      MakeTask<Policy::Del>({.checker = "can_delete",
                             .params = {{Param::kIsSiteDeleted, Kind::kFlag}, {Param::kIsDataDeleted, Kind::kFlag},
                                        {Param::kIsDrSiteDeleted, Kind::kFlag}},
                             .loss = Loss::kCopiesIfAsked}),
      MakeTask<Policy::Stop>({.needs_no_lock = true}),
      MakeTask<Policy::Switchover>({.checker = "can_switchover",
                                    .params = {{Param::kIsEncrypted, Kind::kFlag}, {Param::kQuietTargets, Kind::kObject}},
                                    .is_reverted = true,
                                    .goal = Goal::kTurned}),
      MakeTask<Policy::Failover>({.checker = "can_failover",
                                  .params = {{Param::kGsnap, Kind::kText}, {Param::kIsForced, Kind::kFlag}},
                                  .is_reverted = true,
                                  .needs_gsnap = true,
                                  .loss = Loss::kUnsent,
                                  .goal = Goal::kFailedOver}),
      MakeTask<Policy::Reprotect>({.checker = "can_reprotect", .params = ReprotectParams(), .is_reverted = true,
                                   .goal = Goal::kProtected}),
      MakeTask<Policy::EditPrepare>({.params = EditPrepareParams(), .is_reverted = true}),
      MakeTask<Policy::EditCleanup>({.params = {{Param::kIsSiteDeleted, Kind::kFlag}, {Param::kTargetPlans, Kind::kObject}},
                                     .may_pass_over = true,
                                     .loss = Loss::kReplaced}),
      MakeTask<Policy::SyncChecker>({.needs_no_lock = true}),
      MakeTask<Policy::DelChecker>({.needs_no_lock = true}),
      MakeTask<Policy::SwitchoverChecker>({.needs_no_lock = true}),
      MakeTask<Policy::FailoverChecker>({.needs_no_lock = true}),
      MakeTask<Policy::ReprotectChecker>({.params = ReprotectParams(), .needs_no_lock = true}),
      MakeTask<Policy::TmpCreate>({.params = CreationParams(), .may_pass_over = true}),
      MakeTask<Policy::TmpSync>({.checker = "can_sync", .is_sync = true}),
      MakeTask<Policy::TmpSyncStop>({.needs_no_lock = true}),
      MakeTask<Policy::TmpSwitchover>({.checker = "can_switchover", .goal = Goal::kTurned}),
      MakeTask<Policy::TmpDel>({.checker = "can_delete", .loss = Loss::kCopies}),
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

bool IsForced(const Task& task, const Json::Value& params) {
  return task.loss == Loss::kUnsent && AsBool(Member(params, Param::kIsForced));
}

std::string LossOf(const Task& task, const Json::Value& params) {
  if (task.loss == Loss::kUnsent) {
    return "give up what was written since the snapshots that the replicas have";
  }
  if (task.loss == Loss::kCopiesIfAsked && !RemovesCopies(task, params)) {
    return "end the replication of the targets";
  }
  return {};
}

bool RemovesCopies(const Task& task, const Json::Value& params) {
  const auto flag = [&params](const char* name) { return AsBool(Member(params, name)); };
  switch (task.loss) {
    case Loss::kCopies:
    case Loss::kReplaced:
      return true;
    case Loss::kCopiesIfAsked:
      return flag(Param::kIsDataDeleted) &&
             (flag(Param::kIsDrSiteDeleted) || flag(Param::kIsSiteDeleted));
    default:
      return false;
  }
}

std::vector<VrelDR::DRPlan> PlansLostBy(const Task& task, const Json::Value& params,
                                        const std::vector<std::string>& targets) {
  std::vector<VrelDR::DRPlan> lost;
  if (!RemovesCopies(task, params)) return lost;
  for (const std::string& target : targets) {
    if (task.loss != Loss::kReplaced) {
      for (const VrelDR::DRPlan& plan : PlansOf(target)) lost.push_back(plan);
      continue;
    }
    // The plan that the target had before it was edited, unless it is gone already.
    const std::string planId = AsText(Member(Member(params, Param::kTargetPlans), target));
    if (planId.empty()) continue;
    if (const auto plan = FindPlan(planId)) lost.push_back(*plan);
  }
  return lost;
}

}  // namespace drgroupctl
