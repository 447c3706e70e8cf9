#pragma once

#include <vreldrgroup/record/gsnapshot.h>
#include <vreldrgroup/record/target_snapshot.h>

#include <map>
#include <string>
#include <vector>

namespace drgroupctl {

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

// What a repair has found, and what it would make of that.
struct RepairSight {
  std::map<std::string, VrelDRGroup::GsnapStatus> statuses;  // of "gsnap_meta"
  // The rows of "target_snap_list" by group snapshot, in their order.
  std::map<std::string, std::vector<VrelDRGroup::TargetSnapshot>> parts;
  RepairPlan plan;
};

// Lets the library's repair of the group read and judge, and changes nothing. Throws when the
// catalogue cannot be read.
RepairSight LookForRepair(const std::string& groupId);

}  // namespace drgroupctl
