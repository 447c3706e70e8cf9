#include <vreldrnode/dr_node.h>

#include <algorithm>

#include "action/group_action.h"
#include "action/gsnap_sides.h"
#include "action/membership.h"
#include "action/plans.h"
#include "groups/catalogue.h"
#include "groups/kill_point.h"
#include "host/copy_warning.h"
#include "host/host.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

using Plans = std::map<std::string, VrelDR::DRPlan>;

bool IsPlain(const std::string& target, const VrelDR::DRPlan& plan) {
  return plan.GetProtectedTargetId() == target && plan.GetWorkingTargetId() == target &&
         plan.GetSourceTargetId() == target;
}

bool IsDrCopy(const std::string& target, const VrelDR::DRPlan& plan) {
  return plan.GetDRTargetId() == target;
}

// The plans of all targets go from main to DR, as those do that are made for what is added.
void RequirePlain(const Group& group, const Plans& plans) {
  for (const auto& [target, plan] : plans) {
    if (IsPlain(target, plan)) continue;
    throw Failure(ExitCode::kRefused,
                  "group " + Quote(group.id) + ": nothing was added, as target " + Quote(target) +
                      (IsDrCopy(target, plan)
                           ? " is a DR copy: add to the group of the protected targets"
                           : " has its data from the DR copy now, or does not work: bring the "
                             "group back to its main side first"));
  }
}

// Whether plans are made for what is added. `group` has it; `others` are the plans of the rest.
bool IsProtected(const Group& group, const Plans& others, const Arguments& args) {
  const Plans plans = OnePlans(group);
  const auto isCopy = [](const auto& each) { return IsDrCopy(each.first, each.second); };
  // Copies come to the group of copies as they are.
  if (!others.empty() && plans.size() == group.targets.size() &&
      std::ranges::all_of(plans, isCopy)) {
    return false;
  }
  RequirePlain(group, plans);
  if (args.Has("--volume") && others.empty()) {
    throw Failure(ExitCode::kRefused, "group " + Quote(group.id) +
                                          " is not protected: leave --volume out, and protect it "
                                          "with \"drgroupctl protect\" when it is to be");
  }
  if (others.empty()) return false;
  if (!args.Has("--volume")) {
    throw Failure(ExitCode::kUsage, "group " + Quote(group.id) +
                                        " is protected: name the volume for the DR copies of what "
                                        "is added, with --volume");
  }
  RequireVolume(args.Text("--volume"));
  return true;
}

Prepared PrepareProtection(const Group& group, const Arguments& args) {
  Json::Value params(Json::objectValue);
  params[Param::kVolume] = args.Text("--volume");
  params[Param::kNode] = VrelDRNode::DRNode::getLocalNodeId();
  return PrepareOnGroup("create_partial", group, params);
}

// Gives what was added a plan; when that fails the group is without it.
void ProtectAdded(const Group& before, const Prepared& prepared, const Arguments& args) {
  try {
    Run(prepared, args);
  } catch (const Failure&) {
    WriteDefinition(before);
    throw;
  }
}

// Puts the copies of what was added into the groups of the others' copies.
void AddCopies(const Group& group, const std::vector<std::string>& others,
               const std::vector<VrelDR::Target>& added, std::int64_t since) {
  std::vector<VrelDR::Target> copies;
  copies.reserve(added.size());
  for (const VrelDR::Target& each : added) {
    copies.emplace_back(RequireOnePlan(each.GetId()).GetDRTargetId(), each.GetType());
  }
  for (const std::string& id : others) {
    const auto lock = LockOther(id, group.id);
    Group other = LoadGroup(id);
    AddMembers(other, copies, std::max(since, NextGsnapTime(id)));
  }
}

Json::Value Rows(const std::vector<VrelDR::Target>& added, bool isProtected) {
  Json::Value rows(Json::arrayValue);
  for (const VrelDR::Target& each : added) {
    Json::Value row(Json::objectValue);
    row["target_id"] = each.GetId();
    row["type"] = TypeName(each.GetType());
    row["dr_target_id"] = isProtected ? RequireOnePlan(each.GetId()).GetDRTargetId() : "";
    rows.append(std::move(row));
  }
  return rows;
}

Report RunGroupAdd(const Arguments& args, Warnings& warnings) {
  const std::string groupId = args.Text("GROUP");
  const ActionLock lock(groupId);
  const Group before = LoadGroup(groupId);
  RequireCatalogue(groupId, Access::kRead);
  const std::vector<std::string> ids = args.List("TARGET");
  const std::vector<VrelDR::Target> added = RequireTargets(ids);
  const std::string change = "add " + Join(ids, " ");
  RequireNoOtherChange(before, change);
  // Those that an interrupted run has added already have no say in how the group stands.
  Group others = before;
  others.changing.clear();
  std::erase_if(others.targets, [&](const VrelDR::Target& each) {
    return std::ranges::find(ids, each.GetId()) != ids.end();
  });
  const std::int64_t since = NextGsnapTime(groupId);
  Group group = before;
  for (const VrelDR::Target& each : added) {
    if (!group.Has(each.GetId())) group.targets.push_back(each);
  }
  RequireOneCopy(groupId, group.targets);
  const bool isProtected = IsProtected(group, OnePlans(others), args);
  std::optional<Prepared> protection;
  if (isProtected) {
    protection = PrepareProtection(group, args);
    (void)CheckFirst(*protection, args);
  }
  WarnOfMounts(warnings, added);
  group = before;
  if (isProtected) group.changing = change;
  AddMembers(group, added, since);
  KillPoint(kAddDefined);
  if (protection) {
    ProtectAdded(before.changing.empty() ? before : others, *protection, args);
    KillPoint(kAddProtected);
    AddCopies(group, GroupsOfCopies(OnePlans(group), ids), added, since);
    KillPoint(kAddCopied);
    group.changing.clear();
    WriteDefinition(group);
  }
  Report report;
  report.AddText("Group " + Quote(groupId) + " has " + Count(group.targets.size(), "target") +
                 " now." + (isProtected ? " New DR copies are empty until the next sync." : ""));
  report.AddField({"group_id", "Group"}, groupId);
  report.AddField({"target_count", "Targets"}, Json::UInt64(group.targets.size()));
  report.AddTable(
      {"targets", "Added"},
      {{"target_id", "TARGET"}, {"type", "TYPE"}, {"dr_target_id", "DR COPY", Shown::kIfAny}},
      Rows(added, isProtected));
  return report;
}

}  // namespace

Verb GroupAdd() {
  return {
      "group add",
      "add targets to a group",
      {"The targets come after those that the group has. Group snapshots from before have no part "
       "of them and are not incomplete for that: restoring one leaves the new targets as they "
       "are, with a warning, and failing over to one is refused without --force.",
       "A group that is protected, which needs to work on its main side, gets plans and DR copies "
       "for what is added, on the volume that is named; where the DR copies are a group of their "
       "own, it gets the new ones too. After an interruption the same command finishes the work. "
       "When a plan cannot be made, the group stays as it was."},
      "The group's definition; with --volume adds plans and DR copies, and the copies to their "
      "group.",
      {GroupArgument("the group"),
       {"TARGET", Value::kTarget, "TARGET", "a target that it is to have", true, true}},
      {{"--volume", Value::kVolume, "V", "the volume for DR copies, of a protected group"}},
      RunGroupAdd,
      "group add"};
}

}  // namespace drgroupctl
