#pragma once

#include <vreldr/plan.h>
#include <vreldrgroup/record/gsnapshot.h>
#include <vreldrgroup/record/target_snapshot.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "groups/catalogue_rows.h"

// What the catalogues record of target snapshots. Each is asked about the snapshots in question
// alone, however many others it has.
namespace drgroupctl {

// Every target snapshot in the group's catalogue, by target. Throws when it cannot be read.
std::vector<VrelDRGroup::TargetSnapshotRelationship> RecordedSnapshots(const std::string& groupId);

// Those of the target snapshots that a catalogue records; catalogues that cannot be read are passed
// over.
std::set<std::string> RecordedAmong(std::set<std::string> snapIds);
// The same for whoever is going to delete the others. Throws when any catalogue cannot be read:
// what it records could not be spared. `likely` are groups that record most of them.
std::set<std::string> AllRecordedAmong(std::set<std::string> snapIds,
                                       const std::vector<std::string>& likely);

// A group snapshot as a group's catalogue has it.
struct RecordedGsnap {
  std::string group_id;
  VrelDRGroup::GsnapshotInfo info;  // without replicas
  bool is_listed = false;           // it is whole; else only parts of it are recorded
};
using RecordedGsnaps = std::vector<RecordedGsnap>;

// Those in all catalogues that have one of the target snapshots as a part, with all of their parts.
// Throws when any catalogue cannot be read.
RecordedGsnaps AllGsnapsWith(const Identifiers& snapIds);

// Hands the parts that are one of the target snapshots to `visit`, of all catalogues. Throws when
// any catalogue cannot be read.
void VisitAllPartsAmong(
    const Identifiers& snapIds,
    const std::function<void(const VrelDRGroup::TargetSnapshotRelationship&)>& visit);

// Adds the snapshots that the plan holds on its replica or is going to send, and the newest that
// its replica has when the one that it holds is gone. Throws when that cannot be told.
void AddNeeded(const VrelDR::DRPlan& plan, std::set<std::string>& needed);

}  // namespace drgroupctl
