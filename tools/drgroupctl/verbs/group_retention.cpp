#include <optional>

#include "action/group_action.h"
#include "groups/group_store.h"
#include "groups/retention.h"
#include "output/failure.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

Report RunGroupRetention(const Arguments& args, Warnings& /*warnings*/) {
  const std::string groupId = args.Text("GROUP");
  const bool isChange = args.Has("--keep") || args.Has("--none");
  if (args.Has("--keep") && args.Has("--none")) {
    throw Failure(ExitCode::kUsage, "--keep and --none say different things: give one of them");
  }
  std::optional<ActionLock> lock;
  if (isChange) lock.emplace(groupId);
  Group group = LoadGroup(groupId);
  if (args.Has("--keep")) group.keep = ParseKeep(args.Text("--keep"));
  if (args.Has("--none")) group.keep = {};
  if (isChange) WriteDefinition(group);
  Report report;
  report.AddField({"group_id", "Group"}, groupId);
  report.AddField({"keep", "Keeps", Shown::kIfAny}, ToText(group.keep));
  if (group.keep.IsEmpty()) report.AddText("Every group snapshot stays until it is deleted.");
  return report;
}

}  // namespace

Verb GroupRetention() {
  return {
      "group retention",
      "show or set which of its group snapshots stay",
      {"The rule by which \"snapshot prune\" deletes group snapshots of this group, as in "
       "\"last=24,hourly=48,daily=30,weekly=8,monthly=12\": the last ones stay, and the newest of "
       "each of the last hours, days, weeks and months that have one, in UTC. It is this "
       "group's alone: the group of the other copies has its own."},
      "Which group snapshots a pruning deletes.",
      {GroupArgument("the group")},
      {{"--keep", Value::kText, "RULE", "the rule from now on"},
       Flag("--none", "no rule: all stay")},
      RunGroupRetention};
}

}  // namespace drgroupctl
