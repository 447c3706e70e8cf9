#include <vreldr/error.h>
#include <vreldr/plan.h>

#include "current.h"
#include "text.h"

namespace VrelDR {
namespace {

using scripted_host::Call;
using scripted_host::Current;
using scripted_host::Fails;
using scripted_host::Record;

const DRPlan* Find(const std::string& planId) {
  for (const auto& [target, plans] : Current().plans) {
    for (const DRPlan& plan : plans) {
      if (plan.GetPlanId() == planId) return &plan;
    }
  }
  return nullptr;
}

}  // namespace

int PlanAPI::GetPlan(const std::string& planId, DRPlan& plan) {
  const std::string call = Call("GetPlan", planId);
  Record(call);
  if (const auto* failure = Fails(call)) return failure->code;
  const DRPlan* const found = Find(planId);
  if (found == nullptr) return kErrPlanMissing;
  plan = *found;
  return kErrNone;
}

DRPlan PlanAPI::GetPlan(const std::string& planId) {
  Record(Call("GetPlanByValue", planId));
  const DRPlan* const found = Find(planId);
  return found == nullptr ? DRPlan() : *found;
}

bool Utils::SelectPlans(DRProtectedTargetType type, const std::string& targetId,
                        std::vector<DRPlan>& plans) {
  const std::string call = Call("SelectPlans", static_cast<int>(type), targetId);
  Record(call);
  const auto found = Current().plans.find(targetId);
  if (found != Current().plans.end()) {
    plans.insert(plans.end(), found->second.begin(), found->second.end());
  }
  return Fails(call) == nullptr;
}

DRSiteStatus Utils::GetPlanLocalSiteStatus(const DRPlan& plan) {
  Record(Call("GetPlanLocalSiteStatus", plan));
  const auto found = Current().site_status.find(plan.GetPlanId());
  return found == Current().site_status.end() ? kSiteUnknown : found->second;
}

}  // namespace VrelDR
