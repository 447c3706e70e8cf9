#pragma once

#include <string>
#include <vector>

#include "base/fd.h"
#include "base/status.h"

namespace VrelDR::Local {

// What stands in a directory and is no part of it.

// Appends the paths of all that is mounted on the entry `name` of the directory `dirFd`, on the way
// to it or below it, whatever `name` leads to. 0 or an errno.
int FindMounts(int dirFd, const std::string& name, std::vector<std::string>& paths);

// The same for what is mounted below the directory `dirFd`, and not on that itself.
int FindMountsBelow(int dirFd, std::vector<std::string>& paths);

// Appends the paths of the subvolumes below the directory `dirFd`, which has the path `path`. A
// walk only where the directory is none itself. 0 or an errno.
int FindNested(int dirFd, const std::string& path, std::vector<std::string>& paths);

// The paths for a message.
std::string Listed(const std::vector<std::string>& paths);

// kErrUnsupported, with the places and what to do, when there are any.
Status MountedOn(const std::vector<std::string>& paths);
Status NestedIn(const std::vector<std::string>& paths);

// Good when the path leads to what the directory `dirFd` is: kErrVolumeMissing when something else
// has taken its place, as when a volume was unmounted and another one mounted there.
Status CheckStillAt(int dirFd, const std::string& path);

// Good when nothing is mounted below the directory.
Status CheckNoMountsBelow(int dirFd);

// The directory as it is without what is mounted inside it, or nothing where the system does not
// show that to this process.
Fd OpenWithoutMounts(int dirFd);

}  // namespace VrelDR::Local
