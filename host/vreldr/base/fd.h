#pragma once

#include <unistd.h>

#include <utility>

namespace VrelDR {

// Owns a file descriptor.
class Fd {
 public:
  Fd() = default;
  explicit Fd(int fd) : fd_(fd) {}
  Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Fd& operator=(Fd&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Fd() {
    if (fd_ != -1) close(fd_);
  }

  explicit operator bool() const { return fd_ != -1; }
  int Get() const { return fd_; }
  // Gives the descriptor to the caller.
  int Release() { return std::exchange(fd_, -1); }

 private:
  int fd_ = -1;
};

}  // namespace VrelDR
