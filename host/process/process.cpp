#include "process/process.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <utility>

#include "process/on_the_side.h"

namespace VrelHost {

namespace {

ON_THE_SIDE int Load(const int& word) {
  return __atomic_load_n(&word, __ATOMIC_SEQ_CST);
}

// Closes all descriptors but `kept`, which becomes the first. Copies of this process' locks and
// pipes would stay a little longer than it does.
ON_THE_SIDE void KeepOnly(int kept) {
  if (kept != 0) (void)syscall(SYS_dup3, kept, 0, O_CLOEXEC);
  CloseDescriptors(1, ~0U);
}

}  // namespace

// What the keeper and this process tell each other. The keeper shares the memory of this process
// and has its own handling of signals. Its end sends none, and for that it may never execute a
// program itself.
struct Process::Keeper {
  ProcessSpec spec;
  pid_t parent = -1;
  char* stacks = nullptr;
  // A pipe: a byte in it, or its end, tells the keeper that nobody needs the program's identifier
  // any more. The byte alone could fail to get there, and the end alone could wait for another
  // process that has a copy.
  int release_fd = -1;  // the keeper's end
  int hold_fd = -1;     // this process'

  pid_t id = -1;       // the keeper's
  int left = 0;        // the same until it has ended; the system writes it
  int is_settled = 0;  // whether it is known if the program runs
  int error = 0;       // why it does not
  pid_t pid = -1;      // the program's
  int status = -1;     // how it ended

  int Begin();
  void Join();
  static int Keep(void* argument);
  static int RunProgram(void* argument);
};

ON_THE_SIDE int Process::Keeper::RunProgram(void* argument) {
  auto* keeper = static_cast<Keeper*>(argument);
  const ProcessSpec* spec = &keeper->spec;
  int error = 0;
  if (spec->is_bound) {
    if (syscall(SYS_setpgid, 0, 0) != 0) error = errno;
    if (!DieWith(Load(keeper->left))) error = ESRCH;
  }
  if (error == 0) error = PlaceDescriptors(spec->fds, 4);
  if (error == 0) error = Execute(spec->path, spec->argv, spec->envp);
  keeper->error = error;
  syscall(SYS_exit_group, 127);
  return 127;
}

ON_THE_SIDE int Process::Keeper::Keep(void* argument) {
  auto* keeper = static_cast<Keeper*>(argument);
  if (!DieWith(keeper->parent)) {
    keeper->error = ESRCH;
  } else {
    // The keeper's own too: a program whose parent ignores SIGCHLD leaves no status.
    ResetSignals();
    keeper->pid = CloneProcess(RunProgram, keeper->stacks + 2 * kSideStack,
                               CLONE_VM | CLONE_VFORK | SIGCHLD, keeper);
    if (keeper->pid == -1) {
      keeper->error = errno;
    } else if (keeper->error != 0) {
      (void)syscall(SYS_wait4, keeper->pid, nullptr, 0, nullptr);
    }
  }
  const bool runs = keeper->error == 0;
  KeepOnly(keeper->release_fd);
  __atomic_store_n(&keeper->is_settled, 1, __ATOMIC_SEQ_CST);
  (void)syscall(SYS_futex, &keeper->is_settled, FUTEX_WAKE, 1, nullptr, nullptr, 0);
  // From here on the thread that waited for this goes on, with the same errno: what follows does
  // not fail.
  if (runs) {
    char released;
    (void)syscall(SYS_read, 0, &released, sizeof released);
    (void)syscall(SYS_wait4, keeper->pid, &keeper->status, 0, nullptr);
  }
  syscall(SYS_exit_group, 0);
  return 0;
}

namespace {

// Returns when the word may have changed from `value`, after a tenth of a second at the latest.
void WaitForChange(const int& word, int value) {
  const struct timespec most = {0, 100'000'000};
  (void)syscall(SYS_futex, &word, FUTEX_WAIT, value, &most, nullptr, 0);
}

}  // namespace

// Starts the keeper, and the program by it. 0 or an errno.
int Process::Keeper::Begin() {
  parent = getpid();
  void* memory = mmap(nullptr, 2 * kSideStack, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
  if (memory == MAP_FAILED) return errno;
  stacks = static_cast<char*>(memory);
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return errno;
  release_fd = ends[0];
  hold_fd = ends[1];
  // None of this process' handlers may run in the keeper, nor in its thread while the two share an
  // errno; a signal that comes meanwhile waits for the end of this.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &before);
  id =
      CloneProcess(Keep, stacks + kSideStack, CLONE_VM | CLONE_PARENT_SETTID | CLONE_CHILD_CLEARTID,
                   this, &left, nullptr, &left);
  if (id == -1) error = errno;
  while (id != -1 && Load(is_settled) == 0 && Load(left) != 0) WaitForChange(is_settled, 0);
  if (id != -1 && Load(is_settled) == 0) error = ECHILD;  // somebody has killed it
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return error;
}

// Waits for the keeper's end, and clears up.
void Process::Keeper::Join() {
  for (int each = Load(left); each != 0; each = Load(left)) WaitForChange(left, each);
  while (id != -1 && waitpid(id, nullptr, __WALL) == -1 && errno == EINTR) {
  }
  if (stacks != nullptr) (void)munmap(stacks, 2 * kSideStack);
  for (const int each : {release_fd, hold_fd}) {
    if (each != -1) close(each);
  }
}

Process::Process() = default;

Process::~Process() {
  (void)Wait();
}

int Process::Start(const ProcessSpec& spec) {
  (void)Wait();
  auto keeper = std::make_unique<Keeper>();
  keeper->spec = spec;
  int error = keeper->Begin();
  if (error == 0) {
    keeper_ = std::move(keeper);
  } else {
    keeper->Join();
  }
  return error;
}

pid_t Process::GetPid() const {
  return keeper_ ? keeper_->pid : -1;
}

int Process::Wait() {
  if (!keeper_) return -1;
  // This process has the other end too, so that nothing is signalled when the keeper is gone.
  (void)!write(keeper_->hold_fd, "", 1);
  close(std::exchange(keeper_->hold_fd, -1));
  keeper_->Join();
  const int status = keeper_->status;
  keeper_.reset();
  return status;
}

}  // namespace VrelHost
