#include <gmock/gmock.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "earlier_records.h"
#include "plan_fixture.h"
#include "tree.h"
#include "vreldrcore/sqlite_db.h"

// Operations on plans that fail in the middle, are stopped, or meet another process.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::Each;
using testing::HasSubstr;
using testing::SizeIs;
using VrelDR::TargetOperation;
using namespace VrelDR::Operation;  // the operations by their names

// Lets calls of the engine fail, as "step@target", while it lives.
class Failing {
 public:
  explicit Failing(const std::string& points) { setenv("VRELDR_FAIL_POINT", points.c_str(), 1); }
  ~Failing() { unsetenv("VRELDR_FAIL_POINT"); }
  Failing(const Failing&) = delete;
  Failing& operator=(const Failing&) = delete;
};

class PlanFailureTest : public PlanTest {
 protected:
  static void ExpectFails(VrelDR::DROperation&& operation, const std::string& points) {
    const Failing failing(points);
    EXPECT_FALSE(operation.Run(false)) << points;
    EXPECT_EQ(operation.GetErrCode(), VrelDR::kErrIo) << operation.GetErr();
    EXPECT_TRUE(operation.GetErrMsg().isString());
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, PlanFailureTest,
                         testing::ValuesIn(VolumeKinds({"ext4", "xfs", "btrfs"})),
                         HostTest::NameOf);

// When records of the first version were written, every target was the local engine's.
class FirstRecordsTest : public PlanTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, FirstRecordsTest, testing::Values("ext4", "xfs", "btrfs"),
                         HostTest::NameOf);

// Where shipments can be slowed down: those of rsync, and of the engine "fake".
class SlowSyncTest : public PlanTest {
 protected:
  // Starts a sync that takes far longer than the test, in a process of its own. Its exit status is
  // the code it ends with, less 400.
  pid_t StartSlowSync(const std::string& planId, VrelDR::DROperation&& operation) {
    if (IsFake()) Misbehave(SecondVolumePath(), "slow", true);
    const std::string slow = Root() + "/rsync";
    WriteFile(slow, "#!/bin/sh\nexec /usr/bin/rsync --bwlimit=100 \"$@\"\n");
    fs::permissions(slow, fs::perms::owner_all);
    const std::string path = Root() + ":" + std::getenv("PATH");
    const pid_t pid = StartChild(
        {{"PATH", path}}, [&] { return operation.Run(false) ? 0 : operation.GetErrCode() - 400; });
    WaitUntilSending(planId);
    return pid;
  }

  // Waits for its end, after which nothing is slow any more.
  int WaitForEnd(pid_t pid) const {
    const int code = WaitFor(pid);
    if (IsFake()) Misbehave(SecondVolumePath(), "slow", false);
    return code;
  }

 private:
  static void WaitUntilSending(const std::string& planId) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    VrelDR::SyncReport report;
    while (!VrelDR::PlanSyncReporter(planId).ReadReport(report) ||
           report.GetState() != VrelDR::OPState::kRunning ||
           report.GetSyncRecord().sync_size_byte == 0) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline);
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, SlowSyncTest, testing::ValuesIn(VolumeKinds({"ext4"})),
                         HostTest::NameOf);

// Only an image can be filled.
class FullVolumeTest : public PlanTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, FullVolumeTest, testing::Values("ext4"), HostTest::NameOf);

TEST_P(PlanFailureTest, ASyncThatFailsChangesNothingAndCanBeRunAgain) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const std::string first = Last(planId);
  Change("a", "more");
  const Tree tree = Bytes("a");
  for (const char* point : {"take@a", "ship@a-dr", "ship.middle@a-dr"}) {
    ExpectFails(PlanSync(planId, {}), point);
    EXPECT_EQ(Last(planId), first);
    ExpectNormal(planId, VrelDR::kMainToDR, tree);
    VrelDR::SyncReport report;
    EXPECT_TRUE(VrelDR::PlanSyncReporter(planId).ReadReport(report));
    EXPECT_EQ(report.GetState(), VrelDR::OPState::kFailed);
    VrelDR::SiteOPJournal journal;
    EXPECT_TRUE(VrelDR::SiteOPJournalReporter(planId).ReadReport(journal));
    EXPECT_EQ(journal.GetState(), VrelDR::OPState::kFailed);
    EXPECT_THAT(journal.GetMessage(), HasSubstr("failure at"));
  }
  ExpectSync(planId);
  EXPECT_EQ(BytesOf("a-dr", Last(planId)), tree);
  EXPECT_EQ(ListIds("a"), ListIds("a-dr"));
  EXPECT_THAT(ListIds("a"), SizeIs(3));
}

