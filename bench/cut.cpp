#include <vreldr/cut.h>
#include <vreldr/session.h>
#include <vreldr/target_manager.h>
#include <vreldr/target_operation.h>

#include <fstream>
#include <memory>
#include <stdexcept>
#include <vector>

#include "benchmarks.h"
#include "loop_volume.h"
#include "measure.h"

namespace bench {

namespace {

constexpr int kTargets = 32;
constexpr std::uint64_t kVolumeSize = std::uint64_t{4} << 30;

// Shares on a btrfs, and what is done to them by the host and by hand.
class Shares {
 public:
  explicit Shares(const std::filesystem::path& dir)
      : volume_("btrfs", dir / "a", kVolumeSize), by_hand_(volume_.GetPath() + "/by hand") {
    std::filesystem::create_directories(dir / "b");
    UseHost(dir, volume_.GetPath(), (dir / "b").string());
    for (int i = 0; i < kTargets; ++i) {
      VrelDR::TargetSpec spec;
      spec.target = VrelDR::Target("share" + std::to_string(i), VrelDR::kTargetShare);
      spec.volume = "a";
      const VrelDR::TargetManager manager;
      if (!manager.Create(spec)) throw std::runtime_error(manager.GetErr().toStyledString());
      targets_.push_back(spec.target);
    }
    std::filesystem::create_directory(by_hand_);
    session_ = std::make_unique<VrelDR::Session>();
    Change();
  }

  bool Cut() {
    cut_ = std::make_unique<VrelDR::Cut>();
    return cut_->Prepare(targets_) && cut_->GetInfo().grade == VrelDR::CutGrade::kOneInstant;
  }
  bool CutAndTakeUp() {
    bool isGood = Cut();
    std::string snapId;
    for (const VrelDR::Target& each : targets_) {
      isGood = isGood && VrelDR::TargetOperation(each).TakeSnapshot({}, snapId);
    }
    return isGood;
  }
  bool SnapshotByHand() {
    for (const VrelDR::Target& each : targets_) {
      Shell("btrfs -q subvolume snapshot -r '" + PathOf(each) + "' '" + by_hand_ + "/" +
            each.GetId() + "'");
    }
    return true;
  }

  // Removes what either has made, and writes something to every share.
  void CleanUp() {
    cut_.reset();
    for (const VrelDR::Target& each : targets_) {
      const VrelDR::TargetOperation operation(each);
      for (const auto& snapshot : operation.ListSnapshots()) {
        (void)operation.DeleteSnapshot(snapshot.snap_id);
      }
    }
    if (!std::filesystem::is_empty(by_hand_)) {
      Shell("btrfs -q subvolume delete '" + by_hand_ + "'/*");
    }
    Change();
  }

 private:
  std::string PathOf(const VrelDR::Target& target) const {
    return volume_.GetPath() + "/" + target.GetId();
  }
  void Change() const {
    for (const VrelDR::Target& each : targets_) {
      std::ofstream(PathOf(each) + "/file") << std::string(4096, 'x');
    }
  }

  LoopVolume volume_;
  std::string by_hand_;
  std::vector<VrelDR::Target> targets_;
  std::unique_ptr<VrelDR::Session> session_;
  std::unique_ptr<VrelDR::Cut> cut_;
};

void Register(const std::string& name, const std::filesystem::path& place, bool (Shares::*ours)(),
              double target) {
  benchmark::RegisterBenchmark(
      name.c_str(),
      [place, ours, target](benchmark::State& state) {
        std::filesystem::create_directories(place);
        Shares shares(place);
        MeasureTime(state,
                    {[&] { return (shares.*ours)(); }, [&] { return shares.SnapshotByHand(); },
                     [&] { shares.CleanUp(); }},
                    target);
      })
      ->UseManualTime()
      ->Iterations(20);
}

}  // namespace

void RegisterCut(const std::filesystem::path& dir) {
  Register("cut 32 targets, btrfs, us", dir / "cut", &Shares::Cut, 0.5);
  Register("cut and take up 32 targets, btrfs, us", dir / "taken", &Shares::CutAndTakeUp, 0);
}

}  // namespace bench
