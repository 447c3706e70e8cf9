#include <gmock/gmock.h>

#include "plan_fixture.h"
#include "tree.h"
#include "vreldr/protected_target_manager.h"

// What is refused, with which code and which evidence; each refusal by the check alone too.

namespace host_test {
namespace {

using testing::HasSubstr;
using VrelDR::TargetManager;
using VrelDR::TargetOperation;
using namespace VrelDR::Operation;  // the operations by their names
using namespace VrelDR::Checker;

class PlanRefusalTest : public PlanTest {
 protected:
  // Expects the checker to say what the operation says.
  static void ExpectSame(VrelDR::DROperation&& checker, VrelDR::DROperation&& operation) {
    EXPECT_FALSE(checker.Run(false));
    EXPECT_FALSE(operation.Run(false));
    EXPECT_EQ(checker.GetErr(), operation.GetErr());
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, PlanRefusalTest,
                         testing::ValuesIn(VolumeKinds({"ext4", "btrfs"})), HostTest::NameOf);

TEST_P(PlanRefusalTest, APlanNeedsATargetThatWorksAndAnotherVolume) {
  const std::string planId = MakeProtectedShare();
  ExpectRefused(Creation("none", "v2", ""), VrelDR::kErrTargetMissing, {"\"none\"", "\"v2\""});
  MakeShare("b");
  ExpectRefused(Creation("b", "v3", ""), VrelDR::kErrVolumeMissing, {"\"b\"", "\"v3\""});
  ExpectRefused(Creation("b", "v1", ""), VrelDR::kErrBadArgument, {"\"b\"", "\"v1\"", "another"});
  ExpectRefused(Creation("b", "v2", "a-dr"), VrelDR::kErrExists, {"\"a-dr\"", "another name"});
  ExpectRefused(Creation("b", "v2", "x/y"), VrelDR::kErrBadArgument, {"\"x/y\""});
  const std::string longest(198, 'n');
  MakeShare(longest);
  ExpectRefused(Creation(longest, "v2", ""), VrelDR::kErrBadArgument, {longest + "-dr", "200"});
  ExpectRefused(Creation("a-dr", "v1", ""), VrelDR::kErrPlanState, {"DR copy", planId});
  ExpectSync(planId);
  ExpectRun(PlanSwitchover(planId, {}, Stopping()));
  ExpectRefused(Creation("a", "v2", ""), VrelDR::kErrPlanState, {planId, "\"a-dr\""});
  LetSecondBeWritten(false);
  ExpectRefused(Creation("b", "v2", ""), VrelDR::kErrReadOnly, {"\"b\"", "\"v2\"", "read-only"});
}

TEST_P(PlanRefusalTest, APlanToAnotherNodeIsNotSupported) {
  VrelDR::DRPlan plan;
  plan.SetProtectedTargetId("a");
  plan.SetMainSite("here");
  plan.SetDRSite("there");
  ExpectRefused(PlanCreate(plan, "v2", "", {}, {}, {}, false), VrelDR::kErrUnsupported,
                {"\"a\"", "\"v2\"", "\"there\"", "\"here\""});
}

TEST_P(PlanRefusalTest, AnUnknownPlanIsSaidToBeMissing) {
  VrelDR::DRPlan plan;
  plan.SetPlanId("nix");
  const auto expect = [](VrelDR::DROperation&& operation) {
    ExpectRefused(std::move(operation), VrelDR::kErrPlanMissing, {"\"nix\""});
  };
  expect(PlanSync("nix", {}));
  expect(PlanStop("nix"));
  expect(PlanDelete("nix", true, true, true));
  expect(SiteDelete("nix", false, true));
  expect(PlanSwitchover("nix", {}, {}));
  expect(PlanFailover("nix", "s", {}));
  expect(PlanForcedFailover("nix", "s", {}));
  expect(PlanReprotect("nix", "this node", false));
  expect(DRSiteReprotect(plan, VrelDR::kOpFailover));
  expect(SitePromote(plan));
  expect(PlanSyncChecker("nix"));
  expect(PlanDeleteChecker("nix"));
  expect(PlanSwitchoverChecker("nix"));
  expect(PlanFailoverChecker("nix"));
  expect(PlanReprotectChecker("nix", "this node"));
  EXPECT_EQ(VrelDR::PlanAPI::GetPlan("nix", plan), VrelDR::kErrPlanMissing);
  EXPECT_EQ(VrelDR::PlanAPI::GetPlan("nix").GetPlanId(), "");
  EXPECT_EQ(VrelDR::Utils::GetPlanLocalSiteStatus(plan), VrelDR::kSiteUnknown);
  VrelDR::PendingSnapReport report;
  EXPECT_FALSE(VrelDR::PendingSnapReporter("nix").ReadReport(report));
}

TEST_P(PlanRefusalTest, AFailoverNeedsASnapshotThatTheReplicaHas) {
  const std::string planId = MakeProtectedShare();
  ExpectSame(PlanFailoverChecker(planId), PlanFailover(planId, "", {}));
  ExpectRefused(PlanFailoverChecker(planId), VrelDR::kErrSnapshotMissing,
                {planId, "the DR side", "\"a-dr\"", "\"v2\"", "none", "sync it first"});
  ExpectRefused(SitePromote(Plan(planId)), VrelDR::kErrSnapshotMissing, {"sync it first"});
  ExpectSync(planId);
  const auto unsent = Take("a");
  const std::vector<std::string> evidence = {
      "cannot fail over plan \"" + planId + "\" of target \"a\"",
      "the DR side has no snapshot \"" + unsent.snap_id + "\"",
      "the DR side, target \"a-dr\" on volume \"v2\", has: \"" + Last(planId) + "\" (2",
      "the main side, target \"a\" on volume \"v1\", has: \"" + unsent.snap_id + "\" (2"};
  ExpectRefused(PlanFailover(planId, unsent.snap_id, {}), VrelDR::kErrSnapshotMissing, evidence);
  ExpectRefused(PlanForcedFailover(planId, unsent.snap_id, {}), VrelDR::kErrSnapshotMissing,
                evidence);
  ExpectNormal(planId, VrelDR::kMainToDR, Bytes("a"));
  PlanFailoverChecker checker(planId);
  EXPECT_TRUE(checker.Run(false)) << checker.GetErr();
}

TEST_P(PlanRefusalTest, TheStateOfThePlanDecidesWhatCanBeDone) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const std::string last = Last(planId);
  const std::vector<std::string> normal = {planId, "normal state", "\"a\""};
  ExpectRefused(PlanReprotect(planId, "this node", false), VrelDR::kErrPlanState, normal);
  ExpectSame(PlanReprotectChecker(planId, "this node"), PlanReprotect(planId, "this node", false));
  ExpectRefused(DRSiteReprotect(Plan(planId), VrelDR::kOpFailover), VrelDR::kErrPlanState, normal);

