#pragma once

#include <vreldr/plan.h>
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
// The same for whoever is going to delete the others. Throws when a catalogue cannot be read: what
// it records could not be spared.
std::set<std::string> AllRecordedSnapshotIds();

// Adds the snapshots that the plan holds on its replica or is going to send, and the newest that
// its replica has when the one that it holds is gone. Throws when that cannot be told.
void AddNeeded(const VrelDR::DRPlan& plan, std::set<std::string>& needed);

}  // namespace drgroupctl
