#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <functional>

#include "base/kill_point.h"
#include "earlier_records.h"
#include "plan_fixture.h"
#include "tree.h"
#include "vreldrcore/sqlite_db.h"

// The process is killed between the steps of each operation on a plan. Whatever the step, the plan
// and its copies are then, or after the next operation, as before it or as after it.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::IsEmpty;
using VrelDR::TargetOperation;
using namespace VrelDR::Operation;  // the operations by their names

constexpr int kKilled = 128 + SIGKILL;

using Steps = std::vector<std::string_view>;
using Call = std::function<bool()>;

const Steps kShipping = {VrelDR::kTakeRecorded,      VrelDR::kTakeCopied,   VrelDR::kTakeSynced,
                         VrelDR::kTakeDigestsPlaced, VrelDR::kTakeRenamed,  VrelDR::kTakeWhole,
                         VrelDR::kTakeDone,          VrelDR::kShipBegun,    VrelDR::kShipData,
                         VrelDR::kShipSent,          VrelDR::kShipSynced,   VrelDR::kShipMarked,
                         VrelDR::kShipDigestsPlaced, VrelDR::kShipFrozen,   VrelDR::kShipRenamed,
                         VrelDR::kShipDone,          VrelDR::kSyncRecorded, VrelDR::kSyncTaken,
                         VrelDR::kSyncShipped,       VrelDR::kSyncArrived,  VrelDR::kSyncReported};
const Steps kRestoring = {VrelDR::kQuiesceDone, VrelDR::kRestoreCopied, VrelDR::kRestoreSynced,
                          VrelDR::kRestoreExchanged, VrelDR::kPromoteDone};
const Steps kSwitching = {VrelDR::kSwitchoverQuiet, VrelDR::kSwitchoverSynced,
                          VrelDR::kSwitchoverDemoted, VrelDR::kSwitchoverPromoted,
                          VrelDR::kSwitchoverTurned};
const Steps kFailingOver = {VrelDR::kFailoverDemoted, VrelDR::kFailoverPromoted,
                            VrelDR::kFailoverTurned};
const Steps kReverting = {VrelDR::kQuiesceKept,   VrelDR::kQuiesceDone,    VrelDR::kPromoteDone,
                          VrelDR::kRevertDemoted, VrelDR::kRevertPromoted, VrelDR::kRevertTurned};
const Steps kReprotecting = {VrelDR::kQuiesceDone,   VrelDR::kTakeRecorded,
                             VrelDR::kTakeWhole,     VrelDR::kTakeDone,
                             VrelDR::kReprotectKept, VrelDR::kReprotectTurned};

