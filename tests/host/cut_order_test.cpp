#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <thread>

#include "base/fd.h"
#include "contract_rig.h"
#include "engine/cut.h"
#include "tree.h"

// The point of a cut: whoever finds a write in its snapshots finds every write that was
// acknowledged before it, in whatever target that is.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using VrelDR::CutMember;
using VrelDR::CutOutcome;
using VrelDR::EngineCut;
using VrelDR::Fd;
using VrelDR::Status;
using VrelDR::Watcher;

// Ways to write a file so that it is on disk afterwards.
void WriteAndSync(const std::string& path, const std::string& text) {
  const Fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  ASSERT_EQ(pwrite(file.Get(), text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
  ASSERT_EQ(fdatasync(file.Get()), 0);
}
void WriteThrough(const std::string& path, const std::string& text) {
  const Fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_DSYNC | O_CLOEXEC, 0600));
  ASSERT_EQ(pwrite(file.Get(), text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
}
void Replace(const std::string& path, const std::string& text) {
  WriteAndSync(path + ".new", text);
  ASSERT_EQ(rename((path + ".new").c_str(), path.c_str()), 0);
  const Fd dir(open(fs::path(path).parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(fsync(dir.Get()), 0);
}

// Writes the numbers from 1 on, each into the target after that of the one before, and each only
// when the one before is on disk.
class Writer {
 public:
  using Way = void (*)(const std::string& path, const std::string& text);

  Writer(std::string name, Way way, const std::vector<EngineTarget>& targets)
      : name_(std::move(name)), targets_(targets), thread_([this, way](const std::stop_token& end) {
          for (std::uint64_t n = 1; !end.stop_requested(); ++n) {
            const EngineTarget& target = targets_[n % targets_.size()];
            way(target.TargetPath() + "/" + name_, Padded(n));
            written_ = n;
          }
        }) {}

  std::uint64_t GetWritten() const { return written_; }
  // Whether the snapshots hold all that was written before the last that they hold.
  bool IsWhole(const std::string& snapId) const {
    std::vector<std::uint64_t> held;
    for (const EngineTarget& each : targets_) {
      const std::string path = each.SnapshotPath(snapId) + "/" + name_;
      held.push_back(fs::exists(path) ? std::stoull(ReadFile(path)) : 0);
    }
    const std::uint64_t last = *std::ranges::max_element(held);
    for (std::uint64_t n = last; n > 0 && last - n < held.size(); --n) {
      if (held[n % held.size()] != n) return false;
    }
    return true;
  }

 private:
  static std::string Padded(std::uint64_t n) {
    std::string text = std::to_string(n);
    text.resize(4096, ' ');
    return text;
  }

  std::string name_;
  const std::vector<EngineTarget>& targets_;
  std::atomic<std::uint64_t> written_ = 0;
  std::jthread thread_;  // last: it uses the others
};

class CutOrderTest : public ContractTest {
 protected:
  static constexpr int kCuts = 20;

  void MakeTargets(int count) {
    Grow(A());
    for (int i = 0; i < count; ++i) {
      targets_.push_back(Prepare(A(), "t" + std::to_string(i), VrelDR::kTargetShare));
      ExpectGood(targets_.back().Create({}));
    }
    writers_.push_back(std::make_unique<Writer>("synced", WriteAndSync, targets_));
    writers_.push_back(std::make_unique<Writer>("through", WriteThrough, targets_));
    writers_.push_back(std::make_unique<Writer>("replaced", Replace, targets_));
  }
  // Waits until every writer has been everywhere since.
  void LetWritersGoRound() const {
    for (const auto& each : writers_) {
      const std::uint64_t wanted = each->GetWritten() + targets_.size();
      while (each->GetWritten() < wanted) std::this_thread::yield();
    }
  }
  CutOutcome CutAll(const std::string& snapId) const {
    std::vector<CutMember> members;
    for (const EngineTarget& each : targets_) {
      members.push_back({each.engine.get(), each.place, snapId});
    }
    std::unique_ptr<EngineCut> cut;
    CutOutcome outcome;
    Watcher watcher;
    Status status = A().engine->PrepareCut(members, watcher, cut);
    if (status.IsOk()) status = cut->Take(watcher, outcome);
    if (status.IsOk()) status = cut->Settle(watcher);
    for (const EngineTarget& each : targets_) {
      if (status.IsOk()) status = each.engine->TakeUp(each.place, snapId, watcher);
    }
    ExpectGood(status);
    return outcome;
  }
  bool IsWhole(const std::string& snapId) const {
    return std::ranges::all_of(writers_, [&](const auto& each) { return each->IsWhole(snapId); });
  }
  void Remove(const std::string& snapId) const {
    for (const EngineTarget& each : targets_) ExpectGood(each.RemoveSnapshot(snapId));
  }
  void ExpectAllWhole(int count) {
    MakeTargets(count);
    int whole = 0;
    for (int i = 0; i < kCuts; ++i) {
      const std::string id = "cut" + std::to_string(i);
      LetWritersGoRound();
      EXPECT_TRUE(CutAll(id).is_one_instant) << id;
      whole += IsWhole(id) ? 1 : 0;
      Remove(id);
    }
    EXPECT_EQ(whole, kCuts);
  }
  const std::vector<EngineTarget>& Targets() const { return targets_; }

  void TearDown() override {
    writers_.clear();
    ContractTest::TearDown();
  }

 private:
  std::vector<EngineTarget> targets_;
  std::vector<std::unique_ptr<Writer>> writers_;
};

INSTANTIATE_TEST_SUITE_P(Volumes, CutOrderTest, testing::Values("btrfs-btrfs"), EngineTest::NameOf);

TEST_P(CutOrderTest, EveryCutOfTwoTargetsHoldsAllThatCameBeforeWhatItHolds) {
  ExpectAllWhole(2);
}

TEST_P(CutOrderTest, EveryCutOfEightTargetsHoldsAllThatCameBeforeWhatItHolds) {
  ExpectAllWhole(8);
}

TEST_P(CutOrderTest, EveryCutOfThirtyTwoTargetsHoldsAllThatCameBeforeWhatItHolds) {
  ExpectAllWhole(32);
}

// That the test sees anything.
TEST_P(CutOrderTest, SnapshotsThatAreTakenOneAfterTheOtherDoNot) {
  MakeTargets(8);
  bool isTorn = false;
  for (int i = 0; i < kCuts && !isTorn; ++i) {
    LetWritersGoRound();
    for (const EngineTarget& each : Targets()) ExpectGood(each.TakeSnapshot("s1"));
    isTorn = !IsWhole("s1");
    Remove("s1");
  }
  EXPECT_TRUE(isTorn);
}

}  // namespace
}  // namespace host_test
