#pragma once

#include <vreldrgroup/record/gsnapshot.h>

namespace drgroupctl {

// Throws unless every target snapshot of the group snapshot is there and its volume can be worked
// on: what is going to fail should not be begun.
void CheckUsable(const VrelDRGroup::GsnapshotInfo& info);

}  // namespace drgroupctl
