#include "process/on_the_side.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>

namespace VrelHost {

namespace {

constexpr int kLastSignal = 64;
constexpr unsigned long kIgnored = 1;        // SIG_IGN
constexpr unsigned long kByDefault[8] = {};  // the kernel's struct sigaction: SIG_DFL
constexpr std::uint64_t kNoSignals = 0;
constexpr int kOutOfTheWay = 16;

}  // namespace

ON_THE_SIDE bool DieWith(pid_t parent) {
  return syscall(SYS_prctl, PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0) == 0 &&
         syscall(SYS_getppid) == parent;
}

ON_THE_SIDE void ResetSignals() {
  for (int each = 1; each <= kLastSignal; ++each) {
    unsigned long action[8];  // the handler comes first
    if (syscall(SYS_rt_sigaction, each, nullptr, action, kMaskSize) != 0) continue;
    if (action[0] == kIgnored && each != SIGCHLD && each != SIGPIPE) continue;
    (void)syscall(SYS_rt_sigaction, each, kByDefault, nullptr, kMaskSize);
  }
}

ON_THE_SIDE int PlaceDescriptors(const int* fds, int count) {
  long placed[4];
  for (int at = 0; at < count; ++at) {
    if (fds[at] == kAsIsFd) continue;
    long fd = fds[at];
    if (fd == kNullFd) fd = syscall(SYS_openat, AT_FDCWD, "/dev/null", O_RDWR, 0);
    placed[at] = fd < 0 ? -1 : syscall(SYS_fcntl, fd, F_DUPFD_CLOEXEC, kOutOfTheWay);
    if (placed[at] < 0) return errno;
    if (fds[at] == kNullFd) (void)syscall(SYS_close, fd);
  }
  for (int at = 0; at < count; ++at) {
    if (fds[at] != kAsIsFd && syscall(SYS_dup3, placed[at], at, 0) < 0) return errno;
  }
  return 0;
}

ON_THE_SIDE int Execute(const char* path, char* const* argv, char* const* envp) {
  (void)syscall(SYS_rt_sigprocmask, SIG_SETMASK, &kNoSignals, nullptr, kMaskSize);
  (void)syscall(SYS_execve, path, argv, envp);
  return errno;
}

ON_THE_SIDE void CloseDescriptors(unsigned first, unsigned last) {
  if (first > last || syscall(SYS_close_range, first, last, 0U) == 0) return;
  constexpr unsigned kMany = 65536;  // a system without that call
  for (unsigned each = first; each < kMany && each <= last; ++each) (void)syscall(SYS_close, each);
}

}  // namespace VrelHost
