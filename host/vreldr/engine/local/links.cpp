#include "engine/local/links.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <string>
#include <vector>

#include "base/fd.h"
#include "engine/local/directory.h"
#include "engine/local/file_data.h"

namespace VrelDR::Local {

namespace {

// Which file of the other tree the names of each file are to be.
using Partners = std::map<ino_t, ino_t>;

int MakeOwnFile(int dirFd, const std::string& name, off_t size, Watch& watch) {
  const Fd from = OpenEntry(dirFd, name, O_RDONLY);
  if (!from || unlinkat(dirFd, name.c_str(), 0) != 0) return errno;
  const Fd to(
      openat(dirFd, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  return to ? CopyFileData(from.Get(), to.Get(), size, watch) : errno;
}

int Separate(int dirFd, int likeFd, Partners& partners, Watch& watch) {
  std::vector<std::string> names;
  if (const int error = ListDir(dirFd, names)) return error;
  for (const std::string& name : names) {
    if (!watch.GoesOn()) return ECANCELED;
    struct stat st;
    int error = StatEntry(dirFd, name, st);
    if (error != 0) return error;
    if (S_ISDIR(st.st_mode)) {
      const Fd dir = OpenDir(dirFd, name);
      const Fd like = likeFd == -1 ? Fd() : OpenDir(likeFd, name);
      error = dir ? Separate(dir.Get(), like.Get(), partners, watch) : errno;
    } else if (st.st_nlink > 1) {
      struct stat partner;
      const bool isThere = likeFd != -1 && StatEntry(likeFd, name, partner) == 0;
      if (isThere && partners.emplace(st.st_ino, partner.st_ino).first->second == partner.st_ino) {
        continue;
      }
      if (isThere && S_ISREG(st.st_mode)) {
        error = MakeOwnFile(dirFd, name, st.st_size, watch);
      } else if (unlinkat(dirFd, name.c_str(), 0) != 0) {
        error = errno;
      }
    }
    if (error != 0) return error;
  }
  return 0;
}

}  // namespace

int SeparateLinks(int dirFd, int likeFd, Watch& watch) {
  Partners partners;
  return Separate(dirFd, likeFd, partners, watch);
}

}  // namespace VrelDR::Local
