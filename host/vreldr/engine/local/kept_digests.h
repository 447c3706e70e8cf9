#pragma once

#include <optional>
#include <string>

#include "engine/engine.h"
#include "engine/local/digest_file.h"

namespace VrelDR::Local {

// The digests that are kept of a target's snapshots where blocks are not shared: in the area
// kDigests a file with the name of each snapshot. A snapshot may be without; what is there is of
// the snapshot of that name, and is in its place before that appears.

// The name of the digests of a snapshot that is being made, in the same directory. No identifier
// begins with a dot.
std::string DigestsName(const std::string& snapId);

// Puts what is called so in the directory `fromFd`, all of which is on disk, into its place. The
// snapshot is without where that fails or nothing is there.
void PlaceDigests(int fromFd, int ownFd, const TargetPlace& target, const std::string& snapId);

// Removes the digests of a snapshot, durably. 0 or an errno; nothing there is fine.
int RemoveDigests(int ownFd, const TargetPlace& target, const std::string& snapId);

// Removes, durably, digests whose snapshot is not there and not on its way as `keepSnapId`, which
// may be empty: a shipment that did not come to its end leaves them. 0 or an errno.
int RemoveStrayDigests(int ownFd, const TargetPlace& target, const std::string& keepSnapId);

// None when the snapshot is without. 0 or an errno.
int OpenDigests(int ownFd, const TargetPlace& target, const std::string& snapId,
                std::optional<DigestFile>& digests);

}  // namespace VrelDR::Local
