#include "raw.h"

#include <string_view>
#include <unordered_map>
#include <utility>

namespace bench::raw {

namespace {

using VrelDRGroup::Gsnapshot;
using VrelDRGroup::GsnapshotInfo;
using VrelDRGroup::TargetReplica;
using VrelDRGroup::TargetSnapshot;

using Statement = std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)>;
using Database = std::unique_ptr<sqlite3, decltype(&sqlite3_close)>;

Database Open(const std::string& path) {
  sqlite3* db = nullptr;
  const int code =
      sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  Database owner(db, sqlite3_close);
  if (code != SQLITE_OK) owner.reset();
  return owner;
}

Database OpenToWrite(const std::string& path) {
  Database db = Open(path);
  if (db && sqlite3_exec(db.get(), "PRAGMA journal_mode = PERSIST; PRAGMA synchronous = FULL",
                         nullptr, nullptr, nullptr) != SQLITE_OK) {
    db.reset();
  }
  return db;
}

Statement Prepare(const Database& db, std::string_view sql) {
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(db.get(), sql.data(), static_cast<int>(sql.size()), &statement, nullptr);
  return Statement(statement, sqlite3_finalize);
}

void Bind(const Statement& statement, int index, const std::string& text) {
  sqlite3_bind_text64(statement.get(), index, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

std::string_view Text(const Statement& statement, int column) {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement.get(), column));
  return {text, static_cast<std::size_t>(sqlite3_column_bytes(statement.get(), column))};
}

constexpr char kGsnapshotColumns[] =
    "SELECT \"desc\", is_user_locked, cw_type, gsnap_id, tag, gsnap_time, status FROM gsnap_meta";

void ReadGsnapshot(const Statement& row, Gsnapshot& gsnap) {
  gsnap.desc = Text(row, 0);
  gsnap.is_user_locked = sqlite3_column_int(row.get(), 1) != 0;
  gsnap.cw_type = static_cast<VrelDRGroup::GsnapCwType>(sqlite3_column_int(row.get(), 2));
  gsnap.gsnap_id = Text(row, 3);
  gsnap.tag = Text(row, 4);
  gsnap.gsnap_time = sqlite3_column_int64(row.get(), 5);
  gsnap.status = static_cast<VrelDRGroup::GsnapStatus>(sqlite3_column_int(row.get(), 6));
}

void AppendTargetSnapshot(const Statement& row, std::vector<TargetSnapshot>& tsnaps) {
  TargetSnapshot& tsnap = tsnaps.emplace_back(VrelDR::Target(), "");
  tsnap.target.SetId(std::string(Text(row, 0)));
  tsnap.target.SetType(sqlite3_column_int(row.get(), 1));
  tsnap.tsnap_id = Text(row, 2);
}

// Hands every row to `visit`; false when the statement could not be made or failed.
template <class Visit>
bool ForEachRow(const Statement& statement, const Visit& visit) {
  if (!statement) return false;
  int code = sqlite3_step(statement.get());
  for (; code == SQLITE_ROW; code = sqlite3_step(statement.get())) visit(statement);
  return code == SQLITE_DONE;
}

bool Insert(const Database& db, const TargetSnapshot& tsnap, const std::string& gsnapId) {
  const Statement insert =
      Prepare(db,
              "INSERT INTO target_snap_list (target_id, target_type, tsnap_id, gsnap_id)"
              " VALUES (?, ?, ?, ?)");
  if (!insert) return false;
  Bind(insert, 1, tsnap.target.GetId());
  sqlite3_bind_int(insert.get(), 2, tsnap.target.GetType());
  Bind(insert, 3, tsnap.tsnap_id);
  Bind(insert, 4, gsnapId);
  return sqlite3_step(insert.get()) == SQLITE_DONE;
}

bool Insert(const Database& db, const Gsnapshot& gsnap) {
  const Statement insert = Prepare(
      db,
      "INSERT INTO gsnap_meta (\"desc\", is_user_locked, cw_type, gsnap_id, tag, gsnap_time,"
      " status) VALUES (?, ?, ?, ?, ?, ?, ?)");
  if (!insert) return false;
  Bind(insert, 1, gsnap.desc);
  sqlite3_bind_int(insert.get(), 2, gsnap.is_user_locked);
  sqlite3_bind_int(insert.get(), 3, gsnap.cw_type);
  Bind(insert, 4, gsnap.gsnap_id);
  Bind(insert, 5, gsnap.tag);
  sqlite3_bind_int64(insert.get(), 6, gsnap.gsnap_time);
  sqlite3_bind_int(insert.get(), 7, gsnap.status);
  return sqlite3_step(insert.get()) == SQLITE_DONE;
}

}  // namespace

bool InsertTargetSnapshot(const std::string& path, const TargetSnapshot& tsnap,
                          const std::string& gsnapId) {
  const Database db = OpenToWrite(path);
  return db && Insert(db, tsnap, gsnapId);
}

bool InsertGsnapshot(const std::string& path, const Gsnapshot& gsnap) {
  const Database db = OpenToWrite(path);
  return db && Insert(db, gsnap);
}

