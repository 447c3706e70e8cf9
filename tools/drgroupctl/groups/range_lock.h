#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace drgroupctl {

// A lock on one byte of a file that goes with the process that has it, however that ends. The file
// is made when it is missing, holds nothing and stays. Programs that the process runs do not have
// the lock.
class RangeLock {
 public:
  RangeLock(RangeLock&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  RangeLock(const RangeLock&) = delete;
  RangeLock& operator=(RangeLock&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~RangeLock();

  // Nothing when another process has it, then `error` is 0, or when it cannot be had, then `error`
  // tells why. Does not wait.
  static std::optional<RangeLock> Take(const std::string& path, std::int64_t byte, int& error);

  // Whether somebody, this process too, has it. Whoever cannot look takes it for held.
  static bool IsHeld(const std::string& path, std::int64_t byte);

 private:
  explicit RangeLock(int fd) : fd_(fd) {}

  int fd_;
};

}  // namespace drgroupctl
