#include <vreldr/target_manager.h>
#include <vreldrgroup/db.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "benchmarks.h"
#include "loop_volume.h"
#include "measure.h"
#include "real_creation.h"

namespace bench {

namespace {

constexpr std::uint64_t kVolumeSize = std::uint64_t{4} << 30;

// Shares on a btrfs that have no snapshots.
class Shares {
 public:
  Shares(const std::filesystem::path& dir, int count)
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
  }

  // As long as these shares live.
  RealCreation Creation() const { return {group_id_, db_dir_, targets_}; }

 private:
  std::string group_id_;
  std::string db_dir_;
  LoopVolume volume_;
  std::vector<VrelDR::Target> targets_;
};

}  // namespace

void RegisterRealCreation(const std::filesystem::path& dir) {
  const std::pair<int, int> sizes[] = {{1, 40}, {10, 20}, {100, 5}};
  for (const auto& [targets, rounds] : sizes) {
    benchmark::RegisterBenchmark(
        ("create over " + std::to_string(targets) + " targets, btrfs, us").c_str(),
        [place = dir / std::to_string(targets), targets = targets](benchmark::State& state) {
          std::filesystem::create_directories(place);
          const Shares shares(place, targets);
          RealCreation creation = shares.Creation();
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
