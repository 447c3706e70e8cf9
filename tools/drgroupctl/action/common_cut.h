#pragma once

#include <string>
#include <vector>

#include "action/takeover.h"

namespace drgroupctl {

// What became of replicas that would take over with their last snapshots.
struct CommonCut {
  bool is_older = false;  // they go to an older cut, as a sync ended half way
  std::string problem;    // why their snapshots do not belong together; then nothing was changed
};

// Lets them take over with the snapshots of the newest cut that all of them have. Where none of the
// last ones is of a cut an older one is not gone to. A replica that cannot be asked is passed over,
// as the failover is refused for that.
CommonCut GoToCommonCut(std::vector<Takeover>& takeovers);

}  // namespace drgroupctl
