#pragma once

#include <poll.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace VrelDR {

// What the guardian runs: a clone of this process that freezes the writers, and thaws them whatever
// becomes of the process that asked for it. Everything here is prepared before the clone is made,
// which has memory of its own from then on, but for the board.

// How a step went for one writer.
struct GuardOutcome {
  enum Kind : int {
    kNotTried = 0,
    kGood,
    kErrno,    // a system call failed with `number`
    kStatus,   // the program ended with `number`, as waitpid gives it
    kLate,     // not done in time; a program was killed
    kForeign,  // somebody else has frozen it
    kGaveUp,   // another one failed, or nobody needs it any more
  };
  static constexpr std::size_t kMostTail = 256;

  Kind kind = kNotTried;
  int number = 0;
  char tail[kMostTail] = {};  // the end of what the program wrote
  std::size_t tail_size = 0;
};

// What becomes of one writer.
struct GuardSlot {
  // Each is noted before the step is begun, so that a second guardian knows what may stand still.
  enum Progress : int { kUntouched = 0, kFreezing, kFrozen, kThawing, kThawed };
  Progress progress = kUntouched;
  GuardOutcome freeze;
  GuardOutcome thaw;
};

// Memory that the guardian shares with the process that has started it, with a slot for each writer
// behind it. It is read there after a word of the guardian's, or its end.
struct GuardBoard {
  // Why the writers were thawed.
  enum Reason : int { kNone = 0, kReleased, kFailed, kDeadline, kCallerGone };
  Reason reason = kNone;
  int was_undone = 0;       // whether somebody else had thawed a control group meanwhile
  std::int64_t begun = 0;   // by the monotonic clock, in nanoseconds: the hold was asked for,
  std::int64_t frozen = 0;  // all stood still,
  std::int64_t thawed = 0;  // all that could be thawed is
};

struct GuardProgram {
  const char* path = nullptr;  // absolute
  char* const* argv = nullptr;
  char* const* envp = nullptr;
};

// One writer.
struct GuardThing {
  // In this order they are frozen, and thawed the other way round. A command talks to something
  // that still has to run; so does the agent in a virtual machine.
  enum Stage : int { kCommand = 0, kDomain, kControlGroup, kStages };
  Stage stage = kCommand;

  // Of a command or a domain.
  GuardProgram freeze;
  GuardProgram thaw;

  // Of a control group: files of it that are open.
  bool is_v2 = false;
  int control_fd = -1;  // is written
  int intent_fd = -1;   // says whether this group itself is to be frozen
  int state_fd = -1;    // says whether it is

  GuardSlot* slot = nullptr;

  // Of the guardian alone, while a program runs.
  pid_t pid = -1;
  int pid_fd = -1;
  int out_fd = -1;
};

// The words between the two.
inline constexpr char kFreezeWord = 'F';   // to the guardian: freeze
inline constexpr char kReleaseWord = 'R';  // to the guardian: thaw
inline constexpr char kHeldWord = 'H';     // of the guardian: all stand still
inline constexpr char kThawedWord = 'T';   // of the guardian: all that could be thawed is; its last

// The bound on thawing everything of one stage.
inline constexpr std::int64_t kThawPatienceMs = 10000;

struct GuardPlan {
  GuardThing* things = nullptr;
  int thing_count = 0;
  GuardBoard* board = nullptr;
  bool only_thaws = false;        // another guardian has frozen them
  std::int64_t deadline = 0;      // by the monotonic clock, in nanoseconds
  int words_fd = -1;              // to the process that has started it
  int caller_fd = -1;             // a pidfd of that process; -1 where the system has none
  const int* root_fds = nullptr;  // "cgroup.procs" of the roots that the guardian goes to
  int root_count = 0;
  const int* kept_fds = nullptr;  // all of the above, sorted; what else is open is closed
  int kept_count = 0;
  struct pollfd* polled = nullptr;  // room for 2 and 3 for each thing
  char* program_stack = nullptr;    // the upper end of room for what runs before a program
};

// The guardian's main function; `plan` is a GuardPlan.
int RunGuardian(void* plan);

// The parts of it.

std::int64_t GuardNow();

// Begins to run the program, or tells in `outcome` why not.
void BeginProgram(const GuardPlan& plan, GuardThing& thing, const GuardProgram& program,
                  GuardOutcome& outcome, bool diesWithGuardian);
// Takes in what the program has written. True once it has ended; `outcome` tells how.
bool HasEnded(GuardThing& thing, GuardOutcome& outcome);
// Kills it with its process group, and waits a little for its end.
void KillProgram(GuardThing& thing, GuardOutcome& outcome, GuardOutcome::Kind kind);

// Asks the system to freeze the control group, unless somebody has done so already.
void BeginFreeze(GuardThing& thing);
void BeginThaw(GuardThing& thing);
// Whether all tasks of the group stand still, or go on. What fails is told in `outcome`.
bool IsFrozen(GuardThing& thing, GuardOutcome& outcome);
bool IsThawed(GuardThing& thing, GuardOutcome& outcome);
// Whether the group itself is to be frozen, by whomever.
bool IsMeantFrozen(const GuardThing& thing);

}  // namespace VrelDR
