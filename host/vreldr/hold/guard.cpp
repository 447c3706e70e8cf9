#include "hold/guard.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <ctime>

#include "process/on_the_side.h"

namespace VrelDR {

namespace {

constexpr std::int64_t kNsPerMs = 1'000'000;
// How long an event may be overlooked: an old kind of control group tells of none, and a program of
// none where the system has no descriptors for processes.
constexpr std::int64_t kLookMs = 1;

ON_THE_SIDE bool IsRunning(const GuardThing& thing) {
  return thing.pid != -1;
}

// Whether it is being frozen, or thawed, and not known to have ended yet.
ON_THE_SIDE bool IsUnderWay(const GuardSlot& slot) {
  const bool isFreezing = slot.progress == GuardSlot::kFreezing;
  const GuardOutcome& outcome = isFreezing ? slot.freeze : slot.thaw;
  return (isFreezing || slot.progress == GuardSlot::kThawing) &&
         outcome.kind == GuardOutcome::kNotTried;
}

// Away from everything of the caller's that could end, stop or hold this process, or that it would
// hold itself: signals, terminal, working directory, descriptors, and, where that is allowed, the
// control groups, with which a service manager ends a service.
ON_THE_SIDE void Leave(const GuardPlan& plan) {
  constexpr std::uint64_t kAll = ~std::uint64_t{0};
  (void)syscall(SYS_rt_sigprocmask, SIG_SETMASK, &kAll, nullptr, VrelHost::kMaskSize);
  VrelHost::ResetSignals();
  (void)syscall(SYS_setsid);
  (void)syscall(SYS_prctl, PR_SET_NAME, "vreldr-hold", 0, 0, 0);
  (void)syscall(SYS_chdir, "/");
  for (int at = 0; at < plan.root_count; ++at) (void)syscall(SYS_write, plan.root_fds[at], "0", 1);
  unsigned next = 0;
  for (int at = 0; at < plan.kept_count; ++at) {
    const auto kept = static_cast<unsigned>(plan.kept_fds[at]);
    if (kept > next) VrelHost::CloseDescriptors(next, kept - 1);
    next = kept + 1;
  }
  VrelHost::CloseDescriptors(next, ~0U);
}

enum class Heard { kNothing, kFreeze, kRelease, kGone };

// What the caller says. One that has ended is gone although another process has its descriptors.
ON_THE_SIDE Heard Listen(const GuardPlan& plan) {
  char word = 0;
  const long got = syscall(SYS_recvfrom, plan.words_fd, &word, 1, MSG_DONTWAIT, nullptr, nullptr);
  if (got == 1) return word == kFreezeWord ? Heard::kFreeze : Heard::kRelease;
  if (got == 0) return Heard::kGone;
  struct pollfd caller = {plan.caller_fd, POLLIN, 0};
  const struct timespec now = {0, 0};
  const long ended = syscall(SYS_ppoll, &caller, 1, &now, nullptr, 0);
  return plan.caller_fd != -1 && ended == 1 ? Heard::kGone : Heard::kNothing;
}

// Waits until something may have happened to what is under way in the stage, or the caller speaks,
// if that `listens` to it; until `end` at the latest.
ON_THE_SIDE void Wait(const GuardPlan& plan, int stage, bool listens, std::int64_t end) {
  int count = 0;
  bool looks = false;
  const auto add = [&](int fd, short events) ON_THE_SIDE {
    if (fd != -1) plan.polled[count++] = {fd, events, 0};
  };
  if (listens) add(plan.words_fd, POLLIN);
  if (listens) add(plan.caller_fd, POLLIN);
  for (int at = 0; at < plan.thing_count; ++at) {
    const GuardThing& thing = plan.things[at];
    if (thing.stage != stage) continue;
    if (IsRunning(thing)) add(thing.out_fd, POLLIN);
    if (IsRunning(thing)) add(thing.pid_fd, POLLIN);
    if (IsRunning(thing) && thing.pid_fd == -1) looks = true;
    if (stage != GuardThing::kControlGroup || !IsUnderWay(*thing.slot)) continue;
    if (thing.is_v2) add(thing.state_fd, POLLPRI);
    if (!thing.is_v2) looks = true;
  }
  std::int64_t rest = end - GuardNow();
  if (looks && rest > kLookMs * kNsPerMs) rest = kLookMs * kNsPerMs;
  if (rest < 0) rest = 0;
  constexpr std::int64_t kNsPerS = 1'000'000'000;
  const struct timespec most = {static_cast<time_t>(rest / kNsPerS),
                                static_cast<long>(rest % kNsPerS)};
  (void)syscall(SYS_ppoll, plan.polled, count, &most, nullptr, 0);
}

// Begins to freeze a thing; whether that goes well is seen later.
ON_THE_SIDE void Begin(const GuardPlan& plan, GuardThing& thing) {
  if (thing.stage == GuardThing::kControlGroup) return BeginFreeze(thing);
  thing.slot->progress = GuardSlot::kFreezing;
  BeginProgram(plan, thing, thing.freeze, thing.slot->freeze, true);
  const bool isStarted = thing.slot->freeze.kind == GuardOutcome::kNotTried;
  if (!isStarted) thing.slot->progress = GuardSlot::kUntouched;
}

// Whether the thing is still being frozen.
ON_THE_SIDE bool IsFreezing(GuardThing& thing) {
  GuardSlot& slot = *thing.slot;
  if (slot.freeze.kind != GuardOutcome::kNotTried) return false;
  const bool done = thing.stage == GuardThing::kControlGroup ? IsFrozen(thing, slot.freeze)
                                                             : HasEnded(thing, slot.freeze);
  if (done && slot.freeze.kind == GuardOutcome::kGood) slot.progress = GuardSlot::kFrozen;
  return slot.freeze.kind == GuardOutcome::kNotTried;
}

// Gives up what is still being frozen in the stage.
ON_THE_SIDE void GiveUp(const GuardPlan& plan, int stage, GuardOutcome::Kind kind) {
  for (int at = 0; at < plan.thing_count; ++at) {
    GuardThing& thing = plan.things[at];
    if (thing.stage != stage || thing.slot->freeze.kind != GuardOutcome::kNotTried) continue;
    KillProgram(thing, thing.slot->freeze, kind);
    thing.slot->freeze.kind = kind;
  }
}

// Freezes all of a stage side by side. kNone when they stand still.
ON_THE_SIDE GuardBoard::Reason FreezeStage(const GuardPlan& plan, int stage) {
  for (int at = 0; at < plan.thing_count; ++at) {
    if (plan.things[at].stage == stage) Begin(plan, plan.things[at]);
  }
  for (;;) {
    bool isPending = false;
    bool hasFailed = false;
    for (int at = 0; at < plan.thing_count; ++at) {
      GuardThing& thing = plan.things[at];
      if (thing.stage != stage) continue;
      if (IsFreezing(thing)) {
        isPending = true;
      } else if (thing.slot->freeze.kind != GuardOutcome::kGood) {
        hasFailed = true;
      }
    }
    GuardBoard::Reason reason = GuardBoard::kNone;
    if (hasFailed) reason = GuardBoard::kFailed;
    if (!hasFailed && !isPending) return GuardBoard::kNone;
    if (reason == GuardBoard::kNone && Listen(plan) != Heard::kNothing) {
      reason = GuardBoard::kCallerGone;
    }
    const bool isLate = GuardNow() >= plan.deadline;
    if (reason == GuardBoard::kNone && isLate) reason = GuardBoard::kDeadline;
    if (reason != GuardBoard::kNone) {
      GiveUp(plan, stage, isLate ? GuardOutcome::kLate : GuardOutcome::kGaveUp);
      return reason;
    }
    Wait(plan, stage, true, plan.deadline);
  }
}

// Waits for the word, the caller's end or the deadline.
ON_THE_SIDE GuardBoard::Reason Await(const GuardPlan& plan, Heard word) {
  for (;;) {
    const Heard heard = Listen(plan);
    if (heard == word) return GuardBoard::kNone;
    if (heard != Heard::kNothing) return GuardBoard::kCallerGone;
    if (GuardNow() >= plan.deadline) return GuardBoard::kDeadline;
    Wait(plan, GuardThing::kStages, true, plan.deadline);
  }
}

ON_THE_SIDE void Say(const GuardPlan& plan, char word) {
  (void)syscall(SYS_sendto, plan.words_fd, &word, 1, MSG_NOSIGNAL, nullptr, 0);
}

// Freezes everything and keeps it so. Why it is to be thawed.
ON_THE_SIDE GuardBoard::Reason Hold(const GuardPlan& plan) {
  GuardBoard::Reason reason = Await(plan, Heard::kFreeze);
  if (reason != GuardBoard::kNone) return reason;
  for (int stage = 0; stage < GuardThing::kStages; ++stage) {
    reason = FreezeStage(plan, stage);
    if (reason != GuardBoard::kNone) return reason;
  }
  plan.board->frozen = GuardNow();
  Say(plan, kHeldWord);
  reason = Await(plan, Heard::kRelease);
  return reason == GuardBoard::kNone ? GuardBoard::kReleased : reason;
}

// Whether the thing is to be thawed: a command once it was started, and never twice.
ON_THE_SIDE bool IsToThaw(const GuardThing& thing) {
  const GuardSlot::Progress progress = thing.slot->progress;
  return progress == GuardSlot::kFreezing || progress == GuardSlot::kFrozen ||
         (progress == GuardSlot::kThawing && thing.stage == GuardThing::kControlGroup);
}

ON_THE_SIDE bool IsThawing(GuardThing& thing) {
  GuardSlot& slot = *thing.slot;
  if (slot.progress != GuardSlot::kThawing || slot.thaw.kind != GuardOutcome::kNotTried) {
    return false;
  }
  const bool done = thing.stage == GuardThing::kControlGroup ? IsThawed(thing, slot.thaw)
                                                             : HasEnded(thing, slot.thaw);
  if (done && slot.thaw.kind == GuardOutcome::kGood) slot.progress = GuardSlot::kThawed;
  return slot.thaw.kind == GuardOutcome::kNotTried;
}

// Thaws all of a stage side by side, which takes so long at most.
ON_THE_SIDE void ThawStage(const GuardPlan& plan, int stage) {
  for (int at = 0; at < plan.thing_count; ++at) {
    GuardThing& thing = plan.things[at];
    if (thing.stage != stage || !IsToThaw(thing)) continue;
    if (stage == GuardThing::kControlGroup && !IsMeantFrozen(thing)) plan.board->was_undone = 1;
    thing.slot->progress = GuardSlot::kThawing;
    if (stage == GuardThing::kControlGroup) BeginThaw(thing);
    if (stage != GuardThing::kControlGroup) {
      BeginProgram(plan, thing, thing.thaw, thing.slot->thaw, false);
    }
  }
  const std::int64_t end = GuardNow() + kThawPatienceMs * kNsPerMs;
  for (;;) {
    bool isPending = false;
    for (int at = 0; at < plan.thing_count; ++at) {
      GuardThing& thing = plan.things[at];
      if (thing.stage != stage || !IsThawing(thing)) continue;
      isPending = true;
      if (GuardNow() < end) continue;
      KillProgram(thing, thing.slot->thaw, GuardOutcome::kLate);
      thing.slot->thaw.kind = GuardOutcome::kLate;
    }
    if (!isPending) return;
    Wait(plan, stage, false, end);
  }
}

}  // namespace

ON_THE_SIDE std::int64_t GuardNow() {
  struct timespec now = {};
  (void)syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

ON_THE_SIDE int RunGuardian(void* argument) {
  const auto* plan = static_cast<const GuardPlan*>(argument);
  Leave(*plan);
  if (!plan->only_thaws) plan->board->reason = Hold(*plan);
  for (int stage = GuardThing::kStages - 1; stage >= 0; --stage) ThawStage(*plan, stage);
  plan->board->thawed = GuardNow();
  Say(*plan, kThawedWord);
  syscall(SYS_exit_group, 0);
  return 0;
}

}  // namespace VrelDR
