#include <private_namespace.h>
#include <vrelcore/vlibc.h>
#include <vreldr/session.h>
#include <vreldr/target_manager.h>
#include <vreldr/target_operation.h>
#include <vreldrgroup/db.h>
#include <vreldrgroup/snapshot/gsnap_create.h>
#include <vreldrgroup/snapshot/gsnap_delete.h>
#include <vreldrgroup/snapshot/gsnap_utils.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "benchmarks.h"
#include "loop_volume.h"
#include "measure.h"
#include "raw.h"

namespace bench {

namespace {

constexpr std::uint64_t kVolumeSize = std::uint64_t{4} << 30;

// Group snapshots of shares on a btrfs that have none besides.
class RealCreation {
 public:
  RealCreation(const std::filesystem::path& dir, int count)
      : group_id_("real-" + std::to_string(count)),
        db_dir_((dir / group_id_).string()),
        volume_("btrfs", dir / "a", kVolumeSize) {
    std::filesystem::create_directories(dir / "b");
    UseHost(dir, volume_.GetPath(), (dir / "b").string());
    for (int i = 0; i < count; ++i) {
      VrelDR::TargetSpec spec;
      spec.target = VrelDR::Target(group_id_ + "-" + std::to_string(i), VrelDR::kTargetShare);
      spec.volume = "a";
      const VrelDR::TargetManager manager;
      if (!manager.Create(spec)) throw std::runtime_error(manager.GetErr().toStyledString());
      targets_.push_back(spec.target);
    }
    if (!VrelDRGroup::DRGroupDB::Init(db_dir_, group_id_, true)) {
      throw std::runtime_error("cannot make a catalogue in " + db_dir_);
    }
    session_ = std::make_unique<VrelDR::Session>();
  }

  bool Ours() {
    const VrelDRGroup::TargetList group(targets_, group_id_);
    VrelDRGroup::Operation::GsnapshotCreate operation(group, meta_, db_dir_, no_replicas_);
    const bool isMade = operation.Run();
    gsnap_id_ = operation.GetGsnapshot().gsnap_id;
    return isMade;
  }

  // The script once, the host's own snapshot of each target, and the rows, each durable.
  bool Raw() {
    const std::string link = VrelDRGroup::DRGroupDB::GetRef(group_id_).GetPath();
    const std::string path = db_dir_ + "/drgroup.db";
    if (VLIBCExec(test_support::kDbScript, "repair_db",
                  std::filesystem::path(link).parent_path().c_str(), nullptr, nullptr) != 0) {
      return false;
    }
    VrelDRGroup::Gsnapshot gsnap("");
    VrelDRGroup::Utils::InitGroupSnapshot(gsnap, group_id_, meta_);
    gsnap.gsnap_time = ++time_;
    gsnap.gsnap_id = VrelDRGroup::Utils::ToGsnapId(group_id_, gsnap.gsnap_time);
    gsnap_id_ = gsnap.gsnap_id;
    for (const VrelDR::Target& target : targets_) {
      VrelDRGroup::TargetSnapshot tsnap(target, "");
      if (!VrelDR::TargetOperation(target).TakeSnapshot({}, tsnap.tsnap_id) ||
          !raw::InsertTargetSnapshot(path, tsnap, gsnap.gsnap_id)) {
        return false;
      }
    }
    return raw::InsertGsnapshot(path, gsnap);
  }

  void CleanUp() const { VrelDRGroup::Operation::GsnapshotDelete(gsnap_id_).Run(); }

 private:
  std::string group_id_;
  std::string db_dir_;
  LoopVolume volume_;
  std::vector<VrelDR::Target> targets_;
  VrelDRGroup::GsnapMeta meta_{"nightly snapshot of the group", false,
                               VrelDRGroup::kCwCrashConsistent};
  Json::Value no_replicas_{Json::objectValue};
  std::unique_ptr<VrelDR::Session> session_;
  long time_ = 1'000'000'000;
  std::string gsnap_id_;
};

}  // namespace

void RegisterRealCreation(const std::filesystem::path& dir) {
  const std::pair<int, int> sizes[] = {{1, 40}, {10, 20}, {100, 5}};
  for (const auto& [targets, rounds] : sizes) {
    benchmark::RegisterBenchmark(
        ("create over " + std::to_string(targets) + " targets, btrfs, us").c_str(),
        [place = dir / std::to_string(targets), targets = targets](benchmark::State& state) {
          std::filesystem::create_directories(place);
          RealCreation creation(place, targets);
          MeasureTime(state,
                      {[&] { return creation.Ours(); }, [&] { return creation.Raw(); },
                       [&] { creation.CleanUp(); }},
                      1.15);
        })
        ->UseManualTime()
        ->Iterations(rounds);
  }
}

}  // namespace bench
