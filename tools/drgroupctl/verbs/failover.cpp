#include <vreldr/operation.h>
#include <vreldrgroup/replication/replica.h>

#include <algorithm>
#include <map>

#include "action/common_cut.h"
#include "action/group_action.h"
#include "action/plan_uses.h"
#include "action/takeover.h"
#include "command/confirm.h"
#include "groups/catalogue_view.h"
#include "groups/gsnap_completeness.h"
#include "output/console.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

// A failover to the last snapshot that arrived, which the library's action does not know: its own
// operations, undone as it undoes them.
Prepared PrepareToLast(const Group& group, const std::vector<Takeover>& takeovers, bool isForced) {
  std::map<std::string, std::pair<std::string, std::string>> plans;
  for (const Takeover& each : takeovers) {
    plans[each.target] = {each.plan.GetPlanId(), each.snap_id};
  }
  const auto make = [plans, isForced](const std::string& target) {
    const auto& [planId, snapId] = plans.at(target);
    std::unique_ptr<VrelDR::DROperation> operation;
    if (isForced) {
      operation =
          std::make_unique<VrelDR::Operation::PlanForcedFailover>(planId, snapId, Json::Value());
    } else {
      operation = std::make_unique<VrelDR::Operation::PlanFailover>(planId, snapId, Json::Value());
    }
    return operation;
  };
  const Task& task = FindTask("failover");
  const auto undo = [&task](std::set<std::string>& targets) {
    return task.make()->Revert(targets);
  };
  Prepared prepared = PrepareDirect(task, make, group.id, TargetIds(group), undo);
  prepared.is_reverted = true;
  if (!isForced) prepared.checker = FindTask(task.checker).make();
  return prepared;
}

Prepared PrepareToGsnap(const Group& group, const std::string& gsnapId,
                        const std::vector<Takeover>& takeovers, bool isForced) {
  Json::Value params(Json::objectValue);
  params[Param::kGsnap] = gsnapId;
  params[Param::kIsForced] = isForced;
  std::vector<std::string> targets;
  targets.reserve(takeovers.size());
  for (const Takeover& each : takeovers) targets.push_back(each.driven);
  return Prepare(FindTask("failover"), group.id, targets, params);
}

// Those that are still to be done.
std::vector<Takeover> OpenOf(const std::vector<Takeover>& takeovers, const Prepared& prepared) {
  std::vector<Takeover> open;
  for (const Takeover& each : takeovers) {
    if (prepared.passed_over.count(each.driven) == 0) open.push_back(each);
  }
  return open;
}

std::vector<PlannedUse> UsesOf(const std::vector<Takeover>& takeovers, const Prepared& prepared) {
  std::vector<PlannedUse> uses;
  for (const Takeover& each : OpenOf(takeovers, prepared)) {
    if (each.is_going_back) continue;
    for (PlannedUse& use : UsesOfTurning(each.plan)) uses.push_back(std::move(use));
  }
  return uses;
}

bool IsSourceWell(const std::vector<Takeover>& takeovers) {
  return std::all_of(takeovers.begin(), takeovers.end(),
                     [](const Takeover& each) { return each.is_source_alive; });
}

// Whether the replicas go to an older cut than what they have last.
bool RequireCommonCut(const std::string& groupId, std::vector<Takeover>& takeovers) {
  const CommonCut cut = GoToCommonCut(takeovers);
  if (cut.problem.empty()) return cut.is_older;
  throw Failure(ExitCode::kRefused, "failover of group " + Quote(groupId) + " is refused: " +
                                        cut.problem + ": run \"drgroupctl sync " + groupId +
                                        "\" if that can be done, name a group snapshot, or add "
                                        "--mixed to go to what each replica has last");
}

