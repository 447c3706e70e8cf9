#pragma once

#include <vreldrgroup/record/gsnapshot.h>

#include <vector>

namespace drgroupctl {

// Throws when a plan holds a part of one of the group snapshots, has it in hand or is going to send
// it: the host would refuse to delete that when other parts are gone already.
void RequireReleased(const std::vector<VrelDRGroup::GsnapshotInfo>& gsnaps);

}  // namespace drgroupctl
