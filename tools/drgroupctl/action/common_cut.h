#pragma once

#include <set>
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

// The cuts whose snapshots a failover of a group may need.
struct NeededCuts {
  bool are_all = false;  // as a group or a replica could not be asked, which `problem` names
  std::string problem;
  std::set<std::string> ids;
  // Of the snapshots of these cuts that the plans have, on either side.
  std::set<std::string> snap_ids;

  bool Has(const std::string& cutId) const {
    return !cutId.empty() && (are_all || ids.count(cutId) != 0);
  }
};

// For each group that has one of the plans: the newest cut that all replicas of that group have.
NeededCuts FindNeededCuts(const std::vector<VrelDR::DRPlan>& plans);

}  // namespace drgroupctl
