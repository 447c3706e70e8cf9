#pragma once

#include <sys/wait.h>

#include <csignal>
#include <optional>
#include <thread>

namespace host_test {

// What a service may do about its children.
enum class Children { kAsUsual, kIgnored, kNotWaitedFor, kReaped };
inline constexpr Children kAllChildren[] = {Children::kAsUsual, Children::kIgnored,
                                            Children::kNotWaitedFor, Children::kReaped};

// Lets this process do it from now on, which has to be one of the test's own.
class HowChildrenEnd {
 public:
  explicit HowChildrenEnd(Children how) {
    struct sigaction action = {};
    action.sa_handler = how == Children::kIgnored ? SIG_IGN : SIG_DFL;
    action.sa_flags = how == Children::kNotWaitedFor ? SA_NOCLDWAIT : 0;
    sigaction(SIGCHLD, &action, nullptr);
    if (how != Children::kReaped) return;
    reaper_.emplace([](const std::stop_token& end) {
      while (!end.stop_requested()) {
        if (waitpid(-1, nullptr, 0) == -1) std::this_thread::yield();
      }
    });
  }

 private:
  std::optional<std::jthread> reaper_;
};

}  // namespace host_test
