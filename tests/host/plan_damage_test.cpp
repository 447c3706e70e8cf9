#include <gmock/gmock.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "base/kill_point.h"
#include "plan_fixture.h"
#include "tree.h"
#include "vreldr/arrived.h"

#include "vreldrcore/sqlite_db.h"

// Copies that are not whole any more, or not as new as the records say, and shipments that find no
// room.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using VrelDR::TargetManager;
using VrelDR::TargetOperation;
using namespace VrelDR::Operation;  // the operations by their names

class PlanDamageTest : public PlanTest {
 protected:
  static std::vector<VrelDR::TargetRemains> Remains() {
    std::vector<VrelDR::TargetRemains> remains;
    const TargetManager manager;
    EXPECT_TRUE(manager.ListRemains(remains)) << manager.GetErr();
    return remains;
  }
  static VrelDR::ArrivedSnapshots Arrived(const std::string& planId) {
    VrelDR::ArrivedSnapshots arrived;
    const VrelDR::ArrivedReporter reporter(planId);
    EXPECT_TRUE(reporter.Read(arrived)) << reporter.GetErr();
    return arrived;
  }
  static std::string JournalMessage(const std::string& planId) {
    VrelDR::SiteOPJournal journal;
    EXPECT_TRUE(VrelDR::SiteOPJournalReporter(planId).ReadReport(journal));
    return journal.GetMessage();
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, PlanDamageTest,
                         testing::ValuesIn(VolumeKinds({"ext4", "xfs", "btrfs"})),
                         HostTest::NameOf);

// Where a copy is removed file by file, and what is left of it is where it was.
class HalfRemovedTest : public PlanDamageTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, HalfRemovedTest, testing::Values("ext4", "xfs"),
                         HostTest::NameOf);

TEST_P(PlanDamageTest, ACopyWhoseRemovalHasBegunAndItsPlanNeverComeBack) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const Tree tree = Bytes("a");
  setenv("VRELDR_FAIL_POINT", "remove@a-dr", 1);
  PlanDelete remove(planId, true, true, true);
  EXPECT_FALSE(remove.Run(false));
  ExpectError(remove, VrelDR::kErrIo,
              {planId, "\"a-dr\"", "\"v2\"", "not whole any more", "the plan is gone"});
  EXPECT_THAT(PlansOf("a"), IsEmpty());
  EXPECT_FALSE(TargetOperation(2, "a-dr").IsExisted());
  PlanSync sync(planId, {});
  EXPECT_FALSE(sync.Run(false));
  EXPECT_EQ(sync.GetErrCode(), VrelDR::kErrPlanMissing);
  ASSERT_THAT(Remains(), SizeIs(1));
  EXPECT_EQ(Remains()[0].target.GetId(), "a-dr");
  EXPECT_EQ(Remains()[0].volume, "v2");
  EXPECT_EQ(Remains()[0].plan_id, planId);
  EXPECT_EQ(Remains()[0].other_target_id, "a");
  EXPECT_TRUE(Remains()[0].is_dr_side);
  // The source is free of the plan, and works.
  EXPECT_TRUE(TargetOperation(2, "a").DeleteSnapshot(ListIds("a")[0]));
  EXPECT_EQ(Bytes("a"), tree);
  const TargetManager manager;
  EXPECT_FALSE(manager.Remove("a-dr", false));
  ExpectError(manager, VrelDR::kErrIo, {"\"a-dr\"", "not whole any more", "remove it again"});
  ASSERT_THAT(Remains(), SizeIs(1));
  unsetenv("VRELDR_FAIL_POINT");
  EXPECT_TRUE(manager.Remove("a-dr", false)) << manager.GetErr();
  EXPECT_THAT(Remains(), IsEmpty());
  EXPECT_THAT(NamesOnSecondVolume(), IsEmpty());
  EXPECT_EQ(Plan(MakePlan("a")).GetDRTargetId(), "a-dr");
}

TEST_P(HalfRemovedTest, ARemovalThatStoppedHalfWayIsFinishedByTheNextCreation) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const std::string snapId = Last(planId);
  const std::string dir = SnapshotDir("a-dr", snapId);
  const std::size_t whole = DescribeTree(dir).size();
  EXPECT_EQ(RunInChild({{"VRELDR_KILL_POINT", "remove.entry"}},
                       [&] { return PlanDelete(planId, true, true, true).Run(false) ? 0 : 1; }),
            128 + SIGKILL);
  EXPECT_LT(DescribeTree(dir).size(), whole);
  EXPECT_THAT(PlansOf("a"), IsEmpty());
  PlanForcedFailover failover(planId, snapId, Json::Value());
  EXPECT_FALSE(failover.Run(false));
  EXPECT_EQ(failover.GetErrCode(), VrelDR::kErrPlanMissing);
  ASSERT_THAT(Remains(), SizeIs(1));
  MakeShare("another");
  EXPECT_THAT(Remains(), IsEmpty());
  EXPECT_THAT(NamesOnSecondVolume(), IsEmpty());
}

