#pragma once

#include <vreldr/plan.h>
#include <vreldrgroup/record/gsnapshot.h>
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

// A group snapshot as a group's catalogue has it.
struct RecordedGsnap {
  std::string group_id;
  VrelDRGroup::GsnapshotInfo info;  // without replicas
  bool is_listed = false;           // it is whole; else only parts of it are recorded
};
using RecordedGsnaps = std::vector<RecordedGsnap>;

// Those in all catalogues, each of which is read once. Throws when one cannot be read.
RecordedGsnaps AllRecordedGsnaps();

// Adds the snapshots that the plan holds on its replica or is going to send, and the newest that
// its replica has when the one that it holds is gone. Throws when that cannot be told.
void AddNeeded(const VrelDR::DRPlan& plan, std::set<std::string>& needed);

}  // namespace drgroupctl