Report RunFailover(const Arguments& args, Warnings& warnings) {
  const std::string groupId = args.Text("GROUP");
  const std::string gsnapId = args.Text("--snapshot");
  const bool isForced = args.Has("--force");
  const ActionLock lock(groupId, args);
  Group group = LoadGroup(groupId);
  std::optional<VrelDRGroup::GsnapshotInfo> gsnap;
  if (!gsnapId.empty()) {
    gsnap = RequireGsnap(gsnapId);
    if (!RequireAll(warnings, *gsnap, "failed over to", isForced).empty())
      KeepCovered(warnings, group, *gsnap);
  }
  std::vector<Takeover> takeovers = PlanTakeover(group, gsnap, isForced);
  const bool isOlderCut = !gsnap && !args.Has("--mixed") && RequireCommonCut(groupId, takeovers);
  const Prepared prepared = gsnap ? PrepareToGsnap(group, gsnapId, takeovers, isForced)
                                  : PrepareToLast(group, takeovers, isForced);
  InUse inUse(UsesOf(takeovers, prepared), args);
  if (isForced) inUse.GoOn("as it is forced");
  std::optional<Report> report;
  try {
    report = CheckFirst(prepared, args, inUse, warnings);
  } catch (Failure& failure) {
    const std::string advice = isForced ? HalfWayAdvice(takeovers) : std::string();
    if (!advice.empty()) failure.message += "; " + advice;
    throw;
  }
  const std::string bothSides = BothSidesAdvice(groupId, takeovers);
  if (!bothSides.empty()) {
    throw Failure(ExitCode::kRefused, "failover of group " + Quote(groupId) +
                                          " is refused, nothing was done: " + bothSides);
  }
  const bool isGoingBack = IsGoingBack(takeovers);
  const std::string hint = IsSourceWell(takeovers) && !isGoingBack
                               ? "every source of group " + Quote(groupId) +
                                     " is there: \"drgroupctl switchover " + groupId +
                                     "\" would lose nothing"
                               : std::string();
  const std::optional<GsnapCut> cut = isGoingBack ? std::nullopt : std::optional(CutOf(takeovers));
  const auto tell = [&](Report& to) {
    if (cut) AddCut(*cut, to);
    AddTakeover(to, takeovers);
  };
  if (report) {
    if (!hint.empty()) warnings.Print(hint);
    tell(*report);
    return *report;
  }
  // Nothing is lost by going back.
  if (!isGoingBack) {
    // Said where there is still a choice.
    if (!hint.empty() && !args.Has("--yes")) warnings.Print(hint);
    const std::vector<Takeover> open = OpenOf(takeovers, prepared);
    Confirm(args,
            "fail group " + Quote(groupId) +
                " over and give up what was written since those snapshots were taken" +
                (IsOlderThanRecorded(open) ? ", as the last ones that arrived are gone"
                 : isOlderCut              ? ", which are of the newest cut that all replicas have"
                                           : ""),
            LossDetails(open) + CutDetails(*cut));
  }
  const Course course = Run(prepared, args);
  report = CourseReport(prepared, course, "Failed over group " + Quote(groupId) + ".");
  tell(*report);
  return *report;
}

constexpr char kLosses[] =
    "What would be lost is told target by target, with how near to one instant the snapshots are, "
    "and has to be agreed to.";
constexpr char kForced[] =
    "With --force nothing is needed of the sources, which may be gone. A group that was "
    "reprotected and not synced since is put back into the failover that it came from, which loses "
    "nothing and is not asked about: no snapshot has what the copies that work have.";

}  // namespace

Verb Failover() {
  return {
      "failover",
      "let the replicas of a group take over",
      {"Each replica works with exactly the bytes of a snapshot that it has: that of the newest "
       "cut that all replicas have, which is the last one that arrived unless a sync ended half "
       "way, or that of a group snapshot of the group or of its DR copies. When the last "
       "one is gone, the newest that is there is taken. The source is "
       "made unwritable and keeps its bytes. What was written since the snapshot is not at the "
       "copies that work; while the sources are well, a switchover loses nothing.",
       kLosses, kForced, kInUse, "With --force it goes on over that in any case, and says so.",
       kAllOrNothing, kRunAgain},
      "Which copies work. What was written since the snapshots is given up.",
      {GroupArgument("the group")},
      {{"--snapshot", Value::kGsnap, "GSNAP", "the group snapshot to go to"},
       Flag("--mixed",
            "go to the last snapshot of each replica, also when these were not taken in "
            "one cut"),
       Flag("--force", "do it without the sources"),
       GoOnInUse(),
       DryRun(),
       Yes()},
      RunFailover,
      "failover"};
}

}  // namespace drgroupctl
