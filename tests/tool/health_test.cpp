#include "action/health.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace drgroupctl {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::int64_t kNow = 1700000000;

// A group with one protected target, a minute after all of it was well.
class HealthTest : public testing::Test {
 protected:
  HealthTest() {
    health_.now = kNow;
    GroupHealth& group = health_.groups.emplace_back();
    group.id = "g";
    group.targets = {"a"};
    group.newest_time = kNow - 60;
    VrelDR::PlanStanding& plan = health_.plans.standings.emplace_back();
    plan.plan.SetPlanId("p");
    plan.plan.SetProtectedTargetId("a");
    plan.plan.SetDRTargetId("a-dr");
    plan.plan.SetStatus(VrelDR::kPlanNormal);
    plan.site = VrelDR::kSiteNormal;
    plan.source = {"a", "v1", true};
    plan.replica = {"a-dr", "v2", true};
    plan.pending_count = 0;
    plan.op = VrelDR::kOpSync;
    plan.arrived.recorded_id = plan.arrived.newest.snap_id = "s";
    plan.arrived.recorded_time = plan.arrived.newest.create_time = kNow - 90;
    health_.plans.by_target["a"] = {&plan};
    VrelDR::VolumeInfo& volume = health_.volumes.emplace_back();
    volume.name = "v1";
    volume.size_bytes = 1000;
    volume.free_bytes = 100;
  }

  VrelDR::PlanStanding& Plan() { return health_.plans.standings.front(); }

  // Expects one finding, of that grade, which says all that.
  void ExpectOne(Grade grade, const std::vector<std::string>& said) const {
    const Judgement judgement = Judge(health_, limits_);
    EXPECT_EQ(judgement.grade, grade) << PluginLine(health_, judgement);
    ASSERT_EQ(judgement.findings.size(), 1U) << PluginLine(health_, judgement);
    for (const std::string& each : said) {
      EXPECT_THAT(judgement.findings.front().text, HasSubstr(each));
    }
  }
  std::string Line() const { return PluginLine(health_, Judge(health_, limits_)); }

  Health health_;
  HealthLimits limits_;
};

TEST_F(HealthTest, WhatIsWellIsToldWithItsNumbers) {
  EXPECT_THAT(Judge(health_, limits_).findings, IsEmpty());
  EXPECT_EQ(Line(),
            "DRGROUP OK - 1 group, 1 target, 1 volume | 'g age'=60s 'g lag'=90s 'v1 free'=100B");
  limits_ = {60, 90, 100, 10};
  EXPECT_EQ(Line(),
            "DRGROUP OK - 1 group, 1 target, 1 volume | 'g age'=60s;;60 'g lag'=90s;;90 'v1 "
            "free'=100B;;100:");
}

TEST_F(HealthTest, EachLimitIsCriticalWhenItIsPassed) {
  limits_.max_age = 59;
  ExpectOne(Grade::kCritical, {"newest group snapshot of group \"g\"", "1m ago", "more than 59s"});
  limits_ = {};
  limits_.max_lag = 89;
  ExpectOne(Grade::kCritical, {"group \"g\", target \"a\"", "last snapshot that arrived"});
  limits_ = {};
  limits_.min_free_bytes = 101;
  ExpectOne(Grade::kCritical, {"volume \"v1\" has 100 free, less than 101"});
  limits_ = {};
  limits_.min_free_percent = 11;
  ExpectOne(Grade::kCritical, {"volume \"v1\"", "less than 110"});
}

TEST_F(HealthTest, WhatWasNeverTakenOrNeverArrivedIsOlderThanAnyLimit) {
  health_.groups.front().newest_time = 0;
  EXPECT_THAT(Judge(health_, limits_).findings, IsEmpty());
  limits_.max_age = 1000000;
  ExpectOne(Grade::kCritical, {"group \"g\" has no group snapshot"});

  limits_ = {};
  Plan().arrived = {};
  ExpectOne(Grade::kWarning, {"\"a\": no snapshot has arrived yet"});
  limits_.max_lag = 1000000;
  ExpectOne(Grade::kCritical, {"\"a\": no snapshot has arrived yet"});

  limits_ = {};
  health_.plans.by_target.clear();
  EXPECT_THAT(Judge(health_, limits_).findings, IsEmpty());
  limits_.max_lag = 1000000;
  ExpectOne(Grade::kCritical, {"\"a\": it is not protected"});
}

