#include "base/kill_point.h"
#include "contract_fixture.h"
#include "fake/misbehaviour.h"

// The contract of engines: cuts.

namespace host_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using VrelDR::CutMember;
using VrelDR::CutOutcome;
using VrelDR::EngineCut;
using VrelDR::kErrExists;

class CutContractTest : public EngineContractTest {
 protected:
  void SetUp() override {
    EngineContractTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    other_ = Prepare(A(), "other", VrelDR::kTargetShare);
    ExpectGood(other_.Create({}));
    MakeSampleTree(other_.TargetPath());
  }
  void TearDown() override {
    unsetenv("VRELDR_FAIL_POINT");
    EngineContractTest::TearDown();
  }

  const EngineTarget& Other() const { return other_; }
  std::vector<const EngineTarget*> Both() const { return {&A(), &other_}; }

  Status PrepareBoth(const std::string& snapId, std::unique_ptr<EngineCut>& cut) const {
    std::vector<CutMember> members;
    for (const EngineTarget* each : Both()) {
      members.push_back({each->engine.get(), each->place, snapId});
    }
    Watcher watcher;
    return A().engine->PrepareCut(members, watcher, cut);
  }
  // The whole way up to, and without, the taking up.
  Status CutBoth(const std::string& snapId) const {
    std::unique_ptr<EngineCut> cut;
    Watcher watcher;
    CutOutcome outcome;
    Status status = PrepareBoth(snapId, cut);
    if (status.IsOk()) status = cut->Take(watcher, outcome);
    return status.IsOk() ? cut->Settle(watcher) : status;
  }
  static Status TakeUp(const EngineTarget& target, const std::string& snapId) {
    Watcher watcher;
    return target.engine->TakeUp(target.place, snapId, watcher);
  }
  void RemoveBoth(const std::string& snapId) const {
    for (const EngineTarget* each : Both()) {
      ExpectGood(each->RemoveSnapshot(snapId));
      ExpectGood(each->CleanUp());
    }
  }
  // Nothing of the volume's but its targets and what belongs to no snapshot.
  void ExpectNothingLeft() const {
    for (const auto& each : fs::recursive_directory_iterator(A().path)) {
      EXPECT_EQ(each.path().filename().string().find("cut1"), std::string::npos) << each.path();
    }
    if (A().IsFake()) return;
    for (const EngineTarget* each : Both()) {
      EXPECT_FALSE(fs::exists(A().path + "/.vreldr/tmp/" + each->place.locator));
    }
  }

 private:
  EngineTarget other_;
};

INSTANTIATE_TEST_SUITE_P(Volumes, CutContractTest,
                         testing::Values("ext4-ext4", "xfs-xfs", "btrfs-btrfs", "fake-fake"),
                         EngineTest::NameOf);

TEST_P(CutContractTest, ItsSnapshotsAreInNoListBeforeTheyAreTakenUpAndHaveTheBytesOfTheCut) {
  const Tree first = BytesOf(A());
  const Tree second = BytesOf(Other());
  std::unique_ptr<EngineCut> cut;
  Watcher watcher;
  CutOutcome outcome;
  ExpectGood(PrepareBoth("cut1", cut));
  for (const EngineTarget* each : Both()) EXPECT_THAT(each->Snapshots(), IsEmpty());
  const auto before = std::chrono::steady_clock::now();
  ExpectGood(cut->Take(watcher, outcome));
  EXPECT_THAT(outcome.method, Not(IsEmpty()));
  EXPECT_GE(outcome.tries, 1);
  EXPECT_LE(before, outcome.begin);
  EXPECT_LE(outcome.begin, outcome.end);
  EXPECT_LE(outcome.end, std::chrono::steady_clock::now());
  EXPECT_EQ(outcome.is_one_instant, A().type == "btrfs");
  Write(A(), "later");
  Write(Other(), "later");
  ExpectGood(cut->Settle(watcher));
  cut.reset();
  for (const EngineTarget* each : Both()) EXPECT_THAT(each->Snapshots(), IsEmpty());
  ExpectGood(TakeUp(A(), "cut1"));
  EXPECT_THAT(Other().Snapshots(), IsEmpty());
  for (int i = 0; i < 2; ++i) {
    for (const EngineTarget* each : Both()) ExpectGood(TakeUp(*each, "cut1"));
    EXPECT_EQ(BytesOf(A(), "cut1"), first);
    EXPECT_EQ(BytesOf(Other(), "cut1"), second);
  }
  RemoveBoth("cut1");
  for (const EngineTarget* each : Both()) EXPECT_THAT(each->Snapshots(), IsEmpty());
  ExpectNothingLeft();
}

