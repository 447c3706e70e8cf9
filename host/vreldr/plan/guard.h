#pragma once

#include <string>

#include "store/store.h"

// What plans forbid to do to targets by other ways than theirs: kErrLocked, with the plan or the
// lock that is in the way. The caller has the target's lock, so that what was found stays true.
namespace VrelDR::Guard {

// Taking a snapshot of the target, or restoring one: it has to be the copy that works.
Status CheckChangeable(const Store& store, const std::string& targetId);

// Removing the target: no plan may have it.
Status CheckRemovable(const Store& store, const std::string& targetId);

// Deleting a snapshot: nobody may hold it.
Status CheckReleased(const Store& store, const std::string& targetId, const std::string& snapId);

}  // namespace VrelDR::Guard
