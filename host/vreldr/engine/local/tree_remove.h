#pragma once

#include <string>

namespace VrelDR::Local {

// Removes the entry `name` of the directory `parentFd`, whatever it is, with all that is below it:
// files and directories that are frozen or may only be appended to, too, and a subvolume. Links are
// removed, not followed. 0, also when nothing is there, or an errno; a failure leaves what was not
// removed yet. EXDEV where something is mounted and ENOTEMPTY at a nested subvolume: neither is
// touched.
int RemoveTree(int parentFd, const std::string& name);

}  // namespace VrelDR::Local
