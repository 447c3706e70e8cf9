#pragma once

#include <vreldr/plan.h>

#include <memory>
#include <string>
#include <vector>

#include "action/action.h"

namespace drgroupctl {

// A parameter of an action, as a member of its JSON object.
struct TaskParam {
  enum class Kind { kText, kFlag, kObject };
  std::string name;
  Kind kind;
};

// What the tool knows of an action of the library.
struct Task {
  std::string name;
  std::unique_ptr<Action> (*make)();
  std::string checker;  // the task that finds out whether this one would be refused; may be empty
  std::vector<TaskParam> params;
  bool is_checker = false;
  // Whether its revert takes back what its operations did.
  bool is_reverted = false;
  // Whether a target without an operation is one that has nothing to do, whatever plans it has.
  bool may_pass_over = false;
  // Whether it runs while another process works on the group.
  bool needs_no_lock = false;
};

// Every action of the library, in its order.
const std::vector<Task>& Tasks();

// Throws a usage failure that lists the names when there is no such task.
const Task& FindTask(const std::string& name);

// Throws a usage failure when `params` has a member that the task does not take, or one of another
// kind; `from` says where they come from, such as a file.
void CheckParams(const Task& task, const Json::Value& params, const std::string& from);

// What running the task with these parameters gives up beside copies, as the start of a question;
// empty when that is nothing.
std::string LossOf(const std::string& task, const Json::Value& params);

// Whether the task with these parameters removes copies, with their plans.
bool RemovesCopies(const std::string& task, const Json::Value& params);
// The plans with which copies go when the task runs on these targets.
std::vector<VrelDR::DRPlan> PlansLostBy(const std::string& task, const Json::Value& params,
                                        const std::vector<std::string>& targets);

}  // namespace drgroupctl
