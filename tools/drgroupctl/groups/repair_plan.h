#pragma once

#include <vreldr/target.h>
#include <vreldrgroup/record/gsnapshot.h>
#include <vreldrgroup/record/target_snapshot.h>
#include <vreldrgroup/snapshot/gsnap_repair.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace drgroupctl {

// What a repair looks at: the catalogue, and what the host says of the targets.
struct RepairSight {
  std::map<std::string, VrelDRGroup::GsnapStatus> statuses;  // of "gsnap_meta"
  // The rows of "target_snap_list" by group snapshot, in their order.
  std::map<std::string, std::vector<VrelDRGroup::TargetSnapshot>> parts;
  // Nothing for a target that the host could not be asked about, as for one that is missing here.
  std::map<VrelDR::Target, std::optional<VrelDRGroup::Operation::TargetInfo>> targets;
};

// What a repair changes. Group snapshots are in the order in which it comes to them.
struct RepairPlan {
  struct Deletion {
    std::string gsnap_id;
    std::string reason;
  };
  struct StatusChange {
    std::string gsnap_id;
    VrelDRGroup::GsnapStatus from;
    VrelDRGroup::GsnapStatus to;
    std::string reason;
  };

  bool Empty() const { return deletions.empty() && changes.empty(); }

  std::vector<Deletion> deletions;
  std::vector<StatusChange> changes;
};

// What the library's repair does when it sees this. A function of its argument only.
RepairPlan PlanRepair(const RepairSight& sight);

}  // namespace drgroupctl
