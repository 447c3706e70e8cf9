#include "foundation/records_schema.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "foundation/durable.h"
#include "vreldrcore/sqlite_failure.h"

namespace VrelHost {

using VrelDR::Quoted;
using VrelDRCore::SqliteDB;
using VrelDRCore::SqliteFailure;

bool RunSchema(const SqliteDB& db, int version, int last) {
  for (; version < last; ++version) {
    if (!db.Exec(kRecordsSchema[static_cast<std::size_t>(version)])) return false;
  }
  return db.Exec("INSERT OR REPLACE INTO vreldrcore_db_info VALUES ('version', '" +
                 std::to_string(last) + "')");
}

void RemoveWithSideFiles(const std::string& path) {
  unlink(path.c_str());
  for (const char* each : kSideFiles) unlink((path + each).c_str());
}

// Without opening it: closing any descriptor of a database drops the locks that this process' other
// connections hold on it.
Status MakeEmptyFile(const std::string& path) {
  RemoveWithSideFiles(path);  // of a making that was interrupted
  if (mknod(path.c_str(), S_IFREG | 0600, 0) == 0) return {};
  return StateFailure("cannot make " + Quoted(path), errno);
}

Status FindJournal(const std::string& path, RecordsJournal& journal) {
  const std::string probe = path + ".new";
  Status status = MakeEmptyFile(probe);
  if (!status.IsOk()) return status;
  {
    const SqliteDB db = RecordsAt(probe);
    const bool isGood = db.Exec("PRAGMA journal_mode = WAL") && db.Exec("CREATE TABLE probe (a)");
    const SqliteFailure failure = VrelDRCore::ToSqliteFailure(db.GetErrCode());
    if (failure == SqliteFailure::kFull) status = PlainFailure(db);
    // A file system that is known to lack it is not even tried.
    journal = isGood && HasLog(db) ? RecordsJournal::kLog : RecordsJournal::kRollback;
  }
  RemoveWithSideFiles(probe);
  return status;
}

bool HasLog(const SqliteDB& db) {
  VrelDRCore::SelectCommand command;
  command.SetTable(VrelDRCore::SqliteTableHandler("pragma_journal_mode"));
  VrelDRCore::SqliteValueList row;
  std::string mode;
  return db.SelectRecord(command, row) && row.GetValue("journal_mode", mode) && mode == "wal";
}

}  // namespace VrelHost
