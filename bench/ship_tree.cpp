// Syncs of a tree of many small files, beside rsync by hand.
#include <unistd.h>
#include <vreldr/target.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <random>

#include "benchmarks.h"
#include "loop_volume.h"
#include "measure.h"
#include "sync_pair.h"

namespace bench {

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kVolumeSize = std::uint64_t{12} << 30;
constexpr int kFilesInDirectory = 100;

// Files of about a KiB, a hundred in each directory.
class SmallFiles {
 public:
  SmallFiles(const fs::path& dir, int count) : dir_(dir), count_(count) {
    for (int i = 0; i < count; ++i) {
      if (i % kFilesInDirectory == 0) fs::create_directories(PathOf(i).parent_path());
      Write(i);
    }
  }

  // Writes every hundredth anew, with as many bytes.
  void Change() {
    const int first = static_cast<int>(random_() % 100);
    for (int i = first; i < count_; i += 100) Write(i);
  }

 private:
  fs::path PathOf(int i) const {
    return dir_ / std::to_string(i / kFilesInDirectory) / std::to_string(i);
  }
  void Write(int i) {
    std::string bytes(static_cast<std::size_t>(500 + i % 1000), '\0');
    for (char& each : bytes) each = static_cast<char>(random_());
    std::ofstream(PathOf(i), std::ios::binary) << bytes;
  }

  fs::path dir_;
  int count_;
  std::mt19937 random_{1};
};

// What the sync does by the means of the shell: a snapshot, and rsync with the same options onto a
// copy of the last that has arrived.
class TreeByHand {
 public:
  TreeByHand(bool isBtrfs, const std::string& a, const std::string& b)
      : is_btrfs_(isBtrfs), a_(a + "/by-hand"), b_(b + "/by-hand") {
    Shell("mkdir " + a_ + " " + b_);
    Shell(isBtrfs ? "btrfs -q subvolume create " + GetPath() : "mkdir " + GetPath());
  }

  std::string GetPath() const { return a_ + "/now"; }

  bool Sync() {
    const std::string from = a_ + "/" + std::to_string(++last_);
    const std::string to = b_ + "/" + std::to_string(last_);
    const std::string before = b_ + "/" + std::to_string(last_ - 1);
    const std::string take =
        is_btrfs_ ? "btrfs -q subvolume snapshot -r " : "cp -a --reflink=auto ";
    std::string line = take + GetPath() + " " + from + " && sync -f " + a_;
    if (last_ > 1) line += " && cp -a --reflink=auto " + before + " " + to;
    Shell(line + " && rsync -aHAXS --numeric-ids --ignore-times --inplace --no-whole-file " + from +
          "/ " + to + "/ && sync -f " + b_);
    return true;
  }

  void RemoveOld() const {
    if (last_ < 2) return;
    const std::string before = "/" + std::to_string(last_ - 1);
    if (!fs::exists(b_ + before)) return;  // gone since the last sync by hand
    Shell((is_btrfs_ ? "btrfs -q subvolume delete " : "rm -rf ") + a_ + before + " && rm -rf " +
          b_ + before);
  }

 private:
  bool is_btrfs_;
  std::string a_, b_;
  int last_ = 0;
};

// Both, on the same two volumes, each with a tree of its own.
class TreeShipping {
 public:
  TreeShipping(const fs::path& dir, const std::string& from, const std::string& to, int count,
               bool changes)
      : changes_(changes), a_(from, dir / "a", kVolumeSize), b_(to, dir / "b", kVolumeSize) {
    UseHost(dir, a_.GetPath(), b_.GetPath());
    ours_ = std::make_unique<PlannedTarget>("tree", VrelDR::kTargetShare, 0);
    raw_ = std::make_unique<TreeByHand>(from == "btrfs", a_.GetPath(), b_.GetPath());
    files_[0] = std::make_unique<SmallFiles>(ours_->GetPath(), count);
    files_[1] = std::make_unique<SmallFiles>(raw_->GetPath(), count);
    sync();
    ours_->Sync();
    raw_->Sync();
    CleanUp();
  }

  bool RunOurs() const { return ours_->Sync(); }
  bool RunRaw() const { return raw_->Sync(); }
  void CleanUp() {
    ours_->RemoveOld();
    raw_->RemoveOld();
    for (const auto& each : files_) {
      if (changes_) each->Change();
    }
    sync();
  }

 private:
  bool changes_;
  LoopVolume a_, b_;
  std::unique_ptr<PlannedTarget> ours_;
  std::unique_ptr<TreeByHand> raw_;
  std::unique_ptr<SmallFiles> files_[2];
};

}  // namespace

void RegisterShipTree(const fs::path& dir) {
  struct Case {
    const char *from, *to;
    int count;
  };
  for (const Case each : {Case{"xfs", "xfs", 10'000}, Case{"ext4", "ext4", 10'000},
                          Case{"btrfs", "xfs", 10'000}, Case{"xfs", "xfs", 100'000},
                          Case{"ext4", "ext4", 100'000}, Case{"btrfs", "xfs", 100'000}}) {
    for (const bool changes : {true, false}) {
      const std::string pair = std::string(each.from) + " to " + each.to;
      const std::string what = changes ? "1 % changed" : "nothing changed";
      benchmark::RegisterBenchmark(
          ("sync a tree of " + std::to_string(each.count) + " files, " + what + ", " + pair +
           ", us")
              .c_str(),
          [=](benchmark::State& state) {
            const fs::path place = dir / (std::to_string(each.count) + each.from + each.to +
                                          (changes ? "-changes" : ""));
            fs::create_directories(place);
            TreeShipping shipping(place, each.from, each.to, each.count, changes);
            MeasureTime(state,
                        {[&] { return shipping.RunOurs(); }, [&] { return shipping.RunRaw(); },
                         [&] { shipping.CleanUp(); }},
                        1.5);
          })
          ->UseManualTime()
          ->Iterations(3);
    }
  }
}

}  // namespace bench