TEST_F(HealthTest, TheLagOfAGroupIsThatOfItsLastTarget) {
  VrelDR::PlanStanding other = Plan();
  other.arrived.newest.create_time = kNow - 500;
  health_.groups.front().targets = {"a", "b"};
  health_.plans.by_target["b"] = {&other};
  EXPECT_THAT(Line(), HasSubstr("'g lag'=500s"));
}

TEST_F(HealthTest, WhatIsOutOfReachOrGoneIsCriticalAndWhatIsNotKnownIsUnknown) {
  Plan().site = VrelDR::kSiteUnreachable;
  Plan().replica.is_there = false;
  ExpectOne(Grade::kCritical, {"\"a-dr\" on volume \"v2\" is out of reach"});

  Plan().site = VrelDR::kSiteNormal;
  Plan().replica.is_there = true;
  Plan().arrived.is_gone = true;
  ExpectOne(Grade::kCritical, {"is gone from target \"a-dr\""});

  Plan().arrived.is_gone = false;
  Plan().arrived_problem = "no answer";
  ExpectOne(Grade::kUnknown, {"cannot be told"});

  Plan().arrived_problem.clear();
  Plan().unread = {"the records are held"};
  ExpectOne(Grade::kUnknown, {"the records are held"});
}

TEST_F(HealthTest, AFailedSyncWarnsAndAFailedChangeOfRolesIsCritical) {
  Plan().op_state = VrelDR::OPState::kFailed;
  Plan().op_message = "no room";
  ExpectOne(Grade::kWarning, {"the last sync failed: no room"});
  Plan().op = VrelDR::kOpSwitchover;
  ExpectOne(Grade::kCritical, {"the last switchover failed: no room"});
  Plan().site = VrelDR::kSiteInterrupted;
  ExpectOne(Grade::kCritical, {"switchover was interrupted"});
}

TEST_F(HealthTest, AFailedOverTargetWarnsAndHasNoLag) {
  Plan().plan.SetStatus(VrelDR::kPlanFailover);
  Plan().site = VrelDR::kSiteFailover;
  limits_.max_lag = 1;
  ExpectOne(Grade::kWarning, {"\"a\": it is failed over, and nothing is replicated"});
  EXPECT_THAT(Line(), testing::Not(HasSubstr("lag")));
}

TEST_F(HealthTest, ATimeAheadOfTheClockWarns) {
  health_.groups.front().newest_time = kNow + 60;
  EXPECT_THAT(Judge(health_, limits_).findings, IsEmpty()) << "snapshots may be closely taken";
  health_.groups.front().newest_time = kNow + 61;
  ExpectOne(Grade::kWarning,
            {"newest group snapshot of group \"g\"", "ahead of this host's clock"});
  EXPECT_THAT(Line(), HasSubstr("'g age'=0s"));
}

TEST_F(HealthTest, TheWorstStandsFirst) {
  health_.groups.front().problem = "held";
  health_.groups.front().newest_time.reset();
  Plan().plan.SetStatus(VrelDR::kPlanFailover);
  health_.volumes.front().problem = "not mounted";
  const Judgement judgement = Judge(health_, limits_);
  EXPECT_EQ(judgement.grade, Grade::kCritical);
  std::vector<Grade> grades;
  for (const Finding& each : judgement.findings) grades.push_back(each.grade);
  EXPECT_THAT(grades, ElementsAre(Grade::kCritical, Grade::kUnknown, Grade::kWarning));
  EXPECT_EQ(Line(),
            "DRGROUP CRITICAL - volume \"v1\": not mounted; group \"g\": held; group \"g\", target "
            "\"a\": it is failed over, and nothing is replicated");
}

TEST_F(HealthTest, NoNameBreaksTheLine) {
  health_.groups.front().id = "a'b=c|d\n";
  health_.groups.front().problem = "bad | worse\nlast";
  health_.groups.front().newest_time = kNow;
  EXPECT_EQ(Line(),
            "DRGROUP UNKNOWN - group \"a'b=c/d\\n\": bad / worse\\nlast | 'a_b_c_d\\n age'=0s "
            "'a_b_c_d\\n lag'=90s 'v1 free'=100B");
}

}  // namespace
}  // namespace drgroupctl
