#pragma once

#include <vreldrgroup/record/target_snapshot.h>

#include <set>
#include <string>
#include <vector>

namespace drgroupctl {

// Every target snapshot in the group's catalogue, by target. Throws when it cannot be read.
std::vector<VrelDRGroup::TargetSnapshotRelationship> RecordedSnapshots(const std::string& groupId);

// The identifiers of the target snapshots in all catalogues; those that cannot be read are passed
// over.
std::set<std::string> RecordedSnapshotIds();

}  // namespace drgroupctl
