#include "foundation/records.h"

#include <unistd.h>

#include <cerrno>
#include <string>

#include "base/kill_point.h"
#include "foundation/durable.h"
#include "foundation/records_schema.h"
#include "foundation/upgrade_mark.h"
#include "vreldrcore/json.h"
#include "vreldrcore/sqlite_failure.h"

namespace VrelHost {

namespace {

using VrelDR::KillPoint;
using VrelDRCore::SqliteDB;
using VrelDRCore::SqliteFailure;

constexpr const char* kInfoTable = "vreldrcore_db_info";

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

}  // namespace

SqliteDB RecordsAt(const std::string& path) {
  return SqliteDB(path, kBusySeconds, kInfoTable);
}

Status PlainFailure(const SqliteDB& db) {
  const SqliteFailure failure = FailureOf(db);
  return {failure == SqliteFailure::kHeld ? VrelDR::kErrBusy : VrelDR::kErrStore,
          "the host's records " + Quoted(db.GetPath()) + " could not be used: " +
              VrelDRCore::JsonUtil::AsText(db.GetErrMsg()) + AdviceFor(failure)};
}

Status RecordsFailure(const SqliteDB& db) {
  const bool isUpgraded =
      FailureOf(db) == SqliteFailure::kHeld && UpgradeMark::IsHeld(db.GetPath());
  return isUpgraded ? BeingUpgraded(db.GetPath()) : PlainFailure(db);
}

Status NoRecords(const SqliteDB& db) {
  if (!IsOfSomethingElse(FailureOf(db))) return RecordsFailure(db);
  return {VrelDR::kErrStore, "the host's records " + Quoted(db.GetPath()) +
                                 " are empty or not a database of records; put back a copy of the "
                                 "file, or run \"drgroupctl host init\" to begin anew"};
}

Status MakeRecords(const std::string& path) {
  const std::string work = path + ".new";
  RecordsJournal journal{};
  Status status = FindJournal(path, journal);
  if (status.IsOk()) status = MakeEmptyFile(work);
  if (!status.IsOk()) return status;
  {
    const SqliteDB db = RecordsAt(work);
    if ((journal == RecordsJournal::kLog && !db.Exec("PRAGMA journal_mode = WAL")) ||
        !db.Exec("BEGIN IMMEDIATE") ||
        !db.Exec("CREATE TABLE vreldrcore_db_info"
                 " (key TEXT NOT NULL PRIMARY KEY, value TEXT NOT NULL)") ||
        !RunSchema(db, 0, kNewest) || !db.Exec("COMMIT")) {
      status = RecordsFailure(db);
    }
  }
  KillPoint(VrelDR::kHostRecordsBuilt);
  // What stands beside the name is of records that are gone, and would be replayed into these.
  for (const char* each : kSideFiles) {
    std::string aside;
    bool there = false;
    if (status.IsOk()) status = IsThere(path + each, there);
    if (status.IsOk() && there) status = MoveAside(path + each, aside);
  }
  if (status.IsOk() && link(work.c_str(), path.c_str()) != 0) {
    status = StateFailure("cannot make " + Quoted(path), errno);
  }
  RemoveWithSideFiles(work);
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
