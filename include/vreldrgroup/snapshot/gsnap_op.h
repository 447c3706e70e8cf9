#pragma once

#include <vreldr/target.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "vreldrgroup/export.h"
#include "vreldrgroup/record/gsnapshot.h"
#include "vreldrgroup/record/target_replica.h"
#include "vreldrgroup/record/target_snapshot.h"

// Reading a group's catalogue. Every function opens what it needs and closes it again; failures are
// logged and give false; outputs are appended to, and keep what could be read before a failure.
namespace VrelDRGroup::Operation {

// The group's snapshots, in the order in which they were recorded; with `latestOnly` the newest
// one. A group without a database has none, which is no failure.
VRELDRGROUP_API bool GsnapshotList(const std::string& groupId, std::vector<Gsnapshot>& out,
                                   bool latestOnly);

// The identifiers of the group's snapshots. The set is replaced, and only on success.
VRELDRGROUP_API bool GsnapshotIdList(const std::string& groupId, std::vector<std::string>& out);
VRELDRGROUP_API bool GsnapshotIdList(const std::string& groupId, std::set<std::string>& out);

// One group snapshot. False when there is none of that name or its time is not positive.
VRELDRGROUP_API bool GsnapshotGet(const std::string& gsnapId, Gsnapshot& out);

// One group snapshot with its target snapshots and replicas; having no replicas is no failure.
VRELDRGROUP_API bool GsnapshotInfoGet(const std::string& gsnapId, GsnapshotInfo& out);

// Every snapshot of the group with its target snapshots; replicas are not filled. False when one of
// them has no target snapshots.
VRELDRGROUP_API bool GsnapshotInfoList(const std::string& groupId, std::vector<GsnapshotInfo>& out);

// Every target snapshot of the group by target. Nothing is added on a failure.
VRELDRGROUP_API bool TargetSnapList(
    const std::string& groupId,
    std::map<VrelDR::Target, std::vector<TargetSnapshotRelationship>>& out);

// The replicas of one group snapshot.
VRELDRGROUP_API bool TargetReplicaList(const std::string& gsnapId, std::vector<TargetReplica>& out);

}  // namespace VrelDRGroup::Operation
