#pragma once

#include <string>

#include "engine/local/shipment.h"
#include "engine/local/tree_measure.h"

namespace VrelDR::Local {

// What the program takes of paths below the directory `from`.
PathLimits RsyncLimits(const std::string& from);

// Makes the directory `to` hold what the directory `from` holds, changing what is there in place:
// only what differs is sent. No two names below `to` may be one file that `from` has as several. A
// failure leaves what has arrived; kErrUnsupported before anything is sent when the program cannot
// take a path. `lockFd` is held for as long as something writes.
Status Rsync(const std::string& from, const std::string& to, int lockFd, Shipment& shipment);

}  // namespace VrelDR::Local
