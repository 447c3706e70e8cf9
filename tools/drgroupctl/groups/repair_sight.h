#pragma once

#include <string>

#include "groups/repair_plan.h"

namespace drgroupctl {

// Looks at the group's catalogue and asks about each of its targets once. Throws when the catalogue
// cannot be read.
RepairSight LookForRepair(const std::string& groupId);

}  // namespace drgroupctl
