#include "store.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <cerrno>

#include "schema.h"
#include "vreldrcore/file.h"
#include "vreldrcore/json.h"

namespace VrelDR {

namespace {

using VrelDRCore::InsertCommand;
using VrelDRCore::SelectCommand;
using VrelDRCore::SqliteEqual;
using VrelDRCore::SqliteTableHandler;
using VrelDRCore::SqliteValueList;
using VrelDRCore::UpdateCommand;

constexpr unsigned int kBusySeconds = 20;

SqliteTableHandler Targets() {
  return SqliteTableHandler("targets");
}
SqliteTableHandler Snapshots() {
  return SqliteTableHandler("snapshots");
}

RecordState ReadState(const SqliteValueList& row) {
  int state = 0;
  row.GetValue("state", state);
  return static_cast<RecordState>(state);
}

TargetRow ReadTarget(const SqliteValueList& values) {
  TargetRow row;
  std::string id;
  int type = 0;
  values.GetValue("id", id);
  values.GetValue("type", type);
  row.target = Target(id, type);
  values.GetValue("volume", row.volume);
  row.state = ReadState(values);
  values.GetValue("last_snap_time", row.last_snap_time);
  return row;
}

SnapshotRow ReadSnapshot(const SqliteValueList& values) {
  SnapshotRow row;
  Operation::Snapshot& snapshot = row.snapshot;
  long seq = 0;
  values.GetValue("seq", seq);
  snapshot.sequence = static_cast<std::uint64_t>(seq);
  values.GetValue("snap_id", snapshot.snap_id);
  values.GetValue("create_time", snapshot.create_time);
  values.GetValue("description", snapshot.meta.description);
  values.GetValue("is_locked", snapshot.meta.is_locked);
  values.GetValue("is_app_consistent", snapshot.meta.is_app_consistent);
  values.GetValue("taken_by", snapshot.meta.taken_by);
  row.state = ReadState(values);
  return row;
}

SqliteEqual BySequence(const Operation::Snapshot& snapshot) {
  return SqliteEqual("seq", static_cast<long>(snapshot.sequence));
}

const char* AdviceFor(int sqliteCode) {
  switch (sqliteCode & 0xff) {
    case SQLITE_BUSY:
      return "; another process holds them, run it again when that has finished";
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
      return "; put back a copy of the file";
    case SQLITE_FULL:
      return "; free space and run it again";
    default:
      return "";
  }
}

}  // namespace

Status Store::Open(const std::string& stateDir, std::optional<Store>& store) {
  const std::string path = stateDir + "/replica.db";
  if (!VrelDRCore::File::CreateDir(stateDir, 0700)) {
    return {kErrStore,
            "cannot make the state directory: " + StatusOfErrno(errno, stateDir).message};
  }
  // Made without opening it: closing any descriptor of a database drops the locks that this
  // process' other connections hold on it.
  if (mknod(path.c_str(), S_IFREG | 0600, 0) != 0 && errno != EEXIST) {
    return {kErrStore, "cannot open the host's records: " + StatusOfErrno(errno, path).message};
  }
  store.emplace(Store(VrelDRCore::SqliteDB(path, kBusySeconds, "vreldrcore_db_info")));
  return store->Upgrade();
}

Status Store::Result(bool good) const {
  if (good) return {};
  return {kErrStore, "the host's records " + Quoted(db_.GetPath()) +
                         " could not be used: " + VrelDRCore::JsonUtil::AsText(db_.GetErrMsg()) +
                         AdviceFor(db_.GetErrCode())};
}

template <class Steps>
Status Store::Transact(Steps&& steps) const {
  if (!db_.Exec("BEGIN IMMEDIATE")) return Result(false);
  if (steps() && db_.Exec("COMMIT")) return {};
  Status failure = Result(false);
  db_.Exec("ROLLBACK");  // without it the next transaction could not begin
  return failure;
}

Status Store::Upgrade() const {
  const int newest = static_cast<int>(kStoreSchema.size());
  int version = 0;
  // A file without the info table is a new one: that this fails says nothing yet.
  if (db_.GetSchemaVersion(version) && version == newest) return {};

  Status refused;
  const Status upgraded = Transact([&] {
    if (!db_.Exec("CREATE TABLE IF NOT EXISTS vreldrcore_db_info"
                  " (key TEXT NOT NULL PRIMARY KEY, value TEXT NOT NULL)") ||
        !db_.GetSchemaVersion(version)) {
      return false;
    }
    if (version < 0 || version > newest) {
      refused = {kErrStore, "the host's records " + Quoted(db_.GetPath()) + " are of version " +
                                std::to_string(version) +
                                ", which this program does not know; use the one that made them"};
      return false;
    }
    for (; version < newest; ++version) {
      if (!db_.Exec(kStoreSchema[static_cast<std::size_t>(version)])) return false;
    }
    return db_.Exec("INSERT OR REPLACE INTO vreldrcore_db_info VALUES ('version', '" +
                    std::to_string(newest) + "')");
  });
  return refused.IsOk() ? upgraded : refused;
}

Status Store::ListTargets(std::vector<TargetRow>& rows) const {
  SelectCommand command;
  command.SetTable(Targets());
  command.AddOrderField("id");
  return Result(db_.SelectEach(command, [&rows](const SqliteValueList& values) {
    rows.push_back(ReadTarget(values));
    return true;
  }));
}

Status Store::GetTarget(const std::string& targetId, std::optional<TargetRow>& row) const {
  row.reset();
  SelectCommand command;
  command.SetTable(Targets());
  command.SetCondition(SqliteEqual("id", targetId));
  return Result(db_.SelectEach(command, [&row](const SqliteValueList& values) {
    row = ReadTarget(values);
    return false;
  }));
}

Status Store::AddTarget(const TargetRow& row) const {
  SqliteValueList values;
  values.AddValue("id", row.target.GetId());
  values.AddValue("type", row.target.GetType());
  values.AddValue("volume", row.volume);
  values.AddValue("state", static_cast<int>(row.state));
  InsertCommand command;
  command.SetTable(Targets());
  command.SetFieldValues(values);
  return Result(db_.InsertRecord(command));
}

Status Store::SetTargetState(const std::string& targetId, RecordState state) const {
  UpdateCommand command;
  command.SetTable(Targets());
  command.AddFieldValue("state", static_cast<int>(state));
  command.SetCondition(SqliteEqual("id", targetId));
  return Result(db_.UpdateRecord(command));
}

Status Store::RemoveTarget(const std::string& targetId) const {
  return Transact([&] {
    return db_.DeleteRecord(Snapshots(), SqliteEqual("target_id", targetId)) &&
           db_.DeleteRecord(Targets(), SqliteEqual("id", targetId));
  });
}

Status Store::ListSnapshots(const std::string& targetId, std::vector<SnapshotRow>& rows) const {
  SelectCommand command;
  command.SetTable(Snapshots());
  command.SetCondition(SqliteEqual("target_id", targetId));
  command.AddOrderField("seq");
  return Result(db_.SelectEach(command, [&rows](const SqliteValueList& values) {
    rows.push_back(ReadSnapshot(values));
    return true;
  }));
}

Status Store::AddSnapshot(const std::string& targetId, Operation::Snapshot& snapshot) const {
  SqliteValueList values;
  values.AddValue("target_id", targetId);
  values.AddValue("snap_id", snapshot.snap_id);
  values.AddValue("state", static_cast<int>(RecordState::kBuilding));
  values.AddValue("description", snapshot.meta.description);
  values.AddValue("is_locked", snapshot.meta.is_locked);
  values.AddValue("is_app_consistent", snapshot.meta.is_app_consistent);
  values.AddValue("taken_by", snapshot.meta.taken_by);
  InsertCommand insert;
  insert.SetTable(Snapshots());
  insert.SetFieldValues(values);
  // The sequence number of a row just inserted is the largest one of the table.
  SelectCommand select;
  select.SetTable(Snapshots());
  select.AddField("seq");
  select.AddOrderField("seq");
  select.SetOrderByDESC();
  select.SetLimit(1);
  SqliteValueList row;
  long seq = 0;
  Status status = Transact([&] {
    return db_.InsertRecord(insert) && db_.SelectRecord(select, row) && row.GetValue("seq", seq);
  });
  if (status.IsOk()) snapshot.sequence = static_cast<std::uint64_t>(seq);
  return status;
}

Status Store::FinishSnapshot(const std::string& targetId, const Operation::Snapshot& snapshot,
                             std::uint32_t time) const {
  UpdateCommand finish;
  finish.SetTable(Snapshots());
  finish.AddFieldValue("state", static_cast<int>(RecordState::kWhole));
  finish.AddFieldValue("create_time", static_cast<long>(time));
  finish.SetCondition(BySequence(snapshot));
  UpdateCommand remember;
  remember.SetTable(Targets());
  remember.AddFieldValue("last_snap_time", static_cast<long>(time));
  remember.SetCondition(SqliteEqual("id", targetId));
  return Transact([&] { return db_.UpdateRecord(finish) && db_.UpdateRecord(remember); });
}

Status Store::MarkSnapshotDeleting(const Operation::Snapshot& snapshot) const {
  UpdateCommand command;
  command.SetTable(Snapshots());
  command.AddFieldValue("state", static_cast<int>(RecordState::kDeleting));
  command.SetCondition(BySequence(snapshot));
  return Result(db_.UpdateRecord(command));
}

Status Store::RemoveSnapshot(const Operation::Snapshot& snapshot) const {
  return Result(db_.DeleteRecord(Snapshots(), BySequence(snapshot)));
}

}  // namespace VrelDR
