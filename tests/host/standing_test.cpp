#include "vreldr/standing.h"

#include <gmock/gmock.h>

#include <csignal>

#include "base/kill_point.h"
#include "fake/misbehaviour.h"
#include "plan_fixture.h"
#include "vreldrcore/sqlite_db.h"

// How plans stand, read all at once: the same that the calls for a single plan tell.

namespace host_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using VrelDR::PlanStanding;
using namespace VrelDR::Operation;  // the operations by their names

class StandingTest : public PlanTest {
 protected:
  static std::vector<PlanStanding> Standings(const std::set<std::string>& targets) {
    std::vector<PlanStanding> standings;
    const VrelDR::StandingReader reader;
    EXPECT_TRUE(reader.Read(targets, standings)) << reader.GetErr();
    return standings;
  }

  // Reads how the plan of target "a" stands, and expects the single calls to tell the same.
  static PlanStanding Standing(const std::string& planId) {
    const std::vector<PlanStanding> all = Standings({"a"});
    if (all.size() != 1) {
      ADD_FAILURE() << all.size() << " plans";
      return {};
    }
    const PlanStanding& one = all.front();
    EXPECT_EQ(one.plan.GetPlanId(), planId);
    EXPECT_EQ(one.plan.GetDirection(), Plan(planId).GetDirection());
    EXPECT_EQ(one.plan.GetStatus(), Plan(planId).GetStatus());
    EXPECT_EQ(one.site, VrelDR::Utils::GetPlanLocalSiteStatus(one.plan));
    EXPECT_EQ(one.source.target_id, one.plan.GetSourceTargetId());
    EXPECT_EQ(one.replica.target_id, one.plan.GetReplicaTargetId());
    EXPECT_THAT(one.unread, IsEmpty());
    VrelDR::SiteOPJournal journal;
    EXPECT_TRUE(VrelDR::SiteOPJournalReporter(planId).ReadReport(journal));
    EXPECT_EQ(one.op, journal.GetOPStatus());
    EXPECT_EQ(one.op_state, journal.GetState());
    EXPECT_EQ(one.op_progress, journal.GetProgress());
    EXPECT_EQ(one.op_message, journal.GetMessage());
    VrelDR::PendingSnapReport pending;
    EXPECT_TRUE(VrelDR::PendingSnapReporter(planId).ReadReport(pending));
    EXPECT_EQ(one.pending_count, pending.GetSnapshots().size());
    VrelDR::ArrivedSnapshots arrived;
    const VrelDR::ArrivedReporter reporter(planId);
    EXPECT_EQ(reporter.Read(arrived), one.arrived_problem.empty()) << one.arrived_problem;
    if (!one.arrived_problem.empty()) {
      EXPECT_EQ(one.arrived_problem, reporter.GetErrMsg().asString());
    }
    EXPECT_EQ(one.arrived.recorded_id, arrived.recorded_id);
    EXPECT_EQ(one.arrived.recorded_time, arrived.recorded_time);
    EXPECT_EQ(one.arrived.is_gone, arrived.is_gone);
    EXPECT_EQ(one.arrived.is_going_back, arrived.is_going_back);
    EXPECT_EQ(one.arrived.newest.snap_id, arrived.newest.snap_id);
    EXPECT_EQ(one.arrived.newest.create_time, arrived.newest.create_time);
    EXPECT_EQ(one.arrived.newest.path, arrived.newest.path);
    return one;
  }

  int KillSync(const std::string& planId, std::string_view point) const {
    return RunInChild({{"VRELDR_KILL_POINT", std::string(point)}},
                      [&] { return PlanSync(planId, {}).Run(false) ? 0 : 1; });
  }
};

INSTANTIATE_TEST_SUITE_P(Volumes, StandingTest, testing::ValuesIn(VolumeKinds({"ext4", "btrfs"})),
                         HostTest::NameOf);

