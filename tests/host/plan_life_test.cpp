#include <gmock/gmock.h>

#include <filesystem>
#include <thread>

#include "plan_fixture.h"
#include "tree.h"
#include "vreldr/arrived.h"
#include "vreldr/cut.h"
#include "vreldr/protected_target.h"

// The life of a plan: what is true after each operation, bytes compared.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using VrelDR::TargetOperation;
using namespace VrelDR::Operation;  // the operations by their names

class PlanLifeTest : public PlanTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, PlanLifeTest,
                         testing::ValuesIn(VolumeKinds({"tmpfs", "ext4", "xfs", "btrfs"})),
                         HostTest::NameOf);

TEST_P(PlanLifeTest, ANewPlanHasAnEmptyCopyAndTheSourceWorksAsBefore) {
  MakeShare("a");
  MakeSampleTree(PathOf("a"));
  const Tree tree = Bytes("a");
  const std::string planId = MakePlan("a");
  const VrelDR::DRPlan plan = Plan(planId);
  EXPECT_EQ(plan.GetSolutionType(), VrelDR::kSolutionGroup);
  EXPECT_EQ(plan.GetScheduleMode(), VrelDR::kScheduleAsyncGroup);
  EXPECT_EQ(plan.GetProtectedTargetType(), 1);
  EXPECT_EQ(plan.GetMainSite(), "this node");
  EXPECT_EQ(plan.GetDRSite(), "this node");
  EXPECT_EQ(plan.GetProtectedTargetId(), "a");
  EXPECT_EQ(plan.GetDRTargetId(), "a-dr");
  EXPECT_TRUE(fs::is_empty(PathOf("a-dr")));
  VrelDR::TargetEntry copy;
  ASSERT_TRUE(VrelDR::TargetManager().Get("a-dr", copy));
  EXPECT_EQ(copy.volume, "v2");
  EXPECT_EQ(copy.target.GetType(), VrelDR::kTargetShare);
  EXPECT_EQ(Last(planId), "");
  EXPECT_THAT(PlansOf("a-dr"), ElementsAre(planId));
  ExpectNormal(planId, VrelDR::kMainToDR, tree);
}

TEST_P(PlanLifeTest, ASyncTakesUpWhatACutHasPreparedAndBothSidesSayOfWhichItIs) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const Snapshot pending = Take("a");
  EXPECT_TRUE(VrelDR::PendingSnapReporter(planId).Add(pending));
  VrelDR::DataSyncParam param;
  param.with_pending = true;
  std::string cutId;
  Tree bytes;
  {
    VrelDR::Cut cut;
    ASSERT_TRUE(cut.Prepare({{"a", VrelDR::kTargetShare}})) << cut.GetErr();
    cutId = cut.GetInfo().id;
    bytes = Bytes("a");
    Change("a", "after the cut");
    std::jthread([&] { ExpectRun(PlanSync(planId, param)); });
  }
  for (const char* side : {"a", "a-dr"}) {
    const Snapshot last = TargetOperation(2, side).GetSnapshot(Last(planId));
    EXPECT_EQ(last.cut_id, cutId) << side;
    EXPECT_EQ(BytesOf(side, last.snap_id), bytes);
  }
  VrelDR::CutInfo info;
  EXPECT_TRUE(VrelDR::CutReporter().Find(cutId, info));
  EXPECT_EQ(info.members, 1);
  EXPECT_FALSE(TargetOperation(2, "a-dr").GetSnapshot(pending.snap_id).snap_id.empty());
  // The next one is taken anew.
  ExpectSync(planId);
  EXPECT_EQ(TargetOperation(2, "a").GetSnapshot(Last(planId)).cut_id, "");
  ExpectSameSnapshots(planId);
}

TEST_P(PlanLifeTest, ASyncGivesBothSidesTheSameSnapshotHeldInsteadOfTheOneBefore) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const std::string first = Last(planId);
  EXPECT_THAT(ListIds("a"), ElementsAre(first));
  EXPECT_THAT(ListIds("a-dr"), ElementsAre(first));
  EXPECT_EQ(BytesOf("a-dr", first), Bytes("a"));
  EXPECT_EQ(TargetOperation(2, "a-dr").GetSnapshot(first).meta.taken_by,
            VrelDR::GetRetentionLocker(planId));
  const TargetOperation source(2, "a");
  const TargetOperation replica(2, "a-dr");
  EXPECT_FALSE(source.DeleteSnapshot(first));
  ExpectError(source, VrelDR::kErrLocked, {first, "\"a\"", "plan " + planId, "delete the plan"});
  EXPECT_FALSE(replica.DeleteSnapshot(first));
  ExpectError(replica, VrelDR::kErrLocked, {first, "\"a-dr\""});

  Change("a", "more");
  ExpectSync(planId);
  const std::string second = Last(planId);
  EXPECT_NE(second, first);
  EXPECT_THAT(ListIds("a"), ElementsAre(first, second));
  EXPECT_THAT(ListIds("a-dr"), ElementsAre(first, second));
  ExpectSameSnapshots(planId);
  EXPECT_EQ(BytesOf("a-dr", second), Bytes("a"));
  EXPECT_TRUE(source.DeleteSnapshot(first)) << source.GetErr();
  EXPECT_TRUE(replica.DeleteSnapshot(first)) << replica.GetErr();
  EXPECT_FALSE(source.DeleteSnapshot(second));
  ExpectNormal(planId, VrelDR::kMainToDR, Bytes("a"));
  ExpectNoLeftovers();
}

