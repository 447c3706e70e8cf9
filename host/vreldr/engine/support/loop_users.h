#pragma once

#include "engine/support/owned_files.h"

namespace VrelDR {

// Tells `files` of the files that loop devices and the swapping have open, which no process has.
void FindLoopUsers(OwnedFiles& files, UsersSeen& seen);
void FindSwapUsers(OwnedFiles& files);

}  // namespace VrelDR
