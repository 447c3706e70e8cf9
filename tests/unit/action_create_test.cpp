#include "action_create_fixture.h"

namespace unit {
namespace {

using testing::SizeIs;

// --- The parameters of a creation, which four actions have

class Creating : public CreationTest, public testing::WithParamInterface<Tag> {
 protected:
  Creating() { host.plans.clear(); }

  const AnyAction action = GetParam().make();
};

TEST_P(Creating, AsksTheHostForTheConnectionsBetweenTwoOfItsVolumes) {
  Prepare(action, {}, local);
  EXPECT_THAT(host.calls,
              ElementsAre("getLocalNodeId()", "getLocalNodeId()",
                          "GetLocalReplicaConns(vol2, " + NoConn() + ", " + NoConn() + ")"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_P(Creating, MakesALocalPlanWhenTheOtherSiteIsThisNode) {
  Prepare(action, {}, local);
  EXPECT_TRUE(Generate(action, "t1"));
  EXPECT_THAT(host.calls, testing::Contains(LocalCreation("t1")).Times(1));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_P(Creating, IgnoresAddressesAndCredentialsOfALocalPlan) {
  Json::Value params = remote;
  params["dr_node_id"] = "here";
  Prepare(action, {}, params);
  EXPECT_TRUE(Generate(action, "t1"));
  EXPECT_THAT(host.calls, testing::Contains(LocalCreation("t1")));
}

TEST_P(Creating, CrossesCredentialsAndAddressesOfARemotePlan) {
  Prepare(action, {}, remote);
  EXPECT_THAT(host.calls, ElementsAre("getLocalNodeId()", "getLocalNodeId()",
                                      "PlanRemoteConn::FromJson(" + remoteSrc + ")",
                                      "PlanRemoteConn::FromJson(" + remoteDst + ")"));
  EXPECT_TRUE(Generate(action, "t1"));
  EXPECT_THAT(host.calls, testing::Contains(RemoteCreation("t1", remoteSrc, remoteDst)).Times(1));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_P(Creating, HasAFixedPortAndControllerWhateverTheParametersSay) {
  Json::Value params = remote;
  params["replica_port"] = 1;
  params["controller_id"] = 9;
  Prepare(action, {}, params);
  EXPECT_THAT(host.calls, testing::Contains("PlanRemoteConn::FromJson(" + remoteSrc + ")"));
}

TEST_P(Creating, ReadsMissingTextsAsEmpty) {
  Prepare(action, {}, Json("{}"));
  EXPECT_TRUE(Generate(action, "t1"));
  const std::string conn = ConnJson("", "");
  EXPECT_THAT(host.calls,
              testing::Contains("PlanCreate(" + PlanBetween("here", "\"\"", "t1") +
                                ", \"\", \"\", [" + conn + "], [" + conn + "], disabled, false)"));
}

TEST_P(Creating, ComparesTheWholeIdentifierOfTheNode) {
  for (const char* node : {"her", "heree", "HERE", ""}) {
    host.calls.clear();
    Json::Value params = remote;
    params["dr_node_id"] = node;
    Prepare(action, {}, params);
    EXPECT_THAT(host.calls, SizeIs(4)) << node;
  }
}

TEST_P(Creating, AsksForThisNodeAfreshForTheMainSite) {
  int asked = 0;
  host.on_call = [&](const std::string& call) {
    if (call == "getLocalNodeId()" && ++asked == 2) host.node_id = "moved";
  };
  Prepare(action, {}, local);
  EXPECT_TRUE(Generate(action, "t1"));
  EXPECT_THAT(host.calls, testing::Contains(testing::StartsWith(
                              "PlanLocalCreate(" + PlanBetween("moved", "here", "t1"))));
}

TEST_P(Creating, GoesOnWithAnEmptyConnectionWhenOneCannotBeMade) {
  host.failures["PlanRemoteConn::FromJson(" + remoteSrc + ")"] = {};
  Prepare(action, {}, remote);
  EXPECT_THAT(log.Entries(),
              ElementsAre(Said("Failed to set PlanRemoteConn from json [" + remoteSrc + "].")));
  EXPECT_TRUE(Generate(action, "t1"));
  EXPECT_THAT(host.calls, testing::Contains(RemoteCreation("t1", NoConn(), remoteDst)));
}

TEST_P(Creating, SaysOfBothConnectionsThatTheyCannotBeMade) {
  host.failures["PlanRemoteConn::FromJson(" + remoteSrc + ")"] = {};
  host.failures["PlanRemoteConn::FromJson(" + remoteDst + ")"] = {};
  Prepare(action, {}, remote);
  EXPECT_THAT(log.Entries(),
              ElementsAre(Said("Failed to set PlanRemoteConn from json [" + remoteSrc + "]."),
                          Said("Failed to set PlanRemoteConn from json [" + remoteDst + "].")));
  EXPECT_TRUE(Generate(action, "t1"));
  EXPECT_THAT(host.calls, testing::Contains(RemoteCreation("t1", NoConn(), NoConn())));
}

TEST_P(Creating, UsesTheSameParametersForEveryTarget) {
  Prepare(action, {}, local);
  for (const char* target : {"t1", "t2", "t3"}) {
    EXPECT_TRUE(Generate(action, target));
    EXPECT_THAT(host.calls, testing::Contains(LocalCreation(target)).Times(1));
  }
}

INSTANTIATE_TEST_SUITE_P(With, Creating,
                         testing::Values(TAG(Create), TAG(CreatePartial), TAG(TmpCreate),
                                         TAG(EditPrepare)),
                         TagName);

// --- A plan that is there already

class CreatingTheOnlyPlan : public CreationTest, public testing::WithParamInterface<Tag> {
 protected:
  CreatingTheOnlyPlan() {
    Prepare(action, {"t1"}, local);
    host.calls.clear();
  }

  const AnyAction action = GetParam().make();
};

TEST_P(CreatingTheOnlyPlan, LeavesAProtectedTargetAloneInSilence) {
  EXPECT_FALSE(Generate(action, "t1"));
  EXPECT_THAT(host.calls, ElementsAre(Select("t1")));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_P(CreatingTheOnlyPlan, LeavesATargetWithTwoPlansAloneToo) {
  GiveSecondPlan("t1");
  EXPECT_FALSE(Generate(action, "t1"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_P(CreatingTheOnlyPlan, MakesOneForATargetWithoutPlan) {
  host.plans.erase("t1");
  EXPECT_TRUE(Generate(action, "t1"));
  EXPECT_THAT(host.calls, ElementsAre(Select("t1"), LocalCreation("t1")));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_P(CreatingTheOnlyPlan, MakesOneForATargetWhosePlansCannotBeLookedUp) {
  RefuseSelection("t1");
  EXPECT_TRUE(Generate(action, "t1"));
  EXPECT_THAT(host.calls, ElementsAre(Select("t1"), LocalCreation("t1")));
  EXPECT_THAT(log.Entries(), ElementsAre(LookUpFailed()));
}

INSTANTIATE_TEST_SUITE_P(With, CreatingTheOnlyPlan,
                         testing::Values(TAG(Create), TAG(CreatePartial), TAG(TmpCreate)), TagName);

// --- A second plan beside the first

class EditPrepareAction : public CreationTest {
 protected:
  const AnyAction action = MakeAction<VrelDRGroup::ActionPolicy::EditPrepare>();
};

TEST_F(EditPrepareAction, MakesASecondPlanWithoutLookingForTheFirst) {
  Prepare(action, {"t1"}, local);
  host.calls.clear();
  EXPECT_TRUE(Generate(action, "t1"));
  EXPECT_THAT(host.calls, ElementsAre(LocalCreation("t1")));
}

TEST_F(EditPrepareAction, WritesThePlanOfEveryTargetIntoTheParameters) {
  Json::Value params = local;
  EXPECT_EQ(action.PreAct({"t3", "t1", "t2"}, params), 0);
  EXPECT_EQ(params["target_plan_map"], Json(R"({"t1": "p1", "t2": "p2", "t3": "p3"})"));
  EXPECT_THAT(host.calls, ElementsAre("getLocalNodeId()", "getLocalNodeId()",
                                      testing::StartsWith("GetLocalReplicaConns("), Select("t1"),
                                      Select("t2"), Select("t3")));
}

TEST_F(EditPrepareAction, TakesTheFirstOfSeveralPlans) {
  GiveSecondPlan("t1");
  Json::Value params = local;
  EXPECT_EQ(action.PreAct({"t1"}, params), 0);
  EXPECT_EQ(params["target_plan_map"], Json(R"({"t1": "p1"})"));
}

TEST_F(EditPrepareAction, KeepsWhatTheMapHasOfOtherTargets) {
  Json::Value params = local;
  params["target_plan_map"] = Json(R"({"other": "p9", "t1": "old"})");
  EXPECT_EQ(action.PreAct({"t1"}, params), 0);
  EXPECT_EQ(params["target_plan_map"], Json(R"({"other": "p9", "t1": "p1"})"));
}

TEST_F(EditPrepareAction, ReplacesAMapOfAWrongKind) {
  for (const char* wrong : {"\"text\"", "[\"t1\"]", "7", "true"}) {
    Json::Value params = local;
    params["target_plan_map"] = Json(wrong);
    EXPECT_EQ(action.PreAct({"t1"}, params), 0);
    EXPECT_EQ(params["target_plan_map"], Json(R"({"t1": "p1"})")) << wrong;
  }
}

TEST_F(EditPrepareAction, FailsAtTheFirstTargetWithoutPlanAndKeepsTheEntriesBefore) {
  host.plans.erase("t2");
  Json::Value params = local;
  EXPECT_EQ(action.PreAct({"t1", "t2", "t3"}, params), -1);
  EXPECT_EQ(params["target_plan_map"], Json(R"({"t1": "p1"})"));
  EXPECT_THAT(log.Entries(), ElementsAre(Said("Failed to get plan id of target [t2]")));
  EXPECT_THAT(host.calls, testing::Not(testing::Contains(Select("t3"))));
}

TEST_F(EditPrepareAction, FailsWhenPlansCannotBeLookedUp) {
  RefuseSelection("t1");
  Json::Value params = local;
  EXPECT_EQ(action.PreAct({"t1"}, params), -1);
  EXPECT_TRUE(params["target_plan_map"].isNull());
  EXPECT_THAT(log.Entries(),
              ElementsAre(LookUpFailed(), Said("Failed to get plan id of target [t1]")));
}

TEST_F(EditPrepareAction, HandsItsMapOnToTheEdit) {
  Json::Value params = local;
  EXPECT_EQ(action.PreAct({"t1", "t2"}, params), 0);
  const AnyAction edit = MakeAction<VrelDRGroup::ActionPolicy::EditCleanup>();
  EXPECT_EQ(edit.PreAct({"t1", "t2"}, params), 0);
  host.calls.clear();
  EXPECT_TRUE(Generate(edit, "t2"));
  EXPECT_THAT(host.calls, ElementsAre("PlanDelete(p2, true, true, true)"));
}

}  // namespace
}  // namespace unit