TEST_P(CutContractTest, ASnapshotThatIsNotTakenUpIsRemovedLikeAnyOtherAndItsNameIsFreeAgain) {
  Take(A(), "s1");
  for (int i = 0; i < 2; ++i) {
    ExpectGood(CutBoth("cut1"));
    RemoveBoth("cut1");
    ExpectNothingLeft();
    EXPECT_EQ(TakeUp(A(), "cut1").code, kErrSnapshotMissing);
  }
  EXPECT_THAT(A().Snapshots(), ElementsAre("s1"));
}

TEST_P(CutContractTest, OneThatIsOnlyPreparedGoesAndLeavesNoSnapshot) {
  std::unique_ptr<EngineCut> cut;
  ExpectGood(PrepareBoth("cut1", cut));
  cut.reset();
  RemoveBoth("cut1");
  ExpectNothingLeft();
  ExpectGood(CutBoth("cut1"));
}

TEST_P(CutContractTest, AFailureForOneMemberFailsItAndLeavesNothingThatRemovalLeaves) {
  for (const char* point : {"take@other", "cut@other", "cut@source"}) {
    SCOPED_TRACE(point);
    setenv("VRELDR_FAIL_POINT", point, 1);
    const Status status = CutBoth("cut1");
    unsetenv("VRELDR_FAIL_POINT");
    EXPECT_EQ(status.code, kErrIo);
    EXPECT_NE(status.message.find(std::string(point).substr(std::string(point).find('@') + 1)),
              std::string::npos)
        << status.message;
    for (const EngineTarget* each : Both()) EXPECT_THAT(each->Snapshots(), IsEmpty());
    RemoveBoth("cut1");
    ExpectNothingLeft();
  }
  ExpectGood(CutBoth("cut1"));
  setenv("VRELDR_FAIL_POINT", "take_up@other", 1);
  EXPECT_EQ(TakeUp(Other(), "cut1").code, kErrIo);
  unsetenv("VRELDR_FAIL_POINT");
  EXPECT_THAT(Other().Snapshots(), IsEmpty());
}

TEST_P(CutContractTest, ANameThatAMemberHasAlreadyIsRefusedAndItsSnapshotStays) {
  ExpectGood(Other().TakeSnapshot("cut1"));
  const Tree bytes = BytesOf(Other(), "cut1");
  std::unique_ptr<EngineCut> cut;
  EXPECT_EQ(PrepareBoth("cut1", cut).code, kErrExists);
  EXPECT_FALSE(cut);
  EXPECT_EQ(BytesOf(Other(), "cut1"), bytes);
  ExpectGood(CutBoth("cut2"));
  EXPECT_EQ(PrepareBoth("cut2", cut).code, kErrExists);
  ExpectGood(TakeUp(A(), "cut2"));
  ExpectGood(TakeUp(Other(), "cut2"));
  EXPECT_THAT(Other().Snapshots(), ElementsAre("cut1", "cut2"));
}

TEST_P(CutContractTest, ATargetThatIsGoneIsRefusedAndNamed) {
  std::unique_ptr<EngineCut> cut;
  Watcher watcher;
  const EngineTarget gone{A().engine, {"gone", VrelDR::kTargetShare, "f-99"}};
  const Status status = A().engine->PrepareCut(
      {{A().engine.get(), A().place, "cut1"}, {gone.engine.get(), gone.place, "cut1"}}, watcher,
      cut);
  EXPECT_NE(status.code, 0);
  EXPECT_NE(status.message.find("gone"), std::string::npos) << status.message;
  EXPECT_FALSE(cut);
}

