#include <fcntl.h>
#include <sched.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>

#include "hold/guard.h"
#include "process/on_the_side.h"

namespace VrelDR {

namespace {

constexpr int kMostReads = 16;                 // at a time, of a program that never stops writing
constexpr std::int64_t kEndPatienceMs = 1000;  // until a killed program has ended

// What runs before the program is executed, in the guardian's memory, while the guardian waits.
struct Launch {
  const GuardProgram* program;
  pid_t guardian;
  int out_fd;
  bool dies_with_guardian;
  int error;
};

ON_THE_SIDE int RunProgram(void* argument) {
  auto* launch = static_cast<Launch*>(argument);
  const int fds[3] = {VrelHost::kNullFd, launch->out_fd, launch->out_fd};
  int error = syscall(SYS_setpgid, 0, 0) == 0 ? 0 : errno;
  if (launch->dies_with_guardian && !VrelHost::DieWith(launch->guardian)) error = ESRCH;
  if (error == 0) error = VrelHost::PlaceDescriptors(fds, 3);
  if (error == 0) {
    error = VrelHost::Execute(launch->program->path, launch->program->argv, launch->program->envp);
  }
  launch->error = error;
  syscall(SYS_exit_group, 127);
  return 127;
}

ON_THE_SIDE void Fail(GuardOutcome& outcome, int error) {
  outcome.kind = GuardOutcome::kErrno;
  outcome.number = error;
}

ON_THE_SIDE void CloseFd(int& fd) {
  if (fd != -1) (void)syscall(SYS_close, fd);
  fd = -1;
}

// Keeps the end of what was written so far.
ON_THE_SIDE void Keep(GuardOutcome& outcome, const char* text, std::size_t size) {
  constexpr std::size_t kMost = GuardOutcome::kMostTail;
  if (size > kMost) {
    text += size - kMost;
    size = kMost;
  }
  const std::size_t kept = outcome.tail_size + size > kMost ? kMost - size : outcome.tail_size;
  const std::size_t dropped = outcome.tail_size - kept;
  for (std::size_t at = 0; at < kept; ++at) outcome.tail[at] = outcome.tail[at + dropped];
  for (std::size_t at = 0; at < size; ++at) outcome.tail[kept + at] = text[at];
  outcome.tail_size = kept + size;
}

ON_THE_SIDE void TakeIn(GuardThing& thing, GuardOutcome& outcome) {
  char buffer[4096];
  for (int reads = 0; thing.out_fd != -1 && reads < kMostReads; ++reads) {
    const long got = syscall(SYS_read, thing.out_fd, buffer, sizeof buffer);
    if (got > 0) {
      Keep(outcome, buffer, static_cast<std::size_t>(got));
    } else if (got == 0 || errno != EAGAIN) {
      CloseFd(thing.out_fd);
    } else {
      return;
    }
  }
}

}  // namespace

ON_THE_SIDE void BeginProgram(const GuardPlan& plan, GuardThing& thing, const GuardProgram& program,
                              GuardOutcome& outcome, bool diesWithGuardian) {
  int ends[2];
  if (syscall(SYS_pipe2, ends, O_CLOEXEC) != 0) return Fail(outcome, errno);
  Launch launch = {&program, static_cast<pid_t>(syscall(SYS_getpid)), ends[1], diesWithGuardian, 0};
  thing.out_fd = ends[0];
  (void)syscall(SYS_fcntl, ends[0], F_SETFL, O_NONBLOCK);
  thing.pid =
      CloneProcess(RunProgram, plan.program_stack, CLONE_VM | CLONE_VFORK | SIGCHLD, &launch);
  const int error = thing.pid == -1 ? errno : __atomic_load_n(&launch.error, __ATOMIC_SEQ_CST);
  (void)syscall(SYS_close, ends[1]);
  if (error == 0) {
    thing.pid_fd = static_cast<int>(syscall(SYS_pidfd_open, thing.pid, 0));
    return;
  }
  if (thing.pid != -1) (void)syscall(SYS_wait4, thing.pid, nullptr, 0, nullptr);
  thing.pid = -1;
  CloseFd(thing.out_fd);
  Fail(outcome, error);
}

ON_THE_SIDE bool HasEnded(GuardThing& thing, GuardOutcome& outcome) {
  if (thing.pid == -1) return true;
  int status = 0;
  const bool ended = syscall(SYS_wait4, thing.pid, &status, WNOHANG, nullptr) != 0;
  TakeIn(thing, outcome);
  if (!ended) return false;
  thing.pid = -1;
  // What it has left running may still have the pipe; nobody waits for that.
  CloseFd(thing.out_fd);
  CloseFd(thing.pid_fd);
  outcome.kind = status == 0 ? GuardOutcome::kGood : GuardOutcome::kStatus;
  outcome.number = status;
  return true;
}

ON_THE_SIDE void KillProgram(GuardThing& thing, GuardOutcome& outcome, GuardOutcome::Kind kind) {
  if (thing.pid == -1) return;
  (void)syscall(SYS_kill, -thing.pid, SIGKILL);
  // One that the kernel holds ends when that lets it.
  const std::int64_t end = GuardNow() + kEndPatienceMs * 1'000'000;
  while (!HasEnded(thing, outcome) && GuardNow() < end) {
    const struct timespec little = {0, 1'000'000};
    (void)syscall(SYS_nanosleep, &little, nullptr);
  }
  CloseFd(thing.out_fd);
  CloseFd(thing.pid_fd);
  thing.pid = -1;
  outcome.kind = kind;
}

}  // namespace VrelDR
