#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "action/group_action.h"
#include "action/health.h"
#include "action/plan_status.h"
#include "action/removal.h"
#include "host/host.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

// One row for each plan of each target of a group; for a group that cannot be read, one with the
// reason.
void AddGroup(const std::string& groupId, const std::vector<std::string>& targets,
              const PlanSight& sight, const std::vector<VrelDR::TargetRemains>& remains,
              Json::Value& rows) {
  const auto add = [&](const std::string& target, Json::Value row) {
    std::vector<std::string> problems;
    if (row["problem"] != Json::Value("")) problems.push_back(row["problem"].asString());
    for (const auto& each : RemainsOf(target, remains)) problems.push_back(RemainsText(each));
    row["problem"] = Join(problems, "; ");
    row["group_id"] = groupId;
    row["target_id"] = target;
    rows.append(std::move(row));
  };
  for (const std::string& target : targets) {
    const auto plans = sight.by_target.find(target);
    if (plans == sight.by_target.end()) {
      add(target, UnprotectedRow());
      continue;
    }
    for (const VrelDR::PlanStanding* each : plans->second) add(target, StatusRow(*each));
  }
}

std::optional<std::int64_t> DurationOf(const Arguments& args, const char* option) {
  if (!args.Has(option)) return {};
  std::int64_t seconds = 0;
  if (ParseDuration(args.Text(option), seconds)) return seconds;
  throw Failure(ExitCode::kUsage, std::string(option) + " " + Quote(args.Text(option)) +
                                      " is no duration: give it as in 90s, 15m, 2h, 1d or 1w");
}

HealthLimits LimitsOf(const Arguments& args) {
  HealthLimits limits;
  limits.max_age = DurationOf(args, "--max-age");
  limits.max_lag = DurationOf(args, "--max-lag");
  if (!args.Has("--min-free")) return limits;
  const std::string text = args.Text("--min-free");
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, limits.min_free_percent);
  const bool isPercent = error == std::errc() && std::string(rest, end) == "%";
  if (isPercent && limits.min_free_percent <= 100) return limits;
  limits.min_free_percent = 0;
  if (!isPercent && ParseBytes(text, limits.min_free_bytes)) return limits;
  throw Failure(ExitCode::kUsage,
                "--min-free " + Quote(text) + " is no room: give it as in 20G, 512M or 10%");
}

Json::Value FindingRows(const std::vector<Finding>& findings) {
  Json::Value rows(Json::arrayValue);
  for (const Finding& each : findings) {
    Json::Value row(Json::objectValue);
    row["grade"] = ToText(each.grade);
    row["text"] = each.text;
    rows.append(row);
  }
  return rows;
}

Report CheckReport(const Arguments& args, const std::string& line, const Judgement& judgement) {
  Report report;
  report.SetExitCode(static_cast<int>(judgement.grade));
  if (args.Has("--json")) {
    report.AddField({"grade", "Grade"}, ToText(judgement.grade));
    report.AddField({"line", "Line"}, line);
    report.AddTable({"findings", "Findings"}, {}, FindingRows(judgement.findings));
  } else {
    report.AddText(line);
  }
  return report;
}

// Whatever happens, it is told in the form that monitors read.
Report RunCheck(const Arguments& args) {
  try {
    const HealthLimits limits = LimitsOf(args);
    const Health health = LookAtHealth(args.Text("GROUP"));
    const Judgement judgement = Judge(health, limits);
    return CheckReport(args, PluginLine(health, judgement), judgement);
  } catch (const Failure& failure) {
    Judgement unknown;
    unknown.grade = Grade::kUnknown;
    unknown.findings.push_back({Grade::kUnknown, failure.message});
    return CheckReport(args, PluginLine({}, unknown), unknown);
  }
}

Report RunStatus(const Arguments& args, Warnings& /*warnings*/) {
  if (args.Has("--check")) return RunCheck(args);
  for (const char* each : {"--max-age", "--max-lag", "--min-free"}) {
    if (args.Has(each)) {
      throw Failure(ExitCode::kUsage, std::string(each) + " is a limit of a check: give --check");
    }
  }
  std::vector<Group> groups;
  Json::Value rows(Json::arrayValue);
  if (args.Has("GROUP")) {
    groups.push_back(LoadGroup(args.Text("GROUP")));
  } else {
    for (const std::string& id : ListGroupIds()) {
      try {
        groups.push_back(LoadGroup(id));
      } catch (const Failure& failure) {  // one bad group does not hide the others
        Json::Value row = UnprotectedRow();
        row["group_id"] = id;
        row["target_id"] = "";
        row["state"] = "unknown";
        row["problem"] = failure.message;
        rows.append(row);
      }
    }
  }
  std::vector<std::string> targets;
  for (const Group& each : groups) {
    for (const std::string& id : TargetIds(each)) targets.push_back(id);
  }
  const PlanSight sight = LookAtPlans(targets);
  const std::vector<VrelDR::TargetRemains> remains = ListRemains();
  for (const Group& each : groups) AddGroup(each.id, TargetIds(each), sight, remains, rows);

  std::vector<Column> columns = StatusColumns();
  columns.insert(columns.begin(), {"target_id", "TARGET"});
  if (!args.Has("GROUP")) columns.insert(columns.begin(), {"group_id", "GROUP"});
  Report report;
  report.AddTable({"targets", "Targets"}, std::move(columns), std::move(rows));
  return report;
}

}  // namespace

Verb Status() {
  return {
      "status",
      "show how the plans of groups stand",
      {"Shows for each target whether it is protected, which copy works and which does not, "
       "when the last snapshot that arrived was taken, what runs, how many snapshots wait to "
       "be sent and what is wrong. A last snapshot that is gone is told, and the newest that "
       "is there shown; an age that is less than 0 is a time ahead of this host's clock. May "
       "be run while an action runs.",
       "With --check it is a monitor's plugin: one line, with numbers to draw behind a bar, and "
       "an exit code that is 0 when all is well, 1 for a warning, 2 when something is wrong or "
       "a limit is passed, and 3 when that cannot be found out. A failed-over target is a "
       "warning, and so is a sync that failed while no limit is passed; a copy or a volume out "
       "of reach is wrong. Without a limit the age of snapshots is told and not judged."},
      "Nothing.",
      {AnyGroup()},
      {Flag("--check", "judge, in one line and the exit code, as monitors want it"),
       {"--max-age", Value::kText, "DURATION",
        "how old the newest group snapshot may be, as 90m, 2h or 1d"},
       {"--max-lag", Value::kText, "DURATION",
        "how old the last snapshot that arrived may be; targets without a plan are wrong then"},
       {"--min-free", Value::kText, "ROOM",
        "how much of each volume is to be free, as 20G or 10%"}},
      RunStatus};
}

}  // namespace drgroupctl
