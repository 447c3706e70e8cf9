#include <vreldrgroup/replication/replica_utils.h>

#include "plan_test.h"

namespace unit {
namespace {

using VrelDR::DRPlan;
using VrelDRGroup::Utils::PlanList;
using VrelDRGroup::Utils::PlanSelect;

class PlanLookUp : public PlanTest {
 protected:
  // The identifiers of the plans, in their order.
  std::vector<std::string> Ids() const {
    std::vector<std::string> ids;
    for (const DRPlan& plan : plans) ids.push_back(plan.GetPlanId());
    return ids;
  }

  static auto NotFound(const std::string& planId) {
    return ShortErr("replication/replica_utils", "Failed to get plan [" + planId + "]");
  }

  std::vector<DRPlan> plans = {MakePlan("before", "t0")};
};

TEST_F(PlanLookUp, SelectsThePlanOfATarget) {
  EXPECT_EQ(PlanSelect("t2", plans), 1);
  EXPECT_THAT(Ids(), ElementsAre("p2"));
  EXPECT_EQ(scripted_host::Text(plans.front()), PlanText("p2", "t2"));
  EXPECT_THAT(host.calls, ElementsAre("SelectPlans(1, t2)"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(PlanLookUp, CountsTheSelectedPlans) {
  GiveSecondPlan("t2");
  EXPECT_EQ(PlanSelect("t2", plans), 2);
  EXPECT_THAT(Ids(), ElementsAre("p2", "second of t2"));
}

TEST_F(PlanLookUp, SelectsNothingForATargetWithoutPlan) {
  EXPECT_EQ(PlanSelect("unknown", plans), 0);
  EXPECT_THAT(plans, IsEmpty());
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(PlanLookUp, SaysWhenTheHostCannotSelect) {
  RefuseSelection("t2");
  EXPECT_EQ(PlanSelect("t2", plans), -1);
  EXPECT_THAT(Ids(), testing::Not(testing::Contains("before")));
  EXPECT_THAT(log.Entries(), ElementsAre(LookUpFailed()));
}

TEST_F(PlanLookUp, AppendsThePlansInTheOrderOfTheirIdentifiers) {
  EXPECT_EQ(PlanList({"p3", "p1"}, plans), 0);
  EXPECT_THAT(Ids(), ElementsAre("before", "p1", "p3"));
  EXPECT_EQ(scripted_host::Text(plans.back()), PlanText("p3", "t3"));
  EXPECT_THAT(host.calls, ElementsAre("GetPlan(p1)", "GetPlan(p3)"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(PlanLookUp, HasNothingToAppendWithoutIdentifiers) {
  EXPECT_EQ(PlanList({}, plans), 0);
  EXPECT_THAT(Ids(), ElementsAre("before"));
  EXPECT_THAT(host.calls, IsEmpty());
}

TEST_F(PlanLookUp, EndsAtTheFirstPlanThatCannotBeHad) {
  EXPECT_EQ(PlanList({"p1", "p2x", "p3"}, plans), -1);
  EXPECT_THAT(Ids(), ElementsAre("before", "p1"));
  EXPECT_THAT(host.calls, ElementsAre("GetPlan(p1)", "GetPlan(p2x)"));
  EXPECT_THAT(log.Entries(), ElementsAre(NotFound("p2x")));
}

TEST_F(PlanLookUp, TakesEveryCodeButZeroForAFailure) {
  for (const int code : {-1, 1, 404}) {
    host.failures["GetPlan(p1)"] = {code, {}};
    EXPECT_EQ(PlanList({"p1"}, plans), -1) << code;
  }
  host.failures["GetPlan(p1)"] = {0, {}};
  EXPECT_EQ(PlanList({"p1"}, plans), 0);
}

TEST_F(PlanLookUp, LogsIdentifiersWithFormatsAsTheyAre) {
  EXPECT_EQ(PlanList({"%s%n"}, plans), -1);
  EXPECT_THAT(log.Entries(), ElementsAre(NotFound("%s%n")));
}

}  // namespace
}  // namespace unit
