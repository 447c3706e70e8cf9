#include "engine/local/tree_remove.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "base/fd.h"
#include "base/kill_point.h"
#include "engine/local/directory.h"
#include "engine/local/freeze.h"
#include "engine/local/subvolume.h"

namespace VrelDR::Local {

namespace {

int Absent(int error) {
  return error == ENOENT ? 0 : error;
}

int RemoveFile(int parentFd, const std::string& name) {
  if (unlinkat(parentFd, name.c_str(), 0) == 0) return 0;
  if (errno != EPERM) return Absent(errno);
  const Fd fd = OpenEntry(parentFd, name, O_RDONLY | O_NONBLOCK);
  if (!fd) return Absent(errno);
  if (const int error = ClearGuards(fd.Get())) return error;
  return unlinkat(parentFd, name.c_str(), 0) == 0 ? 0 : Absent(errno);
}

int Remove(int parentFd, const std::string& name, bool isTop) {
  struct stat st;
  if (const int error = StatEntry(parentFd, name, st)) return Absent(error);
  if (!S_ISDIR(st.st_mode)) {
    const int error = RemoveFile(parentFd, name);
    KillPoint(kRemoveEntry);
    return error;
  }
  Fd dir = OpenDir(parentFd, name);
  // The mode keeps out an owner who is not root; a frozen directory has to be opened first, though.
  if (!dir && errno == EACCES && fchmodat(parentFd, name.c_str(), 0700, 0) == 0) {
    dir = OpenDir(parentFd, name);
  }
  if (!dir) return Absent(errno);
  if (IsSubvolume(dir.Get())) return isTop ? RemoveSubvolume(parentFd, name) : ENOTEMPTY;
  if (const int error = ClearGuards(dir.Get())) return error;
  if ((st.st_mode & S_IRWXU) != S_IRWXU && fchmod(dir.Get(), 0700) != 0) return errno;
  std::vector<std::string> names;
  if (const int error = ListDir(dir.Get(), names)) return error;
  for (const std::string& each : names) {
    if (const int error = Remove(dir.Get(), each, false)) return error;
  }
  return unlinkat(parentFd, name.c_str(), AT_REMOVEDIR) == 0 ? 0 : Absent(errno);
}

}  // namespace

int RemoveTree(int parentFd, const std::string& name) {
  return Remove(parentFd, name, true);
}

}  // namespace VrelDR::Local