TEST_P(CutContractTest, OneThatWasKilledIsRemovedByTheNamesThatItWasGiven) {
  const Tree wanted = BytesOf(A());
  int reached = 0;
  for (const std::string_view step :
       Steps{VrelDR::kCopyFile, VrelDR::kTakeCopied, VrelDR::kTakeFrozen, VrelDR::kTakeRenamed}) {
    SCOPED_TRACE(step);
    const bool isKilled = IsKilledAt(step, [&] {
      Status status = CutBoth("cut1");
      return status.IsOk() ? TakeUp(A(), "cut1") : status;
    });
    reached += isKilled ? 1 : 0;
    if (A().Snapshots().count("cut1") != 0) {
      EXPECT_EQ(BytesOf(A(), "cut1"), wanted);
    }
    EXPECT_THAT(Other().Snapshots(), IsEmpty());
    RemoveBoth("cut1");
    ExpectNothingLeft();
  }
  EXPECT_GE(reached, 1);
  EXPECT_EQ(BytesOf(A()), wanted);
}

// Where a cut takes its time; on btrfs it is over before anybody is asked.
class SlowCutContractTest : public CutContractTest {};

INSTANTIATE_TEST_SUITE_P(Volumes, SlowCutContractTest,
                         testing::Values("ext4-ext4", "xfs-xfs", "fake-fake"), EngineTest::NameOf);

TEST_P(SlowCutContractTest, OneThatShallNotGoOnIsStopped) {
  std::unique_ptr<EngineCut> cut;
  CutOutcome outcome;
  ExpectGood(PrepareBoth("cut1", cut));
  StrictWatcher watcher(false, std::chrono::minutes(1));
  EXPECT_EQ(cut->Take(watcher, outcome).code, kErrStopped);
  RemoveBoth("cut1");
  ExpectNothingLeft();
}

// What is asked of callers, by the engine that refuses whoever does otherwise.
class StrictCutContractTest : public CutContractTest {};

INSTANTIATE_TEST_SUITE_P(Volumes, StrictCutContractTest, testing::Values("fake-fake"),
                         EngineTest::NameOf);

TEST_P(StrictCutContractTest, ItIsTakenOnceAndThenSettledAndThenTakenUp) {
  std::unique_ptr<EngineCut> cut;
  Watcher watcher;
  CutOutcome outcome;
  ExpectGood(PrepareBoth("cut1", cut));
  EXPECT_EQ(cut->Settle(watcher).code, kErrUnsupported);
  ExpectGood(cut->Take(watcher, outcome));
  EXPECT_EQ(cut->Take(watcher, outcome).code, kErrUnsupported);
  EXPECT_EQ(TakeUp(A(), "cut1").code, kErrSnapshotMissing);
  ExpectGood(cut->Settle(watcher));
  ExpectGood(TakeUp(A(), "cut1"));
}

TEST_P(StrictCutContractTest, AVolumeThatDoesNotAnswerMeanwhileFailsIt) {
  std::unique_ptr<EngineCut> cut;
  Watcher watcher;
  CutOutcome outcome;
  ExpectGood(PrepareBoth("cut1", cut));
  CutOff(A(), Cut::kUnreachable);
  EXPECT_EQ(cut->Take(watcher, outcome).code, kErrUnreachable);
  EXPECT_EQ(cut->Settle(watcher).code, kErrUnreachable);
  EXPECT_EQ(TakeUp(A(), "cut1").code, kErrUnreachable);
  CutBack(A(), Cut::kUnreachable);
  RemoveBoth("cut1");
  ExpectNothingLeft();
}

TEST_P(StrictCutContractTest, AReplicaIsNoMemberUntilItWorks) {
  ExpectGood(Other().Demote());
  std::unique_ptr<EngineCut> cut;
  ExpectStatus(PrepareBoth("cut1", cut), kErrUnsupported, "is a replica");
}

}  // namespace
}  // namespace host_test
