#pragma once

#include <string>
#include <string_view>

#include "base/status.h"

// Changes that are on disk when the call returns.
namespace VrelHost {

// Brings what was written to an open file, or the names in an open directory, to disk. 0 or an
// errno.
int SyncFd(int fd);
// Writes the text to an open file and brings it to disk. 0 or an errno, and then any part of it may
// be written.
int WriteAndSync(int fd, std::string_view text);

using VrelDR::Status;

// For the state directory: every failure is kErrStore.

// Why `what` of the state directory could not be used, as `error` says.
Status StateFailure(const std::string& what, int error);

// Makes the directory and what is missing above it, with mode 0700.
Status MakeDirs(const std::string& dir);
Status SyncDir(const std::string& dir);
// A new file with this text. It is the caller who syncs the directory.
Status WriteNewFile(const std::string& path, const std::string& text);
// Whether something of that name is there, links not followed. A failure when that cannot be told.
Status IsThere(const std::string& path, bool& there);
// Renames the file to the first name of its kind that is free, which is in `moved` then.
Status MoveAside(const std::string& path, std::string& moved);

}  // namespace VrelHost
