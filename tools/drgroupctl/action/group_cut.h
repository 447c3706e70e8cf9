#pragma once

#include <vreldr/cut.h>

#include <string>
#include <vector>

#include "groups/group_store.h"
#include "output/console.h"

namespace drgroupctl {

// Makes the snapshots of targets, the group's or the other copies of their plans, in one cut, with
// the group's writers held if need be. Throws why that failed, behind `failed`, such as "no group
// snapshot was made"; then nothing is left of it.
void PrepareCut(const Group& group, const std::vector<VrelDR::Target>& targets,
                const std::string& failed, VrelDR::Cut& cut, Warnings& warnings);

// Warns of a cut that is not of one instant, and says what to do.
void WarnOfSkew(const Group& group, const std::vector<VrelDR::Target>& targets,
                const VrelDR::CutInfo& info, Warnings& warnings);

}  // namespace drgroupctl
