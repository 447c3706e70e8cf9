#include "action/group_action.h"

#include <vreldr/report.h>
#include <vreldr/switchover_cut.h>

#include "action/interrupted.h"
#include "action/plan_uses.h"
#include "action/plans.h"
#include "output/console.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

// What runs on the plans of a group at this moment; empty when nothing does or nobody can tell.
std::string RunningText(const std::string& groupId) {
  std::vector<std::string> texts;
  try {
    for (const std::string& target : TargetIds(LoadGroup(groupId))) {
      for (const VrelDR::DRPlan& plan : PlansOf(target)) {
        VrelDR::SiteOPJournal journal;
        if (!VrelDR::SiteOPJournalReporter(plan.GetPlanId()).ReadReport(journal) ||
            journal.GetState() != VrelDR::OPState::kRunning) {
          continue;
        }
        texts.push_back("target " + Quote(target) + " is in " +
                        VrelDR::Utils::ToString(journal.GetOPStatus()) + " since " +
                        FormatTime(journal.GetBeginTime()) + ", at " +
                        std::to_string(journal.GetProgress()) + " %");
      }
    }
  } catch (const Failure&) {  // what has failed already matters more
    return {};
  }
  return Join(texts, ", ");
}

// Takes a lock of the group; a failure tells what runs on its plans.
template <class Take>
void TakeOrTell(const std::string& groupId, const Take& take) {
  try {
    take();
  } catch (Failure& failure) {
    const std::string running =
        failure.code == ExitCode::kBusy ? RunningText(groupId) : std::string();
    if (!running.empty()) failure.message += "; " + running;
    throw;
  }
}

// Empty when the group's link is no use.
std::string OwnDirectory(const std::string& groupId) {
  try {
    return GroupDirectory(groupId);
  } catch (const Failure&) {  // whoever needs it tells of it
    return {};
  }
}

}  // namespace

ActionLock::ActionLock(const std::string& groupId, const std::string& directory) {
  Take(groupId, directory);
}

ActionLock::ActionLock(const std::string& groupId, const Arguments& args) {
  if (!args.Has("--dry-run")) Take(groupId, {});
}

void ActionLock::Take(const std::string& groupId, const std::string& directory) {
  TakeOrTell(groupId, [&] {
    group_.emplace(groupId);
    sending_.emplace(groupId, directory.empty() ? OwnDirectory(groupId) : directory);
  });
}

NobodySends::NobodySends(const std::set<std::string>& targetIds) {
  std::set<std::string> copies = targetIds;  // and those that are sent to them, or from them
  for (const std::string& target : targetIds) {
    for (const VrelDR::DRPlan& plan : PlansOf(target)) {
      copies.insert({plan.GetProtectedTargetId(), plan.GetDRTargetId()});
    }
  }
  for (const std::string& groupId : GroupsOfTargets(copies)) {
    TakeOrTell(groupId, [&] {
      locks_.push_back(std::make_unique<SendLock>(groupId, OwnDirectory(groupId)));
    });
  }
}

std::vector<std::string> TargetIds(const Group& group) {
  std::vector<std::string> ids;
  for (const VrelDR::Target& each : group.targets) ids.push_back(each.GetId());
  return ids;
}

Prepared PrepareOnGroup(const std::string& task, const Group& group, Json::Value params) {
  return Prepare(FindTask(task), group.id, TargetIds(group), params);
}

std::optional<Report> CheckFirst(const Prepared& prepared, const Arguments& args) {
  Warnings none;
  return CheckFirst(prepared, args, InUse({}, args), none);
}

std::optional<Report> CheckFirst(const Prepared& prepared, const Arguments& args,
                                 const InUse& inUse, Warnings& warnings) {
  std::vector<Check> checks = CheckTargets(prepared);
  AddInUse(inUse, checks);
  if (auto refusal = RefusalOf(prepared.title, checks)) {
    if (!inUse.Rows().empty()) refusal->details["users"] = inUse.Rows();
    throw Failure(*refusal);
  }
  inUse.Warn(warnings);
  if (!args.Has("--dry-run")) return std::nullopt;
  Report report;
  report.AddText("The " + prepared.title + " would be begun: every check passed.");
  report.AddField({"group_id", "Group"}, prepared.group);
  report.AddField({"task", "Task"}, prepared.name);
  AddChecks(report, checks);
  inUse.AddTo(report);
  return report;
}

Course Run(const Prepared& prepared, const Arguments& args, const Abreast& abreast) {
  Course course;
  std::optional<VrelDR::InUseAllowed> allowed;
  if (args.Has("--in-use")) allowed.emplace();
  std::optional<VrelDR::SwitchoverCut> cut;
  if (prepared.is_switchover) {
    cut.emplace(static_cast<int>(prepared.targets.size()), LastOfOneCut(prepared.passed_over));
  }
  {
    Progress progress(prepared, args);
    course = Drive(prepared, progress, abreast);
  }
  RequireDone(prepared, course);
  return course;
}

Report CourseReport(const Prepared& prepared, const Course& course, const std::string& sentence) {
  Report report;
  report.AddText(sentence);
  report.AddField({"group_id", "Group"}, prepared.group);
  report.AddField({"task", "Task"}, prepared.name);
  AddOutcomes(report, course);
  return report;
}

std::vector<VrelDR::Target> SourcesOf(const Group& group) {
  std::vector<VrelDR::Target> sources;
  sources.reserve(group.targets.size());
  for (const VrelDR::Target& each : group.targets) {
    sources.emplace_back(RequireOnePlan(each.GetId()).GetSourceTargetId(), each.GetType());
  }
  return sources;
}

Report RunOnGroup(const std::string& task, const Arguments& args, Warnings& warnings,
                  const std::string& done, const Json::Value& params) {
  const std::string groupId = args.Text("GROUP");
  const ActionLock lock(groupId, args);
  const Prepared prepared = PrepareOnGroup(task, LoadGroup(groupId), params);
  const InUse inUse(UsesOf(FindTask(task), params, prepared), args);
  if (const auto report = CheckFirst(prepared, args, inUse, warnings)) return *report;
  const Course course = Run(prepared, args);
  return CourseReport(prepared, course, done + " group " + Quote(groupId) + ".");
}

}  // namespace drgroupctl
