#pragma once

#include <vreldr/plan.h>

#include <vector>

#include "action/prepared.h"
#include "action/task.h"
#include "host/in_use.h"

namespace drgroupctl {

// What is done to the copies of a plan, each rule once.

// The replica takes over, with other bytes than it has, and the source is made unwritable.
std::vector<PlannedUse> UsesOfTurning(const VrelDR::DRPlan& plan);
// The plan goes, and the copy that does not work with it or not.
std::vector<PlannedUse> UsesOfDeletion(const VrelDR::DRPlan& plan, bool withData);

// What the prepared action, which is of the task, does to all of its targets but those that it
// passes over.
std::vector<PlannedUse> UsesOf(const Task& task, const Json::Value& params,
                               const Prepared& prepared);

}  // namespace drgroupctl
