#include "groups/history.h"

#include <vreldrcore/json.h>

#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

using VrelDRCore::SelectCommand;
using VrelDRCore::SqliteTableHandler;
using VrelDRCore::SqliteValueList;

constexpr unsigned kBusySeconds = 2;  // nobody waits long for the sake of the history

std::string DatabaseIn(const std::string& dir) {
  return dir + "/history.db";
}

std::string LockIn(const std::string& dir) {
  return dir + "/history.lock";
}

std::optional<long> Number(const SqliteValueList& row, const char* column) {
  long number = 0;
  return row.GetValue(column, number) ? std::optional(number) : std::nullopt;
}

}  // namespace

const char* ToText(RunResult result) {
  switch (result) {
    case RunResult::kDone:
      return "done";
    case RunResult::kFailed:
      return "failed";
    case RunResult::kStopped:
      return "stopped";
    case RunResult::kInterrupted:
      return "interrupted";
    default:
      return "running";
  }
}

std::vector<std::string> HistoryFiles(const std::string& dir) {
  const std::string database = DatabaseIn(dir);
  return {database, database + "-wal", database + "-shm", database + "-journal", LockIn(dir)};
}

History::History(const std::string& dir)
    : lock_path_(LockIn(dir)), db_(DatabaseIn(dir), kBusySeconds, "vreldrcore_db_info") {}

HistoryRun History::ToRun(const SqliteValueList& row) const {
  HistoryRun run;
  row.GetValue("id", run.id);
  row.GetValue("kind", run.kind);
  row.GetValue("begin_time", run.begin_time);
  row.GetValue("exit_code", run.exit_code);
  row.GetValue("message", run.message);
  row.GetValue("gsnap_id", run.gsnap_id);
  run.duration_ms = Number(row, "duration_ms");
  run.sent_bytes = Number(row, "sent_bytes");
  run.lag_seconds = Number(row, "lag_seconds");
  int result = 0;
  if (row.GetValue("result", result)) {
    run.result = static_cast<RunResult>(result);
  } else if (!RangeLock::IsHeld(lock_path_, run.id)) {
    run.result = RunResult::kInterrupted;
  }
  return run;
}

void History::Ask(SelectCommand& command, const Visit& visit) const {
  if (!db_.IsExisted()) return;
  if (db_.SelectEach(command, [&](const SqliteValueList& row) { return visit(ToRun(row)); })) {
    return;
  }
  throw Failure(ExitCode::kCatalogue,
                "cannot read the history " + Quote(db_.GetPath()) + ": " +
                    VrelDRCore::JsonUtil::AsText(db_.GetErrMsg()) +
                    "; see to it, or move it away: the next action begins a new one");
}

std::vector<HistoryRun> History::Newest(std::size_t count, bool onlyFailed) const {
  SelectCommand command;
  command.SetTable(SqliteTableHandler("runs"));
  command.AddOrderField("id");
  command.SetOrderByDESC();
  std::vector<HistoryRun> runs;
  Ask(command, [&](const HistoryRun& run) {
    const bool isBad = run.result == RunResult::kFailed || run.result == RunResult::kInterrupted;
    if (runs.size() < count && (isBad || !onlyFailed)) runs.push_back(run);
    return runs.size() < count;
  });
  return runs;
}

std::vector<HistoryRun> History::NewestOfEach() const {
  SelectCommand command;
  command.SetTable(SqliteTableHandler("newest_runs"));
  std::vector<HistoryRun> runs;
  Ask(command, [&](const HistoryRun& run) {
    runs.push_back(run);
    return true;
  });
  return runs;
}

}  // namespace drgroupctl
