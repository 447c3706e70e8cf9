#include "action/plan_uses.h"

#include "action/plans.h"

namespace drgroupctl {

namespace {

using VrelDR::PlaceUse;

void Append(std::vector<PlannedUse>& all, std::vector<PlannedUse> more) {
  all.insert(all.end(), more.begin(), more.end());
}

std::vector<PlannedUse> UsesOfPlan(const Task& task, const VrelDR::DRPlan& plan) {
  switch (task.goal) {
    case Goal::kTurned:
    case Goal::kFailedOver:
      return UsesOfTurning(plan);
    case Goal::kProtected:
      return {{plan.GetSourceTargetId(), PlaceUse::kDemotion}};
    default:
      return {};
  }
}

}  // namespace

std::vector<PlannedUse> UsesOfTurning(const VrelDR::DRPlan& plan) {
  return {{plan.GetSourceTargetId(), PlaceUse::kDemotion},
          {plan.GetReplicaTargetId(), PlaceUse::kReplacement}};
}

std::vector<PlannedUse> UsesOfDeletion(const VrelDR::DRPlan& plan, bool withData) {
  if (withData) return {{plan.GetReplicaTargetId(), PlaceUse::kRemoval}};
  // After a failover the copy that stays keeps its bytes, and is only made writable.
  if (plan.GetStatus() == VrelDR::kPlanFailover) return {};
  return {{plan.GetReplicaTargetId(), PlaceUse::kReplacement}};
}

std::vector<PlannedUse> UsesOf(const Task& task, const Json::Value& params,
                               const Prepared& prepared) {
  std::vector<PlannedUse> uses;
  const bool withData = RemovesCopies(task, params);
  for (const VrelDR::DRPlan& plan : PlansLostBy(task, params, prepared.targets)) {
    Append(uses, UsesOfDeletion(plan, true));
  }
  for (const std::string& target : prepared.targets) {
    if (prepared.passed_over.count(target) != 0) continue;
    for (const VrelDR::DRPlan& plan : PlansOf(target)) {
      if (task.loss == Loss::kCopiesIfAsked && !withData) {
        Append(uses, UsesOfDeletion(plan, false));
      }
      Append(uses, UsesOfPlan(task, plan));
    }
  }
  return uses;
}

}  // namespace drgroupctl
