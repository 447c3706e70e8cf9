#pragma once

#include <sys/stat.h>

#include "vrelcore/export.h"

// The platform library: running a program and asking about a path. C linkage; nothing throws, and
// any thread may call.

extern "C" {

// What VLIBCFileLStat is asked to fill in. VLIBC_STAT_ALL is what every caller of this host passes.
enum {
  VLIBC_STAT_TYPE = 1,
  VLIBC_STAT_SIZE = 2,
  VLIBC_STAT_OWNER = 4,
  VLIBC_STAT_TIME = 8,
  VLIBC_STAT_ALL = 15,
};

// Runs `prog` (a path; PATH is not searched) with the arguments that follow, up to the first null
// pointer, and waits for it. The program inherits the environment and the standard streams.
// Returns its exit status, 128 + the signal number when a signal ended it, or -1 when it could not
// be started or waited for.
VREL_API int VLIBCExec(const char* prog, ...) __attribute__((sentinel));

// 1 when `path` exists, following symbolic links (a dangling link does not exist); else 0.
VREL_API int VLIBCFileExist(const char* path);

// Looks at `path` itself, without following a link, and fills `st` with at least the `fields` asked
// for. 0 when the path exists, -1 otherwise, with errno set and `st` untouched.
VREL_API int VLIBCFileLStat(const char* path, unsigned int fields, struct stat* st);
}
