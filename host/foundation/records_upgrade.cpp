// Bringing records of an earlier version up to date.
#include <sys/stat.h>
#include <syslog.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>

#include "base/kill_point.h"
#include "foundation/records_schema.h"
#include "foundation/upgrade_mark.h"
#include "vreldrcore/sqlite_failure.h"

namespace VrelHost {

namespace {

using VrelDR::KillPoint;
using VrelDR::Quoted;
using VrelDRCore::SqliteDB;

// The last version that differs from the one before it in its tables.
constexpr int kLastTables = 7;
static_assert(kNewest == kLastTables + 1);

Status OfLaterVersion(const SqliteDB& db, int version) {
  return {VrelDR::kErrStore, "the host's records " + Quoted(db.GetPath()) + " are of version " +
                                 std::to_string(version) +
                                 ", which this program does not know; use the one that made them"};
}

void Log(const SqliteDB& db, const std::string& what) {
  syslog(LOG_NOTICE, "the host's records %s %s", Quoted(db.GetPath()).c_str(), what.c_str());
}

// Sorting many rows in a little memory takes many times as long. Few need none of it.
class SortingMemory {
 public:
  explicit SortingMemory(const SqliteDB& db) : db_(db) {
    constexpr off_t kMany = 64 << 20;
    struct stat st;
    is_taken_ = stat(db.GetPath().c_str(), &st) == 0 && st.st_size > kMany &&
                db.Exec("PRAGMA cache_size = -65536");
  }
  ~SortingMemory() {
    if (is_taken_) db_.Exec("PRAGMA cache_size = -2000");
  }
  SortingMemory(const SortingMemory&) = delete;
  SortingMemory& operator=(const SortingMemory&) = delete;

 private:
  const SqliteDB& db_;
  bool is_taken_ = false;
};

// Brings records that may be older than `last` to that version in one transaction, unless somebody
// else has done it meanwhile, also one who goes further than this program.
Status RaiseTo(int last, const SqliteDB& db, int& version) {
  if (!db.Exec("BEGIN IMMEDIATE")) return PlainFailure(db);
  bool good = db.GetSchemaVersion(version);
  Status status = good && version > kNewest ? OfLaterVersion(db, version) : Status();
  if (good && status.IsOk() && version < last) {
    good = RunSchema(db, version, last);
    KillPoint(VrelDR::kRecordsUpgrading);
  }
  if (good && status.IsOk() && db.Exec("COMMIT")) {
    version = std::max(version, last);
    return {};
  }
  if (status.IsOk()) status = PlainFailure(db);
  db.Exec("ROLLBACK");  // without it the next transaction could not begin
  return status;
}

// Waits as a transaction does: for this SQLite only tries once.
bool SetLog(const SqliteDB& db) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(kBusySeconds);
  while (!db.Exec("PRAGMA journal_mode = WAL")) {
    if (VrelDRCore::ToSqliteFailure(db.GetErrCode()) != VrelDRCore::SqliteFailure::kHeld ||
        std::chrono::steady_clock::now() >= deadline) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// Gives the file its log where it can have one. Nobody else may have a transaction open then.
Status ChangeJournal(const SqliteDB& db) {
  if (HasLog(db)) return {};
  RecordsJournal journal{};
  Status status = FindJournal(db.GetPath(), journal);
  // Or else the journal stays, as large as an upgrade has made it. Somebody may need it right now.
  (void)db.Exec("PRAGMA journal_mode = DELETE");
  if (!status.IsOk() || journal == RecordsJournal::kRollback) return status;
  return SetLog(db) ? Status() : PlainFailure(db);
}

Status Upgrade(const SqliteDB& db, int version) {
  const SortingMemory memory(db);
  Status status = version < kLastTables ? RaiseTo(kLastTables, db, version) : Status();
  // The journal has to have its say outside of any transaction, and after the one that writes all
  // snapshots anew, which would stand in the log as well.
  if (status.IsOk() && version < kNewest) status = ChangeJournal(db);
  return status.IsOk() ? RaiseTo(kNewest, db, version) : status;
}

}  // namespace

Status UpgradeRecords(const SqliteDB& db) {
  int version = 0;
  if (!db.GetSchemaVersion(version) || version < 1) return NoRecords(db);
  if (version == kNewest) return {};
  if (version > kNewest) return OfLaterVersion(db, version);
  Status status;
  {
    UpgradeMark mark;
    status = mark.Take(db.GetPath());
    // Perhaps who had it has done it.
    if (status.IsOk() && !db.GetSchemaVersion(version)) status = PlainFailure(db);
    if (!status.IsOk() || version == kNewest) return status;
    if (version > kNewest) return OfLaterVersion(db, version);
    Log(db, "are being upgraded from version " + std::to_string(version) + " to " +
                std::to_string(kNewest) + ", which takes minutes when there are many snapshots");
    status = Upgrade(db, version);
    Log(db, status.IsOk() ? "were upgraded" : "were not upgraded: " + status.message);
  }
  KillPoint(VrelDR::kRecordsUpgraded);
  return status;
}

}  // namespace VrelHost
