#include <algorithm>
#include <charconv>
#include <optional>

#include "action/group_action.h"
#include "command/words.h"
#include "groups/group_store.h"
#include "groups/writers.h"
#include "output/console.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

constexpr char kSee[] = "; see \"drgroupctl help group quiesce\"";

Failure UsageFailure(const std::string& text) {
  return {ExitCode::kUsage, text + kSee};
}

constexpr const char* kSettings[] = {"--control-group",  "--unit",         "--domain",
                                     "--freeze-command", "--thaw-command", "--deadline"};

bool IsAnyGiven(const Arguments& args) {
  return std::any_of(std::begin(kSettings), std::end(kSettings),
                     [&](const char* each) { return args.Has(each); });
}

std::uint32_t ParseDeadline(const std::string& text) {
  std::uint32_t deadline = 0;
  const char* end = text.data() + text.size();
  const auto [at, error] = std::from_chars(text.data(), end, deadline);
  if (error == std::errc() && at == end) return deadline;
  throw UsageFailure("--deadline " + Quote(text) + " is not a number of milliseconds");
}

std::vector<VrelDR::QuiesceCommand> ParseCommands(const Arguments& args) {
  const std::vector<std::string> freezes = args.List("--freeze-command");
  const std::vector<std::string> thaws = args.List("--thaw-command");
  if (freezes.size() != thaws.size()) {
    throw UsageFailure("each --freeze-command needs its --thaw-command: there are " +
                       std::to_string(freezes.size()) + " and " + std::to_string(thaws.size()));
  }
  std::vector<VrelDR::QuiesceCommand> commands;
  for (std::size_t at = 0; at < freezes.size(); ++at) {
    commands.push_back({SplitWords(freezes[at], "--freeze-command"),
                        SplitWords(thaws[at], "--thaw-command"), args.Has("--application")});
  }
  return commands;
}

// What the options make of `means`. Throws when they do not fit together.
VrelDR::QuiesceMeans Change(const Arguments& args, VrelDR::QuiesceMeans means) {
  if (args.Has("--none") && IsAnyGiven(args)) {
    throw UsageFailure("--none takes away everything: give it alone");
  }
  if (args.Has("--application") && !args.Has("--freeze-command")) {
    throw UsageFailure("--application tells of commands: give --freeze-command as well");
  }
  if (args.Has("--none")) means = {};
  if (args.Has("--control-group")) means.control_groups = args.List("--control-group");
  if (args.Has("--unit")) means.units = args.List("--unit");
  if (args.Has("--domain")) means.domains = args.List("--domain");
  if (args.Has("--freeze-command") || args.Has("--thaw-command")) {
    means.commands = ParseCommands(args);
  }
  if (args.Has("--deadline")) means.deadline_ms = ParseDeadline(args.Text("--deadline"));
  const std::string problem = means.FindProblem();
  if (!problem.empty()) throw UsageFailure(problem);
  return means;
}

void AddTrial(Report& report, const VrelDR::QuiesceTrial& trial, Warnings& warnings) {
  Json::Value troubles(Json::arrayValue);
  for (const std::string& each : trial.troubles) {
    warnings.Print(Printable(each));
    troubles.append(each);
  }
  report.AddField({"freeze_ms", "Standing still after (ms)"}, Json::UInt64{trial.freeze_ms});
  report.AddField({"held_ms", "Going on after (ms)"}, Json::UInt64{trial.held_ms});
  report.AddField({"troubles", "Troubles"}, troubles);
}

// What cannot be held now may come to be: it is kept.
void WarnOfWriters(const std::string& groupId, const VrelDR::QuiesceMeans& means,
                   Warnings& warnings) {
  try {
    if (!means.IsEmpty()) CheckWriters(groupId, means);
  } catch (const Failure& failure) {
    warnings.Print("kept, but as it is now no snapshot could be taken: " + failure.message);
  }
}

Report RunGroupQuiesce(const Arguments& args, Warnings& warnings) {
  const std::string groupId = args.Text("GROUP");
  const bool isChange = args.Has("--none") || IsAnyGiven(args) || args.Has("--application");
  std::optional<ActionLock> lock;
  if (isChange) lock.emplace(groupId);
  Group group = LoadGroup(groupId);
  group.quiesce = Change(args, group.quiesce);
  Report report;
  if (args.Has("--check")) {
    CheckWriters(groupId, group.quiesce);
    report.AddText("All writers can be held, as far as that can be told beforehand.");
  } else if (isChange && !args.Has("--try")) {
    WarnOfWriters(groupId, group.quiesce, warnings);
  }
  std::optional<VrelDR::QuiesceTrial> trial;
  if (args.Has("--try")) trial = TryWriters(groupId, group.quiesce);
  if (isChange) WriteDefinition(group);

  report.AddField({"group_id", "Group"}, groupId);
  report.AddField({"deadline_ms", "Deadline (ms)"}, group.quiesce.deadline_ms);
  if (trial) AddTrial(report, *trial, warnings);
  if (group.quiesce.IsEmpty()) report.AddText("No writers are held.");
  AddWriters(report, group.quiesce);
  return report;
}

Parameter Each(const char* name, Value value, const char* placeholder, const char* summary) {
  return {name, value, placeholder, summary, false, true};
}

}  // namespace

Verb GroupQuiesce() {
  return {
      "group quiesce",
      "show or set how its writers are held",
      {"Where the file system cannot take the snapshots of several targets at one instant, whoever "
       "writes them has to stand still meanwhile: for milliseconds on btrfs and XFS, and for as "
       "long as copying takes elsewhere. Without options the verb shows who is held. Each option "
       "replaces what was set of its kind, and leaves the others.",
       "A control group is frozen as a whole, a unit of the service manager by its control group. "
       "In a domain of libvirt the agent freezes the file systems; without an agent the domain is "
       "suspended. A command is run without a shell: blanks part its words, quotes and backslashes "
       "keep them together. Each freeze command has a thaw command, the first one the first, which "
       "runs once whenever the freeze command was started, also when that failed half way. "
       "Commands run first and side by side, then domains, then control groups are frozen; thawing "
       "goes the other way round.",
       "A process of its own thaws everything when the deadline passes or the process that took "
       "the snapshots ends, however it ends. What the deadline interrupts is not taken.",
       "With --check or --try new settings are kept only when that goes well; without either a "
       "warning tells what could not be held now."},
      "How the group's writers are held. With --try they stand still for a moment.",
      {GroupArgument("the group")},
      {Each("--control-group", Value::kDirectory, "DIR",
            "directories of control groups, of either version"),
       Each("--unit", Value::kText, "UNIT", "units of the service manager"),
       Each("--domain", Value::kText, "NAME", "domains of libvirt"),
       Each("--freeze-command", Value::kText, "COMMAND", "makes an application stand still"),
       Each("--thaw-command", Value::kText, "COMMAND", "lets it go on"),
       Flag("--application", "the freeze commands make the application write its state"),
       {"--deadline", Value::kText, "MS", "how long they stand still at most; 5000 unless set"},
       Flag("--none", "hold nobody"),
       Flag("--check", "look whether all could be held"),
       Flag("--try", "hold them once, let them go on at once, and tell how long that took")},
      RunGroupQuiesce};
}

}  // namespace drgroupctl
