#include "groups/range_lock.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace drgroupctl {

namespace {

struct flock OneByte(std::int64_t byte) {
  struct flock range = {};
  range.l_type = F_WRLCK;
  range.l_whence = SEEK_SET;
  range.l_start = byte;
  range.l_len = 1;
  return range;
}

}  // namespace

RangeLock::~RangeLock() {
  if (fd_ != -1) close(fd_);
}

std::optional<RangeLock> RangeLock::Take(const std::string& path, std::int64_t byte, int& error) {
  error = 0;
  RangeLock lock(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
  struct flock range = OneByte(byte);
  if (lock.fd_ != -1 && fcntl(lock.fd_, F_OFD_SETLK, &range) == 0) return lock;
  if (errno != EAGAIN && errno != EACCES) error = errno;
  if (lock.fd_ == -1) error = errno;
  return std::nullopt;
}

bool RangeLock::IsHeld(const std::string& path, std::int64_t byte) {
  const RangeLock looking(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (looking.fd_ == -1) return errno != ENOENT;
  struct flock range = OneByte(byte);
  return fcntl(looking.fd_, F_OFD_GETLK, &range) != 0 || range.l_type != F_UNLCK;
}

}  // namespace drgroupctl
