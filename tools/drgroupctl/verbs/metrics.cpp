#include <cstring>
#include <functional>
#include <map>
#include <sstream>

#include "action/health.h"
#include "groups/file_write.h"
#include "groups/group_store.h"
#include "groups/history.h"
#include "host/arrived.h"
#include "output/console.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

using Labels = std::vector<std::pair<const char*, std::string>>;

std::string LabelsText(const Labels& labels) {
  std::string text;
  for (const auto& [name, value] : labels) {
    text += text.empty() ? "{" : ",";
    text += std::string(name) + "=\"";
    for (const char c : RepairUtf8(value)) {
      if (c == '\\' || c == '"') text += '\\';
      text += c == '\n' ? std::string("\\n") : std::string(1, c);
    }
    text += '"';
  }
  return text.empty() ? text : text + "}";
}

// The metrics in the order in which they came up, each with all its samples.
class Exposition {
 public:
  void Add(const char* name, const char* help, const Labels& labels, std::int64_t value) {
    Add(name, help, labels, std::to_string(value));
  }
  void Add(const char* name, const char* help, const Labels& labels, const std::string& value) {
    const auto [place, isNew] = samples_.try_emplace(name);
    if (isNew) {
      names_.emplace_back(name);
      place->second = std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " gauge\n";
    }
    place->second += name + LabelsText(labels) + " " + value + "\n";
  }

  std::string ToText() const {
    std::string text;
    for (const std::string& each : names_) text += samples_.at(each);
    return text;
  }

 private:
  std::vector<std::string> names_;
  std::map<std::string, std::string> samples_;
};

void AddPlan(const std::string& groupId, const std::string& target,
             const VrelDR::PlanStanding& standing, Exposition& metrics) {
  const Json::Value row = StatusRow(standing);
  const Labels labels{{"group", groupId},
                      {"target", target},
                      {"working", row["working_target_id"].asString()},
                      {"replica", row["replica_target_id"].asString()}};
  Labels state = labels;
  state.emplace_back("state", row["state"].asString());
  state.emplace_back("site", row["site"].asString());
  metrics.Add("drgroup_plan_info", "How a plan stands, in its labels.", state, 1);
  metrics.Add("drgroup_plan_problem", "Whether something is wrong with a plan.", labels,
              row["problem"].asString().empty() ? 0 : 1);
  if (standing.pending_count) {
    metrics.Add("drgroup_plan_pending_snapshots", "How many snapshots wait to be sent.", labels,
                static_cast<std::int64_t>(*standing.pending_count));
  }
  const Arrived arrived = ToArrived(standing.arrived, standing.arrived_problem);
  if (arrived.time == 0 || !standing.is_recorded_known) return;
  metrics.Add("drgroup_plan_arrived_timestamp_seconds",
              "When the last snapshot that has arrived was taken.", labels, arrived.time);
}

// Seconds, exact to the millisecond.
std::string SecondsText(long milliseconds) {
  std::string rest = std::to_string(milliseconds % 1000);
  rest.insert(0, 3 - rest.size(), '0');
  return std::to_string(milliseconds / 1000) + "." + rest;
}

// How the last run of each kind ended, and when the last one was done.
void AddRuns(const std::string& groupId, Exposition& metrics) {
  std::map<std::string, HistoryRun> last;
  std::map<std::string, HistoryRun> done;
  for (const HistoryRun& run : History(GroupDirectory(groupId)).NewestOfEach()) {
    if (run.result == RunResult::kRunning) continue;
    if (run.id > last[run.kind].id) last[run.kind] = run;
    if (run.result == RunResult::kDone) done[run.kind] = run;
  }
  for (const auto& [kind, run] : last) {
    const Labels labels{{"group", groupId}, {"kind", kind}};
    metrics.Add("drgroup_last_run_timestamp_seconds", "When the last run of a kind began.", labels,
                run.begin_time);
    metrics.Add("drgroup_last_run_problem",
                "Whether the last run of a kind failed, was stopped or was interrupted.", labels,
                run.result == RunResult::kDone ? 0 : 1);
    if (!run.duration_ms) continue;
    metrics.Add("drgroup_last_run_duration_seconds", "How long the last run of a kind took.",
                labels, SecondsText(*run.duration_ms));
  }
  for (const auto& [kind, run] : done) {
    const Labels labels{{"group", groupId}, {"kind", kind}};
    metrics.Add("drgroup_last_success_timestamp_seconds",
                "When the last run of a kind began that was done.", labels, run.begin_time);
    if (!run.sent_bytes) continue;
    metrics.Add("drgroup_last_success_sent_bytes",
                "How much the last run of a kind sent that was done.", labels, *run.sent_bytes);
  }
}

