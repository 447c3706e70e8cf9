#pragma once

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace bench {

using Database = std::unique_ptr<sqlite3, decltype(&sqlite3_close)>;
using Statement = std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)>;

// Throw std::runtime_error.
Statement Prepare(const Database& db, const char* sql);
void RunSql(const Database& db, const std::string& sql);

// A host whose records have a year of hourly snapshots. Its targets, on the volumes "a" and "b":
// "year", which has a snapshot for every hour, and "fresh", which has one; those of a group kFull
// and their copies, which have the snapshots of every hour, all recorded in the group's catalogue,
// and those of a group kBare, which have what one sync took; and others that are recorded alone,
// with a year each. The groups' hourly snapshots were made by syncs, in a cut each.
class YearHost {
 public:
  static constexpr int kTargets = 1000;
  static constexpr int kHours = 8760;
  static constexpr int kGroupSize = 20;
  static constexpr int kWithoutHistory = 2 * kGroupSize + 1;
  static constexpr char kFull[] = "full";
  static constexpr char kBare[] = "bare";

  // Makes one in `dir`, which is used by this process from now on.
  explicit YearHost(const std::filesystem::path& dir);

  Database Open() const;
  static Database OpenCatalogue(const std::string& groupId);

  // Where the snapshots of a target on the volume are.
  std::filesystem::path SnapshotsOf(const std::string& volume, const std::string& targetId) const;

  static std::string Take(const std::string& targetId);
  static bool Delete(const std::string& targetId, const std::string& snapId);

 private:
  void Fill() const;
  void FillCatalogue() const;
  void MakeNames(const Database& db, const std::string& volume, const std::string& targetId) const;

  std::filesystem::path dir_;
};

// The one in `dir`, made at the first call and used again whatever was used in between.
const YearHost& TheYear(const std::filesystem::path& dir);

// Registers a measurement of it.
void RegisterOfYear(const std::filesystem::path& dir, const std::string& name, int rounds,
                    const std::function<void(benchmark::State&, const YearHost&)>& measure);

}  // namespace bench
