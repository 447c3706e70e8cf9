#pragma once

#include <unistd.h>

namespace drgroupctl {

// A descriptor that is closed when it goes; -1 is none.
class OwnedFd {
 public:
  explicit OwnedFd(int fd = -1) : fd_(fd) {}
  OwnedFd(const OwnedFd&) = delete;
  OwnedFd& operator=(const OwnedFd&) = delete;
  ~OwnedFd() {
    if (fd_ != -1) close(fd_);
  }
  int Get() const { return fd_; }

 private:
  int fd_;
};

}  // namespace drgroupctl
