#include "vreldrcore/file.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

namespace VrelDRCore {

namespace {

bool IsDir(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// The directory that the last name of `path` stands in.
std::string ParentOf(const std::string& path) {
  const std::size_t last = path.find_last_not_of('/');
  const std::size_t slash = last == std::string::npos ? last : path.rfind('/', last);
  if (slash == std::string::npos) return path.front() == '/' ? "/" : ".";
  return path.substr(0, slash + 1);
}

// Brings the open directory's names to disk and closes it. False sets errno.
bool SyncAndClose(int fd) {
  const bool good = fsync(fd) == 0;
  const int error = errno;
  close(fd);
  errno = error;
  return good;
}

// Makes one directory, or finds that another process has made it, and brings its name to disk. What
// cannot be brought there is not left, as the next one to look would take it for durable.
bool MakeDir(const std::string& dir, mode_t mode) {
  const int parent = open(ParentOf(dir).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (parent == -1) return false;
  const bool made = mkdir(dir.c_str(), mode) == 0;
  if (!made && !IsDir(dir)) {
    const int error = errno;
    close(parent);
    errno = error;
    return false;
  }
  if (SyncAndClose(parent)) return true;
  const int error = errno;
  if (made) rmdir(dir.c_str());
  errno = error;
  return false;
}

// An entry itself: where something is mounted this fails with EXDEV.
int OpenEntry(int parentFd, const std::string& name, int flags) {
  struct open_how how = {};
  how.flags = static_cast<__u64>(flags | O_NOFOLLOW | O_CLOEXEC);
  how.resolve = RESOLVE_NO_XDEV | RESOLVE_BENEATH;
  return static_cast<int>(syscall(SYS_openat2, parentFd, name.c_str(), &how, sizeof how));
}

bool RemoveBelow(int dirFd);

bool RemoveEntry(int parentFd, const std::string& name) {
  if (unlinkat(parentFd, name.c_str(), 0) == 0 || errno == ENOENT) return true;
  if (errno != EISDIR && errno != EPERM) return false;
  const int fd = OpenEntry(parentFd, name, O_RDONLY | O_DIRECTORY);
  return fd != -1 && RemoveBelow(fd) && unlinkat(parentFd, name.c_str(), AT_REMOVEDIR) == 0;
}

// Removes what is in the directory, and closes it.
bool RemoveBelow(int dirFd) {
  DIR* dir = fdopendir(dirFd);
  if (dir == nullptr) {
    close(dirFd);
    return false;
  }
  std::vector<std::string> names;
  while (const struct dirent* entry = readdir(dir)) names.emplace_back(entry->d_name);
  const bool removed = std::all_of(names.begin(), names.end(), [&](const std::string& name) {
    return name == "." || name == ".." || RemoveEntry(dirfd(dir), name);
  });
  closedir(dir);
  return removed;
}

}  // namespace

bool File::CreateDir(const std::string& dir, int mode) {
  if (dir.empty()) return false;
  for (std::size_t end = dir.find('/', 1);; end = dir.find('/', end + 1)) {
    const std::string part = dir.substr(0, end);
    if (!IsDir(part) && !MakeDir(part, static_cast<mode_t>(mode))) return false;
    if (end == std::string::npos) return true;
  }
}

bool File::RemoveDir(const std::string& dir) {
  if (dir.empty()) return false;
  const std::string path = dir.substr(0, dir.find_last_not_of('/') + 1);
  if (path.empty()) return false;
  const int parent = open(ParentOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (parent == -1) return errno == ENOENT || errno == ENOTDIR;
  if (!RemoveEntry(parent, path.substr(path.rfind('/') + 1))) {
    close(parent);
    return false;
  }
  // Also when there was nothing: the one that removed it may have been ended before it came here.
  return SyncAndClose(parent);
}

}  // namespace VrelDRCore