TEST_P(StandingTest, ItIsTheSameThroughAPlansLife) {
  const std::string planId = MakeProtectedShare();
  EXPECT_EQ(Standing(planId).site, VrelDR::kSiteNormal);
  EXPECT_EQ(Standing(planId).arrived.newest.snap_id, "");
  ExpectSync(planId);
  EXPECT_EQ(Standing(planId).arrived.newest.snap_id, Last(planId));
  EXPECT_TRUE(VrelDR::PendingSnapReporter(planId).Add(Take("a")));
  EXPECT_EQ(Standing(planId).pending_count, 1U);
  ExpectRun(PlanFailover(planId, Last(planId), Json::Value()));
  EXPECT_EQ(Standing(planId).site, VrelDR::kSiteFailover);
  ExpectRun(PlanReprotect(planId, "this node", false));
  EXPECT_TRUE(Standing(planId).arrived.is_going_back);
  ExpectSync(planId);
  EXPECT_FALSE(Standing(planId).arrived.is_going_back);
  EXPECT_EQ(Standing(planId).replica.target_id, "a");
}

TEST_P(StandingTest, AnInterruptedSyncIsToldWithWhatHasArrivedOfIt) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  Change("a", "more");
  ASSERT_EQ(KillSync(planId, VrelDR::kSyncShipped), 128 + SIGKILL);
  const PlanStanding half = Standing(planId);
  EXPECT_EQ(half.site, VrelDR::kSiteInterrupted);
  EXPECT_EQ(half.op_state, VrelDR::OPState::kInterrupted);
  EXPECT_NE(half.arrived.newest.snap_id, half.arrived.recorded_id);
  ExpectSync(planId);
  EXPECT_EQ(Standing(planId).arrived.newest.snap_id, Last(planId));
}

TEST_P(StandingTest, ASnapshotThatIsGoneFromTheReplicaIsTold) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const std::string first = Last(planId);
  Change("a", "more");
  ExpectSync(planId);
  const VrelDRCore::SqliteDB records(StateDir() + "/replica.db", 1, "vreldrcore_db_info");
  ASSERT_TRUE(records.Exec("DELETE FROM snapshots WHERE target_id = 'a-dr' AND snap_id = '" +
                           Last(planId) + "'"));
  const PlanStanding now = Standing(planId);
  EXPECT_TRUE(now.arrived.is_gone);
  EXPECT_EQ(now.arrived.newest.snap_id, first);
}

TEST_P(StandingTest, AVolumeThatIsAwayIsNamedAndNothingIsSaidToBeGone) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const std::string last = Last(planId);
  if (IsFake()) {
    Misbehave(SecondVolumePath(), VrelDR::Fake::kUnreachable, true);
  } else {
    UnmountSecondVolume();
  }
  const PlanStanding now = Standing(planId);
  EXPECT_EQ(now.site, VrelDR::kSiteUnreachable);
  EXPECT_TRUE(now.source.is_there);
  EXPECT_FALSE(now.replica.is_there);
  EXPECT_EQ(now.replica.volume, "v2");
  EXPECT_THAT(now.arrived_problem, HasSubstr("a-dr"));
  EXPECT_EQ(now.arrived.recorded_id, last);
  EXPECT_NE(now.arrived.recorded_time, 0U);
}

TEST_P(StandingTest, OnlyThePlansOfTheTargetsAreRead) {
  const std::string planId = MakeProtectedShare();
  MakeShare("b");
  const std::string other = MakePlan("b");
  const auto ids = [](const std::vector<PlanStanding>& standings) {
    std::vector<std::string> found;
    for (const PlanStanding& each : standings) found.push_back(each.plan.GetPlanId());
    return found;
  };
  EXPECT_THAT(ids(Standings({"b"})), ElementsAre(other));
  EXPECT_THAT(ids(Standings({"b-dr", "a"})), ElementsAre(planId, other));
  EXPECT_THAT(ids(Standings({})), IsEmpty());
  EXPECT_THAT(ids(Standings({"nobody"})), IsEmpty());
}

TEST_P(StandingTest, WithoutAHostThereAreNoPlans) {
  EXPECT_THAT(Standings({"a"}), IsEmpty());
}

}  // namespace
}  // namespace host_test