TEST_P(HalfRemovedTest, AnOrdinaryTargetWhoseRemovalHasBegunDoesNotComeBack) {
  MakeShare("a");
  MakeSampleTree(PathOf("a"));
  setenv("VRELDR_FAIL_POINT", "remove@a", 1);
  const TargetManager manager;
  EXPECT_FALSE(manager.Remove("a", false));
  unsetenv("VRELDR_FAIL_POINT");
  ExpectError(manager, VrelDR::kErrIo, {"\"a\"", "not whole any more"});
  EXPECT_FALSE(TargetOperation(2, "a").IsExisted());
  ASSERT_THAT(Remains(), SizeIs(1));
  EXPECT_EQ(Remains()[0].plan_id, "");
  EXPECT_TRUE(manager.Remove("a", false)) << manager.GetErr();
  EXPECT_THAT(Remains(), IsEmpty());
}

TEST_P(PlanDamageTest, NothingIsBegunOnACopyThatCannotBeWritten) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  LetSecondBeWritten(false);
  PlanDelete remove(planId, true, true, true);
  EXPECT_FALSE(remove.Run(false));
  EXPECT_EQ(remove.GetErrCode(), VrelDR::kErrReadOnly) << remove.GetErr();
  EXPECT_THAT(Remains(), IsEmpty());
  LetSecondBeWritten(true);
  ExpectSync(planId);
}

TEST_P(PlanDamageTest, ALastSnapshotThatIsGoneIsSaidToBeAndTheOneBeforeTakesOver) {
  const std::string planId = MakeProtectedShare();
  EXPECT_EQ(Arrived(planId).recorded_id, "");
  EXPECT_EQ(Arrived(planId).newest.snap_id, "");
  ExpectSync(planId);
  const std::string first = Last(planId);
  const Tree old = Bytes("a");
  Change("a", "more");
  ExpectSync(planId);
  const std::string second = Last(planId);
  EXPECT_FALSE(Arrived(planId).is_gone);
  EXPECT_EQ(Arrived(planId).newest.snap_id, second);

  LoseBytes("a-dr", second);
  EXPECT_TRUE(Arrived(planId).is_gone);
  EXPECT_EQ(Arrived(planId).recorded_id, second);
  EXPECT_EQ(Arrived(planId).newest.snap_id, first);
  ExpectRefused(PlanFailover(planId, second, Json::Value()), VrelDR::kErrSnapshotMissing,
                {second, "\"a-dr\"", first});
  EXPECT_TRUE(VrelDR::Checker::PlanFailoverChecker(planId).Run(false));
  ExpectRun(SitePromote(Plan(planId)));
  ExpectFailedOver(planId, VrelDR::kMainToDR, old);
}

TEST_P(PlanDamageTest, ASyncGoesOnFromWhatBothSidesStillHave) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const std::string first = Last(planId);
  Change("a", "more");
  ExpectSync(planId);
  LoseBytes("a-dr", Last(planId));
  Change("a", "still more");
  ExpectSync(planId);
  const std::string third = Last(planId);
  EXPECT_FALSE(Arrived(planId).is_gone);
  EXPECT_EQ(Arrived(planId).newest.snap_id, third);
  EXPECT_EQ(BytesOf("a-dr", third), Bytes("a"));
  // Nothing but the newest is held.
  EXPECT_TRUE(TargetOperation(2, "a").DeleteSnapshot(first));
  EXPECT_TRUE(TargetOperation(2, "a-dr").DeleteSnapshot(first));
  EXPECT_THAT(ListIds("a"), SizeIs(2));
  for (const std::string& each : ListIds("a")) {
    EXPECT_EQ(TargetOperation(2, "a").DeleteSnapshot(each), each != third);
  }
  // Everything is gone: all is sent again.
  LoseBytes("a-dr", third);
  VrelDR::ArrivedSnapshots arrived = Arrived(planId);
  EXPECT_TRUE(arrived.is_gone);
  EXPECT_EQ(arrived.newest.snap_id, "");
  ExpectRefused(SitePromote(Plan(planId)), VrelDR::kErrSnapshotMissing, {third, "is gone"});
  ExpectSync(planId);
  EXPECT_EQ(BytesOf("a-dr", Last(planId)), Bytes("a"));
}

