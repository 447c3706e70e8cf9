#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

#include "base/fd.h"
#include "engine/support/open_entry.h"
#include "engine/support/watch.h"

namespace VrelDR::Local {

// No walk leaves the file system that it is in: what is mounted inside a directory is somebody
// else's, also when it is another place of the same file system, or a single file. Whatever looks
// into a directory opens its entries by OpenEntry and these calls, which answer EXDEV where
// something is mounted.

// What lstat says of an entry itself. 0 or an errno.
int StatEntry(int parentFd, const std::string& name, struct stat& st);

// Opens again what `fd`, which may be of O_PATH, is open for.
Fd Reopen(int fd, int flags);

// Opens a directory for looking into it; never follows a link. False with errno set on a failure.
Fd OpenDir(int parentFd, const std::string& name);

// Opens `name` below `parentFd`, making it with mode 0700 when it is missing; `isMade` tells that.
Fd OpenOrMakeDir(int parentFd, const std::string& name, bool* isMade = nullptr);

// Appends the names in a directory, without "." and "..". 0 or an errno.
int ListDir(int dirFd, std::vector<std::string>& names);

// Takes the lock of a directory, trying ten times a second: kErrBusy when another process still has
// it after `mostTries`. `path` names the directory.
Status LockDir(int dirFd, const std::string& path, int mostTries, Watch& watch);

}  // namespace VrelDR::Local
