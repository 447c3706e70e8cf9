#include <vreldrnode/dr_node.h>

#include <set>

#include "action/group_action.h"
#include "action/plans.h"
#include "groups/group_creation.h"
#include "host/copy_warning.h"
#include "host/host.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

// The targets of a group by whether they have a plan.
struct Halves {
  std::vector<std::string> protectedOnes;
  std::vector<std::string> others;
};

Halves Split(const Group& group) {
  Halves halves;
  for (const std::string& target : TargetIds(group)) {
    (PlansOf(target).empty() ? halves.others : halves.protectedOnes).push_back(target);
  }
  return halves;
}

std::string Names(const std::vector<std::string>& targets) {
  std::vector<std::string> names;
  names.reserve(targets.size());
  for (const std::string& each : targets) names.push_back(Quote(each));
  return Join(names, ", ");
}

// A plan that is there already may have been made for something else.
void CheckHalves(const Group& group, const Halves& halves, const Arguments& args) {
  if (halves.protectedOnes.empty() || args.Has("--missing")) return;
  // An interruption may have left the group of the DR copies to be made.
  if (halves.others.empty() && args.Has("--dr-group")) return;
  throw Failure(
      ExitCode::kRefused,
      "group " + Quote(group.id) +
          (halves.others.empty() ? " is protected already: see \"drgroupctl status\""
                                 : ": target " + Names(halves.protectedOnes) +
                                       " has a plan already, target " + Names(halves.others) +
                                       " has none: add --missing to protect only those without"));
}

Json::Value CreationParams(const Arguments& args) {
  Json::Value params(Json::objectValue);
  params[Param::kVolume] = args.Text("--volume");
  params[Param::kNode] =
      args.Has("--node") ? args.Text("--node") : VrelDRNode::DRNode::getLocalNodeId();
  params[Param::kDestinationAddress] = args.Text("--dst-ip");
  params[Param::kSourceAddress] = args.Text("--src-ip");
  params[Param::kSourceCredential] = args.Text("--src-cred");
  params[Param::kDestinationCredential] = args.Text("--dst-cred");
  return params;
}

// The DR copies of a group, in its order.
Group CopiesOf(const Group& group, const std::string& id) {
  Group copies{id, DefaultDirectory(id), {}};
  for (const VrelDR::Target& each : group.targets) {
    copies.targets.emplace_back(RequireOnePlan(each.GetId()).GetDRTargetId(), each.GetType());
  }
  return copies;
}

// Makes the group of the DR copies; when that fails, the plans that were just made go again.
void MakeCopyGroup(const Group& group, const std::string& id, const Prepared& prepared,
                   const Course& course) {
  try {
    CreateGroup(CopiesOf(group, id));
  } catch (Failure& failure) {
    std::set<std::string> made;
    for (const Outcome& each : course.outcomes) {
      if (each.result == Result::kDone) made.insert(each.target);
    }
    if (made.empty()) throw;  // the plans were there before
    const bool isUndone = prepared.action->Revert(made) == 0;
    failure.message =
        "group " + Quote(group.id) +
        " was not protected, as the group of its DR copies cannot be made: " + failure.message +
        (isUndone ? "" : "; some of the new plans could not be removed again");
    throw;
  }
}

Json::Value Rows(const Course& course) {
  Json::Value rows(Json::arrayValue);
  for (const Outcome& each : course.outcomes) {
    Json::Value row = PlanRow(RequireOnePlan(each.target));
    row["result"] = each.result == Result::kDone ? "done" : "nothing to do";
    rows.append(row);
  }
  return rows;
}

Report RunProtect(const Arguments& args, Warnings& warnings) {
  const std::string groupId = args.Text("GROUP");
  const ActionLock lock(groupId, args);
  const Group group = LoadGroup(groupId);
  if (args.Has("--dr-group")) RequireNewGroup(args.Text("--dr-group"));
  if (!args.Has("--node")) RequireVolume(args.Text("--volume"));
  const Halves halves = Split(group);
  CheckHalves(group, halves, args);

  const std::string task = halves.protectedOnes.empty() ? "create" : "create_partial";
  const Prepared prepared = PrepareOnGroup(task, group, CreationParams(args));
  if (const auto report = CheckFirst(prepared, args)) return *report;
  WarnOfMounts(warnings, group.targets);
  const Course course = Run(prepared, args);
  if (args.Has("--dr-group")) {
    MakeCopyGroup(group, args.Text("--dr-group"), prepared, course);
  }

  Report report;
  report.AddText("Group " + Quote(groupId) + " is protected." +
                 (CountDone(course) == 0 ? "" : " New DR copies are empty until the first sync."));
  report.AddField({"group_id", "Group"}, groupId);
  report.AddField({"task", "Task"}, prepared.name);
  report.AddField({"dr_group_id", "Group of the DR copies"}, args.Text("--dr-group"));
  report.AddTable({"targets", "Targets"},
                  {{"target_id", "TARGET"},
                   {"result", "RESULT"},
                   {"dr_target_id", "DR COPY"},
                   {"dr_volume", "VOLUME"},
                   {"plan_id", "PLAN"}},
                  Rows(course));
  return report;
}

}  // namespace

Verb Protect() {
  return {"protect",
          "give every target of a group a plan and a DR copy",
          {"Afterwards every target has a plan and an empty copy on the volume, of the same kind "
           "and called like the target with \"-dr\" behind it; the first sync fills it. With "
           "--dr-group the copies become a group of their own.",
           "Refused when any target has a plan already, unless --missing says to protect only "
           "those without, as after an interruption. A failure removes what was made."},
          "Adds plans and DR copies to this host, and a group with --dr-group.",
          {GroupArgument("the group")},
          {{"--volume", Value::kVolume, "V", "the volume that takes the DR copies", true},
           {"--dr-group", Value::kNewGroup, "ID", "make a group of the DR copies"},
           Flag("--missing", "protect only the targets that have no plan"),
           {"--node", Value::kText, "NODE", "the node of the DR copies; this one when left out"},
           {"--dst-ip", Value::kText, "ADDRESS", "the address of that node"},
           {"--src-ip", Value::kText, "ADDRESS", "the address of this node as that one reaches it"},
           {"--src-cred", Value::kText, "CREDENTIAL", "what opens that node to this one"},
           {"--dst-cred", Value::kText, "CREDENTIAL", "what opens this node to that one"},
           DryRun()},
          RunProtect,
          "protect"};
}

}  // namespace drgroupctl
