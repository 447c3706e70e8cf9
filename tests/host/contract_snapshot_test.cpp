#include <thread>

#include "base/kill_point.h"
#include "contract_fixture.h"

// The contract of engines: snapshots.

namespace host_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

TEST_P(EngineContractTest, ASnapshotHasTheBytesOfItsTimeWhateverIsWrittenLater) {
  const Tree first = BytesOf(A());
  Take(A(), "s1");
  Write(A(), "later");
  const Tree second = BytesOf(A());
  Take(A(), "s2");
  Write(A(), "last");
  EXPECT_EQ(BytesOf(A(), "s1"), first);
  EXPECT_EQ(BytesOf(A(), "s2"), second);
  EXPECT_THAT(A().Snapshots(), ElementsAre("s1", "s2"));
}

TEST_P(EngineContractTest, ManyTargetsAreLookedAtAtOnceAndTellWhatEachAloneWould) {
  Take(A(), "s1");
  const EngineTarget missing = Prepare(A(), "missing", VrelDR::kTargetShare);
  std::vector<VrelDR::TargetSight> sights;
  const auto ask = [&](const TargetPlace& place, const std::string& snapId) {
    sights.emplace_back().place = place;
    sights.back().snap_id = snapId;
  };
  ask(A().place, "s1");
  ask(A().place, "never there");
  ask(A().place, "");
  ask(A().place, "..");
  ask(missing.place, "s1");
  for (int i = 0; i < 2; ++i) {  // what was answered before says nothing
    Watcher watcher;
    ExpectGood(A().engine->LookAtTargets(sights, watcher));
    std::vector<bool> answers;
    for (const VrelDR::TargetSight& each : sights) {
      ExpectGood(each.status);
      answers.push_back(each.has_target);
      answers.push_back(each.has_snapshot);
    }
    const bool isThere = i == 0;
    EXPECT_THAT(answers,
                ElementsAre(true, isThere, true, false, true, false, true, false, false, false));
    ExpectGood(A().RemoveSnapshot("s1"));
  }
}

TEST_P(EngineContractTest, SnapshotsAreAddedToWhatWasListed) {
  Take(A(), "s1");
  VrelDR::SnapshotIds ids = {"before"};
  Watcher watcher;
  ExpectGood(A().engine->ListSnapshots(A().place, ids, watcher));
  EXPECT_THAT(ids, UnorderedElementsAre("before", "s1"));
}

TEST_P(EngineContractTest, ASnapshotThatIsRemovedIsGoneAndCanBeRemovedAgain) {
  Take(A(), "s1");
  Take(A(), "s2");
  const Tree second = BytesOf(A(), "s2");
  for (int i = 0; i < 2; ++i) {
    ExpectGood(A().RemoveSnapshot("s1"));
    EXPECT_THAT(A().Snapshots(), ElementsAre("s2"));
    EXPECT_FALSE(fs::exists(A().SnapshotPath("s1")));
  }
  ExpectGood(A().RemoveSnapshot("never there"));
  EXPECT_EQ(BytesOf(A(), "s2"), second);
  ExpectGood(B().RemoveSnapshot("of a target that has none"));
}

TEST_P(EngineContractTest, ASnapshotThatWasKilledIsThereAsAWholeOrNotAtAll) {
  const Tree wanted = BytesOf(A());
  int reached = 0;
  for (const std::string_view step :
       Steps{VrelDR::kCopyFile, VrelDR::kTakeCopied, VrelDR::kTakeSynced, VrelDR::kTakeFrozen,
             VrelDR::kTakeRenamed}) {
    SCOPED_TRACE(step);
    if (IsKilledAt(step, [&] { return A().TakeSnapshot("s1"); })) {
      ++reached;
      if (A().Snapshots().count("s1") != 0) {
        EXPECT_EQ(BytesOf(A(), "s1"), wanted);
      }
      ExpectGood(A().RemoveSnapshot("s1"));
      ExpectGood(A().CleanUp());
      EXPECT_FALSE(fs::exists(A().SnapshotPath("s1")));
      Take(A(), "s1");
    }
    EXPECT_EQ(BytesOf(A(), "s1"), wanted);
    ExpectGood(A().RemoveSnapshot("s1"));
    EXPECT_THAT(A().Snapshots(), IsEmpty());
  }
  // There a snapshot is one step of the system.
  EXPECT_EQ(reached == 0, A().type == "btrfs");
  EXPECT_EQ(BytesOf(A()), wanted);
}

