#include "groups/history.h"

#include <algorithm>
#include <charconv>

#include "groups/group_store.h"
#include "output/console.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

constexpr std::size_t kUsualCount = 50;

std::size_t CountOf(const Arguments& args) {
  if (!args.Has("--last")) return kUsualCount;
  const std::string text = args.Text("--last");
  const char* end = text.data() + text.size();
  std::size_t count = 0;
  const auto [rest, error] = std::from_chars(text.data(), end, count);
  if (error == std::errc() && rest == end && count > 0) return count;
  throw Failure(ExitCode::kUsage, "--last " + Quote(text) + " is no number of runs from 1 on");
}

struct GroupRun {
  std::string group_id;
  HistoryRun run;
};

// The newest of all groups. A group that cannot be read does not hide the others.
std::vector<GroupRun> NewestOfAll(std::size_t count, bool onlyFailed, Warnings& warnings) {
  std::vector<GroupRun> all;
  for (const std::string& id : ListGroupIds()) {
    try {
      for (HistoryRun& run : History(LoadGroup(id).directory).Newest(count, onlyFailed)) {
        all.push_back({id, std::move(run)});
      }
    } catch (const Failure& failure) {
      warnings.Print(failure.message);
    }
  }
  std::stable_sort(all.begin(), all.end(), [](const GroupRun& one, const GroupRun& other) {
    return one.run.begin_time > other.run.begin_time;
  });
  if (all.size() > count) all.resize(count);
  return all;
}

template <class T>
Json::Value ToJson(const std::optional<T>& value) {
  return value ? Json::Value(Json::Int64(*value)) : Json::Value();
}

Json::Value RowOf(const GroupRun& each) {
  const HistoryRun& run = each.run;
  Json::Value row(Json::objectValue);
  row["group_id"] = each.group_id;
  row["kind"] = run.kind;
  row["begin_time"] = Json::Int64(run.begin_time);
  row["duration_ms"] = ToJson(run.duration_ms);
  row["duration_seconds"] =
      run.duration_ms ? Json::Value(Json::Int64(*run.duration_ms / 1000)) : Json::Value();
  row["result"] = ToText(run.result);
  row["exit_code"] = run.exit_code;
  row["message"] = run.message;
  row["gsnap_id"] = run.gsnap_id;
  row["sent_bytes"] = ToJson(run.sent_bytes);
  row["sent_text"] =
      run.sent_bytes ? FormatBytes(static_cast<std::uint64_t>(*run.sent_bytes)) : std::string();
  row["lag_seconds"] = ToJson(run.lag_seconds);
  return row;
}

Report RunHistory(const Arguments& args, Warnings& warnings) {
  const std::size_t count = CountOf(args);
  const bool onlyFailed = args.Has("--failed");
  std::vector<GroupRun> runs;
  if (args.Has("GROUP")) {
    const Group group = LoadGroup(args.Text("GROUP"));
    for (HistoryRun& run : History(group.directory).Newest(count, onlyFailed)) {
      runs.push_back({group.id, std::move(run)});
    }
  } else {
    runs = NewestOfAll(count, onlyFailed, warnings);
  }
  Json::Value rows(Json::arrayValue);
  for (const GroupRun& each : runs) rows.append(RowOf(each));
  std::vector<Column> columns = {{"begin_time", "BEGAN", Shown::kTime},
                                 {"kind", "KIND"},
                                 {"result", "RESULT"},
                                 {"duration_seconds", "TOOK", Shown::kAge},
                                 {"sent_text", "SENT", Shown::kIfAny},
                                 {"lag_seconds", "LAG", Shown::kAge},
                                 {"gsnap_id", "GROUP SNAPSHOT", Shown::kIfAny},
                                 {"message", "MESSAGE", Shown::kIfAny}};
  if (!args.Has("GROUP")) columns.insert(columns.begin(), {"group_id", "GROUP"});
  Report report;
  report.AddTable({"runs", "Runs"}, std::move(columns), std::move(rows));
  return report;
}

}  // namespace

Verb ShowHistory() {
  return {"history",
          "show what was done with groups, and how it ended",
          {"Each snapshot, sync, change of roles, pruning, deletion, restore, repair and change of "
           "the protection is a run, the newest first: when it began, how long it took, how it "
           "ended (done, failed with the reason, stopped, or interrupted when its process ended "
           "before), how much a sync sent, and how old afterwards was what the replicas have. What "
           "only looked, was not agreed to, or found another process at work is no run.",
           "The newest 10000 runs of the last 400 days stay, and always the last of each kind with "
           "each result. The history is the group's own, goes with it when it is renamed and is "
           "deleted with it. A run is done all the same when it cannot be recorded."},
          "Nothing.",
          {AnyGroup()},
          {Flag("--failed", "only those that failed or were interrupted"),
           {"--last", Value::kText, "N", "how many at most; 50 unless given"}},
          RunHistory};
}

}  // namespace drgroupctl
