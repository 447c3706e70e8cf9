#include <unistd.h>

#include <optional>

#include "command/words.h"
#include "groups/group_store.h"
#include "output/console.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

std::vector<std::string> ParseHook(const std::string& text, Warnings& warnings) {
  std::vector<std::string> words = SplitWords(text, "--command");
  if (!words.front().starts_with('/')) {
    throw Failure(ExitCode::kUsage, "--command " + Quote(text) +
                                        ": give the program with its absolute path, as timers have "
                                        "another PATH");
  }
  if (access(words.front().c_str(), X_OK) != 0) {
    warnings.Print("kept, but as it is now it could not be run: " + Quote(words.front()) +
                   " is no program");
  }
  return words;
}

Report RunGroupHook(const Arguments& args, Warnings& warnings) {
  const std::string groupId = args.Text("GROUP");
  const bool isChange = args.Has("--command") || args.Has("--none");
  if (args.Has("--command") && args.Has("--none")) {
    throw Failure(ExitCode::kUsage, "--command and --none say different things: give one of them");
  }
  std::optional<GroupLock> lock;
  if (isChange) lock.emplace(groupId);
  Group group = LoadGroup(groupId);
  if (args.Has("--command")) group.hook = ParseHook(args.Text("--command"), warnings);
  if (args.Has("--none")) group.hook.clear();
  if (isChange) WriteDefinition(group);
  Report report;
  report.AddField({"group_id", "Group"}, groupId);
  report.AddField({"hook", "Told of failures", Shown::kIfAny}, JoinWords(group.hook));
  if (group.hook.empty()) report.AddText("No program is told of failures.");
  return report;
}

}  // namespace

Verb GroupHook() {
  return {
      "group hook",
      "show or set which program is told of failures",
      {"The program is run when a run of the group has failed that its history has a place for, "
       "and once more when the first of the same kind is done after that. Behind its own "
       "arguments it gets the group, the kind of the run and \"failed\" or \"recovered\", and in "
       "its environment DRGROUP_GROUP, DRGROUP_KIND, DRGROUP_RESULT, DRGROUP_EXIT_CODE and "
       "DRGROUP_MESSAGE. No shell runs it; quotes keep words together.",
       "It is run when the group is free again, has one minute, and what it prints goes to "
       "standard error. When it fails there is a warning, and the exit code stays what it was. "
       "What was refused because another process was at work, was stopped or was not agreed to "
       "is no failure."},
      "Which program is told of failures.",
      {GroupArgument("the group")},
      {{"--command", Value::kText, "COMMAND", "the program with its arguments"},
       Flag("--none", "no program is told")},
      RunGroupHook};
}

}  // namespace drgroupctl
