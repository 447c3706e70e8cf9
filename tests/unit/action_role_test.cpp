#include "any_action.h"
#include "plan_test.h"

namespace unit {
namespace {

using Targets = std::set<std::string>;
using VrelDRGroup::ActionPolicy::Failover;

// A failover of three targets, of which the group snapshot has t1 and t2; the newest snapshot of t3
// is "newest". The targets' snapshots are not what a failover to a group snapshot asks for.
class FailoverAction : public PlanTest {
 protected:
  FailoverAction() {
    MakeCatalogue();
    AddMeta(id, 10);
    AddSnap("t1", 1, "s1", id);
    AddSnap("t2", 3, "s2", id);
    host.targets["t3"].snapshots = {Snap(20, "newest"), Snap(10, "older")};
  }

  int Prepare(Json::Value params) {
    const int result = action.PreAct({"t1", "t2", "t3"}, params);
    EXPECT_THAT(host.calls, IsEmpty());
    return result;
  }

  Json::Value Params() const {
    Json::Value params;
    params["gsnap_id"] = id;
    return params;
  }

  const std::string id = "g1-gsnap-10";
  const AnyAction action = MakeAction<Failover>();
};

TEST_F(FailoverAction, GoesToTheSnapshotsOfTheGroupSnapshot) {
  EXPECT_EQ(Prepare(Params()), 0);
  int err = 7;
  EXPECT_TRUE(action.GenOperation("t1", err));
  EXPECT_TRUE(action.GenOperation("t2", err));
  EXPECT_EQ(err, 7);
  EXPECT_THAT(host.calls, ElementsAre(Select("t1"), "PlanFailover(p1, s1, null)", Select("t2"),
                                      "PlanFailover(p2, s2, null)"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(FailoverAction, FallsBackToTheLastSnapshotOfATargetThatTheGroupSnapshotHasNot) {
  EXPECT_EQ(Prepare(Params()), 0);
  int err = 7;
  EXPECT_TRUE(action.GenOperation("t3", err));
  EXPECT_EQ(err, 7);
  EXPECT_THAT(host.calls, ElementsAre(Select("t3"), "TargetOperation(t3, 1)", "ListSnapshots(t3)",
                                      "PlanFailover(p3, newest, null)"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(FailoverAction, HasNoOperationForATargetWithoutAnySnapshotAndSaysNothing) {
  host.targets["t3"].snapshots.clear();
  EXPECT_EQ(Prepare(Params()), 0);
  int err = 7;
  EXPECT_FALSE(action.GenOperation("t3", err));
  EXPECT_EQ(err, 7);
  EXPECT_THAT(host.calls, ElementsAre(Select("t3"), "TargetOperation(t3, 1)", "ListSnapshots(t3)"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(FailoverAction, IsForcedOnlyWhenAsked) {
  for (const bool isForced : {true, false}) {
    host.calls.clear();
    Json::Value params = Params();
    params["is_forced"] = isForced;
    EXPECT_EQ(Prepare(params), 0);
    int err = 0;
    EXPECT_TRUE(action.GenOperation("t1", err));
    EXPECT_TRUE(action.GenOperation("t3", err));
    const std::string name = isForced ? "PlanForcedFailover" : "PlanFailover";
    EXPECT_THAT(host.calls, testing::Contains(name + "(p1, s1, null)"));
    EXPECT_THAT(host.calls, testing::Contains(name + "(p3, newest, null)"));
  }
}

TEST_F(FailoverAction, TakesAForceOfAWrongKindForNone) {
  for (const char* wrong : {"1", "\"true\"", "null", "[true]", "{}"}) {
    host.calls.clear();
    Json::Value params = Params();
    params["is_forced"] = Json(wrong);
    EXPECT_EQ(Prepare(params), 0);
    int err = 0;
    EXPECT_TRUE(action.GenOperation("t1", err));
    EXPECT_THAT(host.calls, testing::Contains("PlanFailover(p1, s1, null)")) << wrong;
  }
}

TEST_F(FailoverAction, SelectsThePlanBeforeItLooksForASnapshot) {
  GiveSecondPlan("t3");
  EXPECT_EQ(Prepare(Params()), 0);
  int err = 0;
  EXPECT_FALSE(action.GenOperation("t3", err));
  EXPECT_EQ(err, -1);
  EXPECT_THAT(host.calls, ElementsAre(Select("t3")));
}

TEST_F(FailoverAction, LeavesTheParametersAsTheyAre) {
  Json::Value params = Params();
  EXPECT_EQ(action.PreAct({"t1"}, params), 0);
  EXPECT_EQ(params, Params());
}

TEST_F(FailoverAction, RefusesAnUnknownGroupSnapshot) {
  Json::Value params;
  params["gsnap_id"] = "g1-gsnap-%s";
  EXPECT_EQ(Prepare(params), -1);
  EXPECT_THAT(
      log.Entries(),
      ElementsAre(Err("snapshot/gsnap_op.cpp", "GsnapshotGet", "gsnap[g1-gsnap-%s] is not existed"),
                  Said("Failed to find records in drgroup.db by gsnap_id [g1-gsnap-%s]")));
}

TEST_F(FailoverAction, RefusesParametersWithoutAGroupSnapshot) {
  for (const char* text : {R"({})", R"({"gsnap_id": 7})", R"({"gsnap_id": null})", R"([])"}) {
    log.Clear();
    EXPECT_EQ(Prepare(Json(text)), -1) << text;
    EXPECT_THAT(log.Entries(),
                testing::Contains(Said("Failed to find records in drgroup.db by gsnap_id []")));
  }
}

TEST_F(FailoverAction, RefusesAGroupSnapshotThatCannotBeReadWhole) {
  Db().Exec("DROP TABLE target_replica_list");
  EXPECT_EQ(Prepare(Params()), -1);
  EXPECT_THAT(
      log.Entries(),
      testing::Contains(Said("Failed to find records in drgroup.db by gsnap_id [" + id + "]")));
}

TEST_F(FailoverAction, TakesTheLastOfTwoSnapshotsOfOneTarget) {
  AddSnap("t1", 1, "again", id);
  EXPECT_EQ(Prepare(Params()), 0);
  int err = 0;
  EXPECT_TRUE(action.GenOperation("t1", err));
  EXPECT_THAT(host.calls, testing::Contains("PlanFailover(p1, again, null)"));
}

}  // namespace
}  // namespace unit