TEST_P(PlanFailureTest, ASwitchoverThatFailsLeavesTheSourceWorking) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  Change("a", "more");
  const Tree tree = Bytes("a");
  for (const char* point :
       {"quiesce@a", "take@a", "ship@a-dr", "ship.middle@a-dr", "promote@a-dr"}) {
    ExpectFails(PlanSwitchover(planId, {}, Stopping()), point);
    ExpectNormal(planId, VrelDR::kMainToDR, tree);
    ExpectFails(PlanSwitchover(planId, {}, {}), point);
    ExpectNormal(planId, VrelDR::kMainToDR, tree);
  }
  ExpectRun(PlanSwitchover(planId, {}, Stopping()));
  ExpectNormal(planId, VrelDR::kDRToMain, tree);
}

TEST_P(PlanFailureTest, AFailoverThatFailsLeavesTheSourceWorking) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const Tree sent = Bytes("a");
  Change("a", "more");
  const Tree tree = Bytes("a");
  for (const char* point : {"quiesce@a", "promote@a-dr"}) {
    ExpectFails(PlanFailover(planId, Last(planId), {}), point);
    ExpectNormal(planId, VrelDR::kMainToDR, tree);
  }
  ExpectFails(PlanForcedFailover(planId, Last(planId), {}), "promote@a-dr");
  ExpectNormal(planId, VrelDR::kMainToDR, tree);
  const Failing failing("quiesce@a");
  ExpectRun(PlanForcedFailover(planId, Last(planId), {}));
  EXPECT_EQ(Bytes("a-dr"), sent);
  EXPECT_EQ(Plan(planId).GetStatus(), VrelDR::kPlanFailover);
}

TEST_P(PlanFailureTest, WhatFollowsAFailoverFailsWithoutChangingAnything) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const Tree sent = Bytes("a");
  Change("a", "more");
  const Tree unsent = Bytes("a");
  ExpectRun(PlanFailover(planId, Last(planId), {}));
  for (const char* point : {"quiesce@a-dr", "promote@a"}) {
    ExpectFails(DRSiteReprotect(Plan(planId), VrelDR::kOpFailover), point);
    ExpectFailedOver(planId, VrelDR::kMainToDR, sent);
  }
  const std::vector<std::string> snapshots = ListIds("a");
  for (const char* point : {"take@a"}) {
    ExpectFails(PlanReprotect(planId, "this node", false), point);
    ExpectFailedOver(planId, VrelDR::kMainToDR, sent);
    EXPECT_EQ(ListIds("a"), snapshots);
  }
  EXPECT_EQ(Bytes("a"), unsent);
}

TEST_P(PlanFailureTest, ADeletionThatKeepsDataAndFailsLeavesThePlan) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const Tree tree = Bytes("a");
  ExpectFails(PlanDelete(planId, false, false, true), "promote@a-dr");
  ExpectNormal(planId, VrelDR::kMainToDR, tree);
  ExpectSync(planId);
}

TEST_P(PlanFailureTest, ACreationThatFailsLeavesNothing) {
  MakeShare("a");
  const Tree tree = Bytes("a");
  for (const char* point : {"create@a-dr", "quiesce@a-dr"}) {
    ExpectFails(Creation("a", "v2", ""), point);
    EXPECT_THAT(PlansOf("a"), SizeIs(0));
    EXPECT_FALSE(TargetOperation(2, "a-dr").IsExisted());
    EXPECT_THAT(NamesOnSecondVolume(), SizeIs(0));
  }
  EXPECT_EQ(Bytes("a"), tree);
  EXPECT_EQ(Plan(MakePlan("a")).GetDRTargetId(), "a-dr");
}

