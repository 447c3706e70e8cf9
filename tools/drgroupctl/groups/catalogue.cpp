#include "groups/catalogue.h"

#include <unistd.h>
#include <vreldrcore/json.h>
#include <vreldrcore/sqlite_failure.h>
#include <vreldrgroup/db.h>
#include <vreldrgroup/record/gsnapshot.h>
#include <vreldrgroup/record/target_replica.h>
#include <vreldrgroup/record/target_snapshot.h>

#include <filesystem>

#include "groups/group_store.h"
#include "output/text.h"

namespace drgroupctl {

namespace fs = std::filesystem;

namespace {

using VrelDRCore::SqliteFailure;

constexpr char kScript[] = "/var/packages/Guestora/target/sbin//vreldrgroup_db.sh";
constexpr char kInfoTable[] = "vreldrcore_db_info";

CatalogueProblem Explain(const std::string& path, SqliteFailure failure, const std::string& said,
                         unsigned int seconds) {
  const std::string file = "the catalogue " + Quote(path);
  switch (failure) {
    case SqliteFailure::kHeld:
      return {ExitCode::kBusy,
              file + " is locked by another process" +
                  (seconds == 0 ? std::string()
                                : " for longer than " + std::to_string(seconds) + " seconds") +
                  ": run it again when that has finished"};
    case SqliteFailure::kNotDatabase:
      return {ExitCode::kCatalogue, file + " is not an SQLite database: restore it from a backup"};
    case SqliteFailure::kDamaged:
      return {ExitCode::kCatalogue, file + " is truncated or damaged: restore it from a backup"};
    case SqliteFailure::kReadOnly:
      return {ExitCode::kStorage,
              file + " cannot be written: make it, its directory and their file system writable"};
    case SqliteFailure::kFull:
      return {ExitCode::kStorage, file + " has no room to grow: free space on its file system"};
    case SqliteFailure::kIo:
      return {ExitCode::kStorage,
              file + " cannot be read or written (" + said + "): check its file system"};
    case SqliteFailure::kNotOpened:
      return {ExitCode::kCatalogue,
              file + " cannot be opened: check the permissions of the file and its directory"};
    case SqliteFailure::kStatement: {
      const std::string lost = "no such table: ";
      const std::size_t at = said.find(lost);
      if (at != std::string::npos) {
        return {ExitCode::kCatalogue, file + " has lost its table " +
                                          Quote(said.substr(at + lost.size())) +
                                          ": restore it from a backup"};
      }
      break;
    }
    default:
      break;
  }
  return {ExitCode::kCatalogue, file + " cannot be used: " + said + "; restore it from a backup"};
}

CatalogueProblem Explain(const VrelDRCore::SqliteDB& db, const std::string& path,
                         unsigned int seconds) {
  return Explain(path, VrelDRCore::ToSqliteFailure(db.GetErrCode()),
                 Printable(VrelDRCore::JsonUtil::AsText(db.GetErrMsg())), seconds);
}

// Reads one row of every table.
bool ReadTables(const VrelDRCore::SqliteDB& db) {
  for (const VrelDRCore::SqliteTableHandler& table :
       {VrelDRCore::SqliteTableHandler(VrelDRGroup::GsnapMetadataSqliteTable()),
        VrelDRCore::SqliteTableHandler(VrelDRGroup::TargetSnapListSqliteTable()),
        VrelDRCore::SqliteTableHandler(VrelDRGroup::TargetReplicaListSqliteTable()),
        VrelDRCore::SqliteTableHandler(kInfoTable)}) {
    VrelDRCore::SelectCommand command;
    command.SetTable(table);
    command.SetLimit(1);
    VrelDRCore::SqliteValueList row;
    if (!db.SelectRecord(command, row) && db.GetErrCode() != 0) return false;
  }
  return true;
}

// Takes the right to write and gives it back, with nothing written. To begin a transaction would
// not do: SQLite grants one on a database that it may only read.
bool TryToWrite(const VrelDRCore::SqliteDB& db) {
  return db.Exec("DELETE FROM gsnap_meta WHERE 0");
}

// Has SQLite look through the whole file. Empty when it finds nothing.
std::string FindDamage(const VrelDRCore::SqliteDB& db) {
  VrelDRCore::SelectCommand command;
  command.SetTable(VrelDRCore::SqliteTableHandler("pragma_quick_check"));
  std::string found;
  db.SelectEach(command, [&found](const VrelDRCore::SqliteValueList& row) {
    if (row.Size() > 0) found = row.ValueAt(0).AsText();
    return false;
  });
  return found == "ok" ? std::string() : found;
}

// Whether every row of a table is a valid record.
template <class Record, class IsValid>
bool HoldsValid(const VrelDRCore::SqliteDB& db, const VrelDRCore::SqliteTableHandler& table,
                const Record& empty, IsValid&& isValid) {
  VrelDRCore::SelectCommand command;
  command.SetTable(table);
  bool allValid = true;
  db.SelectEach(command, [&](const VrelDRCore::SqliteValueList& row) {
    Record record = empty;
    allValid = record.FromSqliteValues(row) && isValid(record);
    return allValid;
  });
  return allValid;
}

// The table that has a record which means nothing; empty when there is none.
std::string FindInvalid(const VrelDRCore::SqliteDB& db) {
  const auto isValid = [](const auto& record) { return record.IsValid(); };
  const VrelDRGroup::GsnapMetadataSqliteTable meta;
  const VrelDRGroup::TargetSnapListSqliteTable parts;
  const VrelDRGroup::TargetReplicaListSqliteTable replicas;
  if (!HoldsValid(db, meta, VrelDRGroup::Gsnapshot(""), [](const VrelDRGroup::Gsnapshot& each) {
        return !each.gsnap_id.empty() && !each.tag.empty() && each.gsnap_time > 0;
      })) {
    return meta.GetTable();
  }
  if (!HoldsValid(db, parts, VrelDRGroup::TargetSnapshotRelationship(), isValid)) {
    return parts.GetTable();
  }
  const bool allValid = HoldsValid(db, replicas, VrelDRGroup::TargetReplicaRelationship(), isValid);
  return allValid ? std::string() : replicas.GetTable();
}

}  // namespace

std::optional<CatalogueProblem> ExamineCatalogue(const std::string& groupId, Access access,
                                                 unsigned int seconds) {
  return ExamineDatabase(DatabasePath(GroupDirectory(groupId)), access, seconds);
}

std::optional<CatalogueProblem> ExamineDatabase(const std::string& path, Access access,
                                                unsigned int seconds) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (status.type() == fs::file_type::not_found) {
    return CatalogueProblem{ExitCode::kCatalogue,
                            "the catalogue " + Quote(path) +
                                " is missing: restore it from a backup, or mount what it is on"};
  }
  if (status.type() == fs::file_type::regular && fs::file_size(path, error) == 0) {
    return CatalogueProblem{ExitCode::kCatalogue,
                            "the catalogue " + Quote(path) + " is empty: restore it from a backup"};
  }
  const VrelDRCore::SqliteDB db(path, seconds, kInfoTable);
  if (!ReadTables(db) || (access == Access::kWrite && !TryToWrite(db))) {
    return Explain(db, path, seconds);
  }
  return std::nullopt;
}

