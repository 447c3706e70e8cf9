#include "directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>

namespace VrelDR::Local {

Fd OpenDir(int parentFd, const std::string& name) {
  return Fd(openat(parentFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

Fd OpenOrMakeDir(int parentFd, const std::string& name) {
  if (mkdirat(parentFd, name.c_str(), 0700) != 0 && errno != EEXIST) return Fd();
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

}  // namespace VrelDR::Local
