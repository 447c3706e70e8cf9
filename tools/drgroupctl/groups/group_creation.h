#pragma once

#include <string>

#include "groups/group_store.h"

namespace drgroupctl {

// Throws a refusal when there is a group of that identifier.
void RequireNewGroup(const std::string& groupId);

// Makes the group with its directory, catalogue, definition and link, all of them on disk
// afterwards. Finishes one that was interrupted. A failure, which is thrown, leaves nothing of it.
void CreateGroup(const Group& group);

}  // namespace drgroupctl
