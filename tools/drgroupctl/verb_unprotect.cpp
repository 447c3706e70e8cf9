#include "action/group_action.h"
#include "action/plans.h"
#include "action/removal.h"
#include "console.h"
#include "host.h"
#include "text.h"
#include "verb_functions.h"

namespace drgroupctl {

namespace {

// The copies that do not work, which become ordinary targets.
std::string CopiesThatStay(const std::vector<std::string>& targets) {
  std::vector<std::string> texts;
  for (const std::string& target : targets) {
    for (const VrelDR::DRPlan& plan : PlansOf(target)) {
      const std::string& id = plan.GetWorkingTargetId() == plan.GetSourceTargetId()
                                  ? plan.GetReplicaTargetId()
                                  : plan.GetSourceTargetId();
      VrelDR::TargetEntry entry;
      texts.push_back("target " + Quote(id) +
                      (FindTarget(id, entry) ? " on volume " + Quote(entry.volume) : ""));
    }
  }
  return Join(texts, ", ");
}

}  // namespace

Report Unprotect(const Arguments& args) {
  const std::string groupId = args.Text("GROUP");
  const bool withData = args.Has("--delete-data");
  const ActionLock lock(groupId, args);
  Json::Value params(Json::objectValue);
  params["is_data_deleted"] = withData;
  params["is_drsite_deleted"] = withData;
  const Prepared prepared = PrepareOnGroup("delete", LoadGroup(groupId), params);
  std::size_t plans = 0;
  for (const std::string& target : prepared.targets) plans += PlansOf(target).size();
  const Removal removal(PlansLostBy("delete", params, prepared.targets), prepared.targets);
  if (plans == 0 && (removal.IsEmpty() || !withData)) {
    throw Failure(ExitCode::kNotFound,
                  "group " + Quote(groupId) + " is not protected: no target of it has a plan" +
                      (removal.IsEmpty() ? ""
                                         : "; the removal of " + removal.Text() +
                                               " has begun: --delete-data finishes it"));
  }
  std::optional<Report> checked = CheckFirst(prepared, args);
  if (withData) removal.RequireUnclaimed(prepared.title, args);
  if (checked) {
    if (withData) removal.AddTo(*checked);
    return *checked;
  }
  if (withData) Confirm(args, "remove " + removal.Text() + ", of group " + Quote(groupId));
  const std::string kept = withData ? std::string() : CopiesThatStay(prepared.targets);
  const Course course = Run(prepared, args);
  if (withData) removal.Finish();
  Report report = CourseReport(
      prepared, course,
      "Group " + Quote(groupId) + " is not protected any more. " +
          (withData ? "Removed " + removal.Text() : "As ordinary targets stay " + kept) + ".");
  if (withData) removal.AddTo(report);
  return report;
}

}  // namespace drgroupctl
