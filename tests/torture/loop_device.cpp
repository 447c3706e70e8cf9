#include "loop_device.h"

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace torture {

LoopDevice::LoopDevice(const std::string& file, std::uint64_t offset, std::uint64_t size,
                       std::string& why) {
  const int backing = open(file.c_str(), O_RDWR | O_CLOEXEC);
  const int control = open("/dev/loop-control", O_RDWR | O_CLOEXEC);
  loop_config config = {};
  config.fd = static_cast<std::uint32_t>(backing);
  config.info.lo_offset = offset;
  config.info.lo_sizelimit = size;
  // Whoever uses it last takes it away, also when this process is killed.
  config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
  // Somebody else may take the free one first.
  for (int tries = 0; backing >= 0 && control >= 0 && tries < 100 && path_.empty(); ++tries) {
    const int number = ioctl(control, LOOP_CTL_GET_FREE);
    if (number < 0) break;
    const std::string path = "/dev/loop" + std::to_string(number);
    fd_ = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (fd_ < 0) break;
    if (ioctl(fd_, LOOP_CONFIGURE, &config) == 0) {
      path_ = path;
    } else {
      const int error = errno;
      close(fd_);
      fd_ = -1;
      errno = error;
      if (error != EBUSY) break;
    }
  }
  if (path_.empty()) {
    why = "cannot make a loop device of " + file + ": " + std::strerror(errno) +
          "; this needs root of the machine";
  }
  if (control >= 0) close(control);
  if (backing >= 0) close(backing);
}

LoopDevice::~LoopDevice() {
  if (fd_ >= 0) close(fd_);
}

}  // namespace torture
