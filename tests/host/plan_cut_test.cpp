#include <gmock/gmock.h>
#include <vreldr/cut.h>
#include <vreldr/error.h>
#include <vreldr/standing.h>

#include <csignal>

#include "base/kill_point.h"
#include "plan_fixture.h"
#include "tree.h"

// A cut over the sources of several plans that is put in hand of all of them at once.

namespace host_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using VrelDR::Cut;
using VrelDR::CutInfo;
using VrelDR::CutReporter;
using VrelDR::DRPlan;
using VrelDR::Target;
using VrelDR::TargetOperation;
using namespace VrelDR::Operation;  // the operations by their names

const SnapshotMeta kMeta("of a sync", false, false, "sync");

class PlanCutTest : public PlanTest {
 protected:
  void SetUp() override {
    PlanTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    for (const std::string& each : Sources()) {
      MakeShare(each);
      Change(each, "first");
      plans_.push_back(MakePlan(each));
      ExpectSync(plans_.back());
      Change(each, "of the cut");
    }
  }

  static std::vector<std::string> Sources() { return {"a", "b", "c"}; }
  static std::vector<Target> Targets() {
    std::vector<Target> targets;
    for (const std::string& each : Sources()) targets.emplace_back(each, VrelDR::kTargetShare);
    return targets;
  }
  const std::vector<std::string>& Plans() const { return plans_; }

  static void PrepareAll(Cut& cut) { ASSERT_TRUE(cut.Prepare(Targets())) << cut.GetErr(); }
  void PutAllInHand(Cut& cut, bool isMadeBySync = false) const {
    PrepareAll(cut);
    ASSERT_TRUE(cut.PutInHand(Plans(), kMeta, isMadeBySync)) << cut.GetErr();
  }
  // Expects the cut to be refused with this, and nothing of it to be anywhere then.
  void ExpectRefusedHand(Cut& cut, const std::vector<std::string>& plans, int code,
                         const std::vector<std::string>& parts) const {
    const std::map<std::string, std::string> before = Hands();
    EXPECT_FALSE(cut.PutInHand(plans, kMeta, true));
    ExpectError(cut, code, parts);
    EXPECT_EQ(Hands(), before);
  }

  // What each plan has in hand.
  std::map<std::string, std::string> Hands() const {
    std::vector<VrelDR::PlanStanding> standings;
    const VrelDR::StandingReader reader;
    EXPECT_TRUE(reader.Read({"a", "b", "c"}, standings)) << reader.GetErr();
    std::map<std::string, std::string> hands;
    for (const VrelDR::PlanStanding& each : standings) {
      if (!each.hand_snap_id.empty()) hands[each.plan.GetPlanId()] = each.hand_snap_id;
    }
    return hands;
  }
  static std::string ReplicaOf(const std::string& source) { return source + "-dr"; }
  // The snapshots of the target that are of the cut.
  static std::vector<Snapshot> OfCut(const std::string& targetId, const std::string& cutId) {
    std::vector<Snapshot> found;
    for (Snapshot& each : TargetOperation(VrelDR::kTargetShare, targetId).ListSnapshots()) {
      if (each.cut_id == cutId) found.push_back(std::move(each));
    }
    return found;
  }
  // Expects that each replica has got the cut last, with the bytes of then.
  void ExpectArrived(const std::string& cutId) const {
    for (std::size_t i = 0; i < Plans().size(); ++i) {
      const std::string source = Sources()[i];
      const std::vector<Snapshot> sent = OfCut(source, cutId);
      const std::vector<Snapshot> arrived = OfCut(ReplicaOf(source), cutId);
      ASSERT_THAT(sent, SizeIs(1)) << source;
      ASSERT_THAT(arrived, SizeIs(1)) << source;
      EXPECT_EQ(arrived[0].snap_id, sent[0].snap_id);
      EXPECT_EQ(BytesOf(ReplicaOf(source), arrived[0].snap_id), BytesOf(source, sent[0].snap_id));
      EXPECT_EQ(Last(Plans()[i]), sent[0].snap_id);
      ExpectSameSnapshots(Plans()[i]);
    }
  }
  void ExpectNothingOnAnyWay() const {
    for (const std::string& each : Sources()) {
      ExpectNothingOnItsWay(each);
      ExpectNothingOnItsWay(ReplicaOf(each));
      EXPECT_THAT(SnapshotsOnDisk(each), SizeIs(ListIds(each).size()));
    }
  }

 private:
  std::vector<std::string> plans_;
};

INSTANTIATE_TEST_SUITE_P(Volumes, PlanCutTest,
                         testing::ValuesIn(VolumeKinds({"ext4", "xfs", "btrfs"})),
                         HostTest::NameOf);

