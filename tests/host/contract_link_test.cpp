#include "base/kill_point.h"
#include "contract_fixture.h"
#include "fake/misbehaviour.h"

// The contract of links.

namespace host_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_P(EngineContractTest, WhetherATargetCanBeReplicatedIsAskedWithoutChangingIt) {
  const Tree bytes = BytesOf(A());
  Watcher watcher;
  for (int i = 0; i < 2; ++i) ExpectGood(LinkOf(A(), B())->Check(A().place, watcher));
  EXPECT_EQ(BytesOf(A()), bytes);
  Write(A(), "still writable");
}

TEST_P(EngineContractTest, APairIsMadeAndEndedAsOftenAsOneLikes) {
  Take(A(), "s1");
  Ship(A(), "s1", "", B());
  const Tree source = BytesOf(A());
  const Tree replica = BytesOf(B());
  for (int i = 0; i < 2; ++i) {
    ExpectGood(Attach());
    ExpectGood(Attach());
    ExpectGood(Detach());
    ExpectGood(Detach());
    EXPECT_EQ(BytesOf(A()), source);
    EXPECT_EQ(BytesOf(B()), replica);
    EXPECT_EQ(BytesOf(B(), "s1"), BytesOf(A(), "s1"));
  }
  // Both keep their parts, and go on as a pair once they are one again.
  Write(A(), "works");
  Take(A(), "s2");
  ExpectGood(Attach());
  Ship(A(), "s2", "s1", B());
  EXPECT_EQ(BytesOf(B(), "s2"), BytesOf(A()));
}

TEST_P(EngineContractTest, ASnapshotArrivesAsItIsAndIsNotSentAgain) {
  Take(A(), "s1");
  EXPECT_GT(Ship(A(), "s1", "", B()), 0U);
  EXPECT_EQ(BytesOf(B(), "s1"), BytesOf(A(), "s1"));
  EXPECT_EQ(Ship(A(), "s1", "", B()), 0U);
  ChangeOddTree(A().TargetPath());
  Take(A(), "s2");
  Ship(A(), "s2", "s1", B());
  EXPECT_EQ(BytesOf(B(), "s2"), BytesOf(A(), "s2"));
  EXPECT_EQ(BytesOf(B(), "s1"), BytesOf(A(), "s1"));
  EXPECT_THAT(B().Snapshots(), ElementsAre("s1", "s2"));
}

