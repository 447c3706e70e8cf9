#include <fcntl.h>
#include <unistd.h>
#include <vreldrcore/json.h>

#include <cerrno>
#include <ctime>
#include <system_error>

#include "groups/history.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

using VrelDRCore::InsertCommand;
using VrelDRCore::SelectCommand;
using VrelDRCore::SqliteDB;
using VrelDRCore::SqliteEqual;
using VrelDRCore::SqliteTableHandler;
using VrelDRCore::SqliteValue;
using VrelDRCore::SqliteValueList;
using VrelDRCore::UpdateCommand;

const SqliteTableHandler& Runs() {
  static const SqliteTableHandler runs("runs");
  return runs;
}

// With a write-ahead log a commit waits for no disk, and a power cut takes the newest rows at most.
// The log is brought to disk when the last connection closes.
constexpr char kSchema[] =
    "PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL;"
    "CREATE TABLE IF NOT EXISTS runs (id INTEGER PRIMARY KEY, kind TEXT, begin_time INTEGER,"
    " duration_ms INTEGER, result INTEGER, exit_code INTEGER, message TEXT, gsnap_id TEXT,"
    " sent_bytes INTEGER, lag_seconds INTEGER);"
    "CREATE INDEX IF NOT EXISTS runs_kind ON runs (kind, result, id);"
    "CREATE VIEW IF NOT EXISTS newest_runs AS SELECT * FROM runs"
    " WHERE id IN (SELECT max(id) FROM runs GROUP BY kind, result);";

template <class T>
SqliteValue ToValue(const std::optional<T>& value) {
  return value ? SqliteValue(*value) : SqliteValue();
}

// What is older than the history is to be goes.
std::string Pruning() {
  const std::string oldest = std::to_string(std::time(nullptr) - 86400L * History::kMostDays);
  return "DELETE FROM runs WHERE (id <= (SELECT id FROM runs ORDER BY id DESC LIMIT 1 OFFSET " +
         std::to_string(History::kMostRuns) + ") OR begin_time < " + oldest +
         ") AND id NOT IN (SELECT id FROM newest_runs)";
}

// Its own number, larger than any before.
long NextId(const SqliteDB& db) {
  SelectCommand command;
  command.SetTable(Runs());
  command.AddField("id");
  command.AddOrderField("id");
  command.SetOrderByDESC();
  command.SetLimit(1);
  SqliteValueList row;
  long last = 0;
  if (db.SelectRecord(command, row)) row.GetValue("id", last);
  return last + 1;
}

// Whether the last one of the kind that was done or failed had failed.
bool HasFailedLast(const SqliteDB& db, const std::string& kind) {
  const auto newest = [&](RunResult result) {
    SelectCommand command;
    command.SetTable(Runs());
    command.SetCondition(SqliteEqual("kind", kind));
    command.AddCondition(SqliteEqual("result", static_cast<int>(result)));
    command.AddOrderField("id");
    command.SetOrderByDESC();
    command.SetLimit(1);
    SqliteValueList row;
    long id = 0;
    if (db.SelectRecord(command, row)) row.GetValue("id", id);
    return id;
  };
  return newest(RunResult::kFailed) > newest(RunResult::kDone);
}

}  // namespace

HistoryEntry::HistoryEntry(const std::string& dir, const std::string& kind) : history_(dir) {
  if (!Open() || !Begin(kind)) {
    Note();
    id_ = 0;
  }
}

bool HistoryEntry::Open() {
  if (history_.db_.IsExisted()) return history_.db_.Exec(kSchema);
  const int fd =
      open(history_.db_.GetPath().c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
  if (fd == -1) {
    problem_ = std::generic_category().message(errno);
    return false;
  }
  close(fd);
  return history_.db_.Exec(kSchema);
}

bool HistoryEntry::Begin(const std::string& kind) {
  const SqliteDB& db = history_.db_;
  if (!db.Exec("BEGIN IMMEDIATE")) return false;
  is_after_failure_ = HasFailedLast(db, kind);
  SettleInterrupted();
  id_ = NextId(db);
  int error = 0;
  lock_ = RangeLock::Take(history_.lock_path_, id_, error);
  SqliteValueList row;
  row.AddValue("id", id_);
  row.AddValue("kind", kind);
  row.AddValue("begin_time", static_cast<long>(std::time(nullptr)));
  InsertCommand insert;
  insert.SetTable(Runs());
  insert.SetFieldValues(row);
  if (lock_ && db.InsertRecord(insert) && db.Exec("COMMIT")) return true;
  if (!lock_) {
    problem_ = Quote(history_.lock_path_) + ": " +
               std::generic_category().message(error == 0 ? EAGAIN : error);
  } else {
    Note();
  }
  db.Exec("ROLLBACK");
  return false;
}

// What has begun, has not ended and has no process any more.
void HistoryEntry::SettleInterrupted() {
  SelectCommand command;
  command.SetTable(Runs());
  command.SetCondition(VrelDRCore::SqliteIsNull("result"));
  std::vector<long> ids;
  history_.db_.SelectEach(command, [&](const SqliteValueList& row) {
    const HistoryRun run = history_.ToRun(row);
    if (run.result == RunResult::kInterrupted) ids.push_back(run.id);
    return true;
  });
  for (const long id : ids) {
    UpdateCommand update;
    update.SetTable(Runs());
    update.SetCondition(SqliteEqual("id", id));
    update.AddFieldValue("result", static_cast<int>(RunResult::kInterrupted));
    history_.db_.UpdateRecord(update);
  }
}

void HistoryEntry::End(const HistoryRun& run) {
  if (id_ == 0) return;
  SqliteValueList row;
  row.AddValue("duration_ms", ToValue(run.duration_ms));
  row.AddValue("result", static_cast<int>(run.result));
  row.AddValue("exit_code", run.exit_code);
  row.AddValue("message", run.message);
  row.AddValue("gsnap_id", run.gsnap_id);
  row.AddValue("sent_bytes", ToValue(run.sent_bytes));
  row.AddValue("lag_seconds", ToValue(run.lag_seconds));
  UpdateCommand update;
  update.SetTable(Runs());
  update.SetCondition(SqliteEqual("id", id_));
  update.SetFieldValues(row);
  if (!history_.db_.UpdateRecord(update) || !history_.db_.Exec(Pruning())) Note();
  lock_.reset();
}

void HistoryEntry::Forget() {
  if (id_ == 0) return;
  history_.db_.DeleteRecord(Runs(), SqliteEqual("id", id_));
  lock_.reset();
}

void HistoryEntry::Note() {
  if (!problem_.empty()) return;
  problem_ =
      Quote(history_.db_.GetPath()) + ": " + VrelDRCore::JsonUtil::AsText(history_.db_.GetErrMsg());
}

}  // namespace drgroupctl
