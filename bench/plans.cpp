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

// Groups of so many empty shares on one directory, protected onto another and synced once.
class Groups {
 public:
  explicit Groups(const std::filesystem::path& dir) : dir_(dir) {
    for (const char* volume : {"a", "b"}) std::filesystem::create_directories(dir / volume);
    UseHost(dir, (dir / "a").string(), (dir / "b").string());
  }

  static std::string Name(int size) { return "g" + std::to_string(size); }

  // Makes the group unless it is there.
  void Require(int size) const {
    if (std::filesystem::exists(drgroupctl::LinkDirectory(Name(size)))) return;
    drgroupctl::Warnings warnings;
    drgroupctl::Arguments group;
    std::vector<std::string> targets;
    for (int i = 0; i < size; ++i) {
      drgroupctl::Arguments target;
      targets.push_back(Name(size) + "-target-" + std::to_string(i));
      target.Set("ID", {targets.back()});
      target.Set("--volume", {"a"});
      target.Set("--type", {"share"});
      drgroupctl::TargetCreate().run(target, warnings);
    }
    group.Set("ID", {Name(size)});
    group.Set("--target", targets);
    drgroupctl::GroupCreate().run(group, warnings);
    drgroupctl::Arguments protect = Args(size);
    protect.Set("--volume", {"b"});
    protect.Set("--json", {});  // no progress
    drgroupctl::Protect().run(protect, warnings);
    drgroupctl::Arguments sync = Args(size);
    sync.Set("--json", {});
    drgroupctl::Sync().run(sync, warnings);
  }

  static drgroupctl::Arguments Args(int size) {
    drgroupctl::Arguments args;
    args.Set("GROUP", {Name(size)});
    return args;
  }

  // Reads every record of the group's targets and looks for their bytes.
  bool ReadRaw(int size) const {
    sqlite3* opened = nullptr;
    sqlite3_open_v2((dir_ / "state/replica.db").c_str(), &opened, SQLITE_OPEN_READONLY, nullptr);
    const std::unique_ptr<sqlite3, decltype(&sqlite3_close)> db(opened, sqlite3_close);
    std::vector<Statement> selects;
    for (const char* sql : kSelects) {
      sqlite3_stmt* prepared = nullptr;
      if (sqlite3_prepare_v2(opened, sql, -1, &prepared, nullptr) != SQLITE_OK) return false;
      selects.emplace_back(prepared, sqlite3_finalize);
    }
    for (int i = 0; i < size; ++i) {
      const std::string target = Name(size) + "-target-" + std::to_string(i);
      for (const Statement& select : selects) {
        sqlite3_bind_text(select.get(), 1, target.c_str(), -1, SQLITE_STATIC);
        while (sqlite3_step(select.get()) == SQLITE_ROW) ++rows_;
        sqlite3_reset(select.get());
      }
      struct stat st;
      if (stat((dir_ / "a" / target).c_str(), &st) != 0 ||
          stat((dir_ / "b" / (target + "-dr")).c_str(), &st) != 0) {
        return false;
      }
    }
    return rows_ != 0;
  }

 private:
  std::filesystem::path dir_;
  mutable long rows_ = 0;
};

// Registers one measurement of a group, which is made when it is first needed.
void Register(const std::filesystem::path& dir, const std::string& what, int size,
              const std::function<bool()>& ours) {
  benchmark::RegisterBenchmark(
      (what + " of " + std::to_string(size) + " targets, us").c_str(),
      [dir, size, ours](benchmark::State& state) {
        const Groups groups(dir);
        groups.Require(size);
        MeasureTime(state, {ours, [&] { return groups.ReadRaw(size); }}, 0);
      })
      ->UseManualTime()
      ->Iterations(15);
}

}  // namespace

void RegisterPlans(const std::filesystem::path& dir) {
  for (const int size : {1, 16, 64, 256}) {
    const std::filesystem::path place = dir / Groups::Name(size);
    Register(place, "precheck", size, [size] {
      const VrelDR::Session session;
      const auto prepared =
          drgroupctl::PrepareOnGroup("sync", drgroupctl::LoadGroup(Groups::Name(size)));
      return !drgroupctl::RefusalOf(prepared.title, drgroupctl::CheckTargets(prepared));
    });
    Register(place, "status", size, [size] {
      const VrelDR::Session session;
      drgroupctl::Warnings warnings;
      return !drgroupctl::Status().run(Groups::Args(size), warnings).Parts().empty();
    });
  }
}

}  // namespace bench