TEST_P(PlanDamageTest, ASnapshotThatIsGoneFromTheReplicaCanBeSentAgain) {
  const std::string planId = MakeProtectedShare();
  const auto asked = Take("a");
  const VrelDR::PendingSnapReporter pending(planId);
  ASSERT_TRUE(pending.Add(asked));
  ExpectSync(planId);
  LoseBytes("a-dr", asked.snap_id);
  ASSERT_TRUE(pending.Add(asked));
  ExpectSync(planId);
  EXPECT_EQ(BytesOf("a-dr", asked.snap_id), BytesOf("a", asked.snap_id));
}

TEST_P(PlanDamageTest, WhatAReprotectionHasKeptIsNotTakenForOneThatArrived) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const std::string first = Last(planId);
  Change("a", "never sent");
  ExpectRun(PlanFailover(planId, first, Json::Value()));
  ExpectRun(PlanReprotect(planId, "this node", true));
  EXPECT_THAT(ListIds("a"), SizeIs(3));  // what was kept is between the two
  LoseBytes("a", Last(planId));
  EXPECT_TRUE(Arrived(planId).is_gone);
  EXPECT_EQ(Arrived(planId).newest.snap_id, first);
}

TEST_P(PlanDamageTest, ARecordThatIsGoneCountsAsItsBytesDo) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const std::string first = Last(planId);
  ExpectSync(planId);
  const std::string second = Last(planId);
  {
    const VrelDRCore::SqliteDB records(StateDir() + "/replica.db", 1, "vreldrcore_db_info");
    ASSERT_TRUE(records.Exec("DELETE FROM snapshots WHERE target_id = 'a-dr' AND snap_id = '" +
                             second + "'"));
  }
  EXPECT_TRUE(Arrived(planId).is_gone);
  EXPECT_EQ(Arrived(planId).recorded_id, second);
  EXPECT_EQ(Arrived(planId).newest.snap_id, first);
}

TEST_P(PlanDamageTest, OfAReplicaThatCannotBeAskedNothingIsSaidToBeGone) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const std::string last = Last(planId);
  UnmountSecondVolume();
  VrelDR::ArrivedSnapshots arrived;
  const VrelDR::ArrivedReporter reporter(planId);
  EXPECT_FALSE(reporter.Read(arrived));
  EXPECT_NE(reporter.GetErrCode(), 0);
  EXPECT_EQ(arrived.recorded_id, last);
  EXPECT_FALSE(arrived.is_gone);
}

TEST_P(PlanDamageTest, APlanWhoseLastSnapshotIsGoneCanBeDeleted) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const Tree old = Bytes("a");
  Change("a", "more");
  ExpectSync(planId);
  LoseBytes("a-dr", Last(planId));
  ExpectRun(PlanDelete(planId, false, false, true));
  EXPECT_EQ(Bytes("a-dr"), old);
}

