#pragma once

#include <vreldrgroup/record/gsnapshot.h>
#include <vreldrgroup/record/target_snapshot.h>

#include <string>
#include <vector>

namespace drgroupctl {

// Throws a refusal when one of the target snapshots is out of reach: the library would count it as
// gone, and it would stay behind without a record.
void CheckReachable(const VrelDRGroup::GsnapshotInfo& info);

// What becomes of target snapshots that are out of reach.
enum class OutOfReach { kFail, kForget };

// Deletes the group snapshot and makes sure that nothing of it exists or is recorded any more;
// throws otherwise, with what is left.
void RemoveGsnap(const std::string& groupId, const VrelDRGroup::GsnapshotInfo& info,
                 OutOfReach outOfReach);

// Deletes all records of the group snapshot, or none: then it throws. Its target snapshots stay.
void ForgetGsnap(const std::string& groupId, const std::string& gsnapId);

// Those of `snapshots` that exist.
std::vector<VrelDRGroup::TargetSnapshot> Present(
    const std::vector<VrelDRGroup::TargetSnapshot>& snapshots);

// Those of `snapshots` that exist, or may exist for all that the host can tell, as rows of a
// report.
Json::Value StillThere(const std::vector<VrelDRGroup::TargetSnapshot>& snapshots);

}  // namespace drgroupctl
