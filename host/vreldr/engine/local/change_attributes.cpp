#include "engine/local/change_attributes.h"

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "engine/local/directory.h"
#include "engine/local/freeze.h"

namespace VrelDR::Local {

namespace {

constexpr std::string_view kAccessList = "system.posix_acl_access";
constexpr std::string_view kDefaultList = "system.posix_acl_default";

bool IsTold(std::string_view name) {
  if (name.starts_with("system.")) return name == kAccessList || name == kDefaultList;
  // What btrfs is to do with a file, such as compress it, is nothing that others can take.
  return !name.starts_with("trusted.SGI_ACL_") && !name.starts_with("btrfs.");
}

// Calls `get`, which answers as getxattr does, with room that grows until all fits.
template <class Get>
int ReadInto(std::string& bytes, const Get& get) {
  constexpr std::size_t kUsual = 1024;
  for (std::size_t room = kUsual;;) {
    bytes.resize(room);
    ssize_t got = get(bytes.data(), bytes.size());
    if (got >= 0) {
      bytes.resize(static_cast<std::size_t>(got));
      return 0;
    }
    if (errno != ERANGE) return errno;
    got = get(nullptr, 0);
    if (got < 0) return errno;
    room = static_cast<std::size_t>(got) + kUsual;
  }
}

int ReadXattrs(int fd, std::vector<EntryXattr>& xattrs) {
  // What is open for O_PATH only has no calls of its own; a link in its place is not followed.
  const bool isOpen = fcntl(fd, F_GETFL) >= 0 && (fcntl(fd, F_GETFL) & O_PATH) == 0;
  const std::string path = isOpen ? std::string() : PathOfFd(fd);
  std::string names;
  int error = ReadInto(names, [&](char* out, std::size_t size) {
    return isOpen ? flistxattr(fd, out, size) : listxattr(path.c_str(), out, size);
  });
  if (error != 0) return error == EOPNOTSUPP ? 0 : error;
  for (std::size_t at = 0; at < names.size(); at += std::strlen(&names[at]) + 1) {
    const char* name = &names[at];
    if (!IsTold(name)) continue;
    EntryXattr xattr{name, {}};
    error = ReadInto(xattr.value, [&](char* out, std::size_t size) {
      return isOpen ? fgetxattr(fd, name, out, size) : getxattr(path.c_str(), name, out, size);
    });
    if (error != 0) return error;
    xattrs.push_back(std::move(xattr));
  }
  return 0;
}

EntryTime TimeOf(const struct timespec& time) {
  return {time.tv_sec, static_cast<std::uint32_t>(time.tv_nsec)};
}

struct timespec TimeOf(const EntryTime& time) {
  return {static_cast<time_t>(time.seconds), static_cast<long>(time.nanoseconds)};
}

int WriteXattrs(const Entry& to, int fd, const std::vector<EntryXattr>& xattrs) {
  if (xattrs.empty()) return 0;
  const std::string path = fd == -1 ? PathOfFd(to.dir_fd) + "/" + to.name : std::string();
  for (const EntryXattr& each : xattrs) {
    const int failed =
        fd == -1
            ? lsetxattr(path.c_str(), each.name.c_str(), each.value.data(), each.value.size(), 0)
            : fsetxattr(fd, each.name.c_str(), each.value.data(), each.value.size(), 0);
    if (failed != 0) return errno;
  }
  return 0;
}

}  // namespace

int ReadAttributes(int fd, const struct stat& st, EntryAttributes& attributes) {
  attributes.mode = st.st_mode;
  attributes.owner = st.st_uid;
  attributes.group = st.st_gid;
  attributes.accessed = TimeOf(st.st_atim);
  attributes.changed = TimeOf(st.st_mtim);
  attributes.has_more_names = !S_ISDIR(st.st_mode) && st.st_nlink > 1;
  attributes.xattrs.clear();
  return ReadXattrs(fd, attributes.xattrs);
}

int WriteAttributes(const Entry& to, int fd, const EntryAttributes& attributes) {
  const char* name = to.name.c_str();
  struct stat made;
  if (fstatat(to.dir_fd, name, &made, AT_SYMLINK_NOFOLLOW) != 0) return errno;
  // The owner first: changing it takes set-user-id bits and capabilities away.
  if ((made.st_uid != attributes.owner || made.st_gid != attributes.group) &&
      fchownat(to.dir_fd, name, attributes.owner, attributes.group, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno;
  }
  if (const int error = WriteXattrs(to, fd, attributes.xattrs)) return error;
  if (!S_ISLNK(attributes.mode) &&
      fchmodat(to.dir_fd, name, attributes.mode & ~static_cast<mode_t>(S_IFMT), 0) != 0) {
    return errno;
  }
  const struct timespec times[] = {TimeOf(attributes.accessed), TimeOf(attributes.changed)};
  return utimensat(to.dir_fd, name, times, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
}

int MakeAsNew(int dirFd) {
  if (const int error = SetFrozen(dirFd, false)) return error;
  // It would be handed down to what is made in it.
  if (fremovexattr(dirFd, kDefaultList.data()) != 0 && errno != ENODATA && errno != EOPNOTSUPP) {
    return errno;
  }
  return fchmod(dirFd, 0700) == 0 ? 0 : errno;
}

}  // namespace VrelDR::Local