std::string MetricsOf(const Health& health, Warnings& warnings) {
  Exposition metrics;
  for (const GroupHealth& group : health.groups) {
    const Labels labels{{"group", group.id}};
    metrics.Add("drgroup_group_readable", "Whether a group and its catalogue can be read.", labels,
                group.problem.empty() ? 1 : 0);
    metrics.Add("drgroup_group_targets", "How many targets a group has.", labels,
                static_cast<std::int64_t>(group.targets.size()));
    if (group.newest_time.value_or(0) != 0) {
      metrics.Add("drgroup_group_snapshot_timestamp_seconds",
                  "When the newest group snapshot was taken.", labels, *group.newest_time);
    }
    for (const std::string& target : group.targets) {
      const auto plans = health.plans.by_target.find(target);
      const bool isProtected = plans != health.plans.by_target.end();
      metrics.Add("drgroup_target_protected", "Whether a target has a plan.",
                  {{"group", group.id}, {"target", target}}, isProtected ? 1 : 0);
      if (!isProtected) continue;
      for (const VrelDR::PlanStanding* each : plans->second) {
        AddPlan(group.id, target, *each, metrics);
      }
    }
    try {
      if (group.problem.empty()) AddRuns(group.id, metrics);
    } catch (const Failure& failure) {
      warnings.Print(failure.message);
    }
  }
  for (const VrelDR::VolumeInfo& each : health.volumes) {
    const Labels labels{{"volume", each.name}};
    metrics.Add("drgroup_volume_usable", "Whether a volume can be reached and written.", labels,
                each.problem.empty() ? 1 : 0);
    if (!each.problem.empty()) continue;
    metrics.Add("drgroup_volume_size_bytes", "How large a volume is.", labels,
                static_cast<std::int64_t>(each.size_bytes));
    metrics.Add("drgroup_volume_free_bytes", "How much of a volume is free.", labels,
                static_cast<std::int64_t>(each.free_bytes));
  }
  metrics.Add("drgroup_metrics_timestamp_seconds", "When these were looked at.", {}, health.now);
  return metrics.ToText();
}

Report RunMetrics(const Arguments& args, Warnings& warnings) {
  const std::string text = MetricsOf(LookAtHealth(args.Text("GROUP")), warnings);
  const std::string path = args.Text("--output");
  Report report;
  if (path.empty()) {
    if (args.Has("--json")) report.AddField({"metrics", "Metrics"}, text);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) report.AddText(line);
    return report;
  }
  if (const int error = WriteFileAtomically(path, text)) {
    throw Failure(ExitCode::kFailed, "cannot write " + Quote(path) + ": " + std::strerror(error) +
                                         "; what stood there before still does");
  }
  report.AddField({"path", "Written"}, path);
  return report;
}

}  // namespace

Verb Metrics() {
  return {"metrics",
          "tell how groups are in numbers, as Prometheus reads them",
          {"Writes the text format of Prometheus: of each group when its newest group snapshot was "
           "taken and how the last run of each kind of its history ended, of each plan how it "
           "stands and when the last snapshot that arrived was taken, "
           "of each volume with a copy how much is free. Times are in seconds since the epoch, so "
           "that an age is computed where it is drawn. What cannot be found out is left out, and a "
           "group or volume that cannot be used says so.",
           "With --output a file is replaced as a whole, as the node exporter's collector of text "
           "files wants it."},
          "Nothing but the file that --output names.",
          {AnyGroup()},
          {{"--output", Value::kPath, "FILE", "where to write; standard output when left out"}},
          RunMetrics};
}

}  // namespace drgroupctl
