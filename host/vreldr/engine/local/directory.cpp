#include "engine/local/directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <memory>

namespace VrelDR::Local {

int StatEntry(int parentFd, const std::string& name, struct stat& st) {
  const Fd entry = OpenEntry(parentFd, name, O_PATH);
  return entry && fstat(entry.Get(), &st) == 0 ? 0 : errno;
}

Fd Reopen(int fd, int flags) {
  return Fd(open(PathOfFd(fd).c_str(), flags | O_CLOEXEC));
}

Fd OpenDir(int parentFd, const std::string& name) {
  return OpenEntry(parentFd, name, O_RDONLY | O_DIRECTORY);
}

Fd OpenOrMakeDir(int parentFd, const std::string& name, bool* isMade) {
  const bool made = mkdirat(parentFd, name.c_str(), 0700) == 0;
  if (!made && errno != EEXIST) return Fd();
  if (isMade != nullptr) *isMade = made;
  return OpenDir(parentFd, name);
}

int ListDir(int dirFd, std::vector<std::string>& names) {
  // A description of its own: reading moves the position that duplicates would share.
  Fd own = OpenDir(dirFd, ".");
  if (!own) return errno;
  struct Closer {
    void operator()(DIR* dir) const { closedir(dir); }
  };
  const std::unique_ptr<DIR, Closer> dir(fdopendir(own.Get()));
  if (!dir) return errno;
  own.Release();
  for (;;) {
    errno = 0;
    const struct dirent* entry = readdir(dir.get());
    if (entry == nullptr) return errno;
    std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(std::move(name));
  }
}

Status LockDir(int dirFd, const std::string& path, int mostTries, Watch& watch) {
  for (int tries = 0; flock(dirFd, LOCK_EX | LOCK_NB) != 0; ++tries) {
    if (errno != EWOULDBLOCK && errno != EINTR) return StatusOfErrno(errno, path);
    Status status = watch.Wait();
    if (!status.IsOk()) return status;
    if (tries == mostTries) {
      return {kErrBusy, "another process still writes to " + Quoted(path) +
                            "; wait for its end and run it again"};
    }
    const struct timespec pause = {0, 100'000'000};
    nanosleep(&pause, nullptr);
  }
  return {};
}

}  // namespace VrelDR::Local
