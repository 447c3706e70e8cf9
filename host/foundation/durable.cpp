#include "foundation/durable.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "base/fd.h"
#include "vreldrcore/file.h"

namespace VrelHost {

using VrelDR::Fd;

int SyncFd(int fd) {
  return fsync(fd) == 0 ? 0 : errno;
}

int WriteAndSync(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t done = write(fd, text.data(), text.size());
    if (done < 0 && errno != EINTR) return errno;
    if (done == 0) return ENOSPC;  // what takes nothing never will
    if (done > 0) text.remove_prefix(static_cast<std::size_t>(done));
  }
  return SyncFd(fd);
}

Status StateFailure(const std::string& what, int error) {
  return {VrelDR::kErrStore, what + ": " + VrelDR::StatusOfErrno(error, {}).message};
}

Status MakeDirs(const std::string& dir) {
  if (VrelDRCore::File::CreateDir(dir, 0700)) return {};
  return StateFailure("cannot make the state directory " + VrelDR::Quoted(dir), errno);
}

Status SyncDir(const std::string& dir) {
  const Fd fd(open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const int error = fd ? SyncFd(fd.Get()) : errno;
  return error == 0 ? Status()
                    : StateFailure("cannot bring " + VrelDR::Quoted(dir) + " to disk", error);
}

Status WriteNewFile(const std::string& path, const std::string& text) {
  const Fd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
  const int error = fd ? WriteAndSync(fd.Get(), text) : errno;
  return error == 0 ? Status() : StateFailure("cannot write " + VrelDR::Quoted(path), error);
}

Status IsThere(const std::string& path, bool& there) {
  struct stat st;
  there = lstat(path.c_str(), &st) == 0;
  if (there || errno == ENOENT) return {};
  return StateFailure("cannot look for " + VrelDR::Quoted(path), errno);
}

Status MoveAside(const std::string& path, std::string& moved) {
  for (int number = 1;; ++number) {
    moved = path + ".damaged-" + std::to_string(number);
    if (renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, moved.c_str(), RENAME_NOREPLACE) == 0) {
      return {};
    }
    if (errno != EEXIST)
      return StateFailure("cannot move " + VrelDR::Quoted(path) + " aside", errno);
  }
}

}  // namespace VrelHost