Steps operator+(Steps left, const Steps& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

class PlanCrashTest : public PlanTest {
 protected:
  // A plan whose source has changed since the first sync.
  struct Case {
    std::string source;
    std::string replica;
    std::string plan;
    std::string first;  // the snapshot that both have
    Tree sent;          // what is in it
    Tree now;           // what the source has
  };

  Case MakeCase() {
    Case made;
    made.source = "share" + std::to_string(++cases_);
    made.replica = made.source + "-dr";
    MakeShare(made.source);
    const std::string path = PathOf(made.source);
    WriteFile(path + "/big", std::string(1 << 16, 'b'));
    fs::create_directory(path + "/folder");
    WriteFile(path + "/folder/small", "small");
    made.plan = MakePlan(made.source);
    made.sent = Bytes(made.source);
    ExpectSync(made.plan);
    made.first = Last(made.plan);
    Change(made.source, "changed");
    WriteFile(path + "/big", std::string(1 << 15, 'c'));
    made.now = Bytes(made.source);
    return made;
  }

  // Runs the call until it is killed at the step. False when it does not get there, which is right
  // for steps that the engine of this file system does not have.
  bool IsKilledAt(std::string_view step, const Call& call) const {
    const int code =
        RunInChild({{"VRELDR_KILL_POINT", std::string(step)}}, [&] { return call() ? 0 : 1; });
    if (code == kKilled && ++kills_ % 2 == 0 && !IsFake()) GoBackToVersion3();
    if (code == kKilled) return true;
    EXPECT_EQ(code, 0) << step;
    EXPECT_TRUE(IsEngineStep(step)) << step << " was not reached";
    return false;
  }

  void ExpectNothingOnItsWay(const Case& used) const {
    for (const std::string& target : {used.source, used.replica}) {
      PlanTest::ExpectNothingOnItsWay(target);
    }
  }

  // The names of what is on disk are those that are listed.
  void ExpectNoUnknownSnapshots(const Case& used) const {
    for (const std::string& target : {used.source, used.replica}) {
      for (const std::string& each : SnapshotsOnDisk(target)) {
        EXPECT_THAT(ListIds(target), Contains(each));
      }
    }
  }

  static bool Run(VrelDR::DROperation&& operation) { return operation.Run(false); }
  // Runs an operation again that may have reached its end the first time.
  static void ExpectRunOrDone(VrelDR::DROperation&& operation, bool done) {
    if (done) return;
    EXPECT_TRUE(operation.Run(false)) << operation.GetErr();
  }

 private:
  // As if a program had been killed whose records said nothing of locators, when every target was
  // the local engine's.
  void GoBackToVersion3() const {
    const VrelDRCore::SqliteDB records(StateDir() + "/replica.db", 20, "vreldrcore_db_info");
    EXPECT_TRUE(
        records.Exec(std::string("BEGIN;") + test_support::kBackToVersion6 +
                     "DROP TABLE cuts; DROP INDEX snapshots_by_cut;"
                     "ALTER TABLE snapshots DROP COLUMN cut_id;"
                     "ALTER TABLE targets DROP COLUMN locator;"
                     "UPDATE vreldrcore_db_info SET value = '3' WHERE key = 'version'; COMMIT"))
        << records.GetErr();
  }

  static bool IsEngineStep(std::string_view step) {
    return step.substr(0, 5) == "take." || step.substr(0, 5) == "ship." ||
           step.substr(0, 8) == "restore." || step.substr(0, 7) == "create." ||
           step.substr(0, 7) == "forget.";
  }

  int cases_ = 0;
  mutable int kills_ = 0;
};

INSTANTIATE_TEST_SUITE_P(FileSystems, PlanCrashTest,
                         testing::ValuesIn(VolumeKinds({"ext4", "xfs", "btrfs"})),
                         HostTest::NameOf);

TEST_P(PlanCrashTest, ASyncThatWasKilledGoesOnWhenItIsRunAgain) {
  for (const std::string_view step : kShipping) {
    SCOPED_TRACE(step);
    const Case used = MakeCase();
    if (!IsKilledAt(step, [&] { return Run(PlanSync(used.plan, {})); })) continue;
    EXPECT_EQ(VrelDR::Utils::GetPlanLocalSiteStatus(Plan(used.plan)), VrelDR::kSiteInterrupted);
    VrelDR::SyncReport report;
    EXPECT_TRUE(VrelDR::PlanSyncReporter(used.plan).ReadReport(report));
    EXPECT_NE(report.GetState(), VrelDR::OPState::kRunning);
    ExpectSameSnapshots(used.plan);
    EXPECT_TRUE(BytesOf(used.replica, Last(used.plan)) == used.sent ||
                BytesOf(used.replica, Last(used.plan)) == used.now);

    Change(used.source, "again");
    const Tree tree = Bytes(used.source);
    ExpectSync(used.plan);
    ExpectNormal(used.plan, VrelDR::kMainToDR, tree);
    EXPECT_EQ(BytesOf(used.replica, Last(used.plan)), tree);
    EXPECT_EQ(ListIds(used.source), ListIds(used.replica));
    ExpectSameSnapshots(used.plan);
    ExpectNothingOnItsWay(used);
    ExpectNoUnknownSnapshots(used);
    // All but the one that the plan holds can go.
    for (const std::string& each : ListIds(used.replica)) {
      EXPECT_EQ(TargetOperation(2, used.replica).DeleteSnapshot(each), each != Last(used.plan));
      EXPECT_EQ(TargetOperation(2, used.source).DeleteSnapshot(each), each != Last(used.plan));
    }
  }
}

TEST_P(PlanCrashTest, ASwitchoverThatWasKilledIsTakenBackOrDone) {
  for (const std::string_view step : kShipping + kRestoring + kSwitching) {
    SCOPED_TRACE(step);
    const Case used = MakeCase();
    const auto switchOver = [&] {
      return Run(PlanSwitchover(used.plan, Json::Value(), Stopping()));
    };
    if (!IsKilledAt(step, switchOver)) continue;
    const bool done = Plan(used.plan).GetDirection() == VrelDR::kDRToMain;
    EXPECT_EQ(done, step == VrelDR::kSwitchoverTurned);
    ExpectSync(used.plan);
    ExpectNormal(used.plan, done ? VrelDR::kDRToMain : VrelDR::kMainToDR, used.now);
    ExpectSameSnapshots(used.plan);

    const Case again = MakeCase();
    ASSERT_TRUE(IsKilledAt(
        step, [&] { return Run(PlanSwitchover(again.plan, Json::Value(), Stopping())); }));
    ExpectRunOrDone(PlanSwitchover(again.plan, Json::Value(), Stopping()), done);
    ExpectNormal(again.plan, VrelDR::kDRToMain, again.now);
    ExpectSameSnapshots(again.plan);
    ExpectNothingOnItsWay(again);
    ExpectNoUnknownSnapshots(again);
  }
}

TEST_P(PlanCrashTest, AFailoverThatWasKilledIsTakenBackOrDone) {
  for (const bool forced : {false, true}) {
    for (const std::string_view step : kRestoring + kFailingOver) {
      SCOPED_TRACE(step);
      const auto failOver = [forced](const Case& used) {
        return forced ? Run(PlanForcedFailover(used.plan, used.first, Json::Value()))
                      : Run(PlanFailover(used.plan, used.first, Json::Value()));
      };
      const Case used = MakeCase();
      if (!IsKilledAt(step, [&] { return failOver(used); })) continue;
      const bool done = Plan(used.plan).GetStatus() == VrelDR::kPlanFailover;
      EXPECT_EQ(done, step == VrelDR::kFailoverTurned);
      if (done) {
        ExpectFailedOver(used.plan, VrelDR::kMainToDR, used.sent);
      } else {
        ExpectSync(used.plan);
        ExpectNormal(used.plan, VrelDR::kMainToDR, used.now);
        const Case again = MakeCase();
        ASSERT_TRUE(IsKilledAt(step, [&] { return failOver(again); }));
        EXPECT_TRUE(failOver(again));
        ExpectFailedOver(again.plan, VrelDR::kMainToDR, again.sent);
        EXPECT_EQ(Bytes(again.source), again.now);
        ExpectNothingOnItsWay(again);
      }
    }
  }
}

TEST_P(PlanCrashTest, TakingAFailoverBackThatWasKilledIsTakenBackOrDone) {
  for (const std::string_view step : kReverting) {
    SCOPED_TRACE(step);
    // A subvolume is made unwritable as a whole: there is nothing of its user's to be kept.
    if (step == VrelDR::kQuiesceKept && (IsBtrfs() || IsFake())) continue;
    const Case used = MakeCase();
    ExpectRun(PlanFailover(used.plan, used.first, Json::Value()));
    const auto revert = [&] { return Run(DRSiteReprotect(Plan(used.plan), VrelDR::kOpFailover)); };
    ASSERT_TRUE(IsKilledAt(step, revert));
    const bool done = Plan(used.plan).GetStatus() == VrelDR::kPlanNormal;
    EXPECT_EQ(done, step == VrelDR::kRevertTurned);
    if (!done) {
      EXPECT_FALSE(Run(PlanSync(used.plan, {})));
      ExpectFailedOver(used.plan, VrelDR::kMainToDR, used.sent);
      EXPECT_TRUE(revert());
    }
    ExpectNormal(used.plan, VrelDR::kMainToDR, used.now);
    ExpectSync(used.plan);
    EXPECT_EQ(BytesOf(used.replica, Last(used.plan)), used.now);
  }
}

TEST_P(PlanCrashTest, AReprotectionThatWasKilledIsTakenBackOrDone) {
  for (const std::string_view step : kReprotecting) {
    SCOPED_TRACE(step);
    const Case used = MakeCase();
    ExpectRun(PlanFailover(used.plan, used.first, Json::Value()));
    const std::vector<std::string> before = ListIds(used.source);
    const auto reprotect = [&] { return Run(PlanReprotect(used.plan, "this node", false)); };
    ASSERT_TRUE(IsKilledAt(step, reprotect));
    const bool done = Plan(used.plan).GetStatus() == VrelDR::kPlanNormal;
    EXPECT_EQ(done, step == VrelDR::kReprotectTurned);
    if (!done) {
      EXPECT_FALSE(Run(PlanSync(used.plan, {})));  // settles, and is refused
      EXPECT_EQ(ListIds(used.source), before);
      ExpectFailedOver(used.plan, VrelDR::kMainToDR, used.sent);
      EXPECT_TRUE(reprotect());
    }
    ExpectNormal(used.plan, VrelDR::kDRToMain, used.sent);
    ASSERT_EQ(ListIds(used.source).size(), before.size() + 1);
    EXPECT_EQ(BytesOf(used.source, ListIds(used.source).back()), used.now);
    ExpectNoUnknownSnapshots(used);
  }
}

TEST_P(PlanCrashTest, ADeletionThatKeepsDataAndWasKilledIsTakenBackOrDone) {
  for (const std::string_view step :
       kRestoring + Steps{VrelDR::kPlanDeletePromoted, VrelDR::kPlanDeleteDone}) {
    if (step == VrelDR::kQuiesceDone) continue;  // nothing is
    SCOPED_TRACE(step);
    const Case used = MakeCase();
    const auto remove = [](const Case& each) {
      return Run(PlanDelete(each.plan, false, false, true));
    };
    if (!IsKilledAt(step, [&] { return remove(used); })) continue;
    const bool done = PlansOf(used.source).empty();
    EXPECT_EQ(done, step == VrelDR::kPlanDeleteDone);
    if (!done) {
      ExpectSync(used.plan);
      ExpectNormal(used.plan, VrelDR::kMainToDR, used.now);
      const Case again = MakeCase();
      ASSERT_TRUE(IsKilledAt(step, [&] { return remove(again); }));
      EXPECT_TRUE(remove(again));
      EXPECT_THAT(PlansOf(again.source), IsEmpty());
      EXPECT_EQ(Bytes(again.replica), again.sent);
      EXPECT_TRUE(IsWritable(again.replica));
      EXPECT_EQ(Bytes(again.source), again.now);
    }
  }
}

TEST_P(PlanCrashTest, ADeletionOfTheCopyThatWasKilledIsFinishedByTheNextCreation) {
  for (const std::string_view step :
       Steps{VrelDR::kPlanDeleteMarked, VrelDR::kForgetSnapshotsGone, VrelDR::kForgetBytesGone,
             VrelDR::kForgetDone, VrelDR::kPlanDeleteDone}) {
    SCOPED_TRACE(step);
    const Case used = MakeCase();
    ASSERT_TRUE(IsKilledAt(step, [&] { return Run(PlanDelete(used.plan, true, true, true)); }));
    EXPECT_THAT(PlansOf(used.source), IsEmpty());
    EXPECT_FALSE(TargetOperation(2, used.replica).IsExisted());
    EXPECT_EQ(Bytes(used.source), used.now);
    PlanDelete again(used.plan, true, true, true);
    EXPECT_FALSE(again.Run(false));
    EXPECT_EQ(again.GetErrCode(), VrelDR::kErrPlanMissing);
    EXPECT_THAT(MakePlan(used.source), testing::Ne(used.plan));
    EXPECT_EQ(Plan(PlansOf(used.source)[0]).GetDRTargetId(), used.replica);
    EXPECT_TRUE(fs::is_empty(PathOf(used.replica)));
    ExpectNothingOnItsWay(used);
  }
}

TEST_P(PlanCrashTest, APlanBeingMadeIsThereAsAWholeOrNotAtAll) {
  for (const std::string_view step :
       Steps{VrelDR::kCreateRecorded, VrelDR::kCreateCopied, VrelDR::kCreateRenamed,
             VrelDR::kQuiesceDone, VrelDR::kCreateWhole, VrelDR::kCreateDone}) {
    SCOPED_TRACE(step);
    const std::string name = "new-" + std::string(step);
    MakeShare(name);
    if (!IsKilledAt(step, [&] { return Run(Creation(name, "v2", "")); })) continue;
    const bool done = step == VrelDR::kCreateDone;
    EXPECT_EQ(PlansOf(name).size(), done ? 1U : 0U);
    EXPECT_EQ(TargetOperation(2, name + "-dr").IsExisted(), done);
    if (!done) MakePlan(name);
    ASSERT_EQ(PlansOf(name).size(), 1U);
    EXPECT_EQ(Plan(PlansOf(name)[0]).GetDRTargetId(), name + "-dr");
    ExpectSync(PlansOf(name)[0]);
    std::vector<VrelDR::DRPlan> all;
    EXPECT_EQ(VrelDR::PlanAPI::ListPlans(all), 0);
  }
}

}  // namespace
}  // namespace host_test
