// The host's records with a year of hourly group snapshots in them: what a call about one snapshot
// takes must not grow with how many there are.
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vreldr/target_manager.h>
#include <vreldr/target_operation.h>

#include <memory>
#include <set>
#include <stdexcept>
#include <vector>

#include "benchmarks.h"
#include "loop_volume.h"
#include "measure.h"
#include "peak_memory.h"

namespace bench {

namespace {

using VrelDR::Target;
using VrelDR::TargetManager;
using VrelDR::TargetOperation;
using Database = std::unique_ptr<sqlite3, decltype(&sqlite3_close)>;
using Statement = std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)>;

constexpr int kTargets = 1000;
constexpr int kHours = 8760;
constexpr long kMostKiB = 64 * 1024;  // that a listing of all targets may take

// Of the targets that are listed; groups of twenty have their snapshots in common cuts.
constexpr const char* kFillTargets = R"(
WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < ?1)
INSERT INTO targets (id, type, volume, state, last_snap_time, locator)
  SELECT printf('target-%05d-in-a-group-of-twenty', i), 2, 'a', 2, 1700000000,
         printf('target-%05d-in-a-group-of-twenty', i) FROM n;
)";
constexpr const char* kFillSnapshots = R"(
WITH RECURSIVE h(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM h WHERE i + 1 < ?1)
INSERT INTO snapshots (target_id, seq, snap_id, create_time, state, description, taken_by, maker,
                       cut_id)
  SELECT t.id, 1 + h.i * ?2 + t.rowid, lower(hex(randomblob(18))), 1600000000 + h.i * 3600, 2,
         'hourly', 'drgroupctl', '8d1f3c1e7a1b4b07',
         printf('cut-%08d-of-group-%06d-of-the-year', h.i, t.rowid / 20)
  FROM targets t CROSS JOIN h WHERE t.id <> 'fresh' ORDER BY t.id;
)";

[[noreturn]] void Fail(const Database& db) {
  throw std::runtime_error(sqlite3_errmsg(db.get()));
}

// A host with a target "year", which has a snapshot for every hour of one, a target "fresh", which
// has none, and others like "year" whose snapshots are recorded alone.
class YearHost {
 public:
  explicit YearHost(const std::filesystem::path& dir)
      : records_(dir / "state/replica.db"), volume_(dir / "a") {
    std::filesystem::create_directories(volume_);
    UseHost(dir, volume_.string(), (dir / "b").string());
    std::filesystem::create_directories(dir / "b");
    for (const char* id : {"fresh", "year"}) {
      VrelDR::TargetSpec spec;
      spec.target = Target(id, VrelDR::kTargetShare);
      spec.volume = "a";
      const TargetManager manager;
      if (!manager.Create(spec)) throw std::runtime_error("cannot make a target");
      (void)Take(id);  // makes the directory of its snapshots
    }
    Fill();
  }

  Database Open() const {
    sqlite3* opened = nullptr;
    sqlite3_open_v2(records_.c_str(), &opened, SQLITE_OPEN_READWRITE, nullptr);
    return {opened, sqlite3_close};
  }

  static std::string Take(const std::string& targetId) {
    std::string snapId;
    const TargetOperation operation(VrelDR::kTargetShare, targetId);
    return operation.TakeSnapshot({}, snapId) ? snapId : std::string();
  }
  static bool Delete(const std::string& targetId, const std::string& snapId) {
    return TargetOperation(VrelDR::kTargetShare, targetId).DeleteSnapshot(snapId);
  }

