#pragma once

#include <json/value.h>

#include <set>
#include <string>
#include <vector>

#include "vreldrgroup/export.h"

// Questions about the plans of targets, and single changes of them. Any thread may call at any
// time.
namespace VrelDRGroup::Operation {

// The plan of a target, the first when it has several. 0, or -1 and nothing changed when it has
// none or that could not be found out.
VRELDRGROUP_API int ReplicaPlanIdGet(const std::string& target, std::string& planId);

// The target that a plan protects; empty when there is no such plan.
VRELDRGROUP_API void ReplicaTargetIdGet(const std::string& planId, std::string& targetId);

// Appends the target that each plan protects: one entry for each plan, empty ones too.
VRELDRGROUP_API void ReplicaTargetList(const std::vector<std::string>& planIds,
                                       std::vector<std::string>& targetIds);

// Adds the plan of each target. -1 when any has none, with those of the others added; else 0.
VRELDRGROUP_API int ReplicaPlanList(const std::set<std::string>& targets,
                                    std::set<std::string>& planIds);

// Sets a member of `out` for each plan: its identifier, and the number of its status on this site.
// 0, or -1 and nothing changed when one of them cannot be read. An `out` that is neither an object
// nor null is replaced.
VRELDRGROUP_API int PlanInfoGet(const std::set<std::string>& planIds, Json::Value& out);

// Sets a member of `out` for each plan: its identifier, and the report of its running or last sync,
// an empty report for a plan that has none. 0. `out` as for PlanInfoGet.
VRELDRGROUP_API int PlanSyncReportGet(const std::set<std::string>& planIds, Json::Value& out);

// The last snapshot that replication has brought over for a target; empty when there is none yet.
// 0, or -1 and nothing changed when the target has no plan.
VRELDRGROUP_API int ReplicaLastSnapIdGet(const std::string& target, std::string& snapId);

// Raises `progress`, a percentage, to about how far the running action `taskName` is over all
// targets; never lowers it. It stays as it was when that cannot be found out.
VRELDRGROUP_API void ReplicaProgressAppr(const std::set<std::string>& targets,
                                         const std::string& taskName, int& progress);

// Makes the DR side of the target's one plan a working site. 0 or -1.
VRELDRGROUP_API int PlanSitePromote(const std::string& target);

// Drops the last snapshot that replication has brought to the target, on the DR side: releases the
// plan's lock on it and deletes it. 0 or -1.
VRELDRGROUP_API int DrSnapRollback(const std::string& target);

// What to do with a list of snapshots that are still to be sent. Callers store the numbers: never
// change a value.
enum class PendingSnapOp : int { kAdd = 0, kRemove = 1 };

// Puts every target snapshot of a group snapshot on the list of its target's plan, or takes it off.
// 0, or -1 at the first that fails; what was done before it stays.
VRELDRGROUP_API int GsnapToPendingSnapOp(const std::string& gsnapId, PendingSnapOp op);

}  // namespace VrelDRGroup::Operation
