#pragma once

#include <optional>
#include <string>

#include "output/failure.h"

// What it means when a group's link does not lead to what belongs to the group.
namespace drgroupctl {

// The old name of the group that is being renamed to `newId`: its definition has the new name
// already, its link not yet. Nothing when there is none.
std::optional<std::string> RenamedFrom(const std::string& newId);

// What is told of a renaming that was interrupted, under either name: how to finish it.
Failure UnfinishedRenaming(const std::string& from, const std::string& to);

// The directory among those of the host whose definition names the group; empty when there is none.
// One that a user chose is only found through the link.
std::string FindOwnDirectory(const std::string& groupId);

// What is wrong with those of the host's directories of groups that have a catalogue to which no
// link leads: what it records is not told by any group.
std::vector<Failure> FindUnlinked();

// What is wrong with a link to `directory`, whose definition names the group `owner`, or which has
// none when `owner` is empty. Nothing when that may be the group's own.
std::optional<Failure> ExamineOwner(const std::string& groupId, const std::string& directory,
                                    const std::string& owner);

// Lets the group's link lead to the database in `directory`: afterwards, also after a crash, there
// is the old link or the new one, and the new one for good when the call returns. Throws when that
// cannot be done.
void PointLink(const std::string& groupId, const std::string& directory);

}  // namespace drgroupctl
