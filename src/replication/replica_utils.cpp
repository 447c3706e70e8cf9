#include "vreldrgroup/replication/replica_utils.h"

#include "log.h"

namespace VrelDRGroup::Utils {

namespace {

constexpr char kUnit[] = "replication/replica_utils";

}  // namespace

int PlanSelect(const std::string& target, std::vector<VrelDR::DRPlan>& plans) {
  plans.clear();
  if (!VrelDR::Utils::SelectPlans(VrelDR::kTargetLun, target, plans)) {
    LOG_SHORT_ERR("Failed to select plans from replica.db");
    return -1;
  }
  return static_cast<int>(plans.size());
}

int PlanList(const std::set<std::string>& planIds, std::vector<VrelDR::DRPlan>& plans) {
  for (const std::string& planId : planIds) {
    VrelDR::DRPlan plan;
    if (VrelDR::PlanAPI::GetPlan(planId, plan) != 0) {
      LOG_SHORT_ERR("Failed to get plan [%s]", planId.c_str());
      return -1;
    }
    plans.push_back(plan);
  }
  return 0;
}

}  // namespace VrelDRGroup::Utils
