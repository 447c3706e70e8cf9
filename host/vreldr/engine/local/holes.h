#pragma once

#include "engine/support/watch.h"

namespace VrelDR::Local {

// Makes the files below the directory `fromFd` that have holes, and are not below `toFd` yet, there
// as nothing but a hole of the same size, with the directories they are in: whoever then compares
// the bytes finds holes to be the same already. 0 or an errno: ECANCELED when
// `watch` says to stop.
int LayOutHoles(int fromFd, int toFd, Watch& watch);

}  // namespace VrelDR::Local
