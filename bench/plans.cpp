#include <sqlite3.h>
#include <sys/stat.h>
#include <vreldr/session.h>

#include <memory>
#include <stdexcept>

#include "action/group_action.h"
#include "benchmarks.h"
#include "groups/group_store.h"
#include "loop_volume.h"
#include "measure.h"
#include "output/console.h"
#include "tool_group.h"
#include "verbs/verbs.h"

namespace bench {

namespace {

using Statement = std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)>;

// What the host's records have of one target and its plan, one select each.
constexpr const char* kSelects[] = {
    "SELECT * FROM plans WHERE protected_target_id = ?1 OR dr_target_id = ?1 ORDER BY seq",
    "SELECT * FROM targets WHERE id = ?1",
    "SELECT * FROM targets WHERE id = ?1 || '-dr'",
    "SELECT * FROM snapshots WHERE target_id = ?1 ORDER BY seq",
    "SELECT * FROM snapshots WHERE target_id = ?1 || '-dr' ORDER BY seq",
    "SELECT * FROM retention_locks WHERE target_id = ?1 || '-dr'",
    "SELECT * FROM journals WHERE plan_id = (SELECT id FROM plans WHERE protected_target_id = ?1)",
    "SELECT * FROM sync_reports WHERE plan_id ="
    " (SELECT id FROM plans WHERE protected_target_id = ?1)",
    "SELECT * FROM pending_snaps WHERE plan_id ="
    " (SELECT id FROM plans WHERE protected_target_id = ?1)",
};

// The same of all targets at once.
constexpr const char* kTableSelects[] = {
    "SELECT * FROM plans ORDER BY seq", "SELECT * FROM targets",  "SELECT * FROM snapshots",
    "SELECT * FROM retention_locks",    "SELECT * FROM journals", "SELECT * FROM sync_reports",
    "SELECT * FROM pending_snaps",
};

// Groups of so many empty shares on one directory, protected onto another and synced once.
class Groups {
 public:
  explicit Groups(const std::filesystem::path& dir) : dir_(dir) {
    for (const char* volume : {"a", "b"}) std::filesystem::create_directories(dir / volume);
    UseHost(dir, (dir / "a").string(), (dir / "b").string());
  }

  static std::string Name(int size) { return "g" + std::to_string(size); }

  // Makes the group unless it is there.
  static void Require(int size) {
    if (std::filesystem::exists(drgroupctl::LinkDirectory(Name(size)))) return;
    MakeProtectedGroup(Name(size), size);
  }

  // Reads every record of the group's targets and looks for their bytes: target by target, or table
  // by table.
  bool ReadRaw(int size) const {
    const Database db = Open();
    const std::vector<Statement> selects = Prepare(db, kSelects);
    for (int i = 0; i < size; ++i) {
      const std::string target = Target(size, i);
      for (const Statement& select : selects) {
        sqlite3_bind_text(select.get(), 1, target.c_str(), -1, SQLITE_STATIC);
        Read(select);
      }
      if (!IsThere(target)) return false;
    }
    return rows_ != 0;
  }
  bool ReadTables(int size) const {
    const Database db = Open();
    for (const Statement& select : Prepare(db, kTableSelects)) Read(select);
    for (int i = 0; i < size; ++i) {
      if (!IsThere(Target(size, i))) return false;
    }
    return rows_ != 0;
  }

 private:
  using Database = std::unique_ptr<sqlite3, decltype(&sqlite3_close)>;

  static std::string Target(int size, int number) { return TargetOf(Name(size), number); }
  Database Open() const {
    sqlite3* opened = nullptr;
    sqlite3_open_v2((dir_ / "state/replica.db").c_str(), &opened, SQLITE_OPEN_READONLY, nullptr);
    return {opened, sqlite3_close};
  }
  template <std::size_t count>
  static std::vector<Statement> Prepare(const Database& db, const char* const (&selects)[count]) {
    std::vector<Statement> prepared;
    for (const char* sql : selects) {
      sqlite3_stmt* statement = nullptr;
      if (sqlite3_prepare_v2(db.get(), sql, -1, &statement, nullptr) != SQLITE_OK) {
        throw std::runtime_error(sqlite3_errmsg(db.get()));
      }
      prepared.emplace_back(statement, sqlite3_finalize);
    }
    return prepared;
  }
  void Read(const Statement& select) const {
    while (sqlite3_step(select.get()) == SQLITE_ROW) {
      ++rows_;
      for (int i = 0; i < sqlite3_column_count(select.get()); ++i) {
        sink_ += sqlite3_column_type(select.get(), i) == SQLITE_TEXT
                     ? sqlite3_column_text(select.get(), i)[0]
                     : sqlite3_column_int64(select.get(), i);
      }
    }
    sqlite3_reset(select.get());
  }
  bool IsThere(const std::string& target) const {
    struct stat st;
    return stat((dir_ / "a" / target).c_str(), &st) == 0 &&
           stat((dir_ / "b" / (target + "-dr")).c_str(), &st) == 0;
  }

  std::filesystem::path dir_;
  mutable long rows_ = 0;
  mutable long long sink_ = 0;  // of what stands in the rows
};

// Registers one measurement of a group, which is made when it is first needed.
void Register(const std::filesystem::path& dir, const std::string& what, int size,
              const std::function<bool()>& ours, bool (Groups::*raw)(int) const, double target) {
  benchmark::RegisterBenchmark(
      (what + " of " + std::to_string(size) + " targets, us").c_str(),
      [dir, size, ours, raw, target](benchmark::State& state) {
        const Groups groups(dir);
        Groups::Require(size);
        MeasureTime(state, {ours, [&] { return (groups.*raw)(size); }}, target);
      })
      ->UseManualTime()
      ->Iterations(15);
}

}  // namespace

void RegisterPlans(const std::filesystem::path& dir) {
  for (const int size : {1, 16, 64, 256}) {
    const std::filesystem::path place = dir / Groups::Name(size);
    Register(
        place, "precheck", size,
        [size] {
          const VrelDR::Session session;
          const auto prepared =
              drgroupctl::PrepareOnGroup("sync", drgroupctl::LoadGroup(Groups::Name(size)));
          return !drgroupctl::RefusalOf(prepared.title, drgroupctl::CheckTargets(prepared));
        },
        &Groups::ReadRaw, 0);
    Register(
        place, "status", size,
        [size] {
          const VrelDR::Session session;
          drgroupctl::Warnings warnings;
          return !drgroupctl::Status()
                      .run(ArgumentsOf(Groups::Name(size)), warnings)
                      .Parts()
                      .empty();
        },
        &Groups::ReadTables, 1.5);
  }
}

}  // namespace bench
