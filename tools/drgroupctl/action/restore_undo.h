#pragma once

#include <vreldrgroup/record/gsnapshot.h>

#include <string>

#include "groups/group_store.h"
#include "output/console.h"

namespace drgroupctl {

// The group snapshot that undoes the group's last restore; when an undo has not come to its end,
// the one that it restores. Throws, with what is the matter, when there is nothing to undo.
std::string RequireUndo(const Group& group);

// Takes a group snapshot of the targets that a restore of `info` is going to replace, in one cut,
// and gives its identifier. Throws why that failed; then none was made. Unless they are `isInUse`
// nobody writes them, and it matters to nobody how far apart their snapshots are.
std::string TakeBefore(const Group& group, const VrelDRGroup::GsnapshotInfo& info, bool isInUse,
                       Warnings& warnings);

}  // namespace drgroupctl
