#include <mntent.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vreldr/cut.h>
#include <vreldr/session.h>
#include <vreldr/target_manager.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "benchmarks.h"
#include "loop_volume.h"
#include "measure.h"

// How long writers stand still for a cut of copies, beside the time that the copies take.

namespace bench {

namespace {

constexpr int kTargets = 8;
constexpr std::size_t kShareSize = 1 << 20;
constexpr std::uint64_t kVolumeSize = std::uint64_t{1} << 30;
// What holding may take beside the snapshots.
constexpr double kHoldingMs = 20;

// A mounted hierarchy whose control groups can be frozen.
std::string FindHierarchy() {
  std::string found;
  std::FILE* mounts = setmntent("/proc/self/mounts", "re");
  for (struct mntent* each; mounts != nullptr && (each = getmntent(mounts)) != nullptr;) {
    if (std::strcmp(each->mnt_type, "cgroup2") == 0 || hasmntopt(each, "freezer") != nullptr) {
      found = each->mnt_dir;
    }
  }
  if (mounts != nullptr) endmntent(mounts);
  if (found.empty()) throw std::runtime_error("no hierarchy of control groups is mounted");
  return found;
}

// A process that writes to these directories as fast as it can, in a control group of its own.
class Writer {
 public:
  explicit Writer(std::vector<std::string> dirs)
      : group_(FindHierarchy() + "/vreldr-bench-" + std::to_string(getpid())) {
    std::filesystem::create_directory(group_);
    pid_ = fork();
    if (pid_ != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    std::ofstream(group_ + "/cgroup.procs") << "0" << std::flush;
    for (std::size_t i = 0;; ++i) {
      std::ofstream(dirs[i % dirs.size()] + "/written") << std::string(4096, 'w');
    }
  }
  ~Writer() {
    kill(pid_, SIGKILL);
    while (waitpid(pid_, nullptr, 0) == -1 && errno == EINTR) {
    }
    std::error_code ignored;
    std::filesystem::remove(group_, ignored);
  }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  const std::string& GetGroup() const { return group_; }

 private:
  std::string group_;
  pid_t pid_ = -1;
};

// Shares on a file system on which a snapshot is a copy, and somebody who writes them.
class WrittenShares {
 public:
  WrittenShares(const std::string& type, const std::filesystem::path& dir)
      : volume_(type, dir / "a", kVolumeSize) {
    std::filesystem::create_directories(dir / "b");
    UseHost(dir, volume_.GetPath(), (dir / "b").string());
    std::vector<std::string> dirs;
    for (int i = 0; i < kTargets; ++i) {
      VrelDR::TargetSpec spec;
      spec.target = VrelDR::Target("share" + std::to_string(i), VrelDR::kTargetShare);
      spec.volume = "a";
      const VrelDR::TargetManager manager;
      if (!manager.Create(spec)) throw std::runtime_error(manager.GetErr().toStyledString());
      targets_.push_back(spec.target);
      dirs.push_back(volume_.GetPath() + "/" + spec.target.GetId());
      std::ofstream(dirs.back() + "/file") << std::string(kShareSize, 'x');
    }
    writer_ = std::make_unique<Writer>(dirs);
    session_ = std::make_unique<VrelDR::Session>();
  }

  // False when the writer was not held. What it has made goes again.
  bool Cut(VrelDR::CutInfo& info) const {
    VrelDR::QuiesceMeans means;
    means.control_groups = {writer_->GetGroup()};
    VrelDR::Cut cut;
    if (!cut.Prepare(targets_, means)) return false;
    info = cut.GetInfo();
    return info.grade == VrelDR::CutGrade::kWritersHeld;
  }

 private:
  LoopVolume volume_;
  std::vector<VrelDR::Target> targets_;
  std::unique_ptr<Writer> writer_;
  std::unique_ptr<VrelDR::Session> session_;
};

void Measure(benchmark::State& state, const std::string& type, const std::filesystem::path& place) {
  std::filesystem::create_directories(place);
  const WrittenShares shares(type, place);
  std::vector<double> held, bound, ratios;
  for (auto iteration : state) {
    (void)iteration;
    VrelDR::CutInfo info;
    if (!shares.Cut(info)) {
      state.SkipWithError("the writer was not held");
      return;
    }
    held.push_back(info.held_ms);
    bound.push_back(info.skew_ms + kHoldingMs);
    ratios.push_back(held.back() / bound.back());
    state.SetIterationTime(info.held_ms * 1e-3);
  }
  Report(state, Median(held), Median(bound), Median(ratios), 1);
}

}  // namespace

void RegisterHeldCut(const std::filesystem::path& dir) {
  for (const std::string type : {"xfs", "ext4"}) {
    const std::string name = "writers held for 8 targets, " + type + ", ms";
    benchmark::RegisterBenchmark(
        name.c_str(),
        [type, place = dir / type](benchmark::State& state) { Measure(state, type, place); })
        ->UseManualTime()
        ->Iterations(20);
  }
}

}  // namespace bench
