#include "action/prepared.h"

#include <vreldrcore/json.h>

#include <set>

#include "action/interrupted.h"
#include "action/plans.h"
#include "command/identifier.h"
#include "groups/catalogue_view.h"
#include "host/host.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

// The library says only that it failed.
[[noreturn]] void ThrowNotPrepared(const Task& task, const std::vector<std::string>& targets,
                                   const Json::Value& params) {
  using VrelDRCore::JsonUtil::AsText;
  using VrelDRCore::JsonUtil::Member;
  if (task.needs_gsnap) {
    const std::string gsnapId = AsText(Member(params, Param::kGsnap));
    if (gsnapId.empty()) {
      throw Failure(ExitCode::kUsage,
                    "task " + Quote(task.name) + " needs the parameter " + Quote(Param::kGsnap) +
                        ", a group snapshot such as "
                        "g1-gsnap-1700000000; the verb \"failover\" goes without one");
    }
    CheckGsnapId(gsnapId);
    RequireGsnap(gsnapId);
  }
  for (const std::string& target : targets) {
    const std::vector<VrelDR::DRPlan> plans = PlansOf(target);
    if (plans.empty()) throw NoOnePlan(target, plans);
  }
  throw Failure(ExitCode::kFailed,
                "the parameters of task " + Quote(task.name) +
                    " could not be taken in, and nothing is found wrong with them "
                    "now: run it again; the system log says more");
}

std::string TitleOf(const std::string& task, const std::string& group) {
  return task + " of group " + Quote(group);
}

}  // namespace

Prepared Prepare(const Task& task, const std::string& group,
                 const std::vector<std::string>& targets, Json::Value& params) {
  Prepared prepared;
  prepared.action = task.make();
  prepared.name = task.name;
  prepared.group = group;
  prepared.title = TitleOf(prepared.name, group);
  prepared.targets = targets;
  prepared.is_reverted = task.is_reverted;
  prepared.may_pass_over = task.may_pass_over;
  prepared.is_checker = task.is_checker;
  prepared.is_sync = task.is_sync;
  prepared.is_switchover = task.goal == Goal::kTurned;
  prepared.passed_over = DoneBefore(task, targets);
  const std::set<std::string> all(targets.begin(), targets.end());
  if (prepared.action->PreAct(all, params) != 0) ThrowNotPrepared(task, targets, params);
  // A failover that is forced needs nothing of the side that its checker asks.
  const bool isForced =
      VrelDRCore::JsonUtil::AsBool(VrelDRCore::JsonUtil::Member(params, Param::kIsForced));
  if (!task.checker.empty() && !isForced) {
    prepared.checker = FindTask(task.checker).make();
    prepared.checker->PreAct(all, params);
  }
  return prepared;
}

Prepared PrepareDirect(const Task& task, const DirectAction::Make& make, const std::string& group,
                       const std::vector<std::string>& targets, const DirectAction::Undo& undo) {
  Prepared prepared;
  prepared.action = std::make_unique<DirectAction>(task.name, make, undo);
  prepared.name = task.name;
  prepared.group = group;
  prepared.title = TitleOf(prepared.name, group);
  prepared.targets = targets;
  prepared.is_sync = task.is_sync;
  prepared.passed_over = DoneBefore(task, targets);
  return prepared;
}

Prepared PrepareOnPlan(std::unique_ptr<Action> action, const VrelDR::DRPlan& plan) {
  Prepared prepared;
  prepared.action = std::move(action);
  prepared.name = prepared.action->GetTaskName();
  prepared.title = prepared.name + " of plan " + Quote(plan.GetPlanId());
  prepared.targets = {plan.GetProtectedTargetId()};
  prepared.plans = {{plan.GetProtectedTargetId(), plan.GetPlanId()}};
  return prepared;
}

Step MakeStep(Action& action, bool mayPassOver, const std::string& target) {
  int err = 0;
  Step step{action.GenOperation(target, err), std::nullopt, {}};
  if (step.operation) return step;
  const std::vector<VrelDR::DRPlan> plans = PlansOf(target);
  if (err == 0 && mayPassOver) {
    step.nothing = plans.empty() ? "nothing to do" : "has a plan already";
  } else if (err == 0 && plans.empty()) {
    step.nothing = "has no plan";
  } else if (plans.size() != 1) {
    step.failure = NoOnePlan(target, plans);
  } else {
    step.failure = Failure(ExitCode::kNotFound,
                           "target " + Quote(target) +
                               " has nothing to work with: it has no snapshot, or memory ran out");
  }
  return step;
}

Step MakeStep(const Prepared& prepared, const std::string& target) {
  const auto found = prepared.passed_over.find(target);
  if (found != prepared.passed_over.end()) return {nullptr, std::nullopt, found->second};
  return MakeStep(*prepared.action, prepared.may_pass_over, target);
}

Failure OperationFailure(const VrelDR::DROperation& operation, const std::string& target) {
  const std::string message = HostMessage(operation);
  const bool isNamed = message.find(Quote(target)) != std::string::npos;
  return {FromHostError(operation.GetErrCode()),
          isNamed ? message : "target " + Quote(target) + ": " + message};
}

}  // namespace drgroupctl
