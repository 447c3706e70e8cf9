#include "action/interrupted.h"

#include "action/plans.h"

namespace drgroupctl {

namespace {

// Whether a plan is where the task brings it, seeing that the group's first plan is `first`.
bool IsThere(const std::string& task, const VrelDR::DRPlan& plan, const VrelDR::DRPlan& first) {
  const bool isFailedOver = plan.GetStatus() == VrelDR::kPlanFailover;
  if (task == "failover") return isFailedOver;
  if (task == "reprotect") return !isFailedOver;
  return !isFailedOver && plan.GetDirection() == first.GetDirection();
}

}  // namespace

std::map<std::string, std::string> DoneBefore(const std::string& task,
                                              const std::vector<std::string>& targets) {
  std::map<std::string, std::string> done;
  if (task != "failover" && task != "reprotect" && task != "switchover" &&
      task != "tmp_switchover") {
    return done;
  }
  std::vector<VrelDR::DRPlan> plans;
  for (const std::string& target : targets) {
    const std::vector<VrelDR::DRPlan> found = PlansOf(target);
    if (found.size() != 1) return {};  // the action itself refuses that
    plans.push_back(found.front());
    if (IsThere(task, plans.back(), plans.front())) {
      done[target] = "was done before: it is " + DescribeState(found);
    }
  }
  if (done.size() == targets.size()) done.clear();
  return done;
}

}  // namespace drgroupctl