TEST_P(EngineContractTest, ASnapshotThatFailsIsNotListed) {
  setenv("VRELDR_FAIL_POINT", "take@source", 1);
  EXPECT_EQ(A().TakeSnapshot("s1").code, kErrIo);
  unsetenv("VRELDR_FAIL_POINT");
  EXPECT_THAT(A().Snapshots(), IsEmpty());
  Take(A(), "s1");
}

TEST_P(EngineContractTest, ARestoredTargetHasTheSnapshotsBytesAndIsWritable) {
  Take(A(), "s1");
  Write(A(), "later");
  for (int i = 0; i < 2; ++i) {
    ExpectGood(A().Restore("s1"));
    EXPECT_EQ(BytesOf(A()), BytesOf(A(), "s1"));
  }
  const Tree snapshot = BytesOf(A(), "s1");
  Write(A(), "last");
  EXPECT_EQ(BytesOf(A(), "s1"), snapshot);
}

TEST_P(EngineContractTest, ARestoreThatFailsOrWasKilledLeavesTheOldBytesOrTheSnapshots) {
  Take(A(), "s1");
  const Tree wanted = WithoutTop(BytesOf(A(), "s1"));
  int reached = 0;
  for (const std::string_view step : Steps{VrelDR::kRestoreCopied, VrelDR::kRestoreSynced,
                                           VrelDR::kRestoreExchanged, VrelDR::kRestoreDone}) {
    SCOPED_TRACE(step);
    Write(A(), "later");
    const Tree before = WithoutTop(BytesOf(A()));
    EXPECT_EQ(A().Restore("none").code, kErrSnapshotMissing);
    EXPECT_EQ(WithoutTop(BytesOf(A())), before);
    if (IsKilledAt(step, [&] { return A().Restore("s1"); })) {
      ++reached;
      const Tree found = WithoutTop(BytesOf(A()));
      EXPECT_TRUE(found == before || found == wanted);
      ExpectGood(A().CleanUp());
      EXPECT_EQ(WithoutTop(BytesOf(A())), found);
      ExpectGood(A().Restore("s1"));
    }
    EXPECT_EQ(BytesOf(A()), BytesOf(A(), "s1"));
  }
  EXPECT_GE(reached, 2);
}

TEST_P(EngineContractTest, ACloneIsATargetOfItsOwn) {
  Take(A(), "s1");
  const Tree wanted = BytesOf(A(), "s1");
  Write(A(), "later");
  const EngineTarget clone = Prepare(A(), "clone", VrelDR::kTargetShare);
  EXPECT_EQ(A().Clone("none", clone).code, kErrSnapshotMissing);
  EXPECT_FALSE(IsThere(clone));
  ExpectGood(clone.CleanUp());
  ExpectGood(A().Clone("s1", clone));
  EXPECT_EQ(BytesOf(clone), wanted);
  EXPECT_THAT(clone.Snapshots(), IsEmpty());
  Write(clone, "of the clone");
  ExpectGood(clone.TakeSnapshot("s1"));
  EXPECT_EQ(BytesOf(A(), "s1"), wanted);
  ExpectGood(clone.Remove());
  EXPECT_EQ(BytesOf(A(), "s1"), wanted);
}

TEST_P(EngineContractTest, OneEngineServesSeveralThreads) {
  const EngineTarget other = Prepare(A(), "other", VrelDR::kTargetShare);
  ExpectGood(other.Create({}));
  MakeSampleTree(other.TargetPath());
  const auto work = [](const EngineTarget& target) {
    for (int i = 0; i < 5; ++i) ExpectGood(target.TakeSnapshot("s" + std::to_string(i)));
    ExpectGood(target.RemoveSnapshot("s0"));
  };
  {
    const std::jthread one([&] { work(A()); });
    const std::jthread two([&] { work(other); });
  }
  for (const EngineTarget* each : {static_cast<const EngineTarget*>(&A()), &other}) {
    EXPECT_THAT(each->Snapshots(), ElementsAre("s1", "s2", "s3", "s4"));
    EXPECT_EQ(BytesOf(*each, "s4"), BytesOf(*each));
  }
}

}  // namespace
}  // namespace host_test
