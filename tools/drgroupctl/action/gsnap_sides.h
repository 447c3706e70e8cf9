#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "action/gsnap_recording.h"
#include "groups/group_store.h"

namespace drgroupctl {

class Warnings;

// A group and that of the other copies of its plans, by the direction that data goes now.
struct GsnapSides {
  Group source;
  Group replica;
};

// Throws unless the other group has exactly the other copies of the group's plans, and one of the
// two groups all that work.
GsnapSides FindSides(const Group& group, const std::string& otherId);

// Records the cut that has arrived last at the replicas, if it was to be recorded there and is not,
// as after a sync that was interrupted; the group snapshot of it on the source side tells what is
// said of it. Empty when there is none, else its identifier. A warning tells when another group
// snapshot has the name that it would have.
std::string RecordLeft(const GsnapSides& sides, Warnings& warnings);

// Records on the replicas' side, whose group's lock is held, every group snapshot of the source
// side that has been shipped and is not recorded there: every replica has its part. What is said of
// it is what the source side says. Their identifiers there, the oldest first. Asks about those
// alone that can be missing: of which the first replica has a snapshot that nothing recorded is
// called by.
std::vector<std::string> RecordShipped(const GsnapSides& sides);

// The lock of another group, for a short time, waited for: whoever works on that group is not in
// the way for long. Nothing when that is the group itself, whose lock is held. Throws when it does
// not become free.
std::unique_ptr<GroupLock> LockOther(const std::string& otherId, const std::string& ownId,
                                     std::chrono::seconds patience = std::chrono::minutes(10));

}  // namespace drgroupctl
