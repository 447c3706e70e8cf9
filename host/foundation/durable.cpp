#include "foundation/durable.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/fd.h"
#include "vreldrcore/file.h"

namespace VrelHost {

using VrelDR::Fd;

Status StateFailure(const std::string& what, int error) {
  return {VrelDR::kErrStore, what + ": " + VrelDR::StatusOfErrno(error, {}).message};
}

Status MakeDirs(const std::string& dir) {
  if (VrelDRCore::File::CreateDir(dir, 0700)) return {};
  return StateFailure("cannot make the state directory " + VrelDR::Quoted(dir), errno);
}

Status SyncDir(const std::string& dir) {
  const Fd fd(open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd && fsync(fd.Get()) == 0) return {};
  return StateFailure("cannot bring " + VrelDR::Quoted(dir) + " to disk", errno);
}

Status WriteNewFile(const std::string& path, const std::string& text) {
  const Fd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
  errno = fd ? 0 : errno;
  if (fd && write(fd.Get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
      fsync(fd.Get()) == 0) {
    return {};
  }
  return StateFailure("cannot write " + VrelDR::Quoted(path), errno == 0 ? ENOSPC : errno);
}

Status IsThere(const std::string& path, bool& there) {
  struct stat st;
  there = lstat(path.c_str(), &st) == 0;
  if (there || errno == ENOENT) return {};
  return StateFailure("cannot look for " + VrelDR::Quoted(path), errno);
}

}  // namespace VrelHost