  ExpectRun(PlanFailover(planId, last, {}));
  const std::vector<std::string> failed = {planId, "failed over", "\"a-dr\"", "reprotect"};
  ExpectRefused(PlanSync(planId, {}), VrelDR::kErrPlanState, failed);
  ExpectSame(PlanSyncChecker(planId), PlanSync(planId, {}));
  ExpectRefused(PlanSwitchover(planId, {}, {}), VrelDR::kErrPlanState, failed);
  ExpectSame(PlanSwitchoverChecker(planId), PlanSwitchover(planId, {}, {}));
  ExpectRefused(PlanFailover(planId, last, {}), VrelDR::kErrPlanState, failed);
  ExpectSame(PlanFailoverChecker(planId), PlanFailover(planId, last, {}));
  ExpectRefused(PlanForcedFailover(planId, last, {}), VrelDR::kErrPlanState, failed);
  ExpectRefused(SitePromote(Plan(planId)), VrelDR::kErrPlanState, failed);
  ExpectRefused(PlanReprotect(planId, "elsewhere", false), VrelDR::kErrBadArgument,
                {"\"elsewhere\"", "\"this node\""});
  ExpectSame(PlanReprotectChecker(planId, "elsewhere"), PlanReprotect(planId, "elsewhere", false));
  ExpectRefused(DRSiteReprotect(Plan(planId), VrelDR::kOpSync), VrelDR::kErrBadArgument, {"128"});
  PlanDeleteChecker checker(planId);
  EXPECT_TRUE(checker.Run(false)) << checker.GetErr();
}

TEST_P(PlanRefusalTest, AVolumeThatIsGoneIsNamedWithItsSide) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const std::string last = Last(planId);
  const Tree sent = Bytes("a");
  UnmountVolume();
  EXPECT_EQ(VrelDR::Utils::GetPlanLocalSiteStatus(Plan(planId)), VrelDR::kSiteUnreachable);
  const std::vector<std::string> main = {planId, "the main side", "\"a\"", "\"v1\""};
  ExpectRefused(PlanSync(planId, {}), VrelDR::kErrVolumeMissing, main);
  ExpectRefused(PlanSwitchover(planId, {}, {}), VrelDR::kErrVolumeMissing, main);
  ExpectRefused(PlanFailover(planId, last, {}), VrelDR::kErrVolumeMissing, main);
  ExpectRun(PlanForcedFailover(planId, last, {}));
  EXPECT_EQ(Bytes("a-dr"), sent);
  Change("a-dr", "works");
  ExpectRefused(PlanReprotect(planId, "this node", false), VrelDR::kErrVolumeMissing, main);
  ExpectRun(PlanDelete(planId, false, false, true));
}

TEST_P(PlanRefusalTest, AReplicaThatIsGoneIsNamedWithItsSide) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const std::string last = Last(planId);
  UnmountSecondVolume();
  const std::vector<std::string> other = {planId, "the DR side", "\"v2\""};
  ExpectRefused(PlanSync(planId, {}), VrelDR::kErrVolumeMissing, other);
  ExpectRefused(PlanForcedFailover(planId, last, {}), VrelDR::kErrVolumeMissing, other);
  ExpectRefused(PlanDelete(planId, true, true, true), VrelDR::kErrVolumeMissing, other);
  ExpectRun(PlanDelete(planId, true, false, true));
  Take("a");
}

