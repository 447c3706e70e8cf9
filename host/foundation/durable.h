#pragma once

#include <string>

#include "base/status.h"

// Changes of directories that are on disk when the call returns. Every failure is kErrStore.
namespace VrelHost {

using VrelDR::Status;

// Why `what` of the state directory could not be used, as `error` says.
Status StateFailure(const std::string& what, int error);

// Makes the directory and what is missing above it, with mode 0700.
Status MakeDirs(const std::string& dir);
Status SyncDir(const std::string& dir);
// A new file with this text. It is the caller who syncs the directory.
Status WriteNewFile(const std::string& path, const std::string& text);
// Whether something of that name is there, links not followed. A failure when that cannot be told.
Status IsThere(const std::string& path, bool& there);

}  // namespace VrelHost
