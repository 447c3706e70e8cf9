#pragma once

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <string>
#include <utility>

namespace host_test {

// `from`, a directory or a file, mounted on `place` for as long as the object lives.
class BindMount {
 public:
  BindMount(const std::string& from, std::string place) : place_(std::move(place)) {
    EXPECT_EQ(mount(from.c_str(), place_.c_str(), nullptr, MS_BIND, nullptr), 0) << place_;
  }
  ~BindMount() { umount2(place_.c_str(), MNT_DETACH); }
  BindMount(const BindMount&) = delete;
  BindMount& operator=(const BindMount&) = delete;

 private:
  std::string place_;
};

}  // namespace host_test
