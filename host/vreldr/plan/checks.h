#pragma once

#include <string>

#include "plan/host_plan.h"

// What operations on plans need, each rule once: an operation asks before it begins, and its
// checker asks the same. Nothing here changes anything.
namespace VrelDR::Check {

Status Sync(HostPlan& plan);
Status Switchover(HostPlan& plan);
Status Failover(HostPlan& plan, const std::string& snapId);
// To the last snapshot that arrived and is there.
Status FailoverToLast(HostPlan& plan);
Status ForcedFailover(HostPlan& plan, const std::string& snapId);
Status ForcedFailoverToLast(HostPlan& plan);
Status Reprotect(HostPlan& plan, const std::string& siteId);
// Taking back an operation.
Status Revert(HostPlan& plan, DRPlanOPStatus undone);
Status Delete(HostPlan& plan, bool withData);

// Whether a forced failover puts a reprotected plan back into the failover that it came from.
bool GoesBack(HostPlan& plan);

// Whether the target can be given a plan: it works, and is no plan's DR copy.
Status Protectable(const Store& store, const std::string& targetId);

}  // namespace VrelDR::Check
