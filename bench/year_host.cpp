#include "year_host.h"

#include <vreldr/target_manager.h>
#include <vreldr/target_operation.h>

#include <stdexcept>

#include "groups/group_store.h"
#include "loop_volume.h"
#include "tool_group.h"

namespace bench {

namespace {

using VrelDR::TargetOperation;

// Groups of twenty have their snapshots in common cuts; a target and its copy have the same
// snapshots.
constexpr const char* kFillRecords = R"(
INSERT INTO targets (id, type, volume, state, last_snap_time, locator)
  WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < ?1)
  SELECT printf('target-%05d-in-a-group-of-twenty', i), 2, 'a', 2, 1700000000,
         printf('target-%05d-in-a-group-of-twenty', i) FROM n;
INSERT INTO snapshots (target_id, seq, snap_id, create_time, state, description, taken_by, maker,
                       cut_id)
  WITH RECURSIVE h(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM h WHERE i + 1 < ?2)
  SELECT t.id, 1000 + h.i * ?3 + t.rowid,
         printf('%08x-hour-of-%s', h.i * 2654435761 % 4294967296, replace(t.id, '-dr', '')),
         1600000000 + h.i * 3600, 2, '', 'drgroupctl', '8d1f3c1e7a1b4b07',
         printf('cut-%08d-of-group-%06d-of-the-year', h.i,
                CASE WHEN t.id LIKE 'full-%' THEN 0 ELSE 1 + t.rowid / 20 END)
  FROM targets t CROSS JOIN h WHERE t.id <> 'fresh' AND t.id NOT LIKE 'bare-%' ORDER BY t.id;
INSERT INTO cuts (id, members, grade, is_app_consistent, method, skew_ms, held_ms, is_made_by_sync)
  WITH RECURSIVE h(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM h WHERE i + 1 < ?2),
       g(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM g WHERE i + 1 < ?3 / 20)
  SELECT printf('cut-%08d-of-group-%06d-of-the-year', h.i, g.i), 20, 2, 0, 'one transaction', 0, 0, 1
  FROM g CROSS JOIN h;
UPDATE snapshot_sequence SET last = (SELECT max(seq) FROM snapshots);
)";

constexpr const char* kFillCatalogue = R"(
BEGIN;
INSERT INTO gsnap_meta ("desc", is_user_locked, cw_type, gsnap_id, tag, gsnap_time, status)
  WITH RECURSIVE h(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM h WHERE i + 1 < 8760)
  SELECT '', 0, 1, 'full-gsnap-' || (1600000000 + i * 3600), 'full', 1600000000 + i * 3600, 1 FROM h;
INSERT INTO target_snap_list (target_id, target_type, tsnap_id, gsnap_id)
  WITH RECURSIVE h(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM h WHERE i + 1 < 8760),
       t(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM t WHERE i + 1 < 20)
  SELECT 'full-target-' || t.i, 2,
         printf('%08x-hour-of-full-target-%d', h.i * 2654435761 % 4294967296, t.i),
         'full-gsnap-' || (1600000000 + h.i * 3600)
  FROM h CROSS JOIN t;
COMMIT;
)";

[[noreturn]] void Fail(const Database& db) {
  throw std::runtime_error(sqlite3_errmsg(db.get()));
}

Database OpenFile(const std::filesystem::path& path) {
  sqlite3* opened = nullptr;
  const int code = sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READWRITE, nullptr);
  Database db(opened, sqlite3_close);
  if (code != SQLITE_OK) throw std::runtime_error("cannot open " + path.string());
  return db;
}

// Every statement of the text, with those of these numbers that it has a place for.
void RunWith(const Database& db, const char* sql, const std::vector<int>& numbers) {
  while (*sql != '\0') {
    sqlite3_stmt* prepared = nullptr;
    if (sqlite3_prepare_v2(db.get(), sql, -1, &prepared, &sql) != SQLITE_OK) Fail(db);
    const Statement statement(prepared, sqlite3_finalize);
    if (!statement) continue;
    for (int i = 0; i < sqlite3_bind_parameter_count(prepared); ++i) {
      sqlite3_bind_int(prepared, i + 1, numbers[static_cast<std::size_t>(i)]);
    }
    if (sqlite3_step(prepared) != SQLITE_DONE) Fail(db);
  }
}

std::vector<std::string> TextsOf(const Database& db, const char* sql) {
  const Statement statement = Prepare(db, sql);
  std::vector<std::string> texts;
  while (sqlite3_step(statement.get()) == SQLITE_ROW) {
    texts.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(statement.get(), 0)));
  }
  return texts;
}

}  // namespace

Statement Prepare(const Database& db, const char* sql) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db.get(), sql, -1, &statement, nullptr) != SQLITE_OK) Fail(db);
  return {statement, sqlite3_finalize};
}

