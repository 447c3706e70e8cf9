#pragma once

#include <set>
#include <string>

namespace VrelDR::Local {

// The immutable flag of inodes: with it nobody, root included, changes a file's bytes or a
// directory's entries. Modes are not touched, so that a copy keeps those of its original.
//
// Not every file system has the flag and not every user may set it.

// Sets the flag on every file and directory below the directory `dirFd`, not on that itself: a
// directory that has it cannot be renamed. Where the flag is refused this does nothing and is good.
// 0 or an errno.
int FreezeBelow(int dirFd);

// Clears the flag of every file and directory below the directory `dirFd`, as FreezeBelow sets it,
// but not of those that `kept`, which may be null, has by their paths below it.
int ThawBelow(int dirFd, const std::set<std::string>* kept = nullptr);

// Adds the paths of all that has the flag below the directory `dirFd`, and "" when that has it. 0
// or an errno.
int FindFrozen(int dirFd, std::set<std::string>& paths);

// Whether the directory and every file and directory below it have the flag.
bool IsWhollyFrozen(int dirFd);

// Sets or clears the flag of one open file or directory. 0, also where it is refused, or an errno.
int SetFrozen(int fd, bool frozen);

// Clears the flags of one open file or directory that keep it from being moved or removed: this one
// and "append only". 0, also where that is refused, or an errno.
int ClearGuards(int fd);

// Whether files in this directory can have the flag. False when that cannot be tried.
bool CanFreeze(int dirFd);

}  // namespace VrelDR::Local