TEST_P(PlanCutTest, TheSyncOfEachPlanSendsTheCutAndTakesNoOther) {
  Cut cut;
  PutAllInHand(cut);
  const std::string cutId = cut.GetInfo().id;
  EXPECT_THAT(Hands(), SizeIs(3));
  for (const std::string& each : Sources()) {
    Change(each, "later");
    const std::vector<Snapshot> held = OfCut(each, cutId);
    ASSERT_THAT(held, SizeIs(1));
    EXPECT_EQ(held[0].meta.description, "of a sync");
    EXPECT_EQ(held[0].meta.taken_by, "sync");
    const TargetOperation operation(VrelDR::kTargetShare, each);
    EXPECT_FALSE(operation.DeleteSnapshot(held[0].snap_id));
    ExpectError(operation, VrelDR::kErrLocked, {held[0].snap_id, "is held by"});
  }
  for (const std::string& each : Plans()) ExpectSync(each);
  ExpectArrived(cutId);
  EXPECT_THAT(Hands(), IsEmpty());
  for (const std::string& each : Sources()) EXPECT_THAT(ListIds(each), SizeIs(2));
  // Its next one is a sync like any other.
  ExpectSync(Plans()[0]);
  EXPECT_THAT(ListIds("a"), SizeIs(3));
  ExpectNothingOnAnyWay();
}

TEST_P(PlanCutTest, ASnapshotThatWasTakenUpBeforeIsSentAsItIs) {
  Cut cut;
  PrepareAll(cut);
  std::string snapId;
  const TargetOperation first(VrelDR::kTargetShare, "a");
  ASSERT_TRUE(first.TakeSnapshot({"mine", false, true, "me"}, snapId)) << first.GetErr();
  ASSERT_TRUE(cut.PutInHand(Plans(), kMeta, true)) << cut.GetErr();
  EXPECT_EQ(Hands().at(Plans()[0]), snapId);
  EXPECT_EQ(first.GetSnapshot(snapId).meta.description, "mine");
  for (const std::string& each : Plans()) ExpectSync(each);
  ExpectArrived(cut.GetInfo().id);
  const Snapshot arrived =
      TargetOperation(VrelDR::kTargetShare, ReplicaOf("a")).GetSnapshot(snapId);
  EXPECT_EQ(arrived.meta.description, "mine");
  EXPECT_TRUE(arrived.meta.is_app_consistent);
}

TEST_P(PlanCutTest, WhetherASyncMakesGroupSnapshotsOfItIsRecordedWithTheCut) {
  for (const bool isMadeBySync : {false, true}) {
    Cut cut;
    PutAllInHand(cut, isMadeBySync);
    for (const std::string& each : Plans()) ExpectSync(each);
    CutInfo info;
    ASSERT_TRUE(CutReporter().Find(cut.GetInfo().id, info));
    EXPECT_EQ(info.is_made_by_sync, isMadeBySync);
    EXPECT_EQ(cut.GetInfo().is_made_by_sync, isMadeBySync);
  }
}

TEST_P(PlanCutTest, WithoutTheCutTheNextSyncSendsItAndThenOneOfItsOwn) {
  std::string cutId;
  {
    Cut cut;
    PutAllInHand(cut);
    cutId = cut.GetInfo().id;
  }
  for (const std::string& each : Sources()) Change(each, "later");
  ExpectRun(PlanSendWaiting(Plans()[0]));
  EXPECT_THAT(ListIds("a"), SizeIs(2));
  for (const std::string& each : Plans()) ExpectSync(each);
  for (const std::string& each : Sources()) {
    EXPECT_THAT(OfCut(ReplicaOf(each), cutId), SizeIs(1));
    EXPECT_THAT(ListIds(each), SizeIs(3));
    EXPECT_EQ(BytesOf(ReplicaOf(each), ListIds(ReplicaOf(each)).back()), Bytes(each));
  }
  ExpectNothingOnAnyWay();
}

TEST_P(PlanCutTest, WhatWaitsIsSentWithoutANewSnapshot) {
  ExpectRun(PlanSendWaiting(Plans()[0]));
  EXPECT_THAT(ListIds("a"), SizeIs(1));
  const Snapshot pending = Take("a");
  ASSERT_TRUE(VrelDR::PendingSnapReporter(Plans()[0]).Add(pending));
  EXPECT_TRUE(PlanSendWaiting(Plans()[0]).Run(true));
  EXPECT_THAT(ListIds(ReplicaOf("a")), SizeIs(1));
  ExpectRun(PlanSendWaiting(Plans()[0]));
  EXPECT_THAT(ListIds("a"), SizeIs(2));
  EXPECT_EQ(BytesOf(ReplicaOf("a"), pending.snap_id), Bytes("a"));
  VrelDR::PendingSnapReport left;
  VrelDR::PendingSnapReporter(Plans()[0]).ReadReport(left);
  EXPECT_THAT(left.GetSnapshots(), IsEmpty());
}