void RequireCatalogue(const std::string& groupId, Access access) {
  CheckOwner(groupId);
  if (const auto problem = ExamineCatalogue(groupId, access, kPatience)) {
    const std::string dir = GroupDirectory(groupId);
    const auto begun = InterruptedDeletion(groupId, dir);
    if (begun && IsDeletedUpToItsLink(dir)) throw Failure(*begun);
    throw Failure(problem->code, "group " + Quote(groupId) + ": " + problem->text);
  }
}

std::optional<CatalogueProblem> ExamineScript() {
  if (access(kScript, X_OK) == 0) return std::nullopt;
  return CatalogueProblem{ExitCode::kCatalogue,
                          "the database script " + Quote(kScript) +
                              " is missing or cannot be run: install the package again"};
}

Failure CatalogueFailure(const std::string& groupId, const std::string& what,
                         const std::string& said) {
  const std::string about = "group " + Quote(groupId) + ": " + what + ": ";
  if (const auto problem = ExamineScript()) return {problem->code, about + problem->text};
  if (const auto problem = ExamineCatalogue(groupId, Access::kWrite, 0)) {
    return {problem->code, about + problem->text};
  }
  const std::string path = DatabasePath(GroupDirectory(groupId));
  std::error_code error;
  // A row takes a few pages of the database and of its journal.
  constexpr std::uintmax_t kLittleRoom = 1 << 16;
  const fs::space_info space = fs::space(path, error);
  if (!error && space.available < kLittleRoom) {
    return {ExitCode::kStorage, about + "the file system of the catalogue " + Quote(path) +
                                    " is full: free space on it and run it again"};
  }
  if (!said.empty()) return {ExitCode::kCatalogue, about + said};
  const std::string file = "the catalogue " + Quote(path);
  const VrelDRCore::SqliteDB db(path, 0, kInfoTable);
  const std::string damage = FindDamage(db);
  if (!damage.empty()) {
    return {ExitCode::kCatalogue,
            about + file + " is damaged (" + Printable(damage) + "): restore it from a backup"};
  }
  const std::string table = FindInvalid(db);
  if (!table.empty()) {
    return {ExitCode::kCatalogue, about + file + " has a record in its table " + Quote(table) +
                                      " that means nothing: restore it from a backup"};
  }
  return {
      ExitCode::kCatalogue,
      about + file +
          " refused it, and looks sound now: run it again; if it fails again, restore it from a "
          "backup"};
}

}  // namespace drgroupctl
