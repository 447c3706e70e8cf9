#include "contract_fixture.h"
#include "fake/misbehaviour.h"

// What the contract lets an engine refuse, by the one that refuses all of it.

namespace host_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class StrictContractTest : public EngineContractTest {
 protected:
  static void ExpectRefused(const Status& status, const std::string& part) {
    ExpectStatus(status, kErrUnsupported, part);
  }
};

INSTANTIATE_TEST_SUITE_P(Volumes, StrictContractTest, testing::Values("fake-fake"),
                         EngineTest::NameOf);

TEST_P(StrictContractTest, NothingButAQuietTargetIsDemoted) {
  ExpectRefused(DemoteOnly(A()), "quiesce it");
  ExpectGood(Quiesce(A()));
  ExpectGood(DemoteOnly(A()));
}

TEST_P(StrictContractTest, AReplicaIsNeitherSnapshottedNorRestoredUntilItWorks) {
  Take(A(), "s1");
  Ship(A(), "s1", "", B());
  ExpectRefused(B().TakeSnapshot("s2"), "is a replica");
  ExpectRefused(B().Restore("s1"), "is a replica");
  const EngineTarget clone = Prepare(B(), "clone", VrelDR::kTargetShare);
  ExpectGood(B().Clone("s1", clone));
  ExpectGood(A().Demote());
  ExpectGood(Promote(B(), "s1", Manner::kOrderly));
  ExpectGood(B().TakeSnapshot("s2"));
  ExpectGood(B().Restore("s1"));
}

TEST_P(StrictContractTest, NobodyIsPromotedInOrderBesideOneThatHasNotGivenUpItsPart) {
  Take(A(), "s1");
  Ship(A(), "s1", "", B());
  const Tree before = BytesOf(B());
  ExpectRefused(Promote(B(), "s1", Manner::kOrderly), "demote that one");
  ExpectGood(Quiesce(A()));
  ExpectRefused(Promote(B(), "s1", Manner::kOrderly), "demote that one");
  EXPECT_EQ(BytesOf(B()), before);
  ExpectGood(DemoteOnly(A()));
  ExpectGood(Promote(B(), "s1", Manner::kOrderly));
  ExpectRefused(Promote(A(), "", Manner::kOrderly), "demote that one");
  ExpectGood(Promote(A(), "", Manner::kForced));
}

TEST_P(StrictContractTest, NobodyIsPromotedInOrderBesideOneThatCannotBeAsked) {
  Take(A(), "s1");
  Ship(A(), "s1", "", B());
  ExpectGood(A().Demote());
  for (const Cut cut : CutsOf(A())) {
    CutOff(A(), cut);
    EXPECT_EQ(Promote(B(), "s1", Manner::kOrderly).code, kErrUnreachable);
    CutBack(A(), cut);
  }
  // A pair that is none any more asks nobody.
  ExpectGood(Detach());
  CutOff(A(), Cut::kUnreachable);
  ExpectGood(Promote(B(), "s1", Manner::kOrderly));
}

TEST_P(StrictContractTest, BothEndsOfAPairAreTriedThoughOneCannotBeReached) {
  ExpectGood(A().Demote());
  CutOff(A(), Cut::kUnreachable);
  EXPECT_EQ(Detach().code, kErrUnreachable);
  ExpectGood(Promote(B(), "", Manner::kOrderly));
  CutBack(A(), Cut::kUnreachable);
  ExpectGood(Detach());
  CutOff(B(), Cut::kUnreachable);
  ExpectGood(Promote(A(), "", Manner::kOrderly));
}

TEST_P(StrictContractTest, OnlyAPairsReplicaIsShippedTo) {
  Take(A(), "s1");
  ExpectGood(Detach());
  ExpectRefused(ShipToB("s1"), "not attached");
  ExpectGood(Attach());
  ExpectGood(A().Demote());
  ExpectGood(Promote(B(), "", Manner::kOrderly));
  ExpectRefused(ShipToB("s1"), "which works");
  ExpectGood(B().Demote());
  ExpectGood(ShipToB("s1"));
}

