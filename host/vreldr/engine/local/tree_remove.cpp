#include "tree_remove.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "../../fd.h"
#include "../../kill_point.h"
#include "directory.h"
#include "freeze.h"
#include "subvolume.h"

namespace VrelDR::Local {

namespace {

int Absent(int error) {
  return error == ENOENT ? 0 : error;
}

int RemoveFile(int parentFd, const std::string& name) {
  if (unlinkat(parentFd, name.c_str(), 0) == 0) return 0;
  if (errno != EPERM) return Absent(errno);
  const Fd fd(openat(parentFd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!fd) return Absent(errno);
  if (const int error = SetFrozen(fd.Get(), false)) return error;
  return unlinkat(parentFd, name.c_str(), 0) == 0 ? 0 : Absent(errno);
}

}  // namespace

int RemoveTree(int parentFd, const std::string& name) {
  struct stat st;
  if (fstatat(parentFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return Absent(errno);
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
  if (IsSubvolume(dir.Get())) return RemoveSubvolume(parentFd, name);
  if (const int error = SetFrozen(dir.Get(), false)) return error;
  if ((st.st_mode & S_IRWXU) != S_IRWXU && fchmod(dir.Get(), 0700) != 0) return errno;
  std::vector<std::string> names;
  if (const int error = ListDir(dir.Get(), names)) return error;
  for (const std::string& each : names) {
    if (const int error = RemoveTree(dir.Get(), each)) return error;
  }
  return unlinkat(parentFd, name.c_str(), AT_REMOVEDIR) == 0 ? 0 : Absent(errno);
}

}  // namespace VrelDR::Local
