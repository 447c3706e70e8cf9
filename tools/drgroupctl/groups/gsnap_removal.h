#pragma once

#include <vreldrgroup/record/gsnapshot.h>
#include <vreldrgroup/record/target_snapshot.h>

#include <string>
#include <vector>

#include "host/host.h"

namespace drgroupctl {

// Whether each of a group snapshot's target snapshots is there, in their order.
using Presences = std::vector<Presence>;

// Asks the host. With `mustReach` a refusal is thrown when one of them is out of reach: the library
// would count it as gone, and it would stay behind without a record.
Presences AskParts(const VrelDRGroup::GsnapshotInfo& info, bool mustReach);

// What becomes of target snapshots that are out of reach.
enum class OutOfReach { kFail, kForget };

// Deletes the group snapshot, of whose parts the host has said `presences`, and makes sure that
// nothing of it exists or is recorded any more; throws otherwise, with what is left. Those parts
// that are out of reach and were forgotten.
std::vector<VrelDRGroup::TargetSnapshot> RemoveGsnap(const std::string& groupId,
                                                     const VrelDRGroup::GsnapshotInfo& info,
                                                     const Presences& presences,
                                                     OutOfReach outOfReach);

// Deletes all records of the group snapshot, or none: then it throws. Its target snapshots stay.
void ForgetGsnap(const std::string& groupId, const std::string& gsnapId);

// Target snapshots as rows of a report; and those of them that exist, or may exist for all that the
// host can tell.
Json::Value LeftRows(const std::vector<VrelDRGroup::TargetSnapshot>& snapshots);
Json::Value StillThere(const std::vector<VrelDRGroup::TargetSnapshot>& snapshots);

}  // namespace drgroupctl