TEST_P(PlanLifeTest, ASyncTellsHowItWent) {
  const std::string planId = MakeProtectedShare();
  VrelDR::SyncReport report;
  EXPECT_FALSE(VrelDR::PlanSyncReporter(planId).ReadReport(report));
  ExpectSync(planId);
  ASSERT_TRUE(VrelDR::PlanReporter(planId, VrelDR::kReportSync).ReadReport(report));
  EXPECT_EQ(report.GetState(), VrelDR::OPState::kDone);
  EXPECT_EQ(report.GetSnapId(), Last(planId));
  EXPECT_GT(report.GetSyncRecord().sync_size_byte, 0U);
  EXPECT_EQ(report.GetSyncRecord().sync_size_byte, report.GetSyncRecord().total_size_byte);
  EXPECT_GT(report.GetSyncRecord().begin_time, 0U);
  EXPECT_GE(report.GetSyncRecord().end_time, report.GetSyncRecord().begin_time);
  VrelDR::SiteOPJournal journal;
  ASSERT_TRUE(VrelDR::SiteOPJournalReporter(planId).ReadReport(journal));
  EXPECT_EQ(journal.GetOPStatus(), VrelDR::kOpSync);
  EXPECT_EQ(journal.GetState(), VrelDR::OPState::kDone);
  EXPECT_EQ(journal.GetProgress(), 100);
  EXPECT_EQ(journal.GetMessage(), "");
}

TEST_P(PlanLifeTest, PendingSnapshotsGoOldestFirstAndTheirListIsEmptyAfterwards) {
  const std::string planId = MakeProtectedShare();
  const auto older = Take("a");
  Change("a", "1");
  const auto newer = Take("a");
  const auto gone = Take("a");
  Change("a", "2");
  const VrelDR::PendingSnapReporter pending(planId);
  for (const auto& each : {newer, gone, older, newer}) EXPECT_TRUE(pending.Add(each));
  EXPECT_FALSE(pending.Add({}));
  EXPECT_TRUE(TargetOperation(2, "a").DeleteSnapshot(gone.snap_id));
  VrelDR::PendingSnapReport listed;
  ASSERT_TRUE(pending.ReadReport(listed));
  EXPECT_THAT(listed.GetSnapshots(), ElementsAre(older.snap_id, newer.snap_id, gone.snap_id));

  ExpectRun(PlanSync(planId, {}));
  EXPECT_THAT(ListIds("a-dr"), ElementsAre(Last(planId)));
  ExpectSync(planId);
  EXPECT_THAT(ListIds("a-dr"), SizeIs(4));
  EXPECT_THAT(ListIds("a-dr"), testing::IsSupersetOf({older.snap_id, newer.snap_id}));
  ExpectSameSnapshots(planId);
  ASSERT_TRUE(pending.ReadReport(listed));
  EXPECT_THAT(listed.GetSnapshots(), IsEmpty());
  EXPECT_TRUE(pending.Remove(older));
}

TEST_P(PlanLifeTest, ASwitchoverTurnsTheDirectionThereAndBack) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  Change("a", "newest");
  const Tree tree = Bytes("a");
  ExpectRun(PlanSwitchover(planId, Json::Value(), Stopping()));
  ExpectNormal(planId, VrelDR::kDRToMain, tree);
  EXPECT_EQ(Bytes("a"), tree);
  const std::string last = Last(planId);
  EXPECT_EQ(BytesOf("a-dr", last), tree);

  Change("a-dr", "on the other side");
  ExpectSync(planId);
  EXPECT_EQ(BytesOf("a", Last(planId)), Bytes("a-dr"));
  const Tree changed = Bytes("a-dr");
  ExpectRun(PlanSwitchover(planId, Json::Value(), Json::Value(3)));
  ExpectNormal(planId, VrelDR::kMainToDR, changed);
  ExpectSync(planId);
  ExpectSameSnapshots(planId);
  ExpectNoLeftovers();
}