bool ReadInfo(const std::string& path, const std::string& gsnapId, GsnapshotInfo& info) {
  const Database db = Open(path);
  if (!db) return false;

  const Statement meta = Prepare(db, std::string(kGsnapshotColumns) + " WHERE gsnap_id = ?");
  if (!meta) return false;
  Bind(meta, 1, gsnapId);
  if (sqlite3_step(meta.get()) != SQLITE_ROW) return false;
  ReadGsnapshot(meta, info);

  const Statement tsnaps = Prepare(
      db, "SELECT target_id, target_type, tsnap_id FROM target_snap_list WHERE gsnap_id = ?");
  if (!tsnaps) return false;
  Bind(tsnaps, 1, gsnapId);
  if (!ForEachRow(tsnaps, [&info](const Statement& row) {
        AppendTargetSnapshot(row, info.target_snapshots);
      })) {
    return false;
  }

  const Statement replicas = Prepare(
      db, "SELECT src_target_id, dst_target_id FROM target_replica_list WHERE gsnap_id = ?");
  if (!replicas) return false;
  Bind(replicas, 1, gsnapId);
  return ForEachRow(replicas, [&info](const Statement& row) {
    TargetReplica& replica = info.target_replicas.emplace_back("", "");
    replica.src_target_id = Text(row, 0);
    replica.dst_target_id = Text(row, 1);
  });
}

bool ListInfo(const std::string& path, const std::string& groupId,
              std::vector<GsnapshotInfo>& infos) {
  const Database db = Open(path);
  if (!db) return false;

  const Statement meta = Prepare(db, std::string(kGsnapshotColumns) + " WHERE tag = ?");
  if (!meta) return false;
  Bind(meta, 1, groupId);
  if (!ForEachRow(meta,
                  [&infos](const Statement& row) { ReadGsnapshot(row, infos.emplace_back("")); })) {
    return false;
  }

  std::unordered_map<std::string_view, GsnapshotInfo*> byId;
  byId.reserve(infos.size());
  for (GsnapshotInfo& info : infos) byId.emplace(info.gsnap_id, &info);
  return ForEachRow(
      Prepare(db, "SELECT target_id, target_type, tsnap_id, gsnap_id FROM target_snap_list"),
      [&byId](const Statement& row) {
        const auto found = byId.find(Text(row, 3));
        if (found != byId.end()) AppendTargetSnapshot(row, found->second->target_snapshots);
      });
}

bool ReadForRepair(const std::string& path, RepairInput& input) {
  const Database db = Open(path);
  if (!db) return false;
  const bool read =
      ForEachRow(Prepare(db, "SELECT gsnap_id, status FROM gsnap_meta"), [&](const Statement& row) {
        input.statuses[std::string(Text(row, 0))] = sqlite3_column_int(row.get(), 1);
      });
  return read && ForEachRow(Prepare(db,
                                    "SELECT target_id, target_type, tsnap_id, gsnap_id"
                                    " FROM target_snap_list"),
                            [&](const Statement& row) {
                              AppendTargetSnapshot(row, input.parts[std::string(Text(row, 3))]);
                            });
}

bool DeleteRows(const std::string& path, const std::string& table, const std::string& column,
                const std::string& value) {
  const Database db = OpenToWrite(path);
  if (!db) return false;
  const Statement remove = Prepare(db, "DELETE FROM " + table + " WHERE " + column + " = ?");
  if (!remove) return false;
  Bind(remove, 1, value);
  return sqlite3_step(remove.get()) == SQLITE_DONE;
}

bool ListTargetSnapshots(const std::string& path, TargetSnapshots& tsnaps) {
  const Database db = Open(path);
  if (!db) return false;
  return ForEachRow(
      Prepare(db, "SELECT target_id, target_type, tsnap_id, gsnap_id FROM target_snap_list"),
      [&tsnaps](const Statement& row) {
        VrelDR::Target target(std::string(Text(row, 0)), sqlite3_column_int(row.get(), 1));
        auto& tsnap = tsnaps[target].emplace_back();
        tsnap.target = std::move(target);
        tsnap.tsnap_id = Text(row, 2);
        tsnap.gsnap_id = Text(row, 3);
      });
}

bool AddGroupSnapshot(const std::string& path, const GsnapshotInfo& info) {
  const Database db = OpenToWrite(path);
  if (!db || sqlite3_exec(db.get(), "PRAGMA synchronous = OFF; BEGIN", nullptr, nullptr, nullptr) !=
                 SQLITE_OK) {
    return false;
  }
  bool isGood = Insert(db, info);
  for (const TargetSnapshot& each : info.target_snapshots) {
    isGood = isGood && Insert(db, each, info.gsnap_id);
  }
  return isGood && sqlite3_exec(db.get(), "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool Rename(const std::string& path, const std::string& from, const std::string& to) {
  const Database db = OpenToWrite(path);
  if (!db) return false;
  const auto update = [&](const char* table, const std::string& column) {
    return std::string("UPDATE ") + table + " SET " + column + " = replace(" + column + ", '" +
           from + "', '" + to + "');";
  };
  const std::string sql = "BEGIN;" + update("gsnap_meta", "gsnap_id") +
                          update("gsnap_meta", "tag") + update("target_replica_list", "gsnap_id") +
                          update("target_snap_list", "gsnap_id") + "COMMIT;";
  return sqlite3_exec(db.get(), sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

}  // namespace bench::raw
