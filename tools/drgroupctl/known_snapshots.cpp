#include "known_snapshots.h"

#include <vreldrgroup/snapshot/gsnap_op.h>

#include <map>

#include "catalogue.h"
#include "failure.h"
#include "group_store.h"

namespace drgroupctl {

std::vector<VrelDRGroup::TargetSnapshotRelationship> RecordedSnapshots(const std::string& groupId) {
  std::map<VrelDR::Target, std::vector<VrelDRGroup::TargetSnapshotRelationship>> byTarget;
  if (!VrelDRGroup::Operation::TargetSnapList(groupId, byTarget)) {
    throw CatalogueFailure(groupId, "cannot list its target snapshots");
  }
  std::vector<VrelDRGroup::TargetSnapshotRelationship> snapshots;
  for (const auto& [target, rows] : byTarget) {
    snapshots.insert(snapshots.end(), rows.begin(), rows.end());
  }
  return snapshots;
}

std::set<std::string> RecordedSnapshotIds() {
  std::set<std::string> ids;
  for (const std::string& groupId : ListGroupIds()) {
    try {
      if (ExamineCatalogue(groupId, Access::kRead, 1)) continue;
      for (const auto& each : RecordedSnapshots(groupId)) ids.insert(each.tsnap_id);
    } catch (const Failure&) {  // "group list" tells of it
    }
  }
  return ids;
}

}  // namespace drgroupctl
