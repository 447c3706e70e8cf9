#include "engine/local/write_back.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "base/fd.h"
#include "engine/local/directory.h"

namespace VrelDR::Local {

Status WriteBack::Sync() {
  const int error = syncfs(fd_) == 0 ? 0 : errno;
  const std::lock_guard lock(mutex_);
  if (error == 0 || !status_.IsOk()) return status_;
  status_ = StatusOfErrno(error, path_);
  if (status_.code == kErrIo) {
    status_.message = "something that was written to " + status_.message +
                      "; look at the system's log for what is wrong with the disk, and run it "
                      "again when that is mended";
  }
  return status_;
}

Status WriteBack::GetStatus() const {
  const std::lock_guard lock(mutex_);
  return status_;
}

int ForgetCached(int dirFd) {
  std::vector<std::string> names;
  if (const int error = ListDir(dirFd, names)) return error;
  for (const std::string& name : names) {
    struct stat st;
    int error = StatEntry(dirFd, name, st);
    if (error != 0) return error;
    if (S_ISDIR(st.st_mode)) {
      const Fd dir = OpenDir(dirFd, name);
      error = dir ? ForgetCached(dir.Get()) : errno;
    } else if (S_ISREG(st.st_mode)) {
      const Fd file = OpenEntry(dirFd, name, O_RDONLY | O_NONBLOCK);
      error = file ? posix_fadvise(file.Get(), 0, 0, POSIX_FADV_DONTNEED) : errno;
    }
    if (error != 0) return error;
  }
  return 0;
}

}  // namespace VrelDR::Local
