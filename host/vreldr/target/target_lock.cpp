#include "target/target_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

#include "vreldrcore/file.h"

namespace VrelDR {

// The lock files stay: removing one would let two processes lock two files of the same name.
Status TargetLock::Acquire(const std::string& stateDir, const std::string& targetId) {
  const std::string dir = stateDir + "/locks";
  const std::string path = dir + "/" + targetId;
  if (!VrelDRCore::File::CreateDir(dir, 0700)) return StatusOfErrno(errno, dir);
  Fd file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!file) return StatusOfErrno(errno, path);
  int result = 0;
  do {
    result = flock(file.Get(), LOCK_EX | LOCK_NB);
  } while (result != 0 && errno == EINTR);
  if (result != 0) {
    if (errno != EWOULDBLOCK) return StatusOfErrno(errno, path);
    return {kErrBusy, "another process works on it; run it again when that has finished"};
  }
  file_ = HeldFile(std::move(file), [](int fd) { (void)flock(fd, LOCK_UN); });
  return {};
}

}  // namespace VrelDR
