#pragma once

#include "engine/local/change_finder.h"
#include "engine/support/watch.h"

namespace VrelDR::Local {

// Finds the runs in which two files differ up to the shorter size by reading both; where both have
// holes nothing is read. Appends them, ascending, to `changed`. 0 or an errno: ECANCELED when
// `watch` says to stop.
int CompareData(int baseFd, int snapshotFd, std::uint64_t size, Watch& watch,
                std::vector<Run>& changed);

}  // namespace VrelDR::Local
