#pragma once

#include <vreldr/plan.h>

#include <set>
#include <string>
#include <vector>

#include "vreldrgroup/export.h"

namespace VrelDRGroup::Utils {

// Replaces `plans` by the plans of a target. How many there are, or -1 when that could not be found
// out.
VRELDRGROUP_API int PlanSelect(const std::string& target, std::vector<VrelDR::DRPlan>& plans);

// Appends the plans of these identifiers, in the order of the set. 0, or -1 at the first that
// cannot be read; those before it stay appended.
VRELDRGROUP_API int PlanList(const std::set<std::string>& planIds,
                             std::vector<VrelDR::DRPlan>& plans);

}  // namespace VrelDRGroup::Utils