TEST_P(StrictContractTest, OnlyADemotedTargetIsAttachedAndToOneSource) {
  ExpectGood(Detach());
  ExpectGood(Promote(B(), "", Manner::kOrderly));
  ExpectRefused(Attach(), "demote it");
  ExpectGood(B().Demote());
  ExpectGood(Attach());
  const EngineTarget other = Prepare(A(), "other", VrelDR::kTargetShare);
  ExpectGood(other.Create({}));
  Watcher watcher;
  ExpectRefused(LinkOf(A(), B())->Attach(other.place, B().place, watcher), "of another target");
}

TEST_P(StrictContractTest, ATargetThatCannotBeReplicatedIsSaidToBeSoBeforehand) {
  Watcher watcher;
  for (const Cut cut : CutsOf(A())) {
    CutOff(A(), cut);
    EXPECT_EQ(LinkOf(A(), B())->Check(A().place, watcher).code, CodeOf(cut));
    CutBack(A(), cut);
  }
  Misbehave(A(), VrelDR::Fake::kNoReplication, true);
  ExpectRefused(LinkOf(A(), B())->Check(A().place, watcher), "not replicated");
}

TEST_P(StrictContractTest, AnArrivingSnapshotIsSeenBeforeItIsWholeAndListedAfterwards) {
  Take(A(), "s1");
  Misbehave(B(), VrelDR::Fake::kLoseSecondHalf, true);
  ExpectStatus(ShipToB("s1"), kErrIo, "is lost");
  EXPECT_TRUE(fs::exists(B().SnapshotPath("s1")));
  EXPECT_NE(DescribeTree(B().SnapshotPath("s1")), BytesOf(A(), "s1"));
  EXPECT_THAT(B().Snapshots(), IsEmpty());
  EXPECT_EQ(Promote(B(), "s1", Manner::kForced).code, kErrSnapshotMissing);
  Misbehave(B(), VrelDR::Fake::kLoseSecondHalf, false);
  ExpectGood(ShipToB("s1"));
  EXPECT_EQ(BytesOf(B(), "s1"), BytesOf(A(), "s1"));
  EXPECT_THAT(B().Snapshots(), ElementsAre("s1"));
}

TEST_P(StrictContractTest, WhatDoesNotMoveEndsWhenPatienceDoes) {
  Take(A(), "s1");
  for (const Side* side : {&A(), &B()}) Misbehave(*side, VrelDR::Fake::kSlow, true);
  StrictWatcher watcher(true, std::chrono::milliseconds(200));
  EXPECT_EQ(A().engine->TakeSnapshot(A().place, "s2", watcher).code, kErrUnreachable);
  EXPECT_EQ(A().engine->RestoreSnapshot(A().place, "s1", watcher).code, kErrUnreachable);
  EXPECT_EQ(TryShip(A(), "s1", "", B(), watcher).code, kErrUnreachable);
  StrictWatcher stopped(false, std::chrono::minutes(1));
  EXPECT_EQ(TryShip(A(), "s1", "", B(), stopped).code, kErrStopped);
  EXPECT_THAT(A().Snapshots(), ElementsAre("s1"));
  EXPECT_THAT(B().Snapshots(), IsEmpty());
}

TEST_P(StrictContractTest, ALocatorIsNoIdentifierAndNoneIsUsedTwice) {
  EXPECT_NE(A().place.locator, A().place.id);
  const EngineTarget first = Prepare(A(), "other", VrelDR::kTargetShare);
  ExpectGood(first.Create({}));
  ExpectGood(first.Remove());
  const EngineTarget second = Prepare(A(), "other", VrelDR::kTargetShare);
  EXPECT_NE(second.place.locator, first.place.locator);
}

}  // namespace
}  // namespace host_test
