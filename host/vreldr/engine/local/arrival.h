#pragma once

#include <string>

#include "engine/engine.h"

namespace VrelDR::Local {

// What has arrived of shipments, in the directory `incomingFd` of a target. Beside a snapshot that
// is there as a whole stands a file of our own that says so. Nothing else does: programs that
// receive call a snapshot whole before its bytes are on disk, and so does its name. Each call
// returns 0 or an errno.

// Says, durably, that the snapshot is whole. All its bytes are on disk.
int MarkWhole(int incomingFd, const std::string& snapId);
// Whether that was said of the snapshot, and it is there.
int IsMarkedWhole(int incomingFd, const std::string& snapId, bool& whole);
// Takes that back, durably, before the snapshot is changed.
int Unmark(int incomingFd, const std::string& snapId);
// Removes what stands beside a snapshot that is a target's by now; the next sync brings that to
// disk.
int RemoveMarks(int incomingFd, const std::string& snapId);
// Removes, durably, <own>/incoming/<target> with all in it. Nothing there is fine.
int RemoveIncoming(int ownFd, const TargetPlace& target);
// Removes, durably, what has arrived of all snapshots but `keepSnapId`, which may be empty.
int DropArrived(int incomingFd, const std::string& keepSnapId);

// Whether a directory has an entry of that name.
int FindEntry(int dirFd, const std::string& name, bool& found);

}  // namespace VrelDR::Local