 private:
  static void Run(const Database& db, const std::string& sql) {
    if (sqlite3_exec(db.get(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) Fail(db);
  }
  static void Run(const Database& db, const char* sql, int first, int second) {
    const Statement statement = Prepare(db, sql);
    sqlite3_bind_int(statement.get(), 1, first);
    if (sqlite3_bind_parameter_count(statement.get()) > 1) {
      sqlite3_bind_int(statement.get(), 2, second);
    }
    if (sqlite3_step(statement.get()) != SQLITE_DONE) Fail(db);
  }
  static Statement Prepare(const Database& db, const char* sql) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db.get(), sql, -1, &statement, nullptr) != SQLITE_OK) Fail(db);
    return {statement, sqlite3_finalize};
  }
  static std::vector<std::string> TextsOf(const Database& db, const char* sql) {
    const Statement statement = Prepare(db, sql);
    std::vector<std::string> texts;
    while (sqlite3_step(statement.get()) == SQLITE_ROW) {
      texts.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(statement.get(), 0)));
    }
    return texts;
  }

  // With the tables that the host has made; their indexes are made of the whole at the end.
  void Fill() const {
    const Database db = Open();
    if (!db) throw std::runtime_error("cannot open the records");
    Run(db, "PRAGMA synchronous = OFF; PRAGMA cache_size = -65536; PRAGMA wal_autocheckpoint = 0");
    Run(db, "PRAGMA journal_mode = OFF");
    const std::vector<std::string> names =
        TextsOf(db,
                "SELECT name FROM sqlite_master WHERE tbl_name = 'snapshots' AND sql LIKE"
                " 'CREATE%INDEX%'");
    const std::vector<std::string> indexes =
        TextsOf(db,
                "SELECT sql FROM sqlite_master WHERE tbl_name = 'snapshots' AND sql LIKE"
                " 'CREATE%INDEX%'");
    Run(db, "BEGIN");
    for (const std::string& each : names) Run(db, "DROP INDEX " + each);
    Run(db, kFillTargets, kTargets - 2, 0);
    Run(db, "DELETE FROM snapshots");
    Run(db, kFillSnapshots, kHours, kTargets + 1);
    for (const std::string& each : indexes) Run(db, each);
    Run(db, "UPDATE snapshot_sequence SET last = (SELECT max(seq) FROM snapshots)");
    Run(db, "COMMIT");
    Run(db, "PRAGMA journal_mode = WAL");
    for (const std::string& each : TextsOf(db, "SELECT id FROM targets")) {
      std::filesystem::create_directories(volume_ / each);
    }
    const std::filesystem::path snapshots = volume_ / ".vreldr/snapshots/year";
    for (const std::string& each :
         TextsOf(db, "SELECT snap_id FROM snapshots WHERE target_id = 'year'")) {
      std::filesystem::create_directories(snapshots / each);
    }
  }

  std::filesystem::path records_, volume_;
};

const YearHost& TheYear(const std::filesystem::path& dir) {
  static const YearHost host(dir);
  return host;
}

// One that each of the two has, taken when it is first asked for.
std::string OneOf(const std::string& targetId) {
  static const std::string ofYear = YearHost::Take("year");
  static const std::string ofFresh = YearHost::Take("fresh");
  return targetId == "year" ? ofYear : ofFresh;
}

bool IsOneThere(const std::string& targetId) {
  return TargetOperation(VrelDR::kTargetShare, targetId).IsSnapshotExisted(OneOf(targetId));
}

bool IsOneGot(const std::string& targetId) {
  return TargetOperation(VrelDR::kTargetShare, targetId).GetSnapshot(OneOf(targetId)).snap_id ==
         OneOf(targetId);
}

void MeasureTake(benchmark::State& state) {
  std::string targetId, snapId;
  const auto take = [&](const char* id) {
    targetId = id;
    snapId = YearHost::Take(id);
    return !snapId.empty();
  };
  MeasureTime(state,
              {[&] { return take("year"); }, [&] { return take("fresh"); },
               [&] { (void)YearHost::Delete(targetId, snapId); }},
              2);
}

void MeasureDelete(benchmark::State& state) {
  std::string ofYear = YearHost::Take("year");
  std::string ofFresh = YearHost::Take("fresh");
  MeasureTime(state,
              {[&] { return YearHost::Delete("year", std::exchange(ofYear, {})); },
               [&] { return YearHost::Delete("fresh", std::exchange(ofFresh, {})); },
               [&] {
                 if (ofYear.empty()) ofYear = YearHost::Take("year");
                 if (ofFresh.empty()) ofFresh = YearHost::Take("fresh");
               }},
              2);
}

