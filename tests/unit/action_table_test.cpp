#include <type_traits>

#include "any_action.h"
#include "plan_test.h"

namespace unit {
namespace {

namespace ActionPolicy = VrelDRGroup::ActionPolicy;
using Targets = std::set<std::string>;

static_assert(std::is_same_v<ActionPolicy::Stop, ActionPolicy::IntToType<0>>);
static_assert(std::is_same_v<ActionPolicy::SyncChecker, ActionPolicy::IntToType<1>>);
static_assert(std::is_same_v<ActionPolicy::DelChecker, ActionPolicy::IntToType<2>>);
static_assert(std::is_same_v<ActionPolicy::SwitchoverChecker, ActionPolicy::IntToType<3>>);
static_assert(std::is_same_v<ActionPolicy::FailoverChecker, ActionPolicy::IntToType<4>>);
static_assert(std::is_same_v<ActionPolicy::TmpSyncStop, ActionPolicy::IntToType<5>>);

// --- The names

struct NameRow {
  Tag tag;
  std::string task_name;
  friend std::ostream& operator<<(std::ostream& out, const NameRow& row) { return out << row.tag; }
};
class ActionName : public testing::TestWithParam<NameRow> {};

TEST_P(ActionName, IsTheOneOfItsTask) {
  EXPECT_EQ(GetParam().tag.make().GetTaskName(), GetParam().task_name);
}

const NameRow kNames[] = {
    {TAG(CreatePartial), "create_partial"},
    {TAG(Create), "create"},
    {TAG(Sync), "sync"},
    {TAG(Del), "delete"},
    {TAG(Stop), "stop"},
    {TAG(Switchover), "switchover"},
    {TAG(Failover), "failover"},
    {TAG(Reprotect), "reprotect"},
    {TAG(EditPrepare), "edit_prepare"},
    {TAG(EditCleanup), "edit"},
    {TAG(SyncChecker), "can_sync"},
    {TAG(DelChecker), "can_delete"},
    {TAG(SwitchoverChecker), "can_switchover"},
    {TAG(FailoverChecker), "can_failover"},
    {TAG(ReprotectChecker), "can_reprotect"},
    {TAG(TmpCreate), "tmp_create"},
    {TAG(TmpSync), "tmp_sync"},
    {TAG(TmpSyncStop), "tmp_sync_stop"},
    {TAG(TmpSwitchover), "tmp_switchover"},
    {TAG(TmpDel), "tmp_del"},
};
INSTANTIATE_TEST_SUITE_P(Of, ActionName, testing::ValuesIn(kNames), RowName<NameRow>);

// --- The operation on the one plan of t2, the last of the action's targets t1 and t2

struct BuildRow {
  Tag tag;
  std::string params;
  std::string operation;
  friend std::ostream& operator<<(std::ostream& out, const BuildRow& row) { return out << row.tag; }
};

class ActionOperation : public PlanTest, public testing::WithParamInterface<BuildRow> {
 public:
  static std::vector<BuildRow> Rows();
};

TEST_P(ActionOperation, IsBuiltFromTheOnePlanOfTheTarget) {
  const AnyAction action = GetParam().tag.make();
  Json::Value params = Json(GetParam().params);
  EXPECT_EQ(action.PreAct({"t1", "t2"}, params), 0);
  EXPECT_THAT(host.calls, IsEmpty());

  int err = 7;
  EXPECT_NE(action.GenOperation("t2", err), nullptr);
  EXPECT_EQ(err, 7);
  EXPECT_THAT(host.calls, ElementsAre(Select("t2"), GetParam().operation));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

std::vector<BuildRow> ActionOperation::Rows() {
  const auto sync = [](bool isEncrypted) {
    return "PlanSync(p2, " + SyncParam(true, false, false, isEncrypted) + ")";
  };
  const auto switchover = [](bool stopSource, bool isEncrypted) {
    return "PlanSwitchover(p2, null, " + SyncParam(true, false, stopSource, isEncrypted) + ")";
  };
  return {
      {TAG(Sync), R"({})", sync(false)},
      {TAG(Sync), R"({"is_encrypted": false})", sync(false)},
      {TAG(Sync), R"({"is_encrypted": true})", sync(true)},
      {TAG(TmpSync), R"({})", sync(true)},
      {TAG(TmpSync), R"({"is_encrypted": false})", sync(true)},

      {TAG(Stop), R"({})", "PlanStop(p2)"},
      {TAG(TmpSyncStop), R"({})", "PlanStop(p2)"},

      {TAG(Del), R"({})", "PlanDelete(p2, false, false, true)"},
      {TAG(Del), R"({"is_data_deleted": true})", "PlanDelete(p2, true, false, true)"},
      {TAG(Del), R"({"is_drsite_deleted": true})", "PlanDelete(p2, false, true, true)"},
      {TAG(Del), R"({"is_data_deleted": true, "is_drsite_deleted": true})",
       "PlanDelete(p2, true, true, true)"},
      {TAG(Del), R"({"is_site_del": true})", "SiteDelete(p2, false, true)"},
      {TAG(Del), R"({"is_site_del": true, "is_data_deleted": true})", "SiteDelete(p2, true, true)"},
      {TAG(Del), R"({"is_site_del": true, "is_drsite_deleted": true})",
       "SiteDelete(p2, false, true)"},
      {TAG(TmpDel), R"({})", "PlanDelete(p2, true, true, true)"},
      {TAG(TmpDel),
       R"({"is_site_del": true, "is_data_deleted": false, "is_drsite_deleted": false})",
       "PlanDelete(p2, true, true, true)"},

      {TAG(Switchover), R"({})", switchover(true, false)},
      {TAG(Switchover), R"({"is_encrypted": true})", switchover(true, true)},
      {TAG(Switchover), R"({"target_map": {}})", switchover(true, false)},
      {TAG(Switchover), R"({"target_map": {"t1": "x"}})", switchover(true, false)},
      {TAG(Switchover), R"({"target_map": {"t2": "x"}})", switchover(false, false)},
      {TAG(Switchover), R"({"target_map": {"t2": null}, "is_encrypted": true})",
       switchover(false, true)},
      {TAG(TmpSwitchover), R"({})", switchover(true, true)},
      {TAG(TmpSwitchover), R"({"target_map": {"t2": "x"}, "is_encrypted": false})",
       switchover(true, true)},

      {TAG(Reprotect), R"({})", "PlanReprotect(p2, dr of p2, false)"},
      {TAG(Reprotect), R"({"is_mainsite": false})", "PlanReprotect(p2, dr of p2, false)"},
      {TAG(Reprotect), R"({"is_mainsite": true})", "PlanReprotect(p2, main of p2, false)"},

      {TAG(SyncChecker), R"({})", "PlanSyncChecker(p2)"},
      {TAG(DelChecker), R"({})", "PlanDeleteChecker(p2)"},
      {TAG(SwitchoverChecker), R"({})", "PlanSwitchoverChecker(p2)"},
      {TAG(FailoverChecker), R"({})", "PlanFailoverChecker(p2)"},
      {TAG(ReprotectChecker), R"({})", "PlanReprotectChecker(p2, dr of p2)"},
      {TAG(ReprotectChecker), R"({"is_mainsite": true})", "PlanReprotectChecker(p2, main of p2)"},
  };
}
INSTANTIATE_TEST_SUITE_P(Of, ActionOperation, testing::ValuesIn(ActionOperation::Rows()),
                         RowName<BuildRow>);

// --- What becomes of a target whose plan cannot be selected

struct RefusalRow {
  Tag tag;
  std::string message;
  int err;
  friend std::ostream& operator<<(std::ostream& out, const RefusalRow& row) {
    return out << row.tag;
  }
};

class ActionWithoutOnePlan : public PlanTest, public testing::WithParamInterface<RefusalRow> {
 protected:
  // Asks for the operation of t2 and expects that there is none.
  void ExpectNone() {
    int err = 0;
    EXPECT_EQ(GetParam().tag.make().GenOperation("t2", err), nullptr);
    EXPECT_EQ(err, GetParam().err);
    EXPECT_THAT(host.calls, ElementsAre(Select("t2")));
  }
};

TEST_P(ActionWithoutOnePlan, IsRefusedWhenTheTargetHasTwo) {
  GiveSecondPlan("t2");
  ExpectNone();
  EXPECT_THAT(log.Entries(), ElementsAre(Said(GetParam().message)));
}

TEST_P(ActionWithoutOnePlan, IsRefusedWhenTheyCannotBeLookedUp) {
  RefuseSelection("t2");
  ExpectNone();
  EXPECT_THAT(log.Entries(), ElementsAre(LookUpFailed(), Said(GetParam().message)));
}

class ActionWithoutPlan : public ActionWithoutOnePlan {};

TEST_P(ActionWithoutPlan, IsRefused) {
  host.plans.erase("t2");
  ExpectNone();
  EXPECT_THAT(log.Entries(), ElementsAre(Said(GetParam().message)));
}

const std::string kNamed = "Failed to select plan of target [t2]";
const std::string kPlain = "Failed to select plan";
const RefusalRow kRefusals[] = {
    {TAG(Sync), kNamed, -1},
    {TAG(TmpSync), kNamed, -1},
    {TAG(Stop), kNamed, -1},
    {TAG(TmpSyncStop), kNamed, -1},
    {TAG(Del), kNamed, 0},
    {TAG(TmpDel), kNamed, 0},
    {TAG(Switchover), kNamed, -1},
    {TAG(TmpSwitchover), kNamed, -1},
    {TAG(Failover), kNamed, -1},
    {TAG(Reprotect), kNamed, -1},
    {TAG(SyncChecker), kNamed, -1},
    {TAG(DelChecker), kNamed, 0},
    {TAG(SwitchoverChecker), kPlain, -1},
    {TAG(FailoverChecker), kPlain, -1},
};
const RefusalRow kReprotectCheckerRefusal[] = {{TAG(ReprotectChecker), kPlain, -1}};

INSTANTIATE_TEST_SUITE_P(Of, ActionWithoutOnePlan, testing::ValuesIn(kRefusals),
                         RowName<RefusalRow>);
INSTANTIATE_TEST_SUITE_P(Of, ActionWithoutPlan, testing::ValuesIn(kRefusals), RowName<RefusalRow>);
// With several plans as the others; without one it has nothing to check.
INSTANTIATE_TEST_SUITE_P(Also, ActionWithoutOnePlan, testing::ValuesIn(kReprotectCheckerRefusal),
                         RowName<RefusalRow>);

class ReprotectCheckerAction : public PlanTest {};

TEST_F(ReprotectCheckerAction, HasNothingToCheckForATargetWithoutPlan) {
  host.plans.erase("t2");
  int err = 0;
  EXPECT_EQ(TAG(ReprotectChecker).make().GenOperation("t2", err), nullptr);
  EXPECT_EQ(err, 0);
  EXPECT_THAT(host.calls, ElementsAre(Select("t2")));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

// --- The reverts that undo nothing

class ActionWithoutUndo : public PlanTest, public testing::WithParamInterface<Tag> {};

TEST_P(ActionWithoutUndo, OnlyEmptiesTheTargets) {
  Targets targets = {"t1", "t2", "unknown"};
  EXPECT_EQ(GetParam().make().Revert(targets), 0);
  EXPECT_THAT(targets, IsEmpty());
  EXPECT_THAT(host.calls, IsEmpty());
  EXPECT_THAT(log.Entries(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Of, ActionWithoutUndo,
                         testing::Values(TAG(Sync), TAG(Del), TAG(Stop), TAG(EditCleanup),
                                         TAG(SyncChecker), TAG(DelChecker), TAG(SwitchoverChecker),
                                         TAG(FailoverChecker), TAG(ReprotectChecker),
                                         TAG(TmpCreate), TAG(TmpSync), TAG(TmpSyncStop),
                                         TAG(TmpSwitchover), TAG(TmpDel)),
                         TagName);

// --- What all have in common

class EveryAction : public PlanTest, public testing::WithParamInterface<Tag> {};

TEST_P(EveryAction, RevertsNoTargetsWithoutAskingTheHost) {
  Targets targets;
  EXPECT_EQ(GetParam().make().Revert(targets), 0);
  EXPECT_THAT(targets, IsEmpty());
  EXPECT_THAT(host.calls, IsEmpty());
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_P(EveryAction, NeverRunsAnOperationItself) {
  const AnyAction action = GetParam().make();
  Json::Value params(Json::objectValue);
  action.PreAct({"t1", "t2"}, params);
  int err = 0;
  action.GenOperation("t2", err);
  EXPECT_THAT(host.calls, testing::Each(testing::Not(testing::HasSubstr(".Run("))));
}

INSTANTIATE_TEST_SUITE_P(Of, EveryAction, testing::ValuesIn(AllTags()), TagName);

}  // namespace
}  // namespace unit
