#pragma once

#include <vreldrgroup/record/gsnapshot.h>

#include <string>

#include "groups/group_store.h"
#include "groups/gsnap_cut.h"

namespace drgroupctl {

// What replication has brought last to a group's targets, as the group snapshot that it would be.
struct ArrivedGsnap {
  VrelDRGroup::GsnapshotInfo info{""};  // its identifier, its time and its parts
  GsnapCut cut;                         // in which the parts were taken
  bool is_recorded = false;             // the group's catalogue has it
};

// Throws when nothing has arrived for one of the targets, or when a sync runs on one.
ArrivedGsnap FindArrivedGsnap(const Group& group);

// Throws, with the targets by cut, unless the parts belong together: all are of one cut, or there
// is one only.
void RequireTogether(const Group& group, const ArrivedGsnap& arrived);

// Records what has arrived in the group's catalogue, whose lock is held, with which target is
// replicated to which. The consistency is the cut's.
VrelDRGroup::GsnapshotInfo RecordArrived(const Group& group, const ArrivedGsnap& arrived,
                                         const std::string& description, bool isLocked);

// Records a group snapshot all parts of which arrived some time ago, in the group's catalogue,
// whose lock is held. Throws when the catalogue refuses; run again it begins anew.
void RecordEarlier(const Group& group, const VrelDRGroup::GsnapshotInfo& gsnap);

}  // namespace drgroupctl