TEST_P(EngineContractTest, OnlyWhatDiffersFromTheBaseIsSentAndEverythingWithoutOne) {
  WriteFile(A().TargetPath() + "/big", RandomBytes(4 * kMiB));
  Take(A(), "s1");
  EXPECT_GE(Ship(A(), "s1", "", B()), 4 * kMiB);
  Overwrite(A().TargetPath() + "/big", kMiB, RandomBytes(100'000));
  Take(A(), "s2");
  const std::uint64_t changed = Ship(A(), "s2", "s1", B());
  EXPECT_GE(changed, 100'000U);
  EXPECT_LE(changed, kMiB);
  Take(A(), "s3");
  EXPECT_GE(Ship(A(), "s3", "", B()), 4 * kMiB);
  for (const char* id : {"s1", "s2", "s3"}) EXPECT_EQ(BytesOf(B(), id), BytesOf(A(), id));
}

TEST_P(EngineContractTest, ASnapshotThatIsNotThereIsNotShipped) {
  EXPECT_EQ(ShipToB("none").code, kErrSnapshotMissing);
  EXPECT_THAT(B().Snapshots(), IsEmpty());
}

TEST_P(EngineContractTest, AShipmentThatWasKilledIsThereAsAWholeOrNotAtAllAndGoesOn) {
  Take(A(), "base");
  Ship(A(), "base", "", B());
  int reached = 0;
  for (const std::string_view step :
       Steps{VrelDR::kShipBegun, VrelDR::kCopyFile, VrelDR::kShipData, VrelDR::kShipSent,
             VrelDR::kShipSynced, VrelDR::kShipMarked, VrelDR::kShipFrozen, VrelDR::kShipRenamed,
             VrelDR::kShipDone}) {
    for (const std::string base : {"", "base"}) {
      SCOPED_TRACE(std::string(step) + (base.empty() ? "" : " on a base"));
      const std::string id = std::string(step) + base;
      WriteFile(A().TargetPath() + "/new", id);
      Take(A(), id);
      const Tree wanted = BytesOf(A(), id);
      const bool isKilled = IsKilledAt(step, [&] {
        Watcher watcher;
        return TryShip(A(), id, base, B(), watcher);
      });
      if (isKilled) ++reached;
      if (!isKilled || B().Snapshots().count(id) != 0) {
        EXPECT_EQ(BytesOf(B(), id), wanted);
      }
      Ship(A(), id, base, B());
      EXPECT_EQ(BytesOf(B(), id), wanted);
      ExpectGood(A().RemoveSnapshot(id));
      ExpectGood(B().RemoveSnapshot(id));
    }
  }
  EXPECT_GE(reached, 8);
  EXPECT_THAT(B().Snapshots(), ElementsAre("base"));
}

TEST_P(EngineContractTest, AShipmentThatFailsIsNotListedAndIsFinishedByTheNext) {
  WriteFile(A().TargetPath() + "/big", RandomBytes(8 * kMiB));
  Take(A(), "s1");
  EXPECT_EQ(ShipHalf("s1").code, kErrIo);
  EXPECT_THAT(B().Snapshots(), IsEmpty());
  Ship(A(), "s1", "", B());
  EXPECT_EQ(BytesOf(B(), "s1"), BytesOf(A(), "s1"));
}

TEST_P(EngineContractTest, AStoppedShipmentEndsSoonAndTheNextSendsTheRest) {
  WriteFile(A().TargetPath() + "/big", RandomBytes(8 * kMiB));
  Take(A(), "s1");
  SlowDown();
  if (B().IsFake()) Misbehave(B(), VrelDR::Fake::kSlow, true);
  TestWatcher watcher;
  watcher.StopAfter(3 * kMiB);
  EXPECT_EQ(TryShip(A(), "s1", "", B(), watcher).code, kErrStopped);
  EXPECT_LT(watcher.GetDelay(), std::chrono::seconds(1));
  FullSpeed();
  if (B().IsFake()) Misbehave(B(), VrelDR::Fake::kSlow, false);
  EXPECT_THAT(B().Snapshots(), IsEmpty());
  const std::uint64_t rest = Ship(A(), "s1", "", B());
  EXPECT_GT(rest, 0U);
  EXPECT_LE(rest, 7 * kMiB);
  EXPECT_EQ(BytesOf(B(), "s1"), BytesOf(A(), "s1"));
}

TEST_P(EngineContractTest, WhatIsLeftOfShipmentsIsDroppedByDropAloneButTheOneToKeep) {
  WriteFile(A().TargetPath() + "/big", RandomBytes(4 * kMiB));
  Take(A(), "whole");
  Ship(A(), "whole", "", B());
  for (const std::string id : {"s1", "s2"}) {
    Take(A(), id);
    ASSERT_TRUE(IsKilledAt(VrelDR::kShipSent, [&] { return ShipToB(id); }));
  }
  ExpectGood(B().CleanUp());  // which is about other work
  Watcher watcher;
  CutOff(A(), Cut::kMissing);  // it does without the source
  for (int i = 0; i < 2; ++i) ExpectGood(LinkOf(A(), B())->Drop(B().place, "s1", watcher));
  CutBack(A(), Cut::kMissing);
  EXPECT_THAT(B().Snapshots(), ElementsAre("whole"));
  EXPECT_LT(Ship(A(), "s1", "", B()), kMiB);
  EXPECT_GE(Ship(A(), "s2", "", B()), 4 * kMiB);
  for (int i = 0; i < 2; ++i) ExpectGood(LinkOf(A(), B())->Drop(B().place, "", watcher));
  EXPECT_THAT(B().Snapshots(), ElementsAre("s1", "s2", "whole"));
  for (const char* id : {"s1", "s2", "whole"}) EXPECT_EQ(BytesOf(B(), id), BytesOf(A(), id));
}

}  // namespace
}  // namespace host_test
