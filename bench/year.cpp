// The host's records with a year of hourly group snapshots in them: what a call about one snapshot
// takes must not grow with how many there are.
#include <sqlite3.h>
#include <vreldr/target_manager.h>
#include <vreldr/target_operation.h>

#include <utility>
#include <vector>

#include "benchmarks.h"
#include "measure.h"
#include "peak_memory.h"
#include "year_host.h"

namespace bench {

namespace {

using VrelDR::TargetManager;
using VrelDR::TargetOperation;

constexpr long kMostKiB = 64 * 1024;  // that a listing of all targets may take

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
  return counted >=
         static_cast<long long>(YearHost::kTargets - YearHost::kWithoutHistory) * YearHost::kHours;
}

bool IsListed() {
  std::vector<VrelDR::TargetEntry> targets;
  return TargetManager().List(targets) && targets.size() == YearHost::kTargets &&
         targets.back().snapshots > YearHost::kHours - 1 && targets.back().is_existed;
}

}  // namespace

void RegisterYear(const std::filesystem::path& dir) {
  const auto pair = [](bool (*call)(const std::string&)) {
    return [call](benchmark::State& state, const YearHost& /*host*/) {
      MeasureTime(state, {[call] { return call("year"); }, [call] { return call("fresh"); }}, 2);
    };
  };
  RegisterOfYear(dir, "exists", 51, pair(IsOneThere));
  RegisterOfYear(dir, "get", 51, pair(IsOneGot));
  RegisterOfYear(dir, "take", 21,
                 [](benchmark::State& state, const YearHost& /*host*/) { MeasureTake(state); });
  RegisterOfYear(dir, "delete", 21,
                 [](benchmark::State& state, const YearHost& /*host*/) { MeasureDelete(state); });
  RegisterOfYear(dir, "target_list", 5, [](benchmark::State& state, const YearHost& host) {
    MeasureTime(state, {IsListed, [&] { return CountRaw(host); }}, 2);
  });
  RegisterOfYear(dir, "target_list/KiB", 3, [](benchmark::State& state, const YearHost& /*host*/) {
    MeasurePeak(state, IsListed, kMostKiB);
  });
}

}  // namespace bench
