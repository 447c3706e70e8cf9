#pragma once

#include <vreldr/cut.h>
#include <vreldrgroup/record/gsnapshot.h>

#include <string>
#include <utility>
#include <vector>

#include "output/report.h"

// How snapshots that are used together were made, as the host has it: those of a group snapshot, or
// those that replicas take over with.
namespace drgroupctl {

struct GsnapCut {
  enum class Kind {
    kNotRecorded,  // older, or taken by another program one by one
    kOne,          // all in one cut
    kMixed,        // in several, or some of them in none
    kUnknown,      // the host could not be asked
  };
  Kind kind = Kind::kNotRecorded;
  VrelDR::CutInfo info;  // of kOne
  std::string text;      // for people; of kMixed and kUnknown with the targets
};

// Of snapshots by their targets.
using SnapshotsOfTargets = std::vector<std::pair<VrelDR::Target, std::string>>;
GsnapCut CutOf(const SnapshotsOfTargets& snapshots);
GsnapCut CutOf(const VrelDRGroup::GsnapshotInfo& gsnap);
// Of one that was made just now.
GsnapCut CutOf(const VrelDR::CutInfo& info);

// How consistent that makes the group snapshot: the number that its catalogue gets.
VrelDRGroup::GsnapCwType ConsistencyOf(const GsnapCut& cut);

// Tells of the cut.
void AddCut(const GsnapCut& cut, Report& report);
// The same, and that the consistency was said by hand unless the cut says so, too.
void AddCut(const GsnapCut& cut, VrelDRGroup::GsnapCwType recorded, Report& report);

}  // namespace drgroupctl
