#include "engine/local/freeze.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <cerrno>
#include <vector>

#include "base/fd.h"
#include "engine/local/directory.h"

namespace VrelDR::Local {

namespace {

bool IsRefusal(int error) {
  return error == EPERM || error == EACCES || error == ENOTTY || error == EOPNOTSUPP ||
         error == EINVAL || error == ENOSYS;
}

int Change(int fd, unsigned set, unsigned clear) {
  // The calls' numbers say "long", but what they read and write is an int.
  unsigned flags = 0;
  if (ioctl(fd, FS_IOC_GETFLAGS, &flags) != 0) return errno;
  const unsigned wanted = (flags | set) & ~clear;
  if (wanted == flags) return 0;
  return ioctl(fd, FS_IOC_SETFLAGS, &wanted) == 0 ? 0 : errno;
}

int Flag(int fd, bool frozen) {
  return frozen ? Change(fd, FS_IMMUTABLE_FL, 0) : Change(fd, 0, FS_IMMUTABLE_FL);
}

bool IsFlagged(int fd) {
  unsigned flags = 0;
  return ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0 && (flags & FS_IMMUTABLE_FL) != 0;
}

// Calls `visit` with every file and directory below `dirFd`, open, and its path, which begins with
// `path`; what is in a directory comes before that. Ends at the first answer that is not 0. What is
// mounted somewhere is passed over.
template <class Visit>
int ForEach(int dirFd, const std::string& path, const Visit& visit) {
  std::vector<std::string> names;
  if (const int error = ListDir(dirFd, names)) return error;
  for (const std::string& name : names) {
    struct stat st;
    int error = StatEntry(dirFd, name, st);
    if (error == EXDEV) continue;
    if (error != 0) return error;
    const bool isDir = S_ISDIR(st.st_mode);
    if (!isDir && !S_ISREG(st.st_mode)) continue;  // its directory's flag keeps it in place
    const Fd fd = OpenEntry(dirFd, name, O_RDONLY | O_NONBLOCK);
    if (!fd) return errno;
    const std::string below = path + name;
    if (isDir) error = ForEach(fd.Get(), below + "/", visit);
    if (error == 0) error = visit(fd.Get(), below);
    if (error != 0) return error;
  }
  return 0;
}

int Tolerate(int error) {
  return IsRefusal(error) ? 0 : error;
}

}  // namespace

int FreezeBelow(int dirFd) {
  return Tolerate(ForEach(dirFd, {}, [](int fd, const std::string&) { return Flag(fd, true); }));
}

int ThawBelow(int dirFd, const std::set<std::string>* kept) {
  return Tolerate(ForEach(dirFd, {}, [kept](int fd, const std::string& path) {
    return kept != nullptr && kept->count(path) != 0 ? 0 : Flag(fd, false);
  }));
}

int FindFrozen(int dirFd, std::set<std::string>& paths) {
  if (IsFlagged(dirFd)) paths.insert(std::string());
  return ForEach(dirFd, {}, [&paths](int fd, const std::string& path) {
    if (IsFlagged(fd)) paths.insert(path);
    return 0;
  });
}

bool IsWhollyFrozen(int dirFd) {
  return IsFlagged(dirFd) && ForEach(dirFd, {}, [](int fd, const std::string&) {
                               return IsFlagged(fd) ? 0 : ENOENT;
                             }) == 0;
}

int SetFrozen(int fd, bool frozen) {
  return Tolerate(Flag(fd, frozen));
}

int ClearGuards(int fd) {
  return Tolerate(Change(fd, 0, FS_IMMUTABLE_FL | FS_APPEND_FL));
}

bool CanFreeze(int dirFd) {
  const Fd probe(openat(dirFd, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  if (!probe || Flag(probe.Get(), true) != 0) return false;
  return Flag(probe.Get(), false) == 0;
}

}  // namespace VrelDR::Local
