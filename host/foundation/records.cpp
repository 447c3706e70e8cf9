#include "foundation/records.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "base/kill_point.h"
#include "foundation/durable.h"
#include "foundation/schema.h"
#include "vreldrcore/json.h"
#include "vreldrcore/sqlite_failure.h"

namespace VrelHost {

namespace {

using VrelDR::KillPoint;
using VrelDR::Quoted;
using VrelDRCore::SqliteDB;
using VrelDRCore::SqliteFailure;

constexpr unsigned int kBusySeconds = 20;
constexpr const char* kInfoTable = "vreldrcore_db_info";
constexpr int kNewest = static_cast<int>(kRecordsSchema.size());

SqliteFailure FailureOf(const SqliteDB& db) {
  return VrelDRCore::ToSqliteFailure(db.GetErrCode());
}

const char* AdviceFor(SqliteFailure failure) {
  switch (failure) {
    case SqliteFailure::kHeld:
      return "; another process holds them, run it again when that has finished";
    case SqliteFailure::kDamaged:
    case SqliteFailure::kNotDatabase:
      return "; put back a copy of the file, or run \"drgroupctl host init\" to begin anew";
    case SqliteFailure::kFull:
      return "; free space and run it again";
    default:
      return "";
  }
}

// Of a file whose version means nothing or could not be read: whether it is sound, but empty or of
// something else; and whether it holds no records at any rate.
bool IsOfSomethingElse(SqliteFailure failure) {
  return failure == SqliteFailure::kNone || failure == SqliteFailure::kStatement;
}

bool HoldsNoRecords(SqliteFailure failure) {
  return IsOfSomethingElse(failure) || failure == SqliteFailure::kNotDatabase ||
         failure == SqliteFailure::kDamaged;
}

Status NoRecords(const SqliteDB& db) {
  if (!IsOfSomethingElse(FailureOf(db))) return RecordsFailure(db);
  return {VrelDR::kErrStore, "the host's records " + Quoted(db.GetPath()) +
                                 " are empty or not a database of records; put back a copy of the "
                                 "file, or run \"drgroupctl host init\" to begin anew"};
}

Status OfLaterVersion(const SqliteDB& db, int version) {
  return {VrelDR::kErrStore, "the host's records " + Quoted(db.GetPath()) + " are of version " +
                                 std::to_string(version) +
                                 ", which this program does not know; use the one that made them"};
}

// Makes the tables that versions after `version` have, and writes the newest one down.
bool RunSchema(const SqliteDB& db, int version) {
  for (; version < kNewest; ++version) {
    if (!db.Exec(kRecordsSchema[static_cast<std::size_t>(version)])) return false;
  }
  return db.Exec("INSERT OR REPLACE INTO vreldrcore_db_info VALUES ('version', '" +
                 std::to_string(kNewest) + "')");
}

void RemoveWithSideFiles(const std::string& path) {
  unlink(path.c_str());
  for (const char* each : kSideFiles) unlink((path + each).c_str());
}

}  // namespace

SqliteDB RecordsAt(const std::string& path) {
  return SqliteDB(path, kBusySeconds, kInfoTable);
}

Status RecordsFailure(const SqliteDB& db) {
  const SqliteFailure failure = FailureOf(db);
  return {failure == SqliteFailure::kHeld ? VrelDR::kErrBusy : VrelDR::kErrStore,
          "the host's records " + Quoted(db.GetPath()) + " could not be used: " +
              VrelDRCore::JsonUtil::AsText(db.GetErrMsg()) + AdviceFor(failure)};
}

Status MakeRecords(const std::string& path) {
  const std::string work = path + ".new";
  RemoveWithSideFiles(work);  // of a making that was interrupted
  // Made without opening it: closing any descriptor of a database drops the locks that this
  // process' other connections hold on it.
  if (mknod(work.c_str(), S_IFREG | 0600, 0) != 0) {
    return StateFailure("cannot make " + Quoted(work), errno);
  }
  Status status;
  {
    const SqliteDB db = RecordsAt(work);
    if (!db.Exec("BEGIN IMMEDIATE") ||
        !db.Exec("CREATE TABLE vreldrcore_db_info"
                 " (key TEXT NOT NULL PRIMARY KEY, value TEXT NOT NULL)") ||
        !RunSchema(db, 0) || !db.Exec("COMMIT")) {
      status = RecordsFailure(db);
    }
  }
  KillPoint(VrelDR::kHostRecordsBuilt);
  if (status.IsOk() && link(work.c_str(), path.c_str()) != 0) {
    status = StateFailure("cannot make " + Quoted(path), errno);
  }
  RemoveWithSideFiles(work);
  return status;
}

Status UpgradeRecords(const SqliteDB& db) {
  int version = 0;
  if (!db.GetSchemaVersion(version) || version < 1) return NoRecords(db);
  if (version == kNewest) return {};
  if (version > kNewest) return OfLaterVersion(db, version);

  if (!db.Exec("BEGIN IMMEDIATE")) return RecordsFailure(db);
  // Somebody else may have done it meanwhile, also one who goes further than this program.
  bool good = db.GetSchemaVersion(version);
  Status status = good && version > kNewest ? OfLaterVersion(db, version) : Status();
  good = good && status.IsOk() && RunSchema(db, version);
  KillPoint(VrelDR::kRecordsUpgrading);
  if (good && db.Exec("COMMIT")) {
    KillPoint(VrelDR::kRecordsUpgraded);
    return {};
  }
  if (status.IsOk()) status = RecordsFailure(db);
  db.Exec("ROLLBACK");  // without it the next transaction could not begin
  return status;
}

Status ExamineRecords(const std::string& path, RecordsCondition& condition) {
  const SqliteDB db = RecordsAt(path);
  int version = 0;
  if (!db.GetSchemaVersion(version) && !HoldsNoRecords(FailureOf(db))) return RecordsFailure(db);
  condition = version < 1         ? RecordsCondition::kDamaged
              : version > kNewest ? RecordsCondition::kNewer
                                  : RecordsCondition::kGood;
  return {};
}

bool NeverHadIdentity(const std::string& path) {
  constexpr int kFirstWithIdentity = 3;
  constexpr int kFirstWithPlans = 2;
  const SqliteDB db = RecordsAt(path);
  int version = 0;
  if (!db.GetSchemaVersion(version) || version < 1 || version >= kFirstWithIdentity) return false;
  if (version < kFirstWithPlans) return true;
  bool hasPlan = false;
  VrelDRCore::SelectCommand command;
  command.SetTable(VrelDRCore::SqliteTableHandler("plans"));
  command.SetLimit(1);
  return db.SelectEach(command, [&hasPlan](const VrelDRCore::SqliteValueList&) {
    hasPlan = true;
    return false;
  }) && !hasPlan;
}

}  // namespace VrelHost
