#include "engine/local/holes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "base/fd.h"
#include "engine/local/directory.h"

namespace VrelDR::Local {

namespace {

bool HasHoles(const struct stat& st) {
  constexpr off_t kBlock = 512;  // the unit of st_blocks, everywhere
  return S_ISREG(st.st_mode) && st.st_blocks * kBlock < st.st_size;
}

int LayOut(int toFd, const std::string& name, off_t size) {
  const Fd file(openat(toFd, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!file) return errno == EEXIST ? 0 : errno;
  return ftruncate(file.Get(), size) == 0 ? 0 : errno;
}

}  // namespace

int LayOutHoles(int fromFd, int toFd, Watch& watch) {
  std::vector<std::string> names;
  if (const int error = ListDir(fromFd, names)) return error;
  for (const std::string& name : names) {
    if (!watch.GoesOn()) return ECANCELED;
    struct stat st;
    int error = StatEntry(fromFd, name, st);
    if (error != 0) return error;
    if (HasHoles(st)) {
      error = LayOut(toFd, name, st.st_size);
    } else if (S_ISDIR(st.st_mode)) {
      const Fd from = OpenDir(fromFd, name);
      const Fd to = OpenOrMakeDir(toFd, name);
      // Something else of that name gives way later, and its files come without this help.
      if (!to && (errno == ENOTDIR || errno == ELOOP)) continue;
      error = from && to ? LayOutHoles(from.Get(), to.Get(), watch) : errno;
    }
    if (error != 0) return error;
  }
  return 0;
}

}  // namespace VrelDR::Local
