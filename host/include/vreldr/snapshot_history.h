#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "vrelcore/export.h"
#include "vreldr/arrived.h"
#include "vreldr/snapshot.h"

// What lists of snapshots tell: about one copy of a target, or about both copies of a plan. Nothing
// here asks anybody; the lists are what the caller was told. Every list has each identifier once,
// and is ordered as targets list their snapshots, oldest first, unless it says otherwise. The
// library needs nothing of this; it is there for the host and its tool.
namespace VrelDR::SnapshotHistory {

using SnapshotList = std::vector<Operation::Snapshot>;

// The description of the snapshot that keeps what a reprotection is going to overwrite. A replica
// may have it, and it never was sent there.
inline constexpr const char* kBeforeReprotect = "Before reprotect";

// The snapshot of that identifier, in the list; null when it has none. The order does not matter.
VREL_API const Operation::Snapshot* Find(const SnapshotList& snapshots, const std::string& snapId);

// The newest of `one` that `other` has too; empty when they have none in common. With `before` only
// those count that stand before that one in `one`; all, when it is not there.
VREL_API std::string NewestCommon(const SnapshotList& one, const SnapshotList& other,
                                  const std::string& before = {});

// The newest of the identifiers that a plan holds, in any order, as `here` tells of it, or else
// `there`, as a record may be gone with the bytes. One that neither knows has nothing but its
// identifier, and is older than all others. An empty snapshot when nothing is held.
VREL_API Operation::Snapshot NewestHeld(const std::vector<std::string>& held,
                                        const SnapshotList& here, const SnapshotList& there);

// Whether none of `snapshots` that a plan holds is newer than this one.
VREL_API bool IsNewest(const Operation::Snapshot& snapshot, const SnapshotList& snapshots,
                       const std::vector<std::string>& held);

// What a replica can take over with that has the snapshots `present`, in any order, when `recorded`
// is the newest that its plan holds there, empty when there is none, and the plan had `inHand` on
// its way, empty when nothing. Those two count. When the recorded one is gone, so do those before
// it that were sent: what is newer is the replica's own, from when it worked. When nobody knows how
// old the recorded one was, all that were sent count.
VREL_API ArrivedSnapshots WhatArrived(const Operation::Snapshot& recorded,
                                      const std::string& inHand, const SnapshotList& present);

// The identifiers of those that are newer than the one named; when it is not there, of those taken
// after `time`.
VREL_API std::vector<std::string> NewerThan(const SnapshotList& snapshots,
                                            const std::string& snapId, std::uint32_t time);

// Those of the identifiers waiting to be sent, in any order, that the source has and the replica
// has not, oldest first.
VREL_API std::vector<std::string> StillToSend(const std::vector<std::string>& waiting,
                                              const SnapshotList& source,
                                              const SnapshotList& replica);

// Puts the identifiers that are in `snapshots`, in any order, in order of their age, oldest first,
// and before the others, which stay in theirs.
VREL_API void SortByAge(SnapshotList snapshots, std::vector<std::string>& snapIds);

// What pruning may take: the snapshots that carry this description and that nobody needs.
VREL_API SnapshotList Leftovers(const SnapshotList& snapshots, const std::string& description,
                                const std::set<std::string>& needed);

}  // namespace VrelDR::SnapshotHistory
