#pragma once

#include "engine/support/watch.h"

namespace VrelDR::Local {

// Writing to one of several names of a file writes to all of them. This makes names below the
// directory `dirFd` that are one file and are not one file below `likeFd` files of their own, with
// the same bytes; those that are no files, or that `likeFd` does not have, are removed. 0 or an
// errno: ECANCELED when `watch` says to stop.
int SeparateLinks(int dirFd, int likeFd, Watch& watch);

}  // namespace VrelDR::Local
