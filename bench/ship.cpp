#include <fcntl.h>
#include <unistd.h>
#include <vreldr/target.h>

#include <algorithm>
#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

#include "benchmarks.h"
#include "changed_blocks.h"
#include "loop_volume.h"
#include "measure.h"
#include "sync_pair.h"

namespace bench {

namespace {

constexpr std::uint64_t kMiB = 1024 * 1024;
constexpr std::uint64_t kImageSize = 1024 * kMiB;
constexpr std::uint64_t kVolumeSize = 12 * 1024 * kMiB;
constexpr std::size_t kBlock = 4096;
constexpr char kTarget[] = "disk";

// A disk image with random bytes, and a hundredth of its blocks written anew again and again.
class Image {
 public:
  explicit Image(const std::string& path)
      : fd_(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    std::vector<std::uint64_t> words(kMiB / sizeof(std::uint64_t));
    for (std::uint64_t at = 0; at < kImageSize; at += kMiB) Write(words, at);
  }
  ~Image() { close(fd_); }
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;

  void Change() {
    std::vector<std::uint64_t> words(kBlock / sizeof(std::uint64_t));
    for (std::uint64_t i = 0; i < kImageSize / kBlock / 100; ++i) {
      Write(words, random_() % (kImageSize / kBlock) * kBlock);
    }
    if (syncfs(fd_) != 0) throw std::runtime_error("cannot sync an image");
  }

 private:
  void Write(std::vector<std::uint64_t>& words, std::uint64_t at) {
    std::generate(words.begin(), words.end(), [this] { return random_(); });
    const std::size_t size = words.size() * sizeof(std::uint64_t);
    if (pwrite(fd_, words.data(), size, static_cast<off_t>(at)) != static_cast<ssize_t>(size)) {
      throw std::runtime_error("cannot write an image");
    }
  }

  int fd_;
  std::mt19937_64 random_{1};  // the same bytes on both sides, every time
};

// One side of the measurement: a snapshot of what has changed, on both volumes.
class Side {
 public:
  virtual ~Side() = default;
  virtual bool Run() = 0;
  // Removes the snapshots before the last.
  virtual void RemoveOld() = 0;
};

class Ours : public Side {
 public:
  explicit Ours(std::string& imagePath) : target_(kTarget, VrelDR::kTargetLun, kImageSize) {
    imagePath = target_.GetPath();
  }

  bool Run() override { return target_.Sync(); }
  void RemoveOld() override { target_.RemoveOld(); }

 private:
  PlannedTarget target_;
};

// The same by hand, by the fastest means that the file system has.
class ByHand : public Side {
 public:
  ByHand(const std::string& type, const std::string& a, const std::string& b,
         std::string& imagePath)
      : type_(type), a_(a + "/by-hand"), b_(b + "/by-hand") {
    Shell(IsBtrfs() ? "mkdir " + a_ + " " + b_ + " && btrfs -q subvolume create " + a_ + "/now"
                    : "mkdir -p " + a_ + "/now " + b_);
    imagePath = a_ + "/now/disk.img";
  }

  bool Run() override {
    ++last_;
    const std::string from = a_ + "/" + std::to_string(last_);
    const std::string before = std::to_string(last_ - 1);
    if (IsBtrfs()) {
      const std::string parent = last_ > 1 ? " -p " + a_ + "/" + before : "";
      Shell("btrfs -q subvolume snapshot -r " + a_ + "/now " + from + " && btrfs -q send" + parent +
            " " + from + " | btrfs -q receive " + b_ + " && sync -f " + b_);
    } else {
      const std::string to = b_ + "/" + std::to_string(last_);
      if (last_ > 1 && type_ == "xfs") {
        Shell("cp -a --reflink=always " + a_ + "/now " + from + " && sync -f " + a_ +
              " && cp -a --reflink=always " + b_ + "/" + before + " " + to);
        CopyChangedBlocks(a_ + "/" + before + "/disk.img", from + "/disk.img", to + "/disk.img");
        Shell("sync -f " + b_);
        return true;
      }
      const std::string basis = last_ > 1 ? " --copy-dest=../" + before : "";
      Shell("cp -a --reflink=auto --sparse=always " + a_ + "/now " + from + " && sync -f " + a_ +
            " && rsync -aHAXS --numeric-ids --ignore-times --inplace --no-whole-file" + basis +
            " " + from + "/ " + to + "/ && sync -f " + b_);
    }
    return true;
  }

  void RemoveOld() override {
    if (last_ < 2) return;
    const std::string before = std::to_string(last_ - 1);
    Shell((IsBtrfs() ? "btrfs -q subvolume delete " : "rm -rf ") + a_ + "/" + before + " " + b_ +
          "/" + before);
  }

 private:
  bool IsBtrfs() const { return type_ == "btrfs"; }

  std::string type_;
  std::string a_;
  std::string b_;
  int last_ = 0;
};

// Both sides on the same two volumes, each with an image of its own.
class Shipping {
 public:
  // `changes` says whether the images do.
  Shipping(const std::filesystem::path& dir, const std::string& type, bool changes)
      : changes_(changes), a_(type, dir / "a", kVolumeSize), b_(type, dir / "b", kVolumeSize) {
    UseHost(dir, a_.GetPath(), b_.GetPath());
    std::string path;
    ours_.side = std::make_unique<Ours>(path);
    ours_.image = std::make_unique<Image>(path);
    raw_.side = std::make_unique<ByHand>(type, a_.GetPath(), b_.GetPath(), path);
    raw_.image = std::make_unique<Image>(path);
    // The first time everything is sent.
    Run(ours_);
    Run(raw_);
    CleanUp();
  }

  bool RunOurs() { return Run(ours_); }
  bool RunRaw() { return Run(raw_); }

  // Makes whoever has just run ready to run again.
  void CleanUp() {
    for (Part* part : {&ours_, &raw_}) {
      if (!part->has_run) continue;
      part->has_run = false;
      part->side->RemoveOld();
      if (changes_) part->image->Change();
    }
    sync();
  }

 private:
  struct Part {
    std::unique_ptr<Side> side;
    std::unique_ptr<Image> image;
    bool has_run = false;
  };

  static bool Run(Part& part) {
    part.has_run = true;
    return part.side->Run();
  }

  bool changes_;
  LoopVolume a_;
  LoopVolume b_;
  Part ours_;
  Part raw_;
};

}  // namespace

void RegisterShip(const std::filesystem::path& dir) {
  struct Case {
    const char* type;
    bool changes;
    double target;
  };
  for (const Case each :
       {Case{"btrfs", true, 1.10}, Case{"btrfs", false, 1.50}, Case{"xfs", true, 1.25},
        Case{"xfs", false, 1.25}, Case{"ext4", true, 1.10}, Case{"ext4", false, 1.10}}) {
    const std::string type = each.type;
    const std::string what = each.changes ? "1 % changed" : "nothing changed";
    benchmark::RegisterBenchmark(
        ("snapshot and send 1 GiB, " + what + ", " + type + ", us").c_str(),
        [dir, type, each](benchmark::State& state) {
          const std::filesystem::path place = dir / (type + (each.changes ? "-changes" : ""));
          std::filesystem::create_directories(place);
          Shipping shipping(place, type, each.changes);
          MeasureTime(state,
                      {[&] { return shipping.RunOurs(); }, [&] { return shipping.RunRaw(); },
                       [&] { shipping.CleanUp(); }},
                      each.target);
        })
        ->UseManualTime()
        ->Iterations(5);
  }
}

}  // namespace bench
