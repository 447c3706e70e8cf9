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

// A plan of a target that is added goes from main to DR, as all of the group's have to then.
void RequirePlain(const Group& group, const Plans& plans) {
  for (const auto& [target, plan] : plans) {
    if (plan.GetProtectedTargetId() == target && plan.GetWorkingTargetId() == target &&
        plan.GetSourceTargetId() == target) {
      continue;
    }
    const bool isMain = plan.GetProtectedTargetId() == target;
    throw Failure(ExitCode::kRefused,
                  "group " + Quote(group.id) + ": nothing was added, as target " + Quote(target) +
                      (isMain ? " has its data from the DR copy now, or does not work: bring the "
                                "group back to its main side first"
                              : " is a DR copy: add to the group of the protected targets"));
  }
}

void CheckVolume(const Group& group, const Plans& plans, const Arguments& args) {
  if (args.Has("--volume") && plans.empty()) {
    throw Failure(ExitCode::kRefused, "group " + Quote(group.id) +
                                          " is not protected: leave --volume out, and protect it "
                                          "with \"drgroupctl protect\" when it is to be");
  }
  if (plans.empty()) return;
  RequirePlain(group, plans);
  if (!args.Has("--volume")) {
    throw Failure(ExitCode::kUsage, "group " + Quote(group.id) +
                                        " is protected: name the volume for the DR copies of what "
                                        "is added, with --volume");
  }
  RequireVolume(args.Text("--volume"));
}

Prepared PrepareProtection(const Group& group, const Arguments& args) {
  Json::Value params(Json::objectValue);
  params[Param::kVolume] = args.Text("--volume");
  params[Param::kNode] = VrelDRNode::DRNode::getLocalNodeId();
  return PrepareOnGroup("create_partial", group, params);
}

// Gives what was added a plan; when that fails the group is as it was before.
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
  // Those that an interrupted run has added already have no say in how the group stands.
  Group others = before;
  std::erase_if(others.targets, [&](const VrelDR::Target& each) {
    return std::ranges::find(ids, each.GetId()) != ids.end();
  });
  CheckVolume(before, OnePlans(others), args);
  const bool isProtected = args.Has("--volume");

  const std::int64_t since = NextGsnapTime(groupId);
  Group group = before;
  for (const VrelDR::Target& each : added) {
    if (!group.Has(each.GetId())) group.targets.push_back(each);
  }
  std::optional<Prepared> protection;
  if (isProtected) {
    protection = PrepareProtection(group, args);
    (void)CheckFirst(*protection, args);
  }
  WarnOfMounts(warnings, added);
  group = before;
  AddMembers(group, added, since);
  KillPoint(kAddDefined);
  if (protection) {
    ProtectAdded(before, *protection, args);
    KillPoint(kAddProtected);
    AddCopies(group, GroupsOfCopies(OnePlans(group), ids), added, since);
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
