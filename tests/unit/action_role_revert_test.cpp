#include "any_action.h"
#include "failing_new.h"
#include "plan_test.h"

namespace unit {
namespace {

using Targets = std::set<std::string>;

// One way of undoing a change of the sites' parts.
struct UndoRow {
  Tag tag;
  std::string name;  // of the test
  std::string params;
  std::string operation;  // that undoes, without its arguments
  std::string kind;       // as the log names it
  bool is_set_kept;       // those that were undone stay in the set
  friend std::ostream& operator<<(std::ostream& out, const UndoRow& row) { return out << row.name; }
};

// The reverts that give a target back to its former side, on targets whose newest snapshots are n1,
// n2 and n3.
class RevertedRole : public PlanTest, public testing::WithParamInterface<UndoRow> {
 protected:
  RevertedRole() {
    for (const std::string number : {"1", "2", "3"}) {
      host.targets["t" + number].snapshots = {Snap(20, "n" + number), Snap(10, "older")};
    }
    Json::Value params = Json(GetParam().params);
    // A failover is undone without knowing where it went.
    if (GetParam().tag.name != "Failover") {
      EXPECT_EQ(action.PreAct({"t1", "t2", "t3"}, params), 0);
    }
    EXPECT_THAT(host.calls, IsEmpty());
  }

  // Reverts all three targets; those that are left must be `undone`, or none.
  int Revert(const Targets& undone) {
    Targets targets = {"t1", "t2", "t3"};
    const int result = action.Revert(targets);
    EXPECT_EQ(targets, GetParam().is_set_kept ? undone : Targets());
    return result;
  }

  static std::string Ran(const std::string& plan) {
    return GetParam().operation + "(" + plan + ").Run(false)";
  }

  // The line about a plan whose undoing failed with `err`.
  static auto NotRun(const std::string& plan, const std::string& err) {
    return Said("Failed to run " + GetParam().kind + " rollback of plan [" + plan + "] with err [" +
                err + "].");
  }
  static auto NotSelected(const std::string& target) {
    return Said("Failed to select plan of target [" + target + "] to revert.");
  }

  std::vector<std::string> Runs() const {
    std::vector<std::string> runs;
    for (const std::string& call : host.calls) {
      if (call.find(".Run(") != std::string::npos) runs.push_back(call);
    }
    return runs;
  }

