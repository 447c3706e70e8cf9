#include "contract_fixture.h"
#include "fake/misbehaviour.h"

// The contract of engines and links: who watches a call.

namespace host_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_P(EngineContractTest, ACallThatShallNotGoOnIsStoppedAndChangesNothing) {
  Take(A(), "s1");
  const Tree bytes = BytesOf(A());
  StrictWatcher watcher(false, std::chrono::minutes(1));
  for (const auto& [name, call] : CallsOf(A())) EXPECT_EQ(call(watcher).code, kErrStopped) << name;
  EXPECT_EQ(BytesOf(A()), bytes);
  EXPECT_THAT(A().Snapshots(), ElementsAre("s1"));
  Write(A(), "works");
}

TEST_P(EngineContractTest, AShipmentThatShallNotGoOnIsStoppedAndNotListed) {
  WriteFile(A().TargetPath() + "/big", RandomBytes(kMiB));
  Take(A(), "s1");
  StrictWatcher watcher(false, std::chrono::minutes(1));
  EXPECT_EQ(TryShip(A(), "s1", "", B(), watcher).code, kErrStopped);
  EXPECT_THAT(B().Snapshots(), IsEmpty());
  Ship(A(), "s1", "", B());
}

TEST_P(EngineContractTest, AProgramThatHangsEndsTheShipmentWhenPatienceDoesAndIsGone) {
  Take(A(), "s1");
  HangPrograms();
  StrictWatcher watcher(true, std::chrono::milliseconds(200));
  const auto begun = std::chrono::steady_clock::now();
  EXPECT_EQ(TryShip(A(), "s1", "", B(), watcher).code, kErrUnreachable);
  EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(5));
  EXPECT_TRUE(HaveProgramsEnded());
  EXPECT_THAT(B().Snapshots(), IsEmpty());
  FullSpeed();
  Ship(A(), "s1", "", B());
  EXPECT_EQ(BytesOf(B(), "s1"), BytesOf(A(), "s1"));
}

// Counts what it is told, for a second.
class CountingWatcher : public TestWatcher {
 public:
  void Tell(std::uint64_t done, std::uint64_t total, std::uint64_t sent) override {
    TestWatcher::Tell(done, total, sent);
    ++count_;
  }
  bool GoesOn() override { return std::chrono::steady_clock::now() < end_; }
  int GetCount() const { return count_; }

 private:
  const std::chrono::steady_clock::time_point end_ =
      std::chrono::steady_clock::now() + std::chrono::seconds(1);
  int count_ = 0;
};

TEST_P(EngineContractTest, AShipmentTellsHowFarItIsSeveralTimesASecond) {
  WriteFile(A().TargetPath() + "/big", RandomBytes(8 * kMiB));
  Take(A(), "s1");
  SlowDown();
  if (B().IsFake()) Misbehave(B(), VrelDR::Fake::kSlow, true);
  CountingWatcher watcher;
  EXPECT_EQ(TryShip(A(), "s1", "", B(), watcher).code, kErrStopped);
  EXPECT_GE(watcher.GetCount(), 4);
  EXPECT_GT(watcher.GetDone(), 0U);
  EXPECT_LT(watcher.GetDone(), watcher.GetTotal());
}

TEST_P(EngineContractTest, AShipmentThatMovesIsNotEndedForTheTimeItTakes) {
  WriteFile(A().TargetPath() + "/big", RandomBytes(4 * kMiB));
  Take(A(), "s1");
  UseProgram("rsync", "exec /usr/bin/rsync --bwlimit=2m \"$@\"\n");
  StrictWatcher watcher(true, std::chrono::milliseconds(1500));
  ExpectGood(TryShip(A(), "s1", "", B(), watcher));
  EXPECT_EQ(BytesOf(B(), "s1"), BytesOf(A(), "s1"));
}

// Where a snapshot takes its time.
class SlowSnapshotContractTest : public EngineContractTest {};

INSTANTIATE_TEST_SUITE_P(Volumes, SlowSnapshotContractTest,
                         testing::Values("ext4-ext4", "xfs-xfs", "fake-fake"), EngineTest::NameOf);

TEST_P(SlowSnapshotContractTest, ASnapshotThatShallNotBeTakenToItsEndIsStoppedAndNotListed) {
  WriteFile(A().TargetPath() + "/big", RandomBytes(kMiB));
  StrictWatcher watcher(false, std::chrono::minutes(1));
  EXPECT_EQ(A().engine->TakeSnapshot(A().place, "s1", watcher).code, kErrStopped);
  EXPECT_THAT(A().Snapshots(), IsEmpty());
  ExpectGood(A().RemoveSnapshot("s1"));
  ExpectGood(A().CleanUp());
  Take(A(), "s1");
  EXPECT_EQ(BytesOf(A(), "s1"), BytesOf(A()));
}

}  // namespace
}  // namespace host_test
