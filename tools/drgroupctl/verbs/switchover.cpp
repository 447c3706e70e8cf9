#include "action/group_action.h"
#include "action/plan_uses.h"
#include "host/copy_warning.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

Report RunSwitchover(const Arguments& args, Warnings& warnings) {
  const std::string groupId = args.Text("GROUP");
  const ActionLock lock(groupId, args);
  const Group group = LoadGroup(groupId);
  const Prepared prepared = PrepareOnGroup("switchover", group);
  const InUse inUse(UsesOf(FindTask("switchover"), {}, prepared), args);
  if (const auto report = CheckFirst(prepared, args, inUse, warnings)) return *report;
  WarnOfMounts(warnings, SourcesOf(group));
  return CourseReport(prepared, Run(prepared, args), "Switched over group " + Quote(groupId) + ".");
}

constexpr char kOrder[] =
    "The source of each target is made unwritable, a last sync goes over, and its replica works "
    "with exactly those bytes; replication then runs the other way.";
constexpr char kAskedTwice[] =
    "Whether somebody can still write a source is asked once more when that has been made "
    "unwritable: then too the switchover is refused, and everything is as it was.";

}  // namespace

Verb Switchover() {
  return {"switchover",
          "let a group's copies change their parts, without loss",
          {kOrder, kInUse, kAskedTwice, kAllOrNothing, kRunAgain,
           "Look at \"status\" first: when all targets were done, it brings them back."},
          "Which copies work, and the direction of replication.",
          {GroupArgument("the group")},
          {GoOnInUse(), DryRun()},
          RunSwitchover,
          "switchover"};
}

}  // namespace drgroupctl