  const AnyAction action = GetParam().tag.make();
};

TEST_P(RevertedRole, RunsOneOperationForEveryTarget) {
  EXPECT_EQ(Revert({"t1", "t2", "t3"}), 0);
  EXPECT_THAT(Runs(), ElementsAre(Ran("p1"), Ran("p2"), Ran("p3")));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_P(RevertedRole, GoesOnAfterAFailureAtAnyTarget) {
  for (const std::string number : {"1", "2", "3"}) {
    host.calls.clear();
    log.Clear();
    host.failures = {{Ran("p" + number), {442, Json("\"why %s\"")}}};
    Targets others = {"t1", "t2", "t3"};
    others.erase("t" + number);
    EXPECT_EQ(Revert(others), -1);
    EXPECT_THAT(Runs(), ElementsAre(Ran("p1"), Ran("p2"), Ran("p3")));
    EXPECT_THAT(log.Entries(),
                ElementsAre(NotRun("p" + number, R"({"err_code":442,"err_msg":"why %s"})")));
  }
}

TEST_P(RevertedRole, SaysOfEveryTargetWhyItFailed) {
  host.failures[Ran("p1")] = {1, Json(R"({"a": [1]})")};
  host.failures[Ran("p2")] = {2, {}};
  host.failures[Ran("p3")] = {-3, {}};
  host.code_texts = {{2, "two"}};
  EXPECT_EQ(Revert({}), -1);
  EXPECT_THAT(log.Entries(), ElementsAre(NotRun("p1", R"({"err_code":1,"err_msg":{"a":[1]}})"),
                                         NotRun("p2", R"({"err_code":2,"err_code_str":"two"})"),
                                         NotRun("p3", R"({"err_code":-3})")));
}

TEST_P(RevertedRole, GoesOnAfterATargetWithoutOnePlan) {
  host.plans.erase("t1");
  GiveSecondPlan("t3");
  EXPECT_EQ(Revert({"t2"}), -1);
  EXPECT_THAT(Runs(), ElementsAre(Ran("p2")));
  EXPECT_THAT(log.Entries(), ElementsAre(NotSelected("t1"), NotSelected("t3")));
}

TEST_P(RevertedRole, GoesOnAfterALookUpThatFails) {
  RefuseSelection("t2");
  EXPECT_EQ(Revert({"t1", "t3"}), -1);
  EXPECT_THAT(Runs(), ElementsAre(Ran("p1"), Ran("p3")));
  EXPECT_THAT(log.Entries(), ElementsAre(LookUpFailed(), NotSelected("t2")));
}

TEST_P(RevertedRole, CountsATargetWithoutMemoryForItsOperationAsFailed) {
  for (int index = 0; index < 3; ++index) {
    host.calls.clear();
    const FailingNew failing(index);
    Targets others = {"t1", "t2", "t3"};
    others.erase("t" + std::to_string(index + 1));
    EXPECT_EQ(Revert(others), -1);
    EXPECT_TRUE(failing.HasFailed());
    EXPECT_THAT(Runs(), testing::SizeIs(2));
  }
}

const UndoRow kUndos[] = {
    {TAG(Switchover), "Switchover", "{}", "PlanSwitchover", "switchover", true},
    {TAG(Failover), "Failover", "{}", "DRSiteReprotect", "switchover", false},
    {TAG(Reprotect), "ReprotectOfTheMainSite", R"({"is_mainsite": true})", "PlanSwitchover",
     "switchover", true},
    {TAG(Reprotect), "ReprotectOfTheDRSite", R"({"is_mainsite": false})", "PlanForcedFailover",
     "force failover", true},
};
INSTANTIATE_TEST_SUITE_P(Of, RevertedRole, testing::ValuesIn(kUndos),
                         [](const auto& row) { return row.param.name; });

// --- What exactly is run

class RevertedRoleCalls : public PlanTest {
 protected:
  // The calls of a revert of t1 after the action was prepared, without its run.
  std::vector<std::string> CallsOf(const AnyAction& action, const std::string& text) {
    Json::Value params = Json(text);
    EXPECT_EQ(action.PreAct({"t1"}, params), 0);
    host.calls.clear();
    Targets targets = {"t1"};
    EXPECT_EQ(action.Revert(targets), 0);
    EXPECT_THAT(host.calls.back(), testing::EndsWith("(p1).Run(false)"));
    host.calls.pop_back();
    return host.calls;
  }
};

TEST_F(RevertedRoleCalls, SwitchBackWithASourceThatIsStopped) {
  EXPECT_THAT(CallsOf(TAG(Switchover).make(), R"({"target_map": {"t1": "quiet"}})"),
              ElementsAre(Select("t1"),
                          "PlanSwitchover(p1, null, " + SyncParam(true, false, true, false) + ")"));
}

TEST_F(RevertedRoleCalls, SwitchBackEncryptedAsTheSwitchoverWas) {
  EXPECT_THAT(
      CallsOf(TAG(Switchover).make(), R"({"is_encrypted": true})"),
      testing::Contains("PlanSwitchover(p1, null, " + SyncParam(true, false, true, true) + ")"));
}

TEST_F(RevertedRoleCalls, SwitchBackAlsoAfterAnOperationForAQuietTarget) {
  const AnyAction action = TAG(Switchover).make();
  Json::Value params = Json(R"({"target_map": {"t1": "quiet"}})");
  EXPECT_EQ(action.PreAct({"t1"}, params), 0);
  int err = 0;
  EXPECT_TRUE(action.GenOperation("t1", err));
  host.calls.clear();
  Targets targets = {"t1"};
  EXPECT_EQ(action.Revert(targets), 0);
  EXPECT_THAT(host.calls,
              ElementsAre(Select("t1"),
                          "PlanSwitchover(p1, null, " + SyncParam(true, false, true, false) + ")",
                          "PlanSwitchover(p1).Run(false)"));
}

TEST_F(RevertedRoleCalls, SwitchBackEncryptedAfterAReprotectionOfTheMainSite) {
  EXPECT_THAT(CallsOf(TAG(Reprotect).make(), R"({"is_mainsite": true, "is_encrypted": false})"),
              ElementsAre(Select("t1"),
                          "PlanSwitchover(p1, null, " + SyncParam(true, false, true, true) + ")"));
}

TEST_F(RevertedRoleCalls, FailOverByForceAfterAReprotectionOfTheDRSite) {
  host.targets["t1"].snapshots = {Snap(20, "newest"), Snap(10, "older")};
  EXPECT_THAT(CallsOf(TAG(Reprotect).make(), "{}"),
              ElementsAre(Select("t1"), "TargetOperation(t1, 1)", "ListSnapshots(t1)",
                          "PlanForcedFailover(p1, newest, null)"));
}

TEST_F(RevertedRoleCalls, TakeAFailoverBackOfTheWholePlan) {
  Targets targets = {"t1"};
  EXPECT_EQ(TAG(Failover).make().Revert(targets), 0);
  EXPECT_THAT(host.calls,
              ElementsAre(Select("t1"), "DRSiteReprotect(" + PlanText("p1", "t1") + ", 128)",
                          "DRSiteReprotect(p1).Run(false)"));
}

TEST_F(RevertedRoleCalls, NeedASnapshotOfEveryTargetOnTheDRSite) {
  host.targets["t2"].snapshots = {Snap(20, "newest")};
  Targets targets = {"t1", "t2", "t3"};
  EXPECT_EQ(TAG(Reprotect).make().Revert(targets), -1);
  EXPECT_THAT(targets, ElementsAre("t2"));
  EXPECT_THAT(log.Entries(), ElementsAre(Said("Failed to get snapshot list of target [t1]."),
                                         Said("Failed to get snapshot list of target [t3].")));
  EXPECT_THAT(host.calls, testing::Contains("PlanForcedFailover(p2).Run(false)").Times(1));
}

}  // namespace
}  // namespace unit
