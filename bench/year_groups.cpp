// Groups of a host that keeps a year of hourly group snapshots.
#include <sqlite3.h>
#include <vreldr/session.h>

#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "benchmarks.h"
#include "groups/group_store.h"
#include "measure.h"
#include "output/console.h"
#include "output/failure.h"
#include "output/formatter.h"
#include "peak_memory.h"
#include "raw.h"
#include "real_creation.h"
#include "tool_group.h"
#include "verbs/verbs.h"
#include "year_host.h"

namespace bench {

namespace {

constexpr long kMostKiB = 64 * 1024;
constexpr char kRule[] = "last=24,hourly=48,daily=30,weekly=8,monthly=12";
constexpr char kFailing[] =
    "CREATE TRIGGER failing BEFORE INSERT ON target_snap_list WHEN NEW.target_id ="
    " 'full-target-19' BEGIN SELECT RAISE(ABORT, 'no'); END";

// What the tool does and says, in bytes; nothing when it failed.
std::size_t RunVerb(const drgroupctl::Verb& verb, const drgroupctl::Arguments& args) {
  try {
    const VrelDR::Session session;
    drgroupctl::Warnings warnings;
    const drgroupctl::Report report = verb.run(args, warnings);
    return drgroupctl::MakeTableFormatter()->Format(report, warnings.Printed()).size();
  } catch (const drgroupctl::Failure&) {
    return 0;
  }
}

// The rows of a target with all of their columns, and the names of its snapshots.
bool ListRaw(const YearHost& host, const Database& db, const std::string& volume,
             const std::string& targetId) {
  const Statement rows = Prepare(db, "SELECT * FROM snapshots WHERE target_id = ?1 ORDER BY seq");
  sqlite3_bind_text(rows.get(), 1, targetId.c_str(), -1, SQLITE_STATIC);
  std::vector<std::vector<std::string>> held;
  while (sqlite3_step(rows.get()) == SQLITE_ROW) {
    std::vector<std::string>& row = held.emplace_back();
    for (int i = 0; i < sqlite3_column_count(rows.get()); ++i) {
      if (sqlite3_column_type(rows.get(), i) != SQLITE_TEXT) {
        (void)sqlite3_column_int64(rows.get(), i);
        continue;
      }
      row.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(rows.get(), i)));
    }
  }
  std::set<std::string> names;
  for (const auto& each : std::filesystem::directory_iterator(host.SnapshotsOf(volume, targetId))) {
    names.insert(each.path().filename());
  }
  return held.size() >= YearHost::kHours && names.size() >= YearHost::kHours;
}

// All that the group's targets and its catalogue have, once.
bool ReadGroupRaw(const YearHost& host) {
  std::vector<VrelDRGroup::GsnapshotInfo> infos;
  const std::string dir = drgroupctl::GroupDirectory(YearHost::kFull);
  if (!raw::ListInfo(drgroupctl::DatabasePath(dir), YearHost::kFull, infos)) return false;
  const Database db = host.Open();
  for (int i = 0; i < YearHost::kGroupSize; ++i) {
    const std::string target = TargetOf(YearHost::kFull, i);
    if (!ListRaw(host, db, "a", target) || !ListRaw(host, db, "b", target + "-dr")) return false;
  }
  return infos.size() >= YearHost::kHours;
}

RealCreation CreationIn(const std::string& groupId) {
  const drgroupctl::Group group = drgroupctl::LoadGroup(groupId);
  return {groupId, group.directory, group.targets};
}

void MeasureCreate(benchmark::State& state, const YearHost& host) {
  RealCreation creation = CreationIn(YearHost::kFull);
  const auto raw = [&] {
    for (int i = 0; i < YearHost::kGroupSize; ++i) {
      for (const bool again : {false, true}) {
        (void)again;
        if (!ListRaw(host, host.Open(), "a", TargetOf(YearHost::kFull, i))) return false;
      }
    }
    return creation.Raw();
  };
  MeasureTime(state, {[&] { return creation.Ours(); }, raw, [&] { creation.CleanUp(); }}, 1.25);
}

void MeasureHour(benchmark::State& state, const YearHost& /*host*/) {
  RealCreation full = CreationIn(YearHost::kFull);
  RealCreation bare = CreationIn(YearHost::kBare);
  MeasureTime(state,
              {[&] { return full.Ours(); }, [&] { return bare.Raw(); },
               [&] {
                 full.CleanUp();
                 bare.CleanUp();
               }},
              1.5);
}

void MeasureStatus(benchmark::State& state, const YearHost& /*host*/) {
  const auto status = [](const char* group) {
    return RunVerb(drgroupctl::Status(), ArgumentsOf(group)) != 0;
  };
  MeasureTime(
      state, {[&] { return status(YearHost::kFull); }, [&] { return status(YearHost::kBare); }}, 2);
}

void MeasureList(benchmark::State& state, const YearHost& /*host*/) {
  const std::string path = drgroupctl::DatabasePath(drgroupctl::GroupDirectory(YearHost::kFull));
  MeasureTime(state,
              {[] {
                 return RunVerb(drgroupctl::SnapshotList(), ArgumentsOf(YearHost::kFull)) >
                        YearHost::kHours;
               },
               [&] {
                 std::vector<VrelDRGroup::GsnapshotInfo> infos;
                 return raw::ListInfo(path, YearHost::kFull, infos);
               }},
              1.25);
}

bool LookAtPruning(bool byRule) {
  drgroupctl::Arguments args = ArgumentsOf(YearHost::kFull, {"--dry-run"});
  if (byRule) {
    args.Set("--keep", {kRule});
    args.Set("--explain", {});
  }
  return RunVerb(drgroupctl::SnapshotPrune(), args) > YearHost::kHours;
}

// The last target's part cannot be recorded, and what was taken goes again.
bool FailToCreate() {
  const Database db = YearHost::OpenCatalogue(YearHost::kFull);
  RunSql(db, kFailing);
  const std::size_t said = RunVerb(drgroupctl::SnapshotCreate(), ArgumentsOf(YearHost::kFull));
  RunSql(db, "DROP TRIGGER failing");
  return said == 0;
}

}  // namespace

void RegisterYearOfGroups(const std::filesystem::path& dir) {
  RegisterOfYear(dir, "create of 20", 7, MeasureCreate);
  RegisterOfYear(dir, "an hour, of each group of 20", 7, MeasureHour);
  RegisterOfYear(dir, "status of 20", 15, MeasureStatus);
  RegisterOfYear(dir, "snapshot list", 15, MeasureList);
  struct Work {
    const char* name;
    bool (*run)();
  };
  const Work works[] = {{"prune", [] { return LookAtPruning(false); }},
                        {"prune by a rule", [] { return LookAtPruning(true); }},
                        {"failed create", FailToCreate}};
  for (const Work& each : works) {
    RegisterOfYear(dir, each.name, 3, [run = each.run](auto& state, const YearHost& host) {
      MeasureTime(state, {run, [&] { return ReadGroupRaw(host); }}, 3);
    });
    RegisterOfYear(dir, std::string(each.name) + "/KiB", 1,
                   [run = each.run](auto& state, const YearHost& /*host*/) {
                     MeasurePeak(state, run, kMostKiB);
                   });
  }
}

}  // namespace bench
