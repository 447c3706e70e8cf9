#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

#include <csignal>
#include <functional>

#include "host_fixture.h"

namespace host_test {

// Another process that takes something and has it for as long as the object lives.
class Holder {
 public:
  // `take` runs in it, and tells whether that worked; the object is made when it has run. `then`
  // runs after that.
  explicit Holder(
      const std::function<bool()>& take, void (*then)() = [] {}) {
    int ready[2];
    EXPECT_EQ(pipe(ready), 0);
    pid_ = StartChild({}, [&] {
      const bool taken = take();
      if (write(ready[1], taken ? "y" : "n", 1) != 1) return 1;
      then();
      for (;;) pause();
    });
    close(ready[1]);
    char answer = 0;
    EXPECT_EQ(read(ready[0], &answer, 1), 1);
    EXPECT_EQ(answer, 'y') << "it could not take what it shall have";
    close(ready[0]);
  }
  ~Holder() {
    kill(pid_, SIGKILL);
    WaitFor(pid_);
  }
  Holder(const Holder&) = delete;
  Holder& operator=(const Holder&) = delete;

  pid_t GetPid() const { return pid_; }

 private:
  pid_t pid_ = -1;
};

}  // namespace host_test
