#include "hold/guardian.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <new>

#include "hold/hierarchy.h"
#include "process/on_the_side.h"

namespace VrelDR {

namespace {

// How long the guardian may be silent beyond its deadline: the bounds on all that it does then, and
// some more for a machine that is busy.
constexpr std::chrono::milliseconds kSilence{GuardThing::kStages * (kThawPatienceMs + 1000) + 5000};

std::int64_t ToNanoseconds(Guardian::Clock::time_point time) {
  return std::chrono::nanoseconds(time.time_since_epoch()).count();
}

int MillisecondsUntil(Guardian::Clock::time_point time) {
  const auto rest = std::chrono::ceil<std::chrono::milliseconds>(time - Guardian::Clock::now());
  return static_cast<int>(std::max<std::int64_t>(rest.count(), 0));
}

}  // namespace

Guardian::~Guardian() {
  Thaw();
  if (stacks_ != nullptr) (void)munmap(stacks_, 2 * VrelHost::kSideStack);
  if (board_ != nullptr) (void)munmap(board_, shared_size_);
}

// Makes the memory that both processes have, and room for the stacks of the clones.
Status Guardian::ShareBoard(std::size_t count) {
  const std::size_t size = sizeof(GuardBoard) + count * sizeof(GuardSlot);
  void* board = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (board == MAP_FAILED) return StatusOfErrno(errno, {});
  shared_size_ = size;
  board_ = new (board) GuardBoard;
  slots_ = reinterpret_cast<GuardSlot*>(board_ + 1);
  for (std::size_t at = 0; at < count; ++at) new (slots_ + at) GuardSlot;
  void* stacks = mmap(nullptr, 2 * VrelHost::kSideStack, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
  if (stacks == MAP_FAILED) return StatusOfErrno(errno, {});
  stacks_ = static_cast<char*>(stacks);
  return {};
}

void Guardian::Describe(std::vector<HeldWriter>& writers) {
  char* const* environment = environment_.Get();
  for (HeldWriter& each : writers) {
    GuardThing thing;
    thing.stage = each.stage;
    thing.freeze = each.freeze.Prepare(environment);
    thing.thaw = each.thaw.Prepare(environment);
    thing.is_v2 = each.is_v2;
    thing.control_fd = each.control.Get();
    thing.intent_fd = each.intent.Get();
    thing.state_fd = each.state.Get();
    thing.slot = slots_ + things_.size();
    things_.push_back(thing);
  }
  roots_ = OpenHierarchyRoots();
  polled_.resize(2 + 3 * things_.size());
}

Status Guardian::Start(std::vector<HeldWriter>& writers, Clock::time_point begun,
                       Clock::time_point deadline) {
  deadline_ = deadline;
  Status status = ShareBoard(writers.size());
  if (!status.IsOk()) return status;
  board_->begun = ToNanoseconds(begun);
  Describe(writers);
  status = Launch(false);
  if (status.IsOk()) is_done_ = false;
  return status;
}

Status Guardian::Launch(bool onlyThaws) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
    return StatusOfErrno(errno, {});
  words_ = Fd(ends[0]);
  const Fd guardians(ends[1]);
  const Fd caller(static_cast<int>(syscall(SYS_pidfd_open, getpid(), 0)));
  std::vector<int> roots;
  for (const Fd& each : roots_) roots.push_back(each.Get());
  std::vector<int> kept = roots;
  for (const GuardThing& each : things_) {
    kept.insert(kept.end(), {each.control_fd, each.intent_fd, each.state_fd});
  }
  kept.insert(kept.end(), {guardians.Get(), caller.Get()});
  kept.erase(std::remove(kept.begin(), kept.end(), -1), kept.end());
  std::sort(kept.begin(), kept.end());

  GuardPlan plan;
  plan.things = things_.data();
  plan.thing_count = static_cast<int>(things_.size());
  plan.board = board_;
  plan.only_thaws = onlyThaws;
  plan.deadline = ToNanoseconds(deadline_);
  plan.words_fd = guardians.Get();
  plan.caller_fd = caller.Get();
  plan.root_fds = roots.data();
  plan.root_count = static_cast<int>(roots.size());
  plan.kept_fds = kept.data();
  plan.kept_count = static_cast<int>(kept.size());
  plan.polled = polled_.data();
  plan.program_stack = stacks_ + 2 * VrelHost::kSideStack;
  // No handler of this process may run in the clone before that has left them behind.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &before);
  pid_ = CloneProcess(RunGuardian, stacks_ + VrelHost::kSideStack, 0, &plan);
  const int error = errno;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return pid_ == -1 ? StatusOfErrno(error, {}) : Status();
}

// The guardian's next word; 0 when it is gone, or silent for too long.
char Guardian::Hear() {
  const Clock::time_point end = std::max(deadline_, Clock::now()) + kSilence;
  while (Clock::now() < end) {
    struct pollfd polled = {words_.Get(), POLLIN, 0};
    (void)poll(&polled, 1, MillisecondsUntil(end));
    char word = 0;
    const ssize_t got = recv(words_.Get(), &word, 1, MSG_DONTWAIT);
    if (got == 1) return word;
    if (got == 0 || (errno != EAGAIN && errno != EINTR)) return 0;
  }
  return 0;
}

bool Guardian::Freeze() {
  (void)send(words_.Get(), &kFreezeWord, 1, MSG_NOSIGNAL);
  const char word = Hear();
  if (word == kHeldWord) return true;
  if (word == kThawedWord) {
    is_done_ = true;
    Reap();
  }
  Thaw();
  return false;
}

void Guardian::Thaw() {
  if (is_done_) return;
  is_done_ = true;
  (void)send(words_.Get(), &kReleaseWord, 1, MSG_NOSIGNAL);
  if (Hear() != kThawedWord) {
    was_lost_ = true;
    Reap();
    if (Launch(true).IsOk()) (void)Hear();
  }
  Reap();
}

// Ends the guardian, which has nothing to do any more. Its identifier is used as long as it is
// known to be this process' child alone: somebody may wait for every kind of children.
void Guardian::Reap() {
  if (pid_ == -1) return;
  if (waitpid(pid_, nullptr, __WALL | WNOHANG) == 0) {
    (void)kill(pid_, SIGKILL);
    while (waitpid(pid_, nullptr, __WALL) == -1 && errno == EINTR) {
    }
  }
  pid_ = -1;
}

}  // namespace VrelDR
