#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "hold/guard.h"
#include "process/on_the_side.h"

namespace VrelDR {

namespace {

// Reads a small file from its beginning; the number of bytes, or -1.
ON_THE_SIDE long ReadAll(int fd, char* buffer, std::size_t size) {
  return syscall(SYS_pread64, fd, buffer, size, 0L);
}

ON_THE_SIDE bool Begins(const char* text, long size, const char* with) {
  long at = 0;
  while (with[at] != '\0' && at < size && text[at] == with[at]) ++at;
  return with[at] == '\0';
}

ON_THE_SIDE bool Has(const char* text, long size, const char* part) {
  for (long at = 0; at < size; ++at) {
    if (Begins(text + at, size - at, part)) return true;
  }
  return false;
}

ON_THE_SIDE void Write(GuardThing& thing, const char* word, GuardOutcome& outcome) {
  long size = 0;
  while (word[size] != '\0') ++size;
  if (syscall(SYS_pwrite64, thing.control_fd, word, size, 0L) == size) return;
  outcome.kind = GuardOutcome::kErrno;
  outcome.number = errno;
}

// Whether the state of the group is the one that these words of the two kinds of groups tell.
ON_THE_SIDE bool IsInState(GuardThing& thing, const char* v1, const char* v2,
                           GuardOutcome& outcome) {
  char text[256];
  const long size = ReadAll(thing.state_fd, text, sizeof text);
  if (size < 0) {
    outcome.kind = GuardOutcome::kErrno;
    outcome.number = errno;
    return false;
  }
  if (!(thing.is_v2 ? Has(text, size, v2) : Begins(text, size, v1))) return false;
  outcome.kind = GuardOutcome::kGood;
  return true;
}

}  // namespace

ON_THE_SIDE bool IsMeantFrozen(const GuardThing& thing) {
  char text[16];
  return Begins(text, ReadAll(thing.intent_fd, text, sizeof text), "1");
}

ON_THE_SIDE void BeginFreeze(GuardThing& thing) {
  if (IsMeantFrozen(thing)) {
    thing.slot->freeze.kind = GuardOutcome::kForeign;
    return;
  }
  thing.slot->progress = GuardSlot::kFreezing;
  Write(thing, thing.is_v2 ? "1" : "FROZEN", thing.slot->freeze);
}

ON_THE_SIDE void BeginThaw(GuardThing& thing) {
  Write(thing, thing.is_v2 ? "0" : "THAWED", thing.slot->thaw);
}

ON_THE_SIDE bool IsFrozen(GuardThing& thing, GuardOutcome& outcome) {
  return IsInState(thing, "FROZEN", "frozen 1", outcome);
}

ON_THE_SIDE bool IsThawed(GuardThing& thing, GuardOutcome& outcome) {
  return IsInState(thing, "THAWED", "frozen 0", outcome);
}

}  // namespace VrelDR
