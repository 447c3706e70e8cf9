#pragma once

#include <string>
#include <vector>

#include "target/target_cut.h"
#include "vreldr/snapshot.h"

namespace VrelDR {

// Puts the snapshots of a cut in hand of plans, as Cut::PutInHand does.
Status PutInHand(const TargetCut& cut, std::vector<std::string> planIds,
                 const Operation::SnapshotMeta& meta, bool isMadeBySync);

}  // namespace VrelDR
