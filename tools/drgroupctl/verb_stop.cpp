#include <chrono>
#include <thread>

#include "action/group_action.h"
#include "text.h"
#include "verb_functions.h"

namespace drgroupctl {

namespace {

// Whether another process works on the group.
bool IsBusy(const std::string& groupId) {
  try {
    const GroupLock lock(groupId);
    return false;
  } catch (const Failure& failure) {
    if (failure.code != ExitCode::kBusy) throw;
    return true;
  }
}

}  // namespace

// A sync that goes from one target to the next may just be between the two: the targets are asked
// until the process that syncs them has ended. One that does something else is not waited for.
Report Stop(const Arguments& args) {
  constexpr int kRounds = 30;
  constexpr auto kPause = std::chrono::milliseconds(100);
  const std::string groupId = args.Text("GROUP");
  const Prepared prepared = PrepareOnGroup("stop", LoadGroup(groupId));
  if (const auto refusal = RefusalOf(prepared.title, CheckTargets(prepared))) {
    throw Failure(*refusal);
  }
  Course course = Run(prepared, args);
  for (int round = 0; round < kRounds && IsBusy(groupId); ++round) {
    std::this_thread::sleep_for(kPause);
    course = Run(prepared, args);
  }
  return CourseReport(prepared, course, "No sync runs on group " + Quote(groupId) + ".");
}

}  // namespace drgroupctl
