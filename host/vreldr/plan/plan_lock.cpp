#include "plan/plan_lock.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "vreldrcore/file.h"

namespace VrelDR {

namespace {

std::string DirOf(const std::string& stateDir) {
  return stateDir + "/plan-locks";
}

std::string PathOf(const std::string& stateDir, const std::string& planId) {
  return DirOf(stateDir) + "/" + planId;
}

// Locks of this kind belong to the open file and not to the process, and can be asked about.
struct flock WholeFile(short type) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  return lock;
}

}  // namespace

Status PlanLock::Acquire(const std::string& stateDir, const std::string& planId, bool& taken) {
  const std::string dir = DirOf(stateDir);
  const std::string path = PathOf(stateDir, planId);
  if (!VrelDRCore::File::CreateDir(dir, 0700)) return StatusOfErrno(errno, dir);
  Fd file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!file) return StatusOfErrno(errno, path);
  struct flock lock = WholeFile(F_WRLCK);
  taken = fcntl(file.Get(), F_OFD_SETLK, &lock) == 0;
  if (!taken) return errno == EAGAIN || errno == EACCES ? Status() : StatusOfErrno(errno, path);
  file_ = HeldFile(std::move(file), [](int fd) {
    struct flock none = WholeFile(F_UNLCK);
    (void)fcntl(fd, F_OFD_SETLK, &none);
  });
  return {};
}

bool PlanLock::IsHeld(const std::string& stateDir, const std::string& planId) {
  const Fd file(open(PathOf(stateDir, planId).c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
  struct flock lock = WholeFile(F_WRLCK);
  return file && fcntl(file.Get(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

void PlanLock::Remove(const std::string& stateDir, const std::string& planId) {
  unlink(PathOf(stateDir, planId).c_str());
}

}  // namespace VrelDR
