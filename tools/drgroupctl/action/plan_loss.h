#pragma once

#include <vreldr/plan.h>

#include <string>
#include <vector>

namespace drgroupctl {

// 'target "a" on volume "v1"'; without the volume when the host has no such target.
std::string PlaceOf(const std::string& target);

// What is given up with the plans, a line for each: replication, and what the copies that do not
// work have and no other, which stay as ordinary targets or go.
std::string LossDetails(const std::vector<VrelDR::DRPlan>& plans, bool withData);

}  // namespace drgroupctl
