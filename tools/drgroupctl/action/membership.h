#pragma once

#include <vreldr/plan.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "groups/group_store.h"

// The targets of a group that changes, and the group of the other copies of its plans, which
// changes with it.
namespace drgroupctl {

// The plans of those targets of a group that have one, by target. Throws when one has several.
std::map<std::string, VrelDR::DRPlan> OnePlans(const Group& group);

// The copy of the plan that is not this target.
const std::string& OtherCopy(const VrelDR::DRPlan& plan, const std::string& targetId);

// The groups that have nothing but other copies of the plans, and all of them that are not of one
// of the targets `changing`, which an interrupted change of the group may have left in or out.
std::vector<std::string> GroupsOfCopies(const std::map<std::string, VrelDR::DRPlan>& plans,
                                        const std::vector<std::string>& changing);

// The time of the first group snapshot that has to have a part of a target that comes into the
// group now; 0 when there is none before it.
std::int64_t NextGsnapTime(const std::string& groupId);

// Throws a refusal when a change of the group's targets other than `change` was interrupted: which
// targets the group of the copies has cannot be told until that is finished.
void RequireNoOtherChange(const Group& group, const std::string& change);

// Throws a refusal when both copies of a plan are among the targets: a group handles one of them.
void RequireOneCopy(const std::string& groupId, const std::vector<VrelDR::Target>& targets);

// Puts targets at the end of the group's, those passed over that it has, and its definition on
// disk.
void AddMembers(Group& group, const std::vector<VrelDR::Target>& targets, std::int64_t since);
// Takes a target out of the group, and brings its definition to disk.
void RemoveMember(Group& group, const std::string& targetId);

}  // namespace drgroupctl
