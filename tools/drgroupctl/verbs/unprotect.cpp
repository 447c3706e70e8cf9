#include "action/group_action.h"
#include "action/plan_loss.h"
#include "action/plan_uses.h"
#include "action/plans.h"
#include "action/removal.h"
#include "command/confirm.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

std::vector<VrelDR::DRPlan> PlansOfAll(const std::vector<std::string>& targets) {
  std::vector<VrelDR::DRPlan> all;
  for (const std::string& target : targets) {
    for (VrelDR::DRPlan& plan : PlansOf(target)) all.push_back(std::move(plan));
  }
  return all;
}

// The copies that do not work, which become ordinary targets.
std::string CopiesThatStay(const std::vector<VrelDR::DRPlan>& plans) {
  std::vector<std::string> texts;
  texts.reserve(plans.size());
  for (const VrelDR::DRPlan& plan : plans) texts.push_back(PlaceOf(OtherCopyOf(plan)));
  return Join(texts, ", ");
}

Report RunUnprotect(const Arguments& args, Warnings& warnings) {
  const std::string groupId = args.Text("GROUP");
  const bool withData = args.Has("--delete-data");
  const ActionLock lock(groupId, args);
  Json::Value params(Json::objectValue);
  params[Param::kIsDataDeleted] = withData;
  params[Param::kIsDrSiteDeleted] = withData;
  const Prepared prepared = PrepareOnGroup("delete", LoadGroup(groupId), params);
  const std::vector<VrelDR::DRPlan> plans = PlansOfAll(prepared.targets);
  const Removal removal(PlansLostBy(FindTask("delete"), params, prepared.targets),
                        prepared.targets);
  if (plans.empty() && (removal.IsEmpty() || !withData)) {
    throw Failure(ExitCode::kNotFound,
                  "group " + Quote(groupId) + " is not protected: no target of it has a plan" +
                      (removal.IsEmpty() ? ""
                                         : "; the removal of " + removal.Text() +
                                               " has begun: --delete-data finishes it"));
  }
  const InUse inUse(UsesOf(FindTask("delete"), params, prepared), args);
  std::optional<Report> checked = CheckFirst(prepared, args, inUse, warnings);
  if (withData) removal.RequireUnclaimed(prepared.title, args);
  if (checked) {
    if (withData) removal.AddTo(*checked);
    return *checked;
  }
  Confirm(args,
          "end the replication of group " + Quote(groupId) +
              (withData ? " and remove " + removal.Text() : ""),
          LossDetails(plans, withData));
  const std::string kept = withData ? std::string() : CopiesThatStay(plans);
  const Course course = Run(prepared, args);
  if (withData) removal.Finish();
  Report report = CourseReport(
      prepared, course,
      "Group " + Quote(groupId) + " is not protected any more. " +
          (withData ? "Removed " + removal.Text() : "As ordinary targets stay " + kept) + ".");
  if (withData) removal.AddTo(report);
  return report;
}

constexpr char kCopies[] =
    "The copies that do not work stay as ordinary targets that hold what arrived last; with "
    "--delete-data they go with their snapshots. Those are the DR copies, but after a switchover "
    "the ones on the main side. The copies that work are never touched. Targets without a plan are "
    "passed over.";
constexpr char kAllFirst[] =
    "All targets are checked first. What was removed before a failure stays removed, and the same "
    "command goes on with the others; a copy whose removal has begun never comes back, and the "
    "same command, \"target remove\" or the next target that is made finishes it.";

}  // namespace

Verb Unprotect() {
  return {"unprotect",
          "remove the plans of a group",
          {kCopies, "What goes with each plan is told and has to be agreed to.", kClaims, kInUse,
           kAllFirst},
          "The plans; with --delete-data the copies that do not work and their snapshots are lost.",
          {GroupArgument("the group")},
          {Flag("--delete-data", "remove the copies that do not work, with their snapshots"),
           ForceClaims(), GoOnInUse(), DryRun(), Yes()},
          RunUnprotect,
          "unprotect"};
}

}  // namespace drgroupctl