TEST_P(PlanRefusalTest, ATargetWithTwoPlansKeepsItsPartUntilOneIsDeleted) {
  const std::string first = MakeProtectedShare();
  const std::string second = MakePlan("a");
  EXPECT_EQ(Plan(second).GetDRTargetId(), "a-dr2");
  EXPECT_THAT(PlansOf("a"), testing::ElementsAre(first, second));
  ExpectSync(first);
  ExpectSync(second);
  ExpectRefused(PlanSwitchover(second, {}, {}), VrelDR::kErrPlanState, {second, first, "\"a-dr\""});
  ExpectRefused(PlanFailover(first, Last(first), {}), VrelDR::kErrPlanState, {first, second});
  ExpectRun(PlanForcedFailover(first, Last(first), {}));
  ExpectRefused(PlanSync(second, {}), VrelDR::kErrPlanState, {second, first, "\"a-dr\""});
  ExpectRun(PlanDelete(first, false, false, true));
  ExpectSync(second);
  ExpectRun(PlanSwitchover(second, {}, Stopping()));
}

TEST_P(PlanRefusalTest, WhatPlansNeedIsGuardedAgainstOtherCalls) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const std::string last = Last(planId);
  const TargetOperation source(2, "a");
  const TargetOperation replica(2, "a-dr");
  std::string snapId;
  EXPECT_FALSE(replica.TakeSnapshot({}, snapId));
  ExpectError(replica, VrelDR::kErrLocked, {"\"a-dr\"", "\"v2\"", planId, "replica", "\"a\""});
  EXPECT_FALSE(replica.RestoreSnapshot(last));
  ExpectError(replica, VrelDR::kErrLocked, {"\"a-dr\"", planId});
  EXPECT_TRUE(replica.CloneSnapshot(last, "a-clone", snapId)) << replica.GetErr();
  EXPECT_EQ(Bytes("a-clone"), Bytes("a"));
  EXPECT_TRUE(source.RestoreSnapshot(last)) << source.GetErr();
  const TargetManager manager;
  EXPECT_FALSE(manager.Remove("a", true));
  ExpectError(manager, VrelDR::kErrLocked,
              {"\"a\"", "protected target", planId, "delete the plan"});
  EXPECT_FALSE(manager.Remove("a-dr", true));
  ExpectError(manager, VrelDR::kErrLocked, {"\"a-dr\"", "DR copy", planId});
  const auto shares = VrelDR::Replication::ProtectedTargetManager::Create(VrelDR::kTargetShare);
  EXPECT_FALSE(shares->DeleteTarget("a"));
  EXPECT_EQ(shares->GetErrCode(), VrelDR::kErrLocked);

  ExpectRun(PlanFailover(planId, last, {}));
  EXPECT_FALSE(source.TakeSnapshot({}, snapId));
  ExpectError(source, VrelDR::kErrLocked, {"\"a\"", "failover", planId, "\"a-dr\""});
  EXPECT_FALSE(source.RestoreSnapshot(last));
  EXPECT_TRUE(replica.TakeSnapshot({}, snapId)) << replica.GetErr();
  EXPECT_TRUE(replica.RestoreSnapshot(snapId)) << replica.GetErr();
}

}  // namespace
}  // namespace host_test
