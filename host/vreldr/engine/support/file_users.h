#pragma once

#include <vector>

#include "engine/support/owned_files.h"

namespace VrelDR {

// Adds to `seen` who uses the bytes of targets that are trees of files on one volume, whose
// directory is `volumeFd`: processes, loop devices, the swapping, and mounts of something of them.
// One walk for all of them. For every engine whose bytes are files of this node.
Status FindFileUsers(int volumeFd, const std::vector<OwnedTree>& trees, UsersSeen& seen,
                     Watch& watch);

}  // namespace VrelDR
