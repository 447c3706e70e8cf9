#include <vreldrgroup/replication/replica_op.h>

#include "plan_test.h"

namespace unit {
namespace {

using namespace VrelDRGroup::Operation;
using VrelDR::kReportRetentionLock;
using VrelDR::kReportSync;

class ReplicaQuery : public PlanTest {
 protected:
  // The call that reads the report of a plan.
  static std::string ReadLocks(const std::string& plan) {
    return "RetentionLockReporter(" + plan + ", 2).ReadReport()";
  }
  static std::string ReadSync(const std::string& plan) {
    return "PlanSyncReporter(" + plan + ", 3).ReadReport()";
  }

  std::string text = "before";
};

// --- The plan of a target

TEST_F(ReplicaQuery, FindsThePlanOfATarget) {
  EXPECT_EQ(ReplicaPlanIdGet("t2", text), 0);
  EXPECT_EQ(text, "p2");
  EXPECT_THAT(host.calls, ElementsAre(Select("t2")));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(ReplicaQuery, TakesTheFirstOfTwoPlans) {
  GiveSecondPlan("t2");
  EXPECT_EQ(ReplicaPlanIdGet("t2", text), 0);
  EXPECT_EQ(text, "p2");
}

TEST_F(ReplicaQuery, FindsNoPlanOfAnUnprotectedTargetInSilence) {
  EXPECT_EQ(ReplicaPlanIdGet("unknown", text), -1);
  EXPECT_EQ(text, "before");
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(ReplicaQuery, FindsNoPlanWhenTheHostCannotSelect) {
  RefuseSelection("t2");
  EXPECT_EQ(ReplicaPlanIdGet("t2", text), -1);
  EXPECT_EQ(text, "before");
  EXPECT_THAT(log.Entries(), ElementsAre(LookUpFailed()));
}

// --- The target of a plan

TEST_F(ReplicaQuery, FindsTheTargetOfAPlan) {
  ReplicaTargetIdGet("p3", text);
  EXPECT_EQ(text, "t3");
  EXPECT_THAT(host.calls, ElementsAre("GetPlanByValue(p3)"));
}

TEST_F(ReplicaQuery, FindsAnEmptyTargetOfAnUnknownPlan) {
  ReplicaTargetIdGet("unknown", text);
  EXPECT_EQ(text, "");
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(ReplicaQuery, AppendsOneTargetForEveryPlanInTheirOrder) {
  std::vector<std::string> targets = {"before"};
  ReplicaTargetList({"p3", "unknown", "p1", "p3"}, targets);
  EXPECT_THAT(targets, ElementsAre("before", "t3", "", "t1", "t3"));
  EXPECT_THAT(host.calls, ElementsAre("GetPlanByValue(p3)", "GetPlanByValue(unknown)",
                                      "GetPlanByValue(p1)", "GetPlanByValue(p3)"));
}

TEST_F(ReplicaQuery, AppendsNoTargetsWithoutPlans) {
  std::vector<std::string> targets = {"before"};
  ReplicaTargetList({}, targets);
  EXPECT_THAT(targets, ElementsAre("before"));
  EXPECT_THAT(host.calls, IsEmpty());
}

// --- The plans of targets

TEST_F(ReplicaQuery, AddsThePlansOfTargets) {
  std::set<std::string> plans = {"before"};
  EXPECT_EQ(ReplicaPlanList({"t3", "t1"}, plans), 0);
  EXPECT_THAT(plans, ElementsAre("before", "p1", "p3"));
  EXPECT_THAT(host.calls, ElementsAre(Select("t1"), Select("t3")));
}

TEST_F(ReplicaQuery, AddsTheOtherPlansWhenATargetHasNone) {
  for (const char* without : {"t1", "t2", "t3"}) {
    const auto plan = host.plans.extract(without);
    std::set<std::string> plans;
    EXPECT_EQ(ReplicaPlanList({"t1", "t2", "t3"}, plans), -1);
    EXPECT_THAT(plans, testing::SizeIs(2));
    EXPECT_EQ(plans.count(plan.mapped().front().GetPlanId()), 0U);
    host.plans[without] = plan.mapped();
  }
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(ReplicaQuery, AddsTheOtherPlansWhenTheHostCannotSelectThatOfATarget) {
  RefuseSelection("t1");
  std::set<std::string> plans;
  EXPECT_EQ(ReplicaPlanList({"t1", "t2"}, plans), -1);
  EXPECT_THAT(plans, ElementsAre("p2"));
  EXPECT_THAT(log.Entries(), ElementsAre(LookUpFailed()));
}

TEST_F(ReplicaQuery, AddsNoPlansWithoutTargets) {
  std::set<std::string> plans;
  EXPECT_EQ(ReplicaPlanList({}, plans), 0);
  EXPECT_THAT(plans, IsEmpty());
}

// --- How plans stand

TEST_F(ReplicaQuery, TellsTheStatusOfPlansAsANumber) {
  host.site_status = {{"p1", VrelDR::kSiteNormal}, {"p3", VrelDR::kSiteFailover}};
  Json::Value out = Json(R"({"other": 1, "p1": "old"})");
  EXPECT_EQ(PlanInfoGet({"p1", "p2", "p3"}, out), 0);
  EXPECT_EQ(ToString(out), R"({"other":1,"p1":3,"p2":0,"p3":4})");
  EXPECT_THAT(host.calls, ElementsAre("GetPlan(p1)", "GetPlan(p2)", "GetPlan(p3)",
                                      "GetPlanLocalSiteStatus(" + PlanText("p1", "t1") + ")",
                                      "GetPlanLocalSiteStatus(" + PlanText("p2", "t2") + ")",
                                      "GetPlanLocalSiteStatus(" + PlanText("p3", "t3") + ")"));
}

TEST_F(ReplicaQuery, TellsNoStatusAtAllWhenOnePlanCannotBeRead) {
  Json::Value out = Json(R"({"other": 1})");
  EXPECT_EQ(PlanInfoGet({"p1", "unknown"}, out), -1);
  EXPECT_EQ(ToString(out), R"({"other":1})");
  EXPECT_THAT(log.Entries(),
              ElementsAre(ShortErr("replication/replica_utils", "Failed to get plan [unknown]")));
}

TEST_F(ReplicaQuery, LeavesWhatItFillsAsItIsWithoutPlans) {
  Json::Value out;
  EXPECT_EQ(PlanInfoGet({}, out), 0);
  EXPECT_EQ(PlanSyncReportGet({}, out), 0);
  EXPECT_TRUE(out.isNull());
  EXPECT_THAT(host.calls, IsEmpty());
}

TEST_F(ReplicaQuery, ReplacesWhatIsNoObject) {
  for (const Json::Value& before : NotObjects()) {
    Json::Value out = before;
    EXPECT_EQ(PlanInfoGet({"p1"}, out), 0);
    EXPECT_EQ(ToString(out), R"({"p1":0})");
    out = before;
    EXPECT_EQ(PlanSyncReportGet({"p1"}, out), 0);
    EXPECT_THAT(out.getMemberNames(), ElementsAre("p1"));
  }
}

// --- The reports of syncs

TEST_F(ReplicaQuery, TellsTheSyncReportOfPlansAndAnEmptyOneWhenThereIsNone) {
  host.reports[{"p2", kReportSync}] =
      Json(R"({"state": "running", "snap_id": "s", "record": {"sync_size_byte": 5}})");
  Json::Value out = Json(R"({"other": 1})");
  EXPECT_EQ(PlanSyncReportGet({"p1", "p2"}, out), 0);
  VrelDR::SyncReport filled;
  filled.FromJson(host.reports[{"p2", kReportSync}]);
  EXPECT_EQ(out.getMemberNames(), (std::vector<std::string>{"other", "p1", "p2"}));
  EXPECT_EQ(out["p1"], VrelDR::SyncReport().ToResponse());
  EXPECT_EQ(out["p2"], filled.ToResponse());
  EXPECT_NE(out["p1"], out["p2"]);
  EXPECT_THAT(host.calls, ElementsAre(ReadSync("p1"), ReadSync("p2")));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

// --- The last snapshot

TEST_F(ReplicaQuery, FindsTheLastSnapshotThatThePlanHolds) {
  host.reports[{"p2", kReportRetentionLock}] = Json(R"({"snapshots": ["s1", "s2"]})");
  EXPECT_EQ(ReplicaLastSnapIdGet("t2", text), 0);
  EXPECT_EQ(text, "s2");
  EXPECT_THAT(host.calls, ElementsAre(Select("t2"), ReadLocks("p2")));
}

TEST_F(ReplicaQuery, FindsAnEmptySnapshotWhenThePlanTellsNothing) {
  EXPECT_EQ(ReplicaLastSnapIdGet("t2", text), 0);
  EXPECT_EQ(text, "");
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(ReplicaQuery, AsksTheFirstOfTwoPlansForTheSnapshot) {
  GiveSecondPlan("t2");
  EXPECT_EQ(ReplicaLastSnapIdGet("t2", text), 0);
  EXPECT_THAT(host.calls, ElementsAre(Select("t2"), ReadLocks("p2")));
}

TEST_F(ReplicaQuery, FindsNoSnapshotOfATargetWithoutPlan) {
  EXPECT_EQ(ReplicaLastSnapIdGet("unknown", text), -1);
  EXPECT_EQ(text, "before");
  EXPECT_THAT(log.Entries(), IsEmpty());
}

}  // namespace
}  // namespace unit
