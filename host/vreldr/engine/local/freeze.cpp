#include "freeze.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <cerrno>
#include <vector>

#include "../../fd.h"
#include "directory.h"

namespace VrelDR::Local {

namespace {

bool IsRefusal(int error) {
  return error == EPERM || error == EACCES || error == ENOTTY || error == EOPNOTSUPP ||
         error == EINVAL || error == ENOSYS;
}

int Flag(int fd, bool frozen) {
  // The calls' numbers say "long", but what they read and write is an int.
  int flags = 0;
  if (ioctl(fd, FS_IOC_GETFLAGS, &flags) != 0) return errno;
  const int wanted = frozen ? flags | FS_IMMUTABLE_FL : flags & ~(FS_IMMUTABLE_FL | FS_APPEND_FL);
  if (wanted == flags) return 0;
  return ioctl(fd, FS_IOC_SETFLAGS, &wanted) == 0 ? 0 : errno;
}

// 0, or the first errno, refusals among them.
int FlagTree(int dirFd, bool frozen) {
  std::vector<std::string> names;
  if (const int error = ListDir(dirFd, names)) return error;
  for (const std::string& name : names) {
    struct stat st;
    if (fstatat(dirFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return errno;
    const bool isDir = S_ISDIR(st.st_mode);
    if (!isDir && !S_ISREG(st.st_mode)) continue;  // its directory's flag keeps it in place
    const Fd fd(openat(dirFd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd) return errno;
    if (isDir) {
      if (const int error = FlagTree(fd.Get(), frozen)) return error;
    }
    if (const int error = Flag(fd.Get(), frozen)) return error;
  }
  return 0;
}

int Tolerate(int error) {
  return IsRefusal(error) ? 0 : error;
}

}  // namespace

int FreezeBelow(int dirFd) {
  return Tolerate(FlagTree(dirFd, true));
}

int ThawBelow(int dirFd) {
  return Tolerate(FlagTree(dirFd, false));
}

int SetFrozen(int fd, bool frozen) {
  return Tolerate(Flag(fd, frozen));
}

bool CanFreeze(int dirFd) {
  const Fd probe(openat(dirFd, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  if (!probe || Flag(probe.Get(), true) != 0) return false;
  return Flag(probe.Get(), false) == 0;
}

}  // namespace VrelDR::Local
