#include "action/interrupted.h"

#include <vreldr/arrived.h>

#include "action/plans.h"

namespace drgroupctl {

namespace {

// Whether a plan is where a task with the goal brings it, seeing that the group's first plan is
// `first`.
bool IsThere(Goal goal, const VrelDR::DRPlan& plan, const VrelDR::DRPlan& first) {
  const bool isFailedOver = plan.GetStatus() == VrelDR::kPlanFailover;
  if (goal == Goal::kFailedOver) return isFailedOver;
  if (goal == Goal::kProtected) return !isFailedOver;
  return !isFailedOver && plan.GetDirection() == first.GetDirection();
}

}  // namespace

std::map<std::string, std::string> DoneBefore(const Task& task,
                                              const std::vector<std::string>& targets) {
  std::map<std::string, std::string> done;
  if (task.goal == Goal::kNone) return done;
  std::vector<VrelDR::DRPlan> plans;
  for (const std::string& target : targets) {
    const std::vector<VrelDR::DRPlan> found = PlansOf(target);
    if (found.size() != 1) return {};  // the action itself refuses that
    plans.push_back(found.front());
    if (IsThere(task.goal, plans.back(), plans.front())) {
      done[target] = "was done before: it is " + DescribeState(found);
    }
  }
  if (done.size() == targets.size()) done.clear();
  return done;
}

VrelDR::Operation::Snapshot LastOfOneCut(const std::map<std::string, std::string>& done) {
  VrelDR::Operation::Snapshot oldest;
  for (const auto& each : done) {
    VrelDR::ArrivedSnapshots arrived;
    if (!VrelDR::ArrivedReporter(RequireOnePlan(each.first).GetPlanId()).Read(arrived)) return {};
    const VrelDR::Operation::Snapshot& last = arrived.newest;
    const bool isFirst = oldest.snap_id.empty();
    if (last.cut_id.empty() || (!isFirst && last.cut_id != oldest.cut_id)) return {};
    if (isFirst || oldest > last) oldest = last;
  }
  return oldest;
}

}  // namespace drgroupctl
