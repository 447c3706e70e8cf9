#pragma once

#include <vreldr/target.h>
#include <vreldrgroup/record/gsnapshot.h>

#include <optional>
#include <set>
#include <string>
#include <vector>

// Whether group snapshots have a part of every target of their group. The catalogue records the
// parts that there are; the group's definition says which there should be. A deletion that ended
// half way, or a repair of the catalogue, leaves fewer.
namespace drgroupctl {

class Warnings;

// The targets of the group's definition. Nothing, after a warning that says why, when there is no
// definition to be read.
std::optional<std::vector<VrelDR::Target>> DefinedTargets(Warnings& warnings,
                                                          const std::string& groupId);

// The identifiers of those of `defined` that are not in `parts`.
std::vector<std::string> MissingTargets(const std::vector<VrelDR::Target>& defined,
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

}  // namespace drgroupctl
