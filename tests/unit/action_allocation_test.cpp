#include "any_action.h"
#include "failing_new.h"
#include "plan_test.h"

namespace unit {
namespace {

// Every action when there is no memory for its operation.
class ActionWithoutMemory : public PlanTest, public testing::WithParamInterface<Tag> {
 protected:
  // Whether the action has an operation for t1, and what `err` is afterwards.
  bool HasOperation(int& err) {
    const AnyAction action = GetParam().make();
    Json::Value params = Json(
        R"({"gsnap_id": "g1-gsnap-10", "dr_node_id": "here", "target_plan_map": {"t1": "old"}})");
    EXPECT_EQ(action.PreAct({"t1"}, params), 0);
    if (IsMakingAPlan()) host.plans.clear();
    return action.GenOperation("t1", err) != nullptr;
  }

  static bool IsMakingAPlan() {
    return GetParam().name.find("Create") != std::string::npos || GetParam().name == "EditPrepare";
  }
};

TEST_P(ActionWithoutMemory, HasNoOperationAndSaysNothing) {
  MakeCatalogue();
  AddMeta("g1-gsnap-10", 10);
  AddSnap("t1", 1, "s1", "g1-gsnap-10");
  int err = 7;
  ASSERT_TRUE(HasOperation(err)) << "with memory";
  host.plans["t1"] = {MakePlan("p1", "t1")};

  const FailingNew failing;
  EXPECT_FALSE(HasOperation(err));
  EXPECT_TRUE(failing.HasFailed());
  EXPECT_EQ(err, 7);
  EXPECT_THAT(log.Entries(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Of, ActionWithoutMemory, testing::ValuesIn(AllTags()), TagName);

}  // namespace
}  // namespace unit
