#pragma once

#include <vreldr/plan.h>
#include <vreldrgroup/replication/action_words.h>

#include <memory>
#include <string>
#include <vector>

#include "action/action.h"

namespace drgroupctl {

// The names of the parameters of actions.
namespace Param = VrelDRGroup::ActionPolicy::Param;

// A parameter of an action, as a member of its JSON object.
struct TaskParam {
  enum class Kind { kText, kFlag, kObject };
  std::string name;
  Kind kind;
};

// What running a task gives up.
enum class Loss {
  kNothing,
  kUnsent,         // what was written since the snapshots that the replicas have
  kCopies,         // copies, with their plans
  kCopiesIfAsked,  // plans, and the copies with them when the parameters say so
  kReplaced,       // the copies of the plans that its parameters name
};

// Where a task brings every plan. A run that was interrupted is finished by running it again, which
// passes over the plans that are there; not so for a task without a goal.
enum class Goal { kNone, kFailedOver, kProtected, kTurned };

// What the tool knows of an action of the library: nothing else compares names of tasks.
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
  // Whether it sends data: its progress is told in bytes, and it can be asked to stop.
  bool is_sync = false;
  bool needs_gsnap = false;  // the parameter of that name
  Loss loss = Loss::kNothing;
  Goal goal = Goal::kNone;
};

// Every action of the library, in its order.
const std::vector<Task>& Tasks();

// Throws a usage failure that lists the names when there is no such task.
const Task& FindTask(const std::string& name);

// Throws a usage failure when `params` has a member that the task does not take, or one of another
// kind; `from` says where they come from, such as a file.
void CheckParams(const Task& task, const Json::Value& params, const std::string& from);

// Whether the task with these parameters goes on over whoever is in the way.
bool IsForced(const Task& task, const Json::Value& params);

// What running the task with these parameters gives up beside copies, as the start of a question;
// empty when that is nothing.
std::string LossOf(const Task& task, const Json::Value& params);

// Whether the task with these parameters removes copies, with their plans.
bool RemovesCopies(const Task& task, const Json::Value& params);
// The plans with which copies go when the task runs on these targets.
std::vector<VrelDR::DRPlan> PlansLostBy(const Task& task, const Json::Value& params,
                                        const std::vector<std::string>& targets);

}  // namespace drgroupctl
