#pragma once

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <string>

namespace host_test {

// Sees a file that there is being opened, by whomever.
class Opening {
 public:
  explicit Opening(const std::string& path) : fd_(inotify_init1(IN_CLOEXEC)) {
    EXPECT_NE(inotify_add_watch(fd_, path.c_str(), IN_OPEN), -1) << path;
  }
  Opening(const Opening&) = delete;
  Opening& operator=(const Opening&) = delete;
  ~Opening() { close(fd_); }

  // Returns when that has happened since the object was made.
  void Wait() const {
    std::array<char, 4096> events;
    EXPECT_GT(read(fd_, events.data(), events.size()), 0);
  }

 private:
  int fd_;
};

}  // namespace host_test
