#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>

#include "fake/misbehaviour.h"
#include "plan_fixture.h"
#include "tree.h"
#include "vreldr/arrived.h"

// Plans on volumes that give no answer, lose what is sent to them, or do not take every target:
// what a directory of this node never does.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using VrelDR::kErrUnreachable;
using VrelDR::TargetOperation;
using VrelDR::Fake::kLoseSecondHalf;
using VrelDR::Fake::kNoReplication;
using VrelDR::Fake::kUnreachable;
using namespace VrelDR::Operation;  // the operations by their names

class PlanSilenceTest : public PlanTest {
 protected:
  void Silence(const std::string& volumePath, bool is) const {
    Misbehave(volumePath, kUnreachable, is);
  }
  static VrelDR::ArrivedSnapshots Arrived(const std::string& planId) {
    VrelDR::ArrivedSnapshots arrived;
    const VrelDR::ArrivedReporter reporter(planId);
    EXPECT_TRUE(reporter.Read(arrived)) << reporter.GetErr();
    return arrived;
  }
};

INSTANTIATE_TEST_SUITE_P(Volumes, PlanSilenceTest, testing::Values("fake"), HostTest::NameOf);

TEST_P(PlanSilenceTest, WhatAReplicaHasHalfOfIsNothingThatArrived) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const std::string first = Last(planId);
  const Tree sent = Bytes("a");
  Change("a", "more");
  Misbehave(SecondVolumePath(), kLoseSecondHalf, true);
  for (int i = 0; i < 2; ++i) {
    PlanSync sync(planId, {});
    EXPECT_FALSE(sync.Run(false));
    ExpectError(sync, VrelDR::kErrIo, {planId, "\"v2\"", "is lost"});
  }
  const std::string half = ListIds("a").back();
  EXPECT_THAT(SnapshotsOnDisk("a-dr"), Contains(half));
  EXPECT_THAT(ListIds("a-dr"), Not(Contains(half)));
  EXPECT_EQ(Arrived(planId).newest.snap_id, first);
  ExpectRefused(PlanForcedFailover(planId, half, {}), VrelDR::kErrSnapshotMissing, {half});
  ExpectRun(SitePromote(Plan(planId)));
  ExpectFailedOver(planId, VrelDR::kMainToDR, sent);
  // What was on its way went with the failover.
  ExpectNothingOnItsWay("a-dr");
}

TEST_P(PlanSilenceTest, AShipmentThatLostBytesIsFinishedByTheNextSync) {
  const std::string planId = MakeProtectedShare();
  Misbehave(SecondVolumePath(), kLoseSecondHalf, true);
  EXPECT_FALSE(PlanSync(planId, {}).Run(false));
  EXPECT_EQ(Last(planId), "");
  Misbehave(SecondVolumePath(), kLoseSecondHalf, false);
  ExpectSync(planId);
  EXPECT_EQ(ListIds("a-dr"), ListIds("a"));
  EXPECT_THAT(ListIds("a"), SizeIs(2));
  ExpectSameSnapshots(planId);
  EXPECT_EQ(BytesOf("a-dr", Last(planId)), Bytes("a"));
}

TEST_P(PlanSilenceTest, OfAReplicaThatGivesNoAnswerNothingIsSaidToBeGone) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const std::string last = Last(planId);
  Silence(SecondVolumePath(), true);
  EXPECT_EQ(VrelDR::Utils::GetPlanLocalSiteStatus(Plan(planId)), VrelDR::kSiteUnreachable);
  const std::vector<std::string> replica = {planId, "the DR side", "\"v2\""};
  ExpectRefused(PlanSync(planId, {}), kErrUnreachable, replica);
  ExpectRefused(PlanSwitchover(planId, {}, {}), kErrUnreachable, replica);
  ExpectRefused(PlanForcedFailover(planId, last, {}), kErrUnreachable, replica);
  ExpectRefused(PlanDelete(planId, true, true, true), kErrUnreachable, replica);
  const TargetOperation operation(2, "a-dr");
  EXPECT_THAT(operation.ListSnapshots(), IsEmpty());
  EXPECT_EQ(operation.GetErrCode(), kErrUnreachable);
  VrelDR::ArrivedSnapshots arrived;
  const VrelDR::ArrivedReporter reporter(planId);
  EXPECT_FALSE(reporter.Read(arrived));
  EXPECT_FALSE(arrived.is_gone);
  Silence(SecondVolumePath(), false);
  EXPECT_EQ(Arrived(planId).newest.snap_id, last);
  ExpectSync(planId);
  ExpectSameSnapshots(planId);
}

