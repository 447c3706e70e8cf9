#pragma once

#include <string>

#include "vreldrgroup/export.h"
#include "vreldrgroup/record/gsnapshot.h"
#include "vreldrgroup/record/target_replica.h"
#include "vreldrgroup/record/target_snapshot.h"

// Group snapshot identifiers, and the writing of a catalogue's rows.
namespace VrelDRGroup::Utils {

// GROUP-gsnap-SECONDS; empty when the group identifier is empty or the time is 0.
VRELDRGROUP_API std::string ToGsnapId(const std::string& groupId, long time);

// What stands before the last "-gsnap-"; empty when there is none.
VRELDRGROUP_API std::string ParseGroupId(const std::string& gsnapId);

// The number after the last "-gsnap-", wrapped to 32 bits with a sign; 0 when there is none.
VRELDRGROUP_API long ParseSnapshotTime(const std::string& gsnapId);

// DRGroupDB::Init with an error code: 401 for an empty directory, 404 for any other failure. `err`
// is set on a failure only, here and below.
VRELDRGROUP_API bool InitDRGroupDB(const std::string& dbDir, const std::string& groupId, int& err,
                                   bool relink);

// Starts a new group snapshot: no identifier yet, the given tag and metadata, status ready. The
// time is left as it is.
VRELDRGROUP_API void InitGroupSnapshot(Gsnapshot& gsnap, const std::string& tag,
                                       const GsnapMeta& meta);

// Each writes one row into the database in `dbDir`; called twice, a second row. False when the
// database refused. A group snapshot without an identifier or with a time below 1 is refused with
// 401, logged; what the database refuses gives 404.
VRELDRGROUP_API bool SetGroupSnapRecord(const Gsnapshot& gsnap, const std::string& dbDir, int& err);
VRELDRGROUP_API bool SetTargetSnapshotRecord(const TargetSnapshot& tsnap,
                                             const std::string& gsnapId, const std::string& dbDir);
VRELDRGROUP_API bool SetTargetReplicaRecord(const TargetReplica& replica,
                                            const std::string& gsnapId, const std::string& dbDir);

}  // namespace VrelDRGroup::Utils