TEST_P(PlanFailureTest, WhatCannotBeTakenBackIsTakenBackByTheNextOperation) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const Tree tree = Bytes("a");
  ExpectFails(PlanSwitchover(planId, {}, Stopping()), "promote@a-dr,promote@a");
  EXPECT_EQ(VrelDR::Utils::GetPlanLocalSiteStatus(Plan(planId)), VrelDR::kSiteInterrupted);
  EXPECT_EQ(IsWritable("a"), !CanRefuseWriting());
  ExpectFails(PlanSync(planId, {}), "promote@a");
  ExpectSync(planId);
  ExpectNormal(planId, VrelDR::kMainToDR, tree);
}

TEST_P(FirstRecordsTest, RecordsOfTheFirstVersionAreBroughtUpToDate) {
  MakeShare("a");
  const auto snapshot = Take("a");
  {
    const VrelDRCore::SqliteDB records(StateDir() + "/replica.db", 1, "vreldrcore_db_info");
    ASSERT_TRUE(
        records.Exec("BEGIN;" + std::string(test_support::kBackToVersion6) +
                     "DROP TABLE plans; DROP TABLE retention_locks;"
                     "DROP TABLE pending_snaps; DROP TABLE sync_reports;"
                     "DROP TABLE journals; DROP TABLE volumes;"
                     "DROP TABLE cuts; DROP INDEX snapshots_by_cut;"
                     "ALTER TABLE snapshots DROP COLUMN cut_id;"
                     "ALTER TABLE snapshots DROP COLUMN maker;"
                     "ALTER TABLE targets DROP COLUMN locator;"
                     "UPDATE vreldrcore_db_info SET value = '1' WHERE key = 'version'; COMMIT;"))
        << records.GetErr();
  }
  EXPECT_THAT(ListIds("a"), Each(snapshot.snap_id));
  ExpectSync(MakePlan("a"));
}

TEST_P(FullVolumeTest, AVolumeThatIsFullEndsASyncThatGoesOnWhenThereIsRoom) {
  MakeShare("a");
  const std::string planId = MakePlan("a");
  ExpectSync(planId);
  const std::string first = Last(planId);
  WriteFile(PathOf("a") + "/big", std::string(8 << 20, 'b'));
  const Tree tree = Bytes("a");
  // All of the volume but a part of what is to come.
  const std::string filler = SecondVolumePath() + "/filler";
  WriteFile(filler, std::string(fs::space(SecondVolumePath()).available - (4 << 20), 'f'));
  PlanSync sync(planId, {});
  EXPECT_FALSE(sync.Run(false));
  ExpectError(sync, VrelDR::kErrNoSpace,
              {planId, "\"a\"", "\"v1\"", "\"a-dr\"", "\"v2\"", "no space left", "free space"});
  EXPECT_EQ(Last(planId), first);
  ExpectNormal(planId, VrelDR::kMainToDR, tree);
  fs::remove(filler);
  ExpectSync(planId);
  EXPECT_EQ(BytesOf("a-dr", Last(planId)), tree);
  EXPECT_EQ(ListIds("a-dr"), ListIds("a"));
}