TEST_P(PlanSilenceTest, ASourceThatGivesNoAnswerIsTakenOverFromByForceAlone) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const std::string last = Last(planId);
  const Tree sent = Bytes("a");
  Change("a", "never sent");
  const Tree unsent = Bytes("a");
  Silence(VolumePath(), true);
  ExpectRefused(PlanFailover(planId, last, {}), kErrUnreachable, {planId, "the main side"});
  ExpectRun(PlanForcedFailover(planId, last, {}));
  EXPECT_EQ(Bytes("a-dr"), sent);
  Change("a-dr", "new life");
  const Tree working = Bytes("a-dr");
  ExpectRefused(PlanReprotect(planId, "this node", false), kErrUnreachable, {"the main side"});
  Silence(VolumePath(), false);
  // It thinks that it works still; what only it has is kept.
  ExpectRun(PlanReprotect(planId, "this node", false));
  EXPECT_EQ(BytesOf("a", ListIds("a").back()), unsent);
  ExpectSync(planId);
  ExpectNormal(planId, VrelDR::kDRToMain, working);
  EXPECT_EQ(BytesOf("a", Last(planId)), working);
  ExpectRun(PlanSwitchover(planId, {}, Stopping()));
  ExpectNormal(planId, VrelDR::kMainToDR, working);
}

TEST_P(PlanSilenceTest, WhatWasInterruptedIsNotTakenBackBesideOneThatCannotBeAsked) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const Tree tree = Bytes("a");
  ASSERT_EQ(RunInChild({{"VRELDR_KILL_POINT", "switchover.promoted"}},
                       [&] { return PlanSwitchover(planId, {}, Stopping()).Run(false) ? 0 : 1; }),
            128 + SIGKILL);
  Change("a-dr", "it works already");
  Silence(SecondVolumePath(), true);
  PlanSync sync(planId, {});
  EXPECT_FALSE(sync.Run(false));
  ExpectError(sync, kErrUnreachable, {planId, "\"v2\""});
  EXPECT_EQ(VrelDR::Utils::GetPlanLocalSiteStatus(Plan(planId)), VrelDR::kSiteInterrupted);
  // Two that work would be the end of one's data.
  const fs::path state = fs::path(PathOf("a")).parent_path() / "state";
  EXPECT_THAT(ReadFile(state), HasSubstr("\"replica\""));
  Silence(SecondVolumePath(), false);
  ExpectSync(planId);
  ExpectNormal(planId, VrelDR::kMainToDR, tree);
}

TEST_P(PlanSilenceTest, ATargetThatItsVolumeDoesNotReplicateGetsNoPlan) {
  MakeShare("a");
  Misbehave(VolumePath(), kNoReplication, true);
  ExpectRefused(Creation("a", "v2", ""), VrelDR::kErrUnsupported, {"\"a\"", "not replicated"});
  EXPECT_THAT(PlansOf("a"), IsEmpty());
  EXPECT_THAT(NamesOnSecondVolume(), IsEmpty());
}

TEST_P(PlanSilenceTest, APlanIsDeletedThoughAnEndOfItGivesNoAnswer) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  Silence(SecondVolumePath(), true);
  ExpectRun(PlanDelete(planId, false, false, true));
  EXPECT_THAT(PlansOf("a"), IsEmpty());
  Take("a");
  Silence(SecondVolumePath(), false);
  // The copy cannot be told to work any more, but goes, and a new plan is made.
  EXPECT_TRUE(VrelDR::TargetManager().Remove("a-dr", true));
  ExpectSync(MakePlan("a"));
}

}  // namespace
}  // namespace host_test
