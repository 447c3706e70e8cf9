#pragma once

#include <json/value.h>
#include <vreldr/operation.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "action/task.h"
#include "output/failure.h"

namespace drgroupctl {

// An action that has taken in its parameters, with the targets that it is to act on.
struct Prepared {
  std::unique_ptr<Action> action;
  std::string name;   // of the task
  std::string group;  // whose targets they are; empty for those of no group
  std::string title;  // what failures are about: "sync of group \"g\""
  std::vector<std::string> targets;
  std::unique_ptr<Action> checker;  // of the same targets; empty when the task has none
  bool is_reverted = false;         // as of a Task
  bool may_pass_over = false;
  bool is_checker = false;
  bool is_sync = false;
  bool is_switchover = false;
  // Targets that the action leaves alone, with the reason.
  std::map<std::string, std::string> passed_over = {};
  // The plan of each target where it is not the target's first, by target.
  std::map<std::string, std::string> plans = {};
};

// Makes the task's action and hands it its parameters, which it may add to. Throws why it cannot be
// done, such as an unknown group snapshot.
Prepared Prepare(const Task& task, const std::string& group,
                 const std::vector<std::string>& targets, Json::Value& params);

// The same for operations that the library has no action for: on the targets of a group, where they
// do what the task does, or on one of none.
Prepared PrepareDirect(const Task& task, const DirectAction::Make& make, const std::string& group,
                       const std::vector<std::string>& targets,
                       const DirectAction::Undo& undo = {});
Prepared PrepareOnPlan(std::unique_ptr<Action> action, const VrelDR::DRPlan& plan);

// What an action has to run for a target: an operation, or nothing, or the reason why neither.
struct Step {
  std::unique_ptr<VrelDR::DROperation> operation;
  std::optional<Failure> failure;
  std::string nothing;  // why there is nothing to run
};
Step MakeStep(Action& action, bool mayPassOver, const std::string& target);
// The step of the prepared action itself.
Step MakeStep(const Prepared& prepared, const std::string& target);

// The failure that `operation` has recorded; `target` stands before a message that does not name
// it.
Failure OperationFailure(const VrelDR::DROperation& operation, const std::string& target);

}  // namespace drgroupctl
