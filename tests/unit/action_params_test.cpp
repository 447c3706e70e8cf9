#include "any_action.h"
#include "plan_test.h"

namespace unit {
namespace {

using Targets = std::set<std::string>;

// --- What an action leaves in its parameters: what it takes out of them, as null where it was not

struct ParamsRow {
  Tag tag;
  std::string added;
  friend std::ostream& operator<<(std::ostream& out, const ParamsRow& row) {
    return out << row.tag;
  }
};

class ActionParams : public PlanTest, public testing::WithParamInterface<ParamsRow> {
 protected:
  Json::Value Left(Json::Value params) {
    GetParam().tag.make().PreAct({}, params);
    return params;
  }
};

TEST_P(ActionParams, GetTheMembersThatAreTaken) {
  EXPECT_EQ(Left(Json::Value(Json::objectValue)), Json(GetParam().added));
}

TEST_P(ActionParams, ThatAreNullGetThemToo) {
  const bool isNoneAdded = GetParam().added == "{}";
  EXPECT_EQ(Left(Json::Value()), isNoneAdded ? Json::Value() : Json(GetParam().added));
}

TEST_P(ActionParams, KeepWhatTheyHave) {
  Json::Value params;
  params["other"] = 1;
  for (const std::string& key : Json(GetParam().added).getMemberNames()) params[key] = "kept";
  const bool isMapReplaced = GetParam().tag.name == "EditPrepare";  // it is there to be filled
  Json::Value expected = params;
  if (isMapReplaced) expected["target_plan_map"] = Json::Value();
  EXPECT_EQ(Left(params), expected);
}

const ParamsRow kParams[] = {
    {TAG(CreatePartial), "{}"},
    {TAG(Create), "{}"},
    {TAG(Sync), "{}"},
    {TAG(Del), R"({"is_data_deleted": null, "is_drsite_deleted": null, "is_site_del": null})"},
    {TAG(Stop), "{}"},
    {TAG(Switchover), "{}"},
    {TAG(Failover), R"({"gsnap_id": null})"},
    {TAG(Reprotect), R"({"is_mainsite": null})"},
    {TAG(EditPrepare), R"({"target_plan_map": null})"},
    {TAG(EditCleanup), R"({"is_site_del": null, "target_plan_map": null})"},
    {TAG(SyncChecker), "{}"},
    {TAG(DelChecker), "{}"},
    {TAG(SwitchoverChecker), "{}"},
    {TAG(FailoverChecker), "{}"},
    {TAG(ReprotectChecker), R"({"is_mainsite": null})"},
    {TAG(TmpCreate), "{}"},
    {TAG(TmpSync), "{}"},
    {TAG(TmpSyncStop), "{}"},
    {TAG(TmpSwitchover), "{}"},
    {TAG(TmpDel), "{}"},
};
INSTANTIATE_TEST_SUITE_P(Of, ActionParams, testing::ValuesIn(kParams), RowName<ParamsRow>);

// --- Values of the wrong kind

class ActionWithWrongParams : public PlanTest, public testing::WithParamInterface<Tag> {
 protected:
  ActionWithWrongParams() {
    // Its creation has something to do.
    if (GetParam().name.find("Create") != std::string::npos) host.plans.clear();
  }

