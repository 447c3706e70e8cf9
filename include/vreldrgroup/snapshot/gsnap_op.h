#pragma once

#include <json/value.h>
#include <vreldr/target.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "vreldrgroup/export.h"
#include "vreldrgroup/record/gsnapshot.h"
#include "vreldrgroup/record/target_replica.h"
#include "vreldrgroup/record/target_snapshot.h"

// Reading and editing a group's catalogue. Every function opens what it needs and closes it again;
// failures are logged and give false; outputs are appended to, and keep what could be read before a
// failure. Any thread may call any of them at any time; a group is changed by one at a time.
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

// Makes the group's database in `snapMetaDir` ready for use and links it, replacing another link.
VRELDRGROUP_API bool GroupSnapDBInit(const std::string& groupId, const std::string& snapMetaDir);

// Removes the database in the directory and the group's link; note the order of the arguments.
VRELDRGROUP_API void GroupSnapMetaClear(const std::string& snapMetaDir, const std::string& groupId);

// The identifier of the newest snapshot that a target has. -1, with `snapId` as it was, when it has
// none; else 0.
VRELDRGROUP_API int SnapLastVerGet(const std::string& targetId, std::string& snapId);

// Replaces the description, the lock and the consistency type of a group snapshot, which must
// exist.
VRELDRGROUP_API bool GsnapshotSet(const std::string& gsnapId, const GsnapMeta& meta);

// Sets the status of a group snapshot; an identifier without a row changes nothing and is no
// failure.
VRELDRGROUP_API bool GroupSnapStatusSet(const std::string& groupId, const std::string& gsnapId,
                                        GsnapStatus status);

// Gives the replicas of every source target that `replicaMap` names a new destination: an object
// from source target identifier to an object with the text "dst_target_id". One that fails is
// logged and makes the result false; the others are written all the same.
VRELDRGROUP_API bool TargetReplicaRenew(const std::string& dbDir, const Json::Value& replicaMap);

// Removes all replica rows from the database in the directory.
VRELDRGROUP_API bool TargetReplicaClean(const std::string& dbDir);

// Replaces a text by another wherever it stands in the values of the given columns, in one
// transaction: all of them or none. `tableFields` is an object from table name to an array of
// column names. Names and texts go into the statement as they are: they must come from this
// library, not from a user.
VRELDRGROUP_API bool GsnapUpdateDBField(const std::string& dbPath, const Json::Value& tableFields,
                                        const std::string& oldStr, const std::string& newStr);

// The same for every column of the database in `dbDir` that holds a group's identifier.
VRELDRGROUP_API bool GsnapUpdateDRGroupGsnapId(const std::string& oldStr, const std::string& newStr,
                                               const std::string& dbDir);

// Brings the catalogues of the guests to the current schema and gives `column` of "gsnap_meta" the
// value 1 where it is NULL. A guest without a catalogue is passed over. -1 when any guest failed,
// after the others have been done; else 0.
VRELDRGROUP_API int GroupSnapMetaUpdater(const std::string& column,
                                         std::vector<std::string> guestIds);

}  // namespace VrelDRGroup::Operation
