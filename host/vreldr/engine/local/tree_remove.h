#pragma once

#include <string>

namespace VrelDR::Local {

// Removes the entry `name` of the directory `parentFd`, whatever it is, with all that is below it:
// frozen files and directories, and on btrfs subvolumes, too. Links are removed, not followed. 0,
// also when nothing is there, or an errno; a failure leaves what was not removed yet.
int RemoveTree(int parentFd, const std::string& name);

}  // namespace VrelDR::Local