// As many bytes as the host reads: every target's row, and one count by an index for each.
bool CountRaw(const YearHost& host) {
  const Database db = host.Open();
  sqlite3_stmt* rows = nullptr;
  sqlite3_stmt* count = nullptr;
  sqlite3_prepare_v2(db.get(), "SELECT * FROM targets ORDER BY id", -1, &rows, nullptr);
  sqlite3_prepare_v2(db.get(), "SELECT count(*) FROM snapshots WHERE target_id = ?1", -1, &count,
                     nullptr);
  const Statement all(rows, sqlite3_finalize);
  const Statement one(count, sqlite3_finalize);
  if (!all || !one) return false;
  long long counted = 0;
  while (sqlite3_step(rows) == SQLITE_ROW) {
    sqlite3_bind_text(count, 1, reinterpret_cast<const char*>(sqlite3_column_text(rows, 0)), -1,
                      SQLITE_TRANSIENT);
    if (sqlite3_step(count) != SQLITE_ROW) return false;
    counted += sqlite3_column_int64(count, 0);
    sqlite3_reset(count);
  }
  return counted >= static_cast<long long>(kTargets - 1) * kHours;
}

bool IsListed() {
  std::vector<VrelDR::TargetEntry> targets;
  return TargetManager().List(targets) && targets.size() == kTargets &&
         targets.back().snapshots >= kHours && targets.back().is_existed;
}

// The KiB that a listing takes in a process of its own; negative when it failed.
long ListOnceInChild() {
  int ends[2];
  if (pipe(ends) != 0) return -1;
  const pid_t pid = fork();
  if (pid == 0) {
    const long before = CurrentMemory();
    const long taken = IsListed() ? PeakSince(before) : -1;
    const bool isTold = write(ends[1], &taken, sizeof taken) == sizeof taken;
    _exit(isTold ? 0 : 1);
  }
  close(ends[1]);
  long taken = -1;
  if (read(ends[0], &taken, sizeof taken) != sizeof taken) taken = -1;
  close(ends[0]);
  if (pid > 0) waitpid(pid, nullptr, 0);
  return taken;
}

void MeasurePeak(benchmark::State& state) {
  std::vector<double> taken;
  for (auto iteration : state) {
    (void)iteration;
    taken.push_back(static_cast<double>(ListOnceInChild()));
    if (taken.back() < 0) {
      state.SkipWithError("a listing in a process of its own failed");
      return;
    }
    state.SetIterationTime(1);
  }
  Report(state, Median(taken), kMostKiB, Median(taken) / kMostKiB, 1);
}

template <class Measure>
void Register(const std::filesystem::path& dir, const char* name, int rounds, Measure measure) {
  benchmark::RegisterBenchmark((std::string("year/") + name).c_str(),
                               [dir, measure](benchmark::State& state) {
                                 const YearHost& host = TheYear(dir);
                                 measure(state, host);
                               })
      ->UseManualTime()
      ->Iterations(rounds);
}

}  // namespace

void RegisterYear(const std::filesystem::path& dir) {
  const auto pair = [](bool (*call)(const std::string&)) {
    return [call](benchmark::State& state, const YearHost& /*host*/) {
      MeasureTime(state, {[call] { return call("year"); }, [call] { return call("fresh"); }}, 2);
    };
  };
  Register(dir, "exists", 51, pair(IsOneThere));
  Register(dir, "get", 51, pair(IsOneGot));
  Register(dir, "take", 21,
           [](benchmark::State& state, const YearHost& /*host*/) { MeasureTake(state); });
  Register(dir, "delete", 21,
           [](benchmark::State& state, const YearHost& /*host*/) { MeasureDelete(state); });
  Register(dir, "target_list", 5, [](benchmark::State& state, const YearHost& host) {
    MeasureTime(state, {IsListed, [&] { return CountRaw(host); }}, 2);
  });
  Register(dir, "target_list/KiB", 3,
           [](benchmark::State& state, const YearHost& /*host*/) { MeasurePeak(state); });
}

}  // namespace bench
