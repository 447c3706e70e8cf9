#include "contract_rig.h"
#include "engine/cut.h"
#include "ordered_writers.h"

// The point of a cut: whoever finds a write in its snapshots finds every write that was
// acknowledged before it, in whatever target that is.

namespace host_test {
namespace {

using VrelDR::CutMember;
using VrelDR::CutOutcome;
using VrelDR::EngineCut;
using VrelDR::Status;
using VrelDR::Watcher;

class CutOrderTest : public ContractTest {
 protected:
  static constexpr int kCuts = 20;

  void MakeTargets(int count) {
    Grow(A());
    for (int i = 0; i < count; ++i) {
      targets_.push_back(Prepare(A(), "t" + std::to_string(i), VrelDR::kTargetShare));
      ExpectGood(targets_.back().Create({}));
    }
    std::vector<std::string> dirs;
    for (const EngineTarget& each : targets_) dirs.push_back(each.TargetPath());
    writers_ = std::make_unique<OrderedWriters>(dirs);
  }
  bool LetWritersGoRound() const { return writers_->GoRound(); }
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
    std::vector<std::string> dirs;
    for (const EngineTarget& each : targets_) dirs.push_back(each.SnapshotPath(snapId));
    return HoldAllInOrder(dirs);
  }
  void Remove(const std::string& snapId) const {
    for (const EngineTarget& each : targets_) ExpectGood(each.RemoveSnapshot(snapId));
  }
  void ExpectAllWhole(int count) {
    MakeTargets(count);
    int whole = 0;
    for (int i = 0; i < kCuts; ++i) {
      const std::string id = "cut" + std::to_string(i);
      ASSERT_TRUE(LetWritersGoRound());
      EXPECT_TRUE(CutAll(id).is_one_instant) << id;
      whole += IsWhole(id) ? 1 : 0;
      Remove(id);
    }
    EXPECT_EQ(whole, kCuts);
  }
  const std::vector<EngineTarget>& Targets() const { return targets_; }

  void TearDown() override {
    writers_.reset();
    ContractTest::TearDown();
  }

 private:
  std::vector<EngineTarget> targets_;
  std::unique_ptr<OrderedWriters> writers_;
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
    ASSERT_TRUE(LetWritersGoRound());
    for (const EngineTarget& each : Targets()) ExpectGood(each.TakeSnapshot("s1"));
    isTorn = !IsWhole("s1");
    Remove("s1");
  }
  EXPECT_TRUE(isTorn);
}

}  // namespace
}  // namespace host_test
