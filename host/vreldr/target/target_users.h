#pragma once

#include <set>
#include <string>
#include <vector>

#include "target/host.h"
#include "vreldr/target_users.h"

namespace VrelDR {

// Appends an answer for each target of the open host, in their order; the targets of a volume are
// asked about at once. Why one has no answer is in it.
void FindUsersOf(Host& host, const std::vector<std::string>& targetIds,
                 std::vector<TargetUsers>& answers, std::set<std::string>& unseen);

// Good when nobody is in the way of doing that to the target. kErrInUse, with who is, otherwise.
Status CheckUnused(Host& host, const std::string& targetId, PlaceUse use);

}  // namespace VrelDR