  // All that the host and the log see of an action, and its results.
  std::string TraceOf(Json::Value params) {
    host.calls.clear();
    log.Clear();
    const AnyAction action = GetParam().make();
    Targets targets = {"t1", "t2"};
    int err = 0;
    std::string trace = std::to_string(action.PreAct(targets, params));
    trace += action.GenOperation("t2", err) ? " some" : " none";
    trace += " " + std::to_string(err) + "\n";
    trace += std::to_string(action.Revert(targets)) + "\n";
    for (const std::string& call : host.calls) trace += call + "\n";
    for (const auto& entry : log.Entries()) trace += entry.text + "\n";
    return trace;
  }
};

TEST_P(ActionWithWrongParams, TakesWhatIsNoObjectForAnEmptyOne) {
  const std::string expected = TraceOf(Json::Value(Json::objectValue));
  for (const Json::Value& params : NotObjects()) EXPECT_EQ(TraceOf(params), expected) << params;
}

TEST_P(ActionWithWrongParams, LeavesWhatIsNoObjectAsItIs) {
  for (const Json::Value& params : NotObjects()) {
    if (params.isNull()) continue;
    Json::Value left = params;
    GetParam().make().PreAct({"t1"}, left);
    EXPECT_EQ(left, params);
  }
}

TEST_P(ActionWithWrongParams, TakesMembersOfAWrongKindForEmptyOnes) {
  const std::string expected = TraceOf(Json::Value(Json::objectValue));
  const auto expectSame = [&](const char* key, const char* value) {
    Json::Value params;
    params[key] = Json(value);
    EXPECT_EQ(TraceOf(params), expected) << key << " " << value;
  };
  for (const char* key : {"is_encrypted", "is_site_del", "is_data_deleted", "is_drsite_deleted",
                          "is_mainsite", "is_forced"}) {
    for (const char* value : {"null", "1", "-1.5", "\"true\"", "[true]", "{\"a\": true}"}) {
      expectSame(key, value);
    }
  }
  for (const char* key :
       {"gsnap_id", "dst_vol", "dr_node_id", "dst_ip", "src_ip", "src_cred_id", "dst_cred_id"}) {
    for (const char* value : {"null", "1", "-1.5", "true", "[\"t\"]", "{\"t2\": \"p\"}"}) {
      expectSame(key, value);
    }
  }
  for (const char* key : {"target_map", "target_plan_map"}) {
    for (const char* value : {"null", "1", "-1.5", "true", "\"t2\"", "[\"t2\"]"}) {
      expectSame(key, value);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Of, ActionWithWrongParams, testing::ValuesIn(AllTags()), TagName);

// --- The last target

class DeletingAction : public PlanTest, public testing::WithParamInterface<Tag> {
 protected:
  // The operations of the targets, after the action was prepared with `all`.
  std::vector<std::string> Operations(const Targets& all, const Targets& asked) {
    const AnyAction action = GetParam().make();
    Json::Value params = Json(R"({"is_data_deleted": true, "is_drsite_deleted": true})");
    EXPECT_EQ(action.PreAct(all, params), 0);
    for (const std::string& target : asked) {
      int err = 0;
      EXPECT_NE(action.GenOperation(target, err), nullptr);
    }
    std::vector<std::string> operations;
    for (const std::string& call : host.calls) {
      if (call.rfind("SelectPlans", 0) != 0) operations.push_back(call);
    }
    return operations;
  }
};

TEST_P(DeletingAction, TellsTheHostWhichTargetIsTheLast) {
  EXPECT_THAT(Operations({"t1", "t2", "t3"}, {"t1", "t2", "t3"}),
              ElementsAre("PlanDelete(p1, true, true, false)", "PlanDelete(p2, true, true, false)",
                          "PlanDelete(p3, true, true, true)"));
}

TEST_P(DeletingAction, ComparesWholeIdentifiers) {
  host.plans["t"] = {MakePlan("p", "t")};
  host.plans["t20"] = {MakePlan("p20", "t20")};
  EXPECT_THAT(Operations({"t", "t1", "t2"}, {"t", "t2", "t20"}),
              ElementsAre("PlanDelete(p, true, true, false)", "PlanDelete(p2, true, true, true)",
                          "PlanDelete(p20, true, true, false)"));
}

TEST_P(DeletingAction, HasNoLastTargetWithoutTargets) {
  EXPECT_THAT(Operations({}, {"t1", "t2"}), ElementsAre("PlanDelete(p1, true, true, false)",
                                                        "PlanDelete(p2, true, true, false)"));
}

INSTANTIATE_TEST_SUITE_P(Of, DeletingAction, testing::Values(TAG(Del), TAG(TmpDel)), TagName);

class DelAction : public PlanTest {};

TEST_F(DelAction, TellsASiteTooWhichTargetIsTheLast) {
  const AnyAction action = TAG(Del).make();
  Json::Value params = Json(R"({"is_site_del": true, "is_data_deleted": true})");
  EXPECT_EQ(action.PreAct({"t1", "t2"}, params), 0);
  int err = 0;
  action.GenOperation("t1", err);
  action.GenOperation("t2", err);
  EXPECT_THAT(host.calls, ElementsAre(Select("t1"), "SiteDelete(p1, true, false)", Select("t2"),
                                      "SiteDelete(p2, true, true)"));
}

// --- The cleaning up after an edit

class EditCleanupAction : public PlanTest {
 protected:
  // Asks for the operation of t1 after the action was prepared with `params`.
  bool HasOperation(const std::string& text) {
    const AnyAction action = TAG(EditCleanup).make();
    Json::Value params = Json(text);
    EXPECT_EQ(action.PreAct({"t1"}, params), 0);
    int err = 7;
    const bool has = action.GenOperation("t1", err) != nullptr;
    EXPECT_EQ(err, 7);
    EXPECT_THAT(log.Entries(), IsEmpty());
    return has;
  }
};

TEST_F(EditCleanupAction, DeletesTheOldPlanWithoutLookingUpPlans) {
  EXPECT_TRUE(HasOperation(R"({"target_plan_map": {"t1": "old"}})"));
  EXPECT_THAT(host.calls, ElementsAre("PlanDelete(old, true, true, true)"));
}

TEST_F(EditCleanupAction, DeletesTheSiteOfTheOldPlanWhenAsked) {
  EXPECT_TRUE(HasOperation(R"({"is_site_del": true, "target_plan_map": {"t1": "old"}})"));
  EXPECT_THAT(host.calls, ElementsAre("SiteDelete(old, true, true)"));
}

TEST_F(EditCleanupAction, DoesNothingForATargetThatTheMapHasNot) {
  EXPECT_FALSE(HasOperation(R"({"is_site_del": true, "target_plan_map": {"t2": "old"}})"));
  EXPECT_FALSE(HasOperation(R"({"target_plan_map": {}})"));
  EXPECT_FALSE(HasOperation(R"({"target_plan_map": "t1"})"));
  EXPECT_THAT(host.calls, IsEmpty());
}

TEST_F(EditCleanupAction, TakesAPlanOfAWrongKindForAnEmptyOne) {
  EXPECT_TRUE(HasOperation(R"({"target_plan_map": {"t1": 7}})"));
  EXPECT_TRUE(HasOperation(R"({"target_plan_map": {"t1": null}})"));
  EXPECT_THAT(host.calls, ElementsAre("PlanDelete(\"\", true, true, true)",
                                      "PlanDelete(\"\", true, true, true)"));
}

// --- The targets that are quiet already

class SwitchoverAction : public PlanTest {};

TEST_F(SwitchoverAction, LooksUpEveryTargetAnewWhetherItIsQuiet) {
  const AnyAction action = TAG(Switchover).make();
  Json::Value params = Json(R"({"target_map": {"t2": "quiet"}})");
  EXPECT_EQ(action.PreAct({"t1", "t2", "t3"}, params), 0);
  int err = 0;
  for (const char* target : {"t1", "t2", "t3"}) EXPECT_TRUE(action.GenOperation(target, err));
  EXPECT_THAT(
      host.calls,
      ElementsAre(
          Select("t1"), "PlanSwitchover(p1, null, " + SyncParam(true, false, true, false) + ")",
          Select("t2"), "PlanSwitchover(p2, null, " + SyncParam(true, false, false, false) + ")",
          Select("t3"), "PlanSwitchover(p3, null, " + SyncParam(true, false, true, false) + ")"));
}

TEST_F(SwitchoverAction, KeepsItsOwnCopyOfTheMap) {
  const AnyAction action = TAG(Switchover).make();
  Json::Value params = Json(R"({"target_map": {"t2": "quiet"}})");
  EXPECT_EQ(action.PreAct({"t2"}, params), 0);
  params["target_map"].removeMember("t2");
  int err = 0;
  EXPECT_TRUE(action.GenOperation("t2", err));
  EXPECT_THAT(host.calls, testing::Contains("PlanSwitchover(p2, null, " +
                                            SyncParam(true, false, false, false) + ")"));
}

}  // namespace
}  // namespace unit
