#pragma once

#include <vreldr/target.h>
#include <vreldrgroup/record/gsnapshot.h>

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "groups/group_store.h"

// Whether group snapshots have a part of every target of their group. The catalogue records the
// parts that there are; the group's definition says which there should be. A deletion that ended
// half way, or a repair of the catalogue, leaves fewer. A target that was added to the group later
// has none in those from before, and one that has left it keeps its own.
namespace drgroupctl {

class Warnings;

// The group by its definition. Nothing, after a warning that says why, when there is none to be
// read.
std::optional<Group> DefinedGroup(Warnings& warnings, const std::string& groupId);

// When the group snapshot was made, as its identifier says.
std::int64_t TimeOf(const std::string& gsnapId);

// The identifiers of the targets that are not in `parts` and that a group snapshot of that time
// should have a part of.
std::vector<std::string> MissingTargets(const Group& defined, std::int64_t gsnapTime,
                                        const std::set<std::string>& parts);

// The identifiers of the targets that the group snapshot has a part of.
std::set<std::string> PartsOf(const VrelDRGroup::GsnapshotInfo& info);

// The status that is shown: what the catalogue says, unless parts are missing. One that is bad
// stays bad.
std::string ShownStatus(const VrelDRGroup::Gsnapshot& gsnap, bool isIncomplete);

// The targets that the group snapshot has no part of. Throws a refusal, which says what was not
// `done` and names them, when there are any or when that cannot be told; with `isForced` a warning
// takes its place.
std::vector<std::string> RequireComplete(Warnings& warnings, const VrelDRGroup::GsnapshotInfo& info,
                                         const std::string& done, bool isForced);

// The same also where targets came into the group after the group snapshot.
std::vector<std::string> RequireAll(Warnings& warnings, const VrelDRGroup::GsnapshotInfo& info,
                                    const std::string& done, bool isForced);

// Takes the parts out of `info` whose targets have left the group since. A warning names those, and
// another one the targets that came into it later. Without a definition all stay.
void LeaveOutFormerTargets(Warnings& warnings, VrelDRGroup::GsnapshotInfo& info);

}  // namespace drgroupctl
