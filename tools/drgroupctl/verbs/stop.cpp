#include <vreldr/report.h>

#include <chrono>
#include <map>
#include <thread>

#include "action/abreast.h"
#include "action/group_action.h"
#include "action/plans.h"
#include "host/host.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

// How the last operation of each plan of some targets goes, by plan.
using Runs = std::map<std::string, VrelDR::SiteOPJournal>;

Runs LookAtRuns(const std::vector<std::string>& targets) {
  Runs runs;
  for (const std::string& target : targets) {
    for (const VrelDR::DRPlan& plan : PlansOf(target)) {
      const VrelDR::SiteOPJournalReporter reporter(plan.GetPlanId());
      const bool isRead = reporter.ReadReport(runs[plan.GetPlanId()]);
      if (!isRead && reporter.GetErrCode() != VrelDR::kErrNotRun) ThrowHostError(reporter);
    }
  }
  return runs;
}

// Those of the targets whose sync, or switchover, has ended before its end since `before`.
std::vector<std::string> FindStopped(const std::vector<std::string>& targets, const Runs& before) {
  std::vector<std::string> stopped;
  for (const std::string& target : targets) {
    for (const auto& [plan, now] : LookAtRuns({target})) {
      const auto then = before.find(plan);
      const bool isNew = then == before.end() ||
                         then->second.GetState() != VrelDR::OPState::kInterrupted ||
                         then->second.GetBeginTime() != now.GetBeginTime();
      if (isNew && now.GetState() == VrelDR::OPState::kInterrupted) stopped.push_back(target);
    }
  }
  return stopped;
}

// Whether another process sends for the group.
bool IsBusy(const std::string& groupId) {
  try {
    const SendLock lock(groupId, GroupDirectory(groupId));
    return false;
  } catch (const Failure& failure) {
    if (failure.code != ExitCode::kBusy) throw;
    return true;
  }
}

// All targets are asked at once, as each is waited for. A sync that goes from one target to the
// next may just be between the two: they are asked until the process that syncs them has ended. One
// that does something else is not waited for.
Report RunStop(const Arguments& args, Warnings& /*warnings*/) {
  constexpr int kRounds = 30;
  constexpr auto kPause = std::chrono::milliseconds(100);
  const std::string groupId = args.Text("GROUP");
  const Prepared prepared = PrepareOnGroup("stop", LoadGroup(groupId));
  if (const auto refusal = RefusalOf(prepared.title, CheckTargets(prepared))) {
    throw Failure(*refusal);
  }
  const Runs before = LookAtRuns(prepared.targets);
  const Abreast all{kMostJobs};
  Course course = Run(prepared, args, all);
  for (int round = 0; round < kRounds && IsBusy(groupId); ++round) {
    std::this_thread::sleep_for(kPause);
    course = Run(prepared, args, all);
  }
  const std::vector<std::string> stopped = FindStopped(prepared.targets, before);
  std::vector<std::string> names;
  Json::Value ids(Json::arrayValue);
  for (const std::string& each : stopped) {
    names.push_back(Quote(each));
    ids.append(each);
  }
  Report report = CourseReport(
      prepared, course,
      stopped.empty() ? "No sync ran on group " + Quote(groupId) + " that had to be stopped."
                      : "Stopped the sync of group " + Quote(groupId) + ", at target " +
                            Join(names, ", ") + "; the next sync goes on with it.");
  report.AddField({"stopped_targets", "Stopped"}, ids);
  return report;
}

}  // namespace

Verb Stop() {
  return {"stop",
          "stop the sync that runs on a group",
          {"Afterwards no sync runs on its plans. The sync itself ends with exit code 9, and goes "
           "on where it was when it is run again. Fine when none runs."},
          "Nothing but the running sync.",
          {GroupArgument("the group")},
          {},
          RunStop};
}

}  // namespace drgroupctl
