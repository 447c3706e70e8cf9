#pragma once

#include <string>

#include "engine/local/shipment.h"

namespace VrelDR::Local {

// Makes the directory `into` of a btrfs volume hold what the read-only subvolume `snapshot` of
// another one holds, as a subvolume of the same name. With `base`, which both volumes have, only
// what differs from it is sent; `base` may be empty. A failure leaves what has arrived as a
// subvolume that is not read-only, or nothing; kErrUnsupported before anything is sent when a path
// is too long; `givenUp` says that it was btrfs that gave up, as it does on a base that is of no
// use to it.
Status SendReceive(const std::string& snapshot, const std::string& base, const std::string& into,
                   Shipment& shipment, bool& givenUp);

}  // namespace VrelDR::Local
