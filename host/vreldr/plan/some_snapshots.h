#pragma once

#include <string>
#include <vector>

#include "target/host.h"

// What is known of a few of a target's snapshots: the same as the lists of all of them tell,
// without reading a history of which nobody asks. Those that there are come oldest first.
namespace VrelDR {

// Those that are recorded, in any state.
Status SelectRecorded(const Store& store, const std::string& targetId,
                      const std::vector<std::string>& snapIds,
                      std::vector<Operation::Snapshot>& found);

// Those that are recorded as whole and really there.
Status SelectPresent(const HostTarget& opened, const std::vector<std::string>& snapIds,
                     std::vector<Operation::Snapshot>& found);

// Whether the volume has a snapshot of that identifier as a whole, recorded or not.
Status HasBytes(const HostTarget& opened, const std::string& snapId, bool& has);

}  // namespace VrelDR
