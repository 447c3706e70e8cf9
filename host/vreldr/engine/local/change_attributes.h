#pragma once

#include <sys/stat.h>

#include "engine/local/attributes.h"
#include "engine/local/change_sink.h"

namespace VrelDR::Local {

// What a shipment by changes tells of an entry, and the entry that is made so.

// Reads it from what `fd`, which may be of O_PATH, is open for; `st` is what fstat says of that.
// Names under which some file systems show access lists once more are left out. 0 or an errno.
int ReadAttributes(int fd, const struct stat& st, EntryAttributes& attributes);

// Gives it to `to`, which is new, and all of it or none is good. `fd` is open for it, or -1 for
// what cannot be opened. 0 or an errno.
int WriteAttributes(const Entry& to, int fd, const EntryAttributes& attributes);

// Makes the directory `dirFd`, which may have had its attributes already, one in which entries can
// be made as in a new one. 0 or an errno.
int MakeAsNew(int dirFd);

}  // namespace VrelDR::Local
