#include "sync_pair.h"

#include <vreldr/operation.h>
#include <vreldr/target_manager.h>
#include <vreldr/target_operation.h>

#include <stdexcept>
#include <vector>

namespace bench {

namespace {

void Require(bool worked, const VrelDRCore::ErrRecorder& recorder) {
  if (!worked) throw std::runtime_error(recorder.GetErrMsg().toStyledString());
}

}  // namespace

PlannedTarget::PlannedTarget(const std::string& id, int targetType, std::uint64_t size)
    : type_(targetType) {
  const VrelDR::TargetManager targets;
  Require(targets.Create({VrelDR::Target(id, targetType), "a", size, {}}), targets);
  VrelDR::TargetEntry entry;
  Require(targets.Get(id, entry), targets);
  path_ = entry.path;
  VrelDR::DRPlan plan;
  plan.SetSolutionType(VrelDR::kSolutionGroup);
  plan.SetProtectedTargetType(targetType);
  plan.SetScheduleMode(VrelDR::kScheduleAsyncGroup);
  plan.SetStatus(VrelDR::kPlanNormal);
  plan.SetProtectedTargetId(id);
  VrelDR::Operation::PlanLocalCreate create(plan, "b", "", {}, {}, {});
  Require(create.Run(false), create);
  std::vector<VrelDR::DRPlan> plans;
  if (VrelDR::PlanAPI::ListPlans(plans) != 0) throw std::runtime_error("no plan was made");
  plan_ = plans.front();
}

bool PlannedTarget::Sync() const {
  return VrelDR::Operation::PlanSync(plan_.GetPlanId(), VrelDR::DataSyncParam()).Run(false);
}

void PlannedTarget::RemoveOld() const {
  for (const std::string& target : {plan_.GetProtectedTargetId(), plan_.GetDRTargetId()}) {
    const VrelDR::TargetOperation operation(type_, target);
    std::vector<VrelDR::Operation::Snapshot> snapshots = operation.ListSnapshots();
    if (!snapshots.empty()) snapshots.pop_back();
    for (const auto& each : snapshots) Require(operation.DeleteSnapshot(each.snap_id), operation);
  }
}

}  // namespace bench
