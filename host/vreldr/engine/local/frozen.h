#pragma once

#include <set>
#include <string>

#include "engine/engine.h"

namespace VrelDR::Local {

// What of a target that is made unwritable in its place its user had made immutable before. It is
// written down before the first flag is set and goes when the last one is cleared: while it is
// there, the target's flags are not its user's. Every call returns 0 or an errno.

// Writes it down for the target's directory `dirFd`, durably; nothing when that has been done.
int KeepUsersFlags(int ownFd, const TargetPlace& target, int dirFd);

// Whether it is there for the directory `dirFd`, and the paths below that; "" is the directory's
// own.
int FindUsersFlags(int ownFd, const TargetPlace& target, int dirFd, bool& found,
                   std::set<std::string>& paths);

int DropUsersFlags(int ownFd, const TargetPlace& target);

}  // namespace VrelDR::Local
