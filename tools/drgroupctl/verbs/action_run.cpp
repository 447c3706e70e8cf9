#include <vreldrcore/json.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "action/group_action.h"
#include "action/plan_uses.h"
#include "action/plans.h"
#include "action/removal.h"
#include "command/confirm.h"
#include "groups/file_write.h"
#include "groups/json_file.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

Json::Value ReadParams(const Task& task, const std::string& path) {
  if (path.empty()) return Json::Value(Json::objectValue);
  const std::string from = "--params " + Quote(path);
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(path, error);
  if (!std::filesystem::exists(status)) {
    throw Failure(ExitCode::kNotFound, from + ": there is no such file: correct the path");
  }
  if (!std::filesystem::is_regular_file(status)) {
    throw Failure(ExitCode::kUsage,
                  from + ": it is " +
                      (std::filesystem::is_directory(status) ? "a directory" : "no regular file") +
                      ": name a file with the parameters");
  }
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  if (!file) throw Failure(ExitCode::kUsage, from + ": it cannot be read: check its permissions");
  text << file.rdbuf();
  Json::Value params;
  std::string problem;
  if (!ParseJsonObject(text.str(), params, problem)) {
    throw Failure(ExitCode::kUsage, from + ": " + problem);
  }
  CheckParams(task, params, from);
  return params;
}

void WriteParams(const std::string& path, const Json::Value& params) {
  std::error_code error;
  const std::string whole = std::filesystem::absolute(path, error);
  const int number = WriteFileAtomically(whole, VrelDRCore::JsonUtil::ToString(params) + "\n");
  if (number != 0) {
    throw Failure(ExitCode::kStorage, "cannot write " + Quote(path) + ": " +
                                          std::generic_category().message(number) +
                                          "; the action itself was done");
  }
}

// Throws unless every plan that is to go is one of its target's, which then has another one.
void CheckReplacedPlans(const Json::Value& params, const Group& group) {
  const Json::Value plans = VrelDRCore::JsonUtil::Member(params, Param::kTargetPlans);
  if (!plans.isObject()) return;
  const std::vector<std::string> targets = TargetIds(group);
  for (const std::string& target : plans.getMemberNames()) {
    if (std::find(targets.begin(), targets.end(), target) == targets.end()) {
      throw Failure(ExitCode::kUsage, "\"target_plan_map\" names target " + Quote(target) +
                                          ", which group " + Quote(group.id) + " does not have");
    }
    const std::string planId = VrelDRCore::JsonUtil::AsText(plans[target]);
    if (!FindPlan(planId)) continue;  // gone already
    const std::vector<VrelDR::DRPlan> own = PlansOf(target);
    const bool isOwn = std::any_of(own.begin(), own.end(), [&](const VrelDR::DRPlan& each) {
      return each.GetPlanId() == planId;
    });
    if (isOwn && own.size() > 1) continue;
    throw Failure(ExitCode::kUsage,
                  "\"target_plan_map\": plan " + Quote(planId) +
                      (isOwn ? " is the only one of target " : " is none of target ") +
                      Quote(target) +
                      ": name the plan that the target had before it was given another one");
  }
}

// A checker has nothing to run: asking every target is all of it.
Report CheckerReport(const Prepared& prepared) {
  const std::vector<Check> checks = CheckTargets(prepared);
  if (const auto refusal = RefusalOf(prepared.title, checks)) throw Failure(*refusal);
  Report report;
  report.AddText("Every target of group " + Quote(prepared.group) + " passed " +
                 Quote(prepared.name) + ".");
  report.AddField({"group_id", "Group"}, prepared.group);
  report.AddField({"task", "Task"}, prepared.name);
  AddChecks(report, checks);
  return report;
}

Parameter TaskName() {
  Parameter task = Argument("TASK", Value::kChoice, "the action");
  for (const Task& each : Tasks()) task.choices.push_back(each.name);
  return task;
}

constexpr char kActions[] =
    "The verbs above are made of these. An action that begins with \"can_\" only checks every "
    "target; "
    "one that begins with \"tmp_\" is for groups that are made for a while.";
constexpr char kActionParams[] =
    "The parameters are the members of one JSON object; one that the action does not take is "
    "refused. "
    "The report has them with what the action has filled in: \"edit_prepare\" fills "
    "\"target_plan_map\", which \"edit\" needs.";

// Which actions are taken back on the targets before the one that failed.
std::string RevertedActions() {
  std::vector<std::string> names;
  for (const Task& each : Tasks()) {
    if (each.is_reverted) names.push_back("\"" + each.name + "\"");
  }
  return "All targets are checked first, and nothing is done unless all pass. When a target fails, "
         "those before it are brought back by " +
         Join(names, ", ") + "; what another action did stays.";
}

Report RunActionRun(const Arguments& args, Warnings& warnings) {
  const Task& task = FindTask(args.Text("TASK"));
  Json::Value params = ReadParams(task, args.Text("--params"));
  const std::string groupId = args.Text("GROUP");
  std::optional<ActionLock> lock;
  if (!task.needs_no_lock) lock.emplace(groupId, args);
  const Group group = LoadGroup(groupId);
  if (task.loss == Loss::kReplaced) CheckReplacedPlans(params, group);
  const Prepared prepared = Prepare(task, groupId, TargetIds(group), params);
  if (task.is_checker) return CheckerReport(prepared);
  InUse inUse(UsesOf(task, params, prepared), args);
  if (IsForced(task, params)) inUse.GoOn("as it is forced");
  std::optional<Report> checked = CheckFirst(prepared, args, inUse, warnings);
  std::optional<Removal> removal;
  if (RemovesCopies(task, params)) {
    removal.emplace(PlansLostBy(task, params, prepared.targets), prepared.targets);
    removal->RequireUnclaimed(prepared.title, args);
    if (checked) removal->AddTo(*checked);
  }
  if (checked) return *checked;
  if (removal && !removal->IsEmpty()) {
    Confirm(args, "remove " + removal->Text() + ", in group " + Quote(groupId));
  }
  const std::string loss = LossOf(task, params);
  if (!loss.empty()) Confirm(args, loss + ", in group " + Quote(groupId));
  if (task.is_sync && lock) lock->ReleaseGroup();
  const Course course = Run(prepared, args);
  if (removal) removal->Finish();
  if (args.Has("--params-out")) WriteParams(args.Text("--params-out"), params);

  Report report = CourseReport(prepared, course,
                               "Action " + Quote(task.name) + " ran on group " + Quote(groupId) +
                                   ", on " + Count(CountDone(course), "target") + ".");
  if (removal) removal->AddTo(report);
  // What the action has filled in is what another one needs.
  report.AddField({"params", "Parameters"}, params);
  return report;
}

}  // namespace

Verb ActionRun() {
  return {"action run",
          "run any action of the library on a group",
          {kActions, kActionParams, RevertedActions(), kRunAgain, kClaims, kInUse},
          "What the action changes.",
          {TaskName(), GroupArgument("the group")},
          {{"--params", Value::kPath, "FILE", "the JSON file with its parameters"},
           {"--params-out", Value::kPath, "FILE", "where to write the parameters afterwards"},
           ForceClaims(),
           GoOnInUse(),
           DryRun(),
           Yes()},
          RunActionRun,
          "action"};
}

}  // namespace drgroupctl
