#include <vreldr/operation.h>

#include "action/group_action.h"
#include "action/gsnap_sides.h"
#include "action/membership.h"
#include "action/plan_loss.h"
#include "action/plan_uses.h"
#include "action/plans.h"
#include "command/confirm.h"
#include "groups/kill_point.h"
#include "host/in_use.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

using Plans = std::map<std::string, VrelDR::DRPlan>;

void RequireMember(const Group& group, const std::string& target) {
  if (!group.Has(target)) {
    throw Failure(ExitCode::kNotFound, "group " + Quote(group.id) + " has no target " +
                                           Quote(target) +
                                           ": name one that \"drgroupctl group show\" shows");
  }
  if (group.targets.size() == 1) {
    throw Failure(ExitCode::kRefused, "target " + Quote(target) + " is the last one of group " +
                                          Quote(group.id) +
                                          ": a group has at least one; \"drgroupctl group "
                                          "delete\" deletes the group");
  }
}

void RequireDecision(const VrelDR::DRPlan& plan, const std::string& target, const Arguments& args) {
  if (args.Has("--keep-plan") && args.Has("--delete-plan")) {
    throw Failure(ExitCode::kUsage,
                  "--keep-plan and --delete-plan say different things: give one of them");
  }
  if (args.Has("--keep-plan") || args.Has("--delete-plan")) return;
  throw Failure(ExitCode::kRefused,
                "target " + Quote(target) + " has plan " + Quote(plan.GetPlanId()) +
                    ": add --keep-plan, with which it stays protected by itself, or --delete-plan, "
                    "which ends that and leaves both copies as ordinary targets");
}

// The plan's removal, both copies of which stay.
Prepared PrepareDeletion(const VrelDR::DRPlan& plan) {
  const auto make = [id = plan.GetPlanId()](const std::string&) {
    return std::make_unique<VrelDR::Operation::PlanDelete>(id, false, false, false);
  };
  return PrepareOnPlan(std::make_unique<DirectAction>("delete", make), plan);
}

// Takes the other copy out of the groups that are of the other copies.
void RemoveCopy(const Group& group, const Plans& plans, const std::string& target) {
  for (const std::string& id : GroupsOfCopies(plans, {target})) {
    const auto lock = LockOther(id, group.id);
    Group other = LoadGroup(id);
    const std::string& copy = OtherCopy(plans.at(target), target);
    if (other.Has(copy) && other.targets.size() > 1) RemoveMember(other, copy);
  }
}

Report RunGroupRemove(const Arguments& args, Warnings& warnings) {
  const std::string groupId = args.Text("GROUP");
  const std::string target = args.Text("TARGET");
  const ActionLock lock(groupId);
  Group group = LoadGroup(groupId);
  const std::string change = "remove " + target;
  // What was not added to its end can be taken out again.
  if (group.changing != "add " + target) RequireNoOtherChange(group, change);
  RequireMember(group, target);
  const Plans plans = OnePlans(group);
  const auto plan = plans.find(target);
  std::string planId;
  if (plan != plans.end()) {
    planId = plan->second.GetPlanId();
    RequireDecision(plan->second, target, args);
  }
  const bool isDeleted = plan != plans.end() && args.Has("--delete-plan");
  std::optional<Prepared> deletion;
  if (isDeleted) {
    deletion = PrepareDeletion(plan->second);
    (void)CheckFirst(*deletion, args, InUse(UsesOfDeletion(plan->second, false), args), warnings);
    Confirm(args, "end the replication of target " + Quote(target),
            LossDetails({plan->second}, false));
  }
  // The group itself last: until then the same command finds what is left to do.
  if (plan != plans.end()) {
    group.changing = change;
    WriteDefinition(group);
    KillPoint(kRemoveBegun);
    RemoveCopy(group, plans, target);
  }
  KillPoint(kRemoveCopyOut);
  if (deletion) Run(*deletion, args);
  KillPoint(kRemovePlanGone);
  group.changing.clear();
  RemoveMember(group, target);

  Report report;
  report.AddText("Target " + Quote(target) + " is not in group " + Quote(groupId) +
                 " any more; its bytes and snapshots stay.");
  report.AddField({"group_id", "Group"}, groupId);
  report.AddField({"target_id", "Target"}, target);
  report.AddField({"target_count", "Targets"}, Json::UInt64(group.targets.size()));
  report.AddField({"plan_id", "Plan", Shown::kIfAny}, planId);
  report.AddField({"is_plan_deleted", "Plan deleted"}, isDeleted);
  return report;
}

}  // namespace

Verb GroupRemove() {
  return {
      "group remove",
      "take a target out of a group",
      {"The target stays as it is, with its snapshots. Group snapshots from before keep their part "
       "of it; restoring one leaves it as it is, with a warning.",
       "A target with a plan needs --keep-plan, with which it stays protected by itself, or "
       "--delete-plan, which leaves both copies as ordinary targets. Where the other copies are a "
       "group of their own, the other copy of the target leaves that one too. After an "
       "interruption the same command finishes the work. The last target cannot be taken out."},
      "The group's definition and that of the group of the other copies; with --delete-plan the "
      "plan goes.",
      {GroupArgument("the group"), Argument("TARGET", Value::kTarget, "the target")},
      {Flag("--keep-plan", "the target stays protected by itself"),
       Flag("--delete-plan", "end its replication; both copies stay"), GoOnInUse(), Yes()},
      RunGroupRemove,
      "group remove"};
}

}  // namespace drgroupctl