TEST_P(PlanLifeTest, AFailoverTakesExactlyTheSnapshotAndCanBeTakenBack) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const std::string first = Last(planId);
  const Tree old = Bytes("a");
  Change("a", "second");
  ExpectSync(planId);
  Change("a", "never sent");
  const Tree newest = Bytes("a");

  ExpectRun(PlanFailover(planId, first, Json::Value()));
  ExpectFailedOver(planId, VrelDR::kMainToDR, old);
  EXPECT_EQ(Bytes("a"), newest);
  Change("a-dr", "lost");
  ExpectRun(DRSiteReprotect(Plan(planId), VrelDR::kOpFailover));
  ExpectNormal(planId, VrelDR::kMainToDR, newest);
  Change("a", "goes on");
  ExpectSync(planId);
  ExpectSameSnapshots(planId);
  EXPECT_EQ(BytesOf("a-dr", Last(planId)), Bytes("a"));
}

TEST_P(PlanLifeTest, AReprotectionGoesOnFromWhatWorksAndKeepsWhatTheOtherHad) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  Change("a", "never sent");
  const Tree unsent = Bytes("a");
  ExpectRun(PlanFailover(planId, Last(planId), Json::Value()));
  Change("a-dr", "new life");
  const Tree working = Bytes("a-dr");
  const std::vector<std::string> before = ListIds("a");
  ExpectRun(PlanReprotect(planId, "this node", false));
  ExpectNormal(planId, VrelDR::kDRToMain, working);
  const auto snapshots = TargetOperation(2, "a").ListSnapshots();
  ASSERT_EQ(snapshots.size(), before.size() + 1);
  EXPECT_EQ(snapshots.back().meta.description, "Before reprotect");
  EXPECT_EQ(DescribeTree(snapshots.back().path), unsent);
  EXPECT_EQ(Last(planId), before.back());

  ExpectSync(planId);
  EXPECT_EQ(BytesOf("a", Last(planId)), working);
  ExpectRun(PlanSwitchover(planId, Json::Value(), Stopping()));
  ExpectNormal(planId, VrelDR::kMainToDR, working);
  EXPECT_EQ(BytesOf("a", snapshots.back().snap_id), unsent);
}

TEST_P(PlanLifeTest, AReprotectionCanBeTakenBackBeforeTheNextSync) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  ExpectRun(PlanFailover(planId, Last(planId), Json::Value()));
  Change("a-dr", "new life");
  const Tree working = Bytes("a-dr");
  ExpectRun(PlanReprotect(planId, "this node", false));
  VrelDR::ArrivedSnapshots arrived;
  EXPECT_TRUE(VrelDR::ArrivedReporter(planId).Read(arrived));
  EXPECT_TRUE(arrived.is_going_back);
  ExpectRun(PlanForcedFailover(planId, "no such snapshot", Json::Value()));
  ExpectFailedOver(planId, VrelDR::kMainToDR, working);
  ExpectRun(PlanReprotect(planId, "this node", true));
  ExpectNormal(planId, VrelDR::kDRToMain, working);
  EXPECT_EQ(BytesOf("a", Last(planId)), working);
  EXPECT_TRUE(VrelDR::ArrivedReporter(planId).Read(arrived));
  EXPECT_FALSE(arrived.is_going_back);
  ExpectRefused(PlanForcedFailover(planId, "no such snapshot", Json::Value()),
                VrelDR::kErrSnapshotMissing, {"no such snapshot"});
}

TEST_P(PlanLifeTest, ADeletedPlanLeavesTwoOrdinaryTargets) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const std::string last = Last(planId);
  const Tree sent = Bytes("a");
  Change("a", "later");
  const Tree later = Bytes("a");
  ExpectRun(PlanDelete(planId, false, true, true));
  EXPECT_THAT(PlansOf("a"), IsEmpty());
  EXPECT_EQ(Bytes("a"), later);
  EXPECT_EQ(Bytes("a-dr"), sent);
  EXPECT_TRUE(IsWritable("a-dr"));
  Take("a-dr");
  EXPECT_TRUE(TargetOperation(2, "a").DeleteSnapshot(last));
  EXPECT_TRUE(VrelDR::TargetManager().Remove("a-dr", true));
  EXPECT_TRUE(VrelDR::TargetManager().Remove("a", true));
}

