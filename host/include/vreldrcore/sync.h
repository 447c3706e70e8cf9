#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>

// Header only, so that it asks nothing of a host's binaries.
namespace VrelDRCore {

// Brings the names in a directory to disk. 0 or an error number.
inline int SyncDirectory(const std::string& dir) {
  const int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd == -1) return errno;
  const int error = fsync(fd) == 0 ? 0 : errno;
  close(fd);
  return error;
}

}  // namespace VrelDRCore
