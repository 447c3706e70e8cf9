#pragma once

#include <vreldr/operation.h>
#include <vreldr/plan.h>
#include <vreldrcore/json.h>

#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vreldrgroup/replication/replica_utils.h"

// What the units of replication have in common.
namespace VrelDRGroup {

// The plan of a target that has exactly one. Several plans are as bad as none: nobody could say
// which is meant.
inline std::optional<VrelDR::DRPlan> OnlyPlan(const std::string& target) {
  std::vector<VrelDR::DRPlan> plans;
  if (Utils::PlanSelect(target, plans) != 1) return std::nullopt;
  return plans.front();
}

// A new operation; empty when there is no memory for it.
template <class Operation, class... Args>
std::unique_ptr<VrelDR::DROperation> NewOperation(Args&&... args) {
  return std::unique_ptr<VrelDR::DROperation>(new (std::nothrow)
                                                  Operation(std::forward<Args>(args)...));
}

// What an operation failed with, as log lines show it.
inline std::string ErrorText(const VrelDR::DROperation& operation) {
  return VrelDRCore::JsonUtil::ToString(operation.GetErr());
}

}  // namespace VrelDRGroup