void RunSql(const Database& db, const std::string& sql) {
  if (sqlite3_exec(db.get(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) Fail(db);
}

YearHost::YearHost(const std::filesystem::path& dir) : dir_(dir) {
  for (const char* volume : {"a", "b"}) std::filesystem::create_directories(dir / volume);
  UseHost(dir, (dir / "a").string(), (dir / "b").string());
  for (const char* id : {"fresh", "year"}) {
    VrelDR::TargetSpec spec;
    spec.target = VrelDR::Target(id, VrelDR::kTargetShare);
    spec.volume = "a";
    const VrelDR::TargetManager manager;
    if (!manager.Create(spec)) throw std::runtime_error("cannot make a target");
    (void)Take(id);  // makes the directory of its snapshots
  }
  MakeProtectedGroup(kFull, kGroupSize);
  MakeProtectedGroup(kBare, kGroupSize);
  Fill();
  FillCatalogue();
}

Database YearHost::Open() const {
  return OpenFile(dir_ / "state/replica.db");
}

Database YearHost::OpenCatalogue(const std::string& groupId) {
  return OpenFile(drgroupctl::DatabasePath(drgroupctl::GroupDirectory(groupId)));
}

std::filesystem::path YearHost::SnapshotsOf(const std::string& volume,
                                            const std::string& targetId) const {
  return dir_ / volume / ".vreldr/snapshots" / targetId;
}

std::string YearHost::Take(const std::string& targetId) {
  std::string snapId;
  const TargetOperation operation(VrelDR::kTargetShare, targetId);
  return operation.TakeSnapshot({}, snapId) ? snapId : std::string();
}

bool YearHost::Delete(const std::string& targetId, const std::string& snapId) {
  return TargetOperation(VrelDR::kTargetShare, targetId).DeleteSnapshot(snapId);
}

// With the tables that the host has made; their indexes are made of the whole at the end.
void YearHost::Fill() const {
  const Database db = Open();
  RunSql(db, "PRAGMA synchronous = OFF; PRAGMA cache_size = -65536; PRAGMA wal_autocheckpoint = 0");
  RunSql(db, "PRAGMA journal_mode = OFF");
  const char* const kIndexes =
      " FROM sqlite_master WHERE tbl_name = 'snapshots' AND sql LIKE 'CREATE%INDEX%'";
  const std::vector<std::string> names =
      TextsOf(db, (std::string("SELECT name") + kIndexes).c_str());
  const std::vector<std::string> indexes =
      TextsOf(db, (std::string("SELECT sql") + kIndexes).c_str());
  RunSql(db, "BEGIN");
  for (const std::string& each : names) RunSql(db, "DROP INDEX " + each);
  const int others = kTargets - 2 - 4 * kGroupSize;
  RunWith(db, kFillRecords, {others, kHours, kTargets + 100});
  for (const std::string& each : indexes) RunSql(db, each);
  RunSql(db, "COMMIT");
  RunSql(db, "PRAGMA journal_mode = WAL");
  for (const std::string& each : TextsOf(db, "SELECT id FROM targets WHERE volume = 'a'")) {
    std::filesystem::create_directories(dir_ / "a" / each);
  }
  MakeNames(db, "a", "year");
  for (int i = 0; i < kGroupSize; ++i) {
    MakeNames(db, "a", TargetOf(kFull, i));
    MakeNames(db, "b", TargetOf(kFull, i) + "-dr");
  }
}

// Of the snapshots that are recorded. No call that is measured looks at more than their names.
void YearHost::MakeNames(const Database& db, const std::string& volume,
                         const std::string& targetId) const {
  const std::filesystem::path snapshots = SnapshotsOf(volume, targetId);
  const std::filesystem::path one = dir_ / ("bytes-of-" + targetId);
  const std::string sql =
      "SELECT snap_id FROM snapshots WHERE create_time < 1700000000 AND target_id = '" + targetId +
      "'";
  Shell("touch '" + one.string() + "'");
  for (const std::string& each : TextsOf(db, sql.c_str())) {
    std::filesystem::create_hard_link(one, snapshots / each);
  }
}

void YearHost::FillCatalogue() const {
  const Database db = OpenCatalogue(kFull);
  RunSql(db, "PRAGMA synchronous = OFF");
  RunSql(db, kFillCatalogue);
}

const YearHost& TheYear(const std::filesystem::path& dir) {
  static const YearHost host(dir);
  UseHost(dir, (dir / "a").string(), (dir / "b").string());
  return host;
}

void RegisterOfYear(const std::filesystem::path& dir, const std::string& name, int rounds,
                    const std::function<void(benchmark::State&, const YearHost&)>& measure) {
  benchmark::RegisterBenchmark(
      ("year/" + name).c_str(),
      [dir, measure](benchmark::State& state) { measure(state, TheYear(dir)); })
      ->UseManualTime()
      ->Iterations(rounds);
}

}  // namespace bench