// A replica on a volume without room for what is to come: only an image can be filled.
class NoRoomTest : public PlanDamageTest {
 protected:
  void FillSecondVolume(std::uintmax_t left) const {
    const std::string filler = SecondVolumePath() + "/filler";
    WriteFile(filler, std::string(fs::space(SecondVolumePath()).available - left, 'f'));
  }
  static std::string RandomText(std::size_t size) {
    std::string text(size, ' ');
    std::uint32_t number = 1;
    for (char& each : text) each = static_cast<char>((number = number * 1103515245 + 12345) >> 16);
    return text;
  }
  static void ExpectNoRoom(const std::string& planId) {
    PlanSync sync(planId, {});
    EXPECT_FALSE(sync.Run(false));
    ExpectError(sync, VrelDR::kErrNoSpace, {planId, "\"v2\""});
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, NoRoomTest, testing::Values("ext4"), HostTest::NameOf);

TEST_P(NoRoomTest, AShipmentThatFoundNoRoomTwiceIsDroppedForWhatTheSourceHasNow) {
  MakeShare("a");
  const std::string planId = MakePlan("a");
  ExpectSync(planId);
  WriteFile(PathOf("a") + "/big", RandomText(8 << 20));
  FillSecondVolume(4 << 20);
  ExpectNoRoom(planId);
  const std::string large = ListIds("a").back();
  ExpectNoRoom(planId);
  EXPECT_EQ(ListIds("a").back(), large);  // the same one was tried again
  fs::remove(PathOf("a") + "/big");
  Change("a", "little");
  ExpectSync(planId);
  EXPECT_EQ(BytesOf("a-dr", Last(planId)), Bytes("a"));
  EXPECT_THAT(JournalMessage(planId), AllOf(HasSubstr(large), HasSubstr("dropped")));
  EXPECT_THAT(ListIds("a-dr"), Not(testing::Contains(large)));
  // The source has kept it, and nobody holds it.
  EXPECT_THAT(ListIds("a"), testing::Contains(large));
  EXPECT_TRUE(TargetOperation(2, "a").DeleteSnapshot(large));
  ExpectSync(planId);
  EXPECT_EQ(JournalMessage(planId), "");
}

TEST_P(NoRoomTest, AShipmentThatFindsRoomTheSecondTimeGoesOn) {
  MakeShare("a");
  const std::string planId = MakePlan("a");
  ExpectSync(planId);
  WriteFile(PathOf("a") + "/big", RandomText(8 << 20));
  FillSecondVolume(4 << 20);
  ExpectNoRoom(planId);
  const std::string large = ListIds("a").back();
  fs::remove(SecondVolumePath() + "/filler");
  ExpectSync(planId);
  EXPECT_THAT(ListIds("a-dr"), testing::Contains(large));
  EXPECT_EQ(JournalMessage(planId), "");
}

TEST_P(NoRoomTest, ADroppedSnapshotThatWasAskedForDoesNotWaitAnyMore) {
  MakeShare("a");
  const std::string planId = MakePlan("a");
  WriteFile(PathOf("a") + "/big", RandomText(8 << 20));
  const auto asked = Take("a");
  const VrelDR::PendingSnapReporter pending(planId);
  ASSERT_TRUE(pending.Add(asked));
  fs::remove(PathOf("a") + "/big");
  FillSecondVolume(4 << 20);
  VrelDR::DataSyncParam param;
  param.with_pending = true;
  for (int i = 0; i < 2; ++i) EXPECT_FALSE(PlanSync(planId, param).Run(false));
  ExpectRun(PlanSync(planId, param));
  VrelDR::PendingSnapReport listed;
  ASSERT_TRUE(pending.ReadReport(listed));
  EXPECT_THAT(listed.GetSnapshots(), IsEmpty());
  EXPECT_EQ(BytesOf("a-dr", Last(planId)), Bytes("a"));
}

TEST_P(NoRoomTest, AShipmentCanBeDroppedAtOnce) {
  MakeShare("a");
  const std::string planId = MakePlan("a");
  ExpectSync(planId);
  PlanDropShipment nothing(planId);
  EXPECT_TRUE(nothing.Run(false)) << nothing.GetErr();
  EXPECT_EQ(nothing.GetDropped(), "");
  WriteFile(PathOf("a") + "/big", RandomText(8 << 20));
  FillSecondVolume(4 << 20);
  ExpectNoRoom(planId);
  const std::string large = ListIds("a").back();
  const std::uintmax_t before = fs::space(SecondVolumePath()).available;
  PlanDropShipment drop(planId);
  EXPECT_TRUE(drop.Run(true));
  EXPECT_EQ(fs::space(SecondVolumePath()).available, before);
  EXPECT_TRUE(drop.Run(false)) << drop.GetErr();
  EXPECT_EQ(drop.GetDropped(), large);
  EXPECT_GT(fs::space(SecondVolumePath()).available, before);
  fs::remove(PathOf("a") + "/big");
  ExpectSync(planId);
  EXPECT_TRUE(TargetOperation(2, "a").DeleteSnapshot(large));
}

TEST_P(NoRoomTest, ADropThatWasKilledIsFinishedOrTheShipmentBeginsAnew) {
  MakeShare("a");
  const std::string planId = MakePlan("a");
  ExpectSync(planId);
  for (const std::string_view step : {VrelDR::kDropBytesGone, VrelDR::kDropDone}) {
    SCOPED_TRACE(step);
    WriteFile(PathOf("a") + "/big", RandomText(8 << 20));
    FillSecondVolume(4 << 20);
    for (int i = 0; i < 2; ++i) ExpectNoRoom(planId);
    fs::remove(PathOf("a") + "/big");
    EXPECT_EQ(RunInChild({{"VRELDR_KILL_POINT", std::string(step)}},
                         [&] { return PlanSync(planId, {}).Run(false) ? 0 : 1; }),
              128 + SIGKILL);
    ExpectSync(planId);
    EXPECT_EQ(BytesOf("a-dr", Last(planId)), Bytes("a"));
    fs::remove(SecondVolumePath() + "/filler");
  }
}

}  // namespace
}  // namespace host_test
