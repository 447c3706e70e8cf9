#include "action_create_fixture.h"
#include "failing_new.h"

namespace unit {
namespace {

using Targets = std::set<std::string>;

// The deletion of a plan that was just made: its making and its run.
std::string Made(const std::string& planId) {
  return "PlanDelete(" + planId + ", true, true, true)";
}
std::string Ran(const std::string& planId) {
  return "PlanDelete(" + planId + ").Run(false)";
}
std::string NotDeleted(const std::string& target) {
  return "Failed to delete replica plan of target [" + target + "].";
}
std::string NotSelected(const std::string& target) {
  return "Failed to select plan of target [" + target + "] to revert.";
}

// --- Reverting a creation

class RevertedCreation : public CreationTest, public testing::WithParamInterface<Tag> {
 protected:
  // Reverts all three targets, after which none may be left.
  int Revert() {
    Targets targets = {"t1", "t2", "t3"};
    const int result = GetParam().make().Revert(targets);
    EXPECT_THAT(targets, IsEmpty());
    return result;
  }
};

TEST_P(RevertedCreation, DeletesThePlanOfEveryTarget) {
  EXPECT_EQ(Revert(), 0);
  EXPECT_THAT(host.calls, ElementsAre(Select("t1"), Made("p1"), Ran("p1"), Select("t2"), Made("p2"),
                                      Ran("p2"), Select("t3"), Made("p3"), Ran("p3")));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_P(RevertedCreation, GoesOnAfterATargetWithoutOnePlan) {
  host.plans.erase("t1");
  GiveSecondPlan("t2");
  EXPECT_EQ(Revert(), -1);
  EXPECT_THAT(host.calls,
              ElementsAre(Select("t1"), Select("t2"), Select("t3"), Made("p3"), Ran("p3")));
  EXPECT_THAT(log.Entries(), ElementsAre(Said(NotSelected("t1")), Said(NotSelected("t2"))));
}

TEST_P(RevertedCreation, GoesOnAfterALookUpThatFails) {
  RefuseSelection("t1");
  EXPECT_EQ(Revert(), -1);
  EXPECT_THAT(log.Entries(), ElementsAre(LookUpFailed(), Said(NotSelected("t1"))));
  EXPECT_THAT(host.calls, testing::Contains(Ran("p3")));
}

TEST_P(RevertedCreation, GoesOnAfterADeletionThatFailsAtAnyTarget) {
  for (const char* number : {"1", "2", "3"}) {
    host.calls.clear();
    log.Clear();
    host.failures = {{Ran(std::string("p") + number), {414, Json("\"why\"")}}};
    EXPECT_EQ(Revert(), -1);
    EXPECT_THAT(log.Entries(), ElementsAre(Said(NotDeleted(std::string("t") + number))));
    EXPECT_THAT(host.calls, testing::SizeIs(9));
  }
}

TEST_P(RevertedCreation, SaysOfEveryTargetThatItsPlanCannotBeDeleted) {
  for (const char* plan : {"p1", "p2", "p3"}) host.failures[Ran(plan)] = {414, {}};
  EXPECT_EQ(Revert(), -1);
  EXPECT_THAT(log.Entries(),
              ElementsAre(Said(NotDeleted("t1")), Said(NotDeleted("t2")), Said(NotDeleted("t3"))));
}

TEST_P(RevertedCreation, GoesOnWhenThereIsNoMemoryForADeletion) {
  for (int index = 0; index < 3; ++index) {
    host.calls.clear();
    log.Clear();
    const FailingNew failing(index);
    EXPECT_EQ(Revert(), -1);
    EXPECT_TRUE(failing.HasFailed());
    EXPECT_THAT(log.Entries(), ElementsAre(Said(NotDeleted("t" + std::to_string(index + 1))),
                                           Said("Failed to new DROperation.")));
    EXPECT_THAT(host.calls, testing::SizeIs(7));
  }
}

INSTANTIATE_TEST_SUITE_P(Of, RevertedCreation, testing::Values(TAG(Create), TAG(CreatePartial)),
                         TagName);

// --- Reverting the preparation of an edit: only the plan that it made goes

class RevertedEditPrepare : public CreationTest {
 protected:
  RevertedEditPrepare() {
    Prepare(action, {"t1", "t2", "t3"}, local);
    host.calls.clear();
  }

  int Revert() {
    Targets targets = {"t1", "t2", "t3"};
    const int result = action.Revert(targets);
    EXPECT_THAT(targets, IsEmpty());
    return result;
  }

  const AnyAction action = MakeAction<VrelDRGroup::ActionPolicy::EditPrepare>();
};

TEST_F(RevertedEditPrepare, DeletesTheSecondPlan) {
  GiveSecondPlan("t2");
  EXPECT_EQ(Revert(), 0);
  EXPECT_THAT(host.calls, ElementsAre(Select("t1"), Select("t2"), Made("second of t2"),
                                      Ran("second of t2"), Select("t3")));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(RevertedEditPrepare, FindsTheNewPlanAlsoWhenItStandsFirst) {
  host.plans["t1"] = {MakePlan("new", "t1"), MakePlan("p1", "t1")};
  EXPECT_EQ(Revert(), 0);
  EXPECT_THAT(host.calls,
              ElementsAre(Select("t1"), Made("new"), Ran("new"), Select("t2"), Select("t3")));
}

TEST_F(RevertedEditPrepare, DeletesOnlyTheFirstOfSeveralNewPlans) {
  host.plans["t1"] = {MakePlan("p1", "t1"), MakePlan("new", "t1"), MakePlan("newer", "t1")};
  EXPECT_EQ(Revert(), 0);
  EXPECT_THAT(host.calls,
              ElementsAre(Select("t1"), Made("new"), Ran("new"), Select("t2"), Select("t3")));
}

TEST_F(RevertedEditPrepare, HasNothingToUndoWithoutASecondPlan) {
  host.plans.erase("t1");
  EXPECT_EQ(Revert(), 0);
  EXPECT_THAT(host.calls, ElementsAre(Select("t1"), Select("t2"), Select("t3")));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(RevertedEditPrepare, PassesOverATargetWhosePlansCannotBeLookedUp) {
  GiveSecondPlan("t1");
  RefuseSelection("t1");
  EXPECT_EQ(Revert(), 0);
  EXPECT_THAT(host.calls, ElementsAre(Select("t1"), Select("t2"), Select("t3")));
  EXPECT_THAT(log.Entries(), ElementsAre(LookUpFailed()));
}

TEST_F(RevertedEditPrepare, HasNothingToUndoWhenAllPlansAreTheOldOne) {
  host.plans["t1"] = {MakePlan("p1", "t1"), MakePlan("p1", "t1")};
  EXPECT_EQ(Revert(), 0);
  EXPECT_THAT(host.calls, ElementsAre(Select("t1"), Select("t2"), Select("t3")));
}

TEST_F(RevertedEditPrepare, TakesTheFirstPlanOfATargetThatTheMapHasNot) {
  host.plans["t9"] = {MakePlan("a", "t9"), MakePlan("b", "t9")};
  Targets targets = {"t9"};
  EXPECT_EQ(action.Revert(targets), 0);
  EXPECT_THAT(host.calls, ElementsAre(Select("t9"), Made("a"), Ran("a")));
}

TEST_F(RevertedEditPrepare, GoesOnAfterADeletionThatFails) {
  for (const char* target : {"t1", "t2", "t3"}) GiveSecondPlan(target);
  host.failures[Ran("second of t2")] = {416, {}};
  EXPECT_EQ(Revert(), -1);
  EXPECT_THAT(log.Entries(), ElementsAre(Said(NotDeleted("t2"))));
  EXPECT_THAT(host.calls, testing::Contains(Ran("second of t3")));
}

TEST_F(RevertedEditPrepare, GoesOnWhenThereIsNoMemoryForADeletion) {
  for (const char* target : {"t1", "t2"}) GiveSecondPlan(target);
  const FailingNew failing;
  EXPECT_EQ(Revert(), -1);
  EXPECT_TRUE(failing.HasFailed());
  EXPECT_THAT(log.Entries(),
              ElementsAre(Said(NotDeleted("t1")), Said("Failed to new DROperation.")));
  EXPECT_THAT(host.calls, testing::Contains(Ran("second of t2")));
}

TEST_F(RevertedEditPrepare, KeepsTheOldPlansThatItKnowsWhenAnotherPreparationFails) {
  host.plans["t1"] = {MakePlan("new", "t1")};
  host.plans.erase("t2");
  Json::Value params = local;
  EXPECT_EQ(action.PreAct({"t1", "t2"}, params), -1);
  EXPECT_EQ(params["target_plan_map"], Json(R"({"t1": "new"})"));
  host.calls.clear();
  host.plans["t1"] = {MakePlan("p1", "t1"), MakePlan("new", "t1")};
  Targets targets = {"t1"};
  EXPECT_EQ(action.Revert(targets), 0);
  EXPECT_THAT(host.calls, ElementsAre(Select("t1"), Made("new"), Ran("new")));
}

}  // namespace
}  // namespace unit
