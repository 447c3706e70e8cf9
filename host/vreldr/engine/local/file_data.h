#pragma once

#include <sys/types.h>

#include "engine/support/watch.h"

namespace VrelDR::Local {

class DigestWriter;

// Gives the empty file `to` the `size` bytes of the file `from`: sharing its blocks where the file
// system can, else copying what is data and leaving holes as holes. 0 or an errno: ECANCELED when
// `watch` says to stop.
//
// What is written is told to `digests`, which may be null and has begun the file. They are given up
// where blocks are shared, which tell the same for nothing, and where data needs their room.
int CopyFileData(int from, int to, off_t size, Watch& watch, DigestWriter* digests = nullptr);

// Whether files opened with `fd`'s file system can share blocks. False when that cannot be tried.
bool CanShareBlocks(int dirFd);

}  // namespace VrelDR::Local
