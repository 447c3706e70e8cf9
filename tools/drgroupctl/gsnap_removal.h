#pragma once

#include <vreldrgroup/record/gsnapshot.h>
#include <vreldrgroup/record/target_snapshot.h>

#include <string>
#include <vector>

namespace drgroupctl {

// Throws a refusal when one of the target snapshots is out of reach: the library would count it as
// gone, and it would stay behind without a record.
void CheckReachable(const VrelDRGroup::GsnapshotInfo& info);

// Deletes the group snapshot and makes sure that nothing of it is recorded any more; throws
// otherwise, with what is left.
void RemoveGsnap(const std::string& groupId, const VrelDRGroup::GsnapshotInfo& info);

// Those of `snapshots` that exist, or may exist for all that the host can tell, as rows of a
// report.
Json::Value StillThere(const std::vector<VrelDRGroup::TargetSnapshot>& snapshots);

}  // namespace drgroupctl
