#pragma once

#include <string>

#include "base/fd.h"

namespace VrelDR {

// Opens an entry of a directory, or one below it, with the flags of open. A link at its end is not
// followed, and nothing that is mounted on the way is gone into: EXDEV then. False with errno set
// on a failure.
Fd OpenEntry(int parentFd, const std::string& name, int flags);

// The path by which the system finds what `fd` is open for, whatever stands under its name.
std::string PathOfFd(int fd);

// The path of an entry of a directory.
std::string PathIn(std::string dir, const std::string& name);

// Where a link of /proc leads, or what `fd` is open for, as this process sees the system. Empty
// with errno set on a failure.
std::string ReadLink(const std::string& path);
inline std::string WhereIs(int fd) {
  return ReadLink(PathOfFd(fd));
}

}  // namespace VrelDR
