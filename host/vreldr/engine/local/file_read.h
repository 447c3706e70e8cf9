#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "base/fd.h"

namespace VrelDR::Local {

// Where the next byte of data of a file is, from `at` on; `end` where there is none before that.
// Where the file system does not tell holes all is data. 0 or an errno.
int FindData(int fd, std::uint64_t at, std::uint64_t end, std::uint64_t& data);
// The same for the next hole.
int FindHole(int fd, std::uint64_t at, std::uint64_t end, std::uint64_t& hole);

// Reads as many bytes as there is room for. 0 or an errno: ESTALE when the file ends before.
int ReadFully(int fd, std::uint64_t at, std::span<char> bytes);

// Writes all of them. 0 or an errno.
int WriteFully(int fd, std::uint64_t at, std::span<const char> bytes);

// Opens an entry of a directory for reading, as OpenEntry does, without changing its time of access
// where that is allowed. It is to be a file or a directory.
Fd OpenQuietly(int dirFd, const std::string& name, int flags);

}  // namespace VrelDR::Local
