#include "groups/file_write.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace drgroupctl {

namespace {

// Writes `text` to `fd`, brings it to disk and closes `fd`.
bool Fill(int fd, const std::string& text) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t written = write(fd, text.data() + done, text.size() - done);
    if (written == -1 && errno == EINTR) continue;
    if (written == -1) break;
    done += static_cast<std::size_t>(written);
  }
  const bool good = done == text.size() && fchmod(fd, 0644) == 0 && fsync(fd) == 0;
  const int error = errno;
  if (close(fd) != 0 && good) return false;
  errno = error;
  return good;
}

}  // namespace

int SyncUpwards(std::string dir) {
  int error = SyncDirectory(dir);
  while (error == 0 && dir.size() > 1) {
    dir.erase(std::max<std::size_t>(dir.rfind('/'), 1));
    error = SyncDirectory(dir);
    // Nothing was made in a directory that may not be read, or on a file system without writes.
    if (error == EACCES || error == EINVAL || error == EROFS) error = 0;
  }
  return error;
}

int WriteFileAtomically(const std::string& path, const std::string& text) {
  std::string temporary = path + ".XXXXXX";
  const int fd = mkostemp(temporary.data(), O_CLOEXEC);
  if (fd == -1) return errno;
  if (!Fill(fd, text) || rename(temporary.c_str(), path.c_str()) != 0) {
    const int error = errno;
    unlink(temporary.c_str());
    return error;
  }
  return SyncDirectory(path.substr(0, path.rfind('/') + 1));
}

}  // namespace drgroupctl
