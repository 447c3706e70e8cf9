#include "engine/local/attributes.h"

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "engine/local/directory.h"
#include "engine/local/flags.h"

namespace VrelDR::Local {

namespace {

bool IsRefusal(int error) {
  return error == EPERM || error == EOPNOTSUPP || error == EINVAL;
}

// Calls `get`, which answers as getxattr does, with room that grows until all fits. 0 or an errno.
template <class Get>
int ReadWhole(Get get, std::vector<char>& bytes) {
  for (;;) {
    const ssize_t need = get(nullptr, std::size_t{0});
    if (need < 0) return errno;
    bytes.resize(static_cast<std::size_t>(need));
    if (need == 0) return 0;
    const ssize_t got = get(bytes.data(), bytes.size());
    if (got >= 0) {
      bytes.resize(static_cast<std::size_t>(got));
      return 0;
    }
    if (errno != ERANGE) return errno;
  }
}

int CopyXattrs(int fromFd, const Entry& to, Strictness strictness, bool withRecord) {
  // What is open for O_PATH only has no calls of its own; a link in its place is not followed.
  const std::string fromPath = PathOfFd(fromFd);
  std::vector<char> names;
  const int error = ReadWhole(
      [&](char* out, std::size_t size) { return listxattr(fromPath.c_str(), out, size); }, names);
  if (error != 0) return error == EOPNOTSUPP ? 0 : error;
  if (names.empty()) return 0;
  const std::string toPath = PathOfFd(to.dir_fd) + "/" + to.name;
  std::vector<char> value;
  for (std::size_t at = 0; at < names.size(); at += std::strlen(&names[at]) + 1) {
    const char* name = &names[at];
    if (!withRecord && std::strcmp(name, kFlagsXattr) == 0) continue;
    const int readError = ReadWhole(
        [&](char* out, std::size_t size) { return getxattr(fromPath.c_str(), name, out, size); },
        value);
    if (readError == ENODATA) continue;  // removed meanwhile
    if (readError != 0) return readError;
    if (lsetxattr(toPath.c_str(), name, value.data(), value.size(), 0) != 0 &&
        (strictness == Strictness::kAll || !IsRefusal(errno))) {
      return errno;
    }
  }
  return 0;
}

}  // namespace

int CopyAttributes(int fromFd, const struct stat& st, const Entry& to, Strictness strictness,
                   bool withRecord) {
  struct stat made;
  if (fstatat(to.dir_fd, to.name.c_str(), &made, AT_SYMLINK_NOFOLLOW) != 0) return errno;
  // The owner first: changing it takes set-user-id bits and capabilities away.
  if ((made.st_uid != st.st_uid || made.st_gid != st.st_gid) &&
      fchownat(to.dir_fd, to.name.c_str(), st.st_uid, st.st_gid, AT_SYMLINK_NOFOLLOW) != 0 &&
      (strictness == Strictness::kAll || !IsRefusal(errno))) {
    return errno;
  }
  if (const int error = CopyXattrs(fromFd, to, strictness, withRecord)) return error;
  if (!S_ISLNK(st.st_mode) &&
      fchmodat(to.dir_fd, to.name.c_str(), st.st_mode & ~static_cast<mode_t>(S_IFMT), 0) != 0) {
    return errno;
  }
  const struct timespec times[] = {st.st_atim, st.st_mtim};
  return utimensat(to.dir_fd, to.name.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
}

}  // namespace VrelDR::Local