TEST_P(PlanLifeTest, ADeletedPlanTakesItsCopyAlongWhenAsked) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const Tree tree = Bytes("a");
  ExpectRun(SiteDelete(planId, true, true));
  EXPECT_THAT(PlansOf("a"), IsEmpty());
  EXPECT_FALSE(TargetOperation(2, "a-dr").IsExisted());
  EXPECT_THAT(NamesOnSecondVolume(), IsEmpty());
  EXPECT_EQ(Bytes("a"), tree);
  EXPECT_THAT(ListIds("a"), SizeIs(1));
  EXPECT_TRUE(TargetOperation(2, "a").DeleteSnapshot(ListIds("a")[0]));
  EXPECT_THAT(MakePlan("a"), Not(IsEmpty()));
}

TEST_P(PlanLifeTest, APlanThatIsFailedOverIsDeletedWithoutTouchingEitherCopy) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const Tree sent = Bytes("a");
  Change("a", "never sent");
  const Tree unsent = Bytes("a");
  ExpectRun(PlanFailover(planId, Last(planId), Json::Value()));
  ExpectRefused(PlanDelete(planId, true, true, true), VrelDR::kErrPlanState,
                {planId, "\"a\"", "\"a-dr\"", "failover", "keep the data"});
  ExpectRun(PlanDelete(planId, true, false, true));
  EXPECT_EQ(Bytes("a"), unsent);
  EXPECT_EQ(Bytes("a-dr"), sent);
  EXPECT_TRUE(IsWritable("a"));
  EXPECT_TRUE(IsWritable("a-dr"));
}

TEST_P(PlanLifeTest, ALunGoesOverAndItsCopyGetsItsSize) {
  MakeLun("lun", 1 << 20);
  WriteFile(PathOf("lun"), std::string(1 << 20, 'x'));
  const std::string planId = MakePlan("lun", "other name");
  EXPECT_EQ(fs::file_size(PathOf("other name")), 0U);
  ExpectSync(planId);
  EXPECT_EQ(ReadFile(TargetOperation(1, "other name").GetSnapshot(Last(planId)).path),
            ReadFile(PathOf("lun")));
  ExpectRun(SitePromote(Plan(planId)));
  EXPECT_EQ(Plan(planId).GetStatus(), VrelDR::kPlanFailover);
  EXPECT_EQ(ReadFile(PathOf("other name")), std::string(1 << 20, 'x'));
}

TEST_P(PlanLifeTest, TheLastSnapshotThatArrivedCanBeTakenBack) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const std::string first = Last(planId);
  ExpectSync(planId);
  const std::string second = Last(planId);
  const auto target = ProtectedTarget::CreateTarget(1, "a-dr");
  ASSERT_NE(target, nullptr);
  EXPECT_EQ(ProtectedTarget::CreateTarget(4, "a-dr"), nullptr);
  EXPECT_FALSE(target->DeleteSnapshot(second));
  EXPECT_EQ(target->GetErrCode(), VrelDR::kErrLocked);
  EXPECT_FALSE(target->ReleaseRetentionLock(first, VrelDR::GetRetentionLocker(planId)));
  EXPECT_FALSE(target->ReleaseRetentionLock(second, "somebody"));
  EXPECT_TRUE(target->ReleaseRetentionLock(second, VrelDR::GetRetentionLocker(planId)))
      << target->GetErr();
  EXPECT_TRUE(target->DeleteSnapshot(second)) << target->GetErr();
  EXPECT_EQ(Last(planId), first);
  EXPECT_FALSE(TargetOperation(2, "a").DeleteSnapshot(first));
  EXPECT_TRUE(target->ReleaseRetentionLock(first, VrelDR::GetRetentionLocker(planId)));
  EXPECT_EQ(Last(planId), "");
  ExpectSync(planId);
  EXPECT_EQ(BytesOf("a-dr", Last(planId)), Bytes("a"));
}

TEST_P(PlanLifeTest, TheLastSnapshotCanBeTakenBackOnTheSourceToo) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const std::string first = Last(planId);
  ExpectSync(planId);
  const std::string second = Last(planId);
  const auto target = ProtectedTarget::CreateTarget(1, "a");
  EXPECT_TRUE(target->ReleaseRetentionLock(second, VrelDR::GetRetentionLocker(planId)));
  EXPECT_TRUE(target->DeleteSnapshot(second)) << target->GetErr();
  EXPECT_EQ(Last(planId), first);
  EXPECT_THAT(ListIds("a-dr"), ElementsAre(first, second));
  Change("a", "more");
  ExpectSync(planId);
  EXPECT_EQ(BytesOf("a-dr", Last(planId)), Bytes("a"));
  EXPECT_TRUE(TargetOperation(2, "a-dr").DeleteSnapshot(second));
}

}  // namespace
}  // namespace host_test