TEST_P(SlowSyncTest, ASyncStopsWithinASecondAndGoesOnWhenItIsRunAgain) {
  MakeShare("a");
  WriteFile(PathOf("a") + "/big", std::string(4 << 20, 'b'));
  const Tree tree = Bytes("a");
  const std::string planId = MakePlan("a");
  const pid_t sync = StartSlowSync(planId, PlanSync(planId, {}));
  EXPECT_EQ(VrelDR::Utils::GetPlanLocalSiteStatus(Plan(planId)), VrelDR::kSiteWorking);
  const auto begun = std::chrono::steady_clock::now();
  ExpectRun(PlanStop(planId));
  EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(1));
  EXPECT_EQ(WaitForEnd(sync), VrelDR::kErrStopped - 400);
  VrelDR::SyncReport report;
  ASSERT_TRUE(VrelDR::PlanSyncReporter(planId).ReadReport(report));
  EXPECT_EQ(report.GetState(), VrelDR::OPState::kInterrupted);
  EXPECT_LT(report.GetSyncRecord().sync_size_byte, report.GetSyncRecord().total_size_byte);
  EXPECT_GT(report.GetSyncRecord().end_time, 0U);
  EXPECT_EQ(VrelDR::Utils::GetPlanLocalSiteStatus(Plan(planId)), VrelDR::kSiteNormal);
  EXPECT_EQ(Last(planId), "");
  EXPECT_THAT(ListIds("a-dr"), SizeIs(0));

  ExpectSync(planId);
  EXPECT_EQ(BytesOf("a-dr", Last(planId)), tree);
  // The snapshot that was in hand, and the new one.
  EXPECT_THAT(ListIds("a"), SizeIs(2));
  EXPECT_EQ(ListIds("a-dr"), ListIds("a"));
  ASSERT_TRUE(VrelDR::PlanSyncReporter(planId).ReadReport(report));
  EXPECT_LT(report.GetSyncRecord().sent_size_byte, std::uint64_t{4 << 20});
  ExpectRun(PlanStop(planId));
}

TEST_P(SlowSyncTest, OneProcessAtATimeWorksOnAPlanAndTheSourceStaysInUse) {
  MakeShare("a");
  WriteFile(PathOf("a") + "/big", std::string(4 << 20, 'b'));
  const std::string planId = MakePlan("a");
  const pid_t sync = StartSlowSync(planId, PlanSync(planId, {}));
  const std::vector<std::string> evidence = {planId, "\"sync\" has been running on it since 2",
                                             "process"};
  ExpectRefused(PlanSync(planId, {}), VrelDR::kErrBusy, evidence);
  ExpectRefused(VrelDR::Checker::PlanSyncChecker(planId), VrelDR::kErrBusy, evidence);
  ExpectRefused(PlanSwitchover(planId, {}, {}), VrelDR::kErrBusy, evidence);
  ExpectRefused(PlanForcedFailover(planId, "s", {}), VrelDR::kErrBusy, evidence);
  ExpectRefused(PlanDelete(planId, true, true, true), VrelDR::kErrBusy, evidence);
  const std::string inHand = ListIds("a")[0];
  const TargetOperation source(2, "a");
  EXPECT_FALSE(source.DeleteSnapshot(inHand));
  EXPECT_EQ(source.GetErrCode(), VrelDR::kErrLocked);
  const auto meanwhile = Take("a");
  ExpectRun(PlanStop(planId));
  EXPECT_EQ(WaitForEnd(sync), VrelDR::kErrStopped - 400);
  EXPECT_TRUE(source.DeleteSnapshot(meanwhile.snap_id)) << source.GetErr();
}

TEST_P(SlowSyncTest, ASwitchoverThatIsStoppedLeavesTheSourceWorking) {
  MakeShare("a");
  WriteFile(PathOf("a") + "/big", std::string(4 << 20, 'b'));
  const Tree tree = Bytes("a");
  const std::string planId = MakePlan("a");
  const pid_t switchover = StartSlowSync(planId, PlanSwitchover(planId, Json::Value(), Stopping()));
  VrelDR::SiteOPJournal journal;
  EXPECT_TRUE(VrelDR::SiteOPJournalReporter(planId).ReadReport(journal));
  EXPECT_EQ(journal.GetOPStatus(), VrelDR::kOpSwitchover);
  EXPECT_EQ(journal.GetState(), VrelDR::OPState::kRunning);
  ExpectRun(PlanStop(planId));
  EXPECT_EQ(WaitForEnd(switchover), VrelDR::kErrStopped - 400);
  ExpectNormal(planId, VrelDR::kMainToDR, tree);
  ExpectRun(PlanSwitchover(planId, Json::Value(), Stopping()));
  ExpectNormal(planId, VrelDR::kDRToMain, tree);
}

}  // namespace
}  // namespace host_test