TEST_P(PlanCutTest, OneThatDoesNotGoAlongIsNamedAndNothingIsInHandOfTheOthers) {
  {
    Cut cut;
    ASSERT_TRUE(cut.Prepare({Targets()[0], Targets()[1]}));
    ExpectRefusedHand(cut, Plans(), VrelDR::kErrBadArgument,
                      {Plans()[2], "\"c\"", "not in the cut"});
    ExpectRefusedHand(cut, {}, VrelDR::kErrBadArgument, {"no plan is named"});
    ExpectRefusedHand(cut, {"nobody"}, VrelDR::kErrPlanMissing, {"\"nobody\""});
    // What was given back is still there to be taken up.
    ASSERT_TRUE(cut.PutInHand({Plans()[0]}, kMeta, false)) << cut.GetErr();
    EXPECT_THAT(Hands(), SizeIs(1));
  }
  {
    Cut cut;
    ExpectRefusedHand(cut, Plans(), VrelDR::kErrBadArgument, {"is not prepared"});
    PrepareAll(cut);
    ExpectRefusedHand(cut, Plans(), VrelDR::kErrPlanState,
                      {Plans()[0], "in hand", "send that first"});
  }
  ExpectSync(Plans()[0]);
  Cut cut;
  PrepareAll(cut);
  std::string snapId;
  const TargetOperation second(VrelDR::kTargetShare, "b");
  ASSERT_TRUE(second.TakeSnapshot({}, snapId));
  ASSERT_TRUE(second.DeleteSnapshot(snapId));
  ExpectRefusedHand(cut, Plans(), VrelDR::kErrSnapshotMissing, {Plans()[1], snapId});
}

TEST_P(PlanCutTest, ASwitchoverTakesALastSnapshotWhateverACutHasInHand) {
  Cut cut;
  PutAllInHand(cut);
  Change("a", "written after the cut");
  const Tree last = Bytes("a");
  ExpectRun(PlanSwitchover(Plans()[0], Json::Value(), Stopping()));
  ExpectNormal(Plans()[0], VrelDR::kDRToMain, last);
}

TEST_P(PlanCutTest, WhenOneCannotBeTakenUpNothingIsInHandAndNothingIsLeft) {
  {
    Cut cut;
    PrepareAll(cut);
    setenv("VRELDR_FAIL_POINT", "take_up@b", 1);
    ExpectRefusedHand(cut, Plans(), VrelDR::kErrIo, {"\"b\""});
    unsetenv("VRELDR_FAIL_POINT");
  }
  for (const std::string& each : Sources()) EXPECT_THAT(ListIds(each), SizeIs(1));
  for (const std::string& each : Plans()) ExpectSync(each);
  ExpectNothingOnAnyWay();
}

TEST_P(PlanCutTest, OneThatIsKilledHasAllInHandOrNothing) {
  const auto handAll = [&] {
    Cut cut;
    return cut.Prepare(Targets()) && cut.PutInHand(Plans(), kMeta, true) ? 0 : 1;
  };
  const std::vector<std::string_view> steps = {VrelDR::kCutSettled, VrelDR::kTakeRenamed,
                                               VrelDR::kHandTakenUp, VrelDR::kHandRecorded};
  for (const std::string_view step : steps) {
    SCOPED_TRACE(step);
    for (const std::string& each : Sources()) Change(each, "before " + std::string(step));
    const int code = RunInChild({{"VRELDR_KILL_POINT", std::string(step)}}, handAll);
    if (code != 128 + SIGKILL) {
      EXPECT_EQ(code, 0);
      EXPECT_EQ(step, VrelDR::kTakeRenamed) << "was not reached";
    }
    const std::map<std::string, std::string> hands = Hands();
    const bool isInHand = step == VrelDR::kHandRecorded || code == 0;
    EXPECT_THAT(hands, SizeIs(isInHand ? 3 : 0));
    for (const std::string& each : Plans()) ExpectRun(PlanSendWaiting(each));
    for (std::size_t i = 0; i < Plans().size() && isInHand; ++i) {
      EXPECT_EQ(Last(Plans()[i]), hands.at(Plans()[i]));
      EXPECT_EQ(BytesOf(ReplicaOf(Sources()[i]), Last(Plans()[i])), Bytes(Sources()[i]));
    }
    for (const std::string& each : Plans()) ExpectSync(each);
    ExpectNothingOnAnyWay();
  }
}

}  // namespace
}  // namespace host_test
