#include "groups/retention.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "output/failure.h"

namespace drgroupctl {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::int64_t At(int year, unsigned month, unsigned day, int hour = 0, int minute = 0) {
  const std::chrono::sys_days date = std::chrono::year(year) / month / day;
  return std::chrono::sys_seconds(date).time_since_epoch().count() + hour * 3600 + minute * 60;
}

Candidate Of(std::int64_t time, std::vector<std::string> claims = {}) {
  return {std::to_string(time), time, std::move(claims)};
}

std::vector<std::int64_t> Staying(const std::string& rule, std::vector<Candidate> candidates) {
  std::vector<std::int64_t> times;
  for (const Verdict& each : Judge(ParseKeep(rule), std::move(candidates))) {
    EXPECT_EQ(each.stays, !each.reasons.empty());
    if (each.stays) times.push_back(each.time);
  }
  return times;
}

std::string FailureOf(const std::string& text) {
  try {
    ParseKeep(text);
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.code, ExitCode::kUsage);
    return failure.message;
  }
  return "nothing";
}

TEST(RetentionTest, ARuleIsReadAndWrittenInAnyOrder) {
  EXPECT_EQ(ParseKeep("monthly=12,last=1"), (KeepRule{.last = 1, .monthly = 12}));
  EXPECT_EQ(ToText(ParseKeep("monthly=12,daily=0,last=1")), "last=1,monthly=12");
  const KeepRule all{24, 48, 30, 8, 1000000};
  EXPECT_EQ(ParseKeep(ToText(all)), all);
}

TEST(RetentionTest, NonsenseIsRefusedByName) {
  EXPECT_THAT(FailureOf(""), HasSubstr("\"\", which says nothing"));
  EXPECT_THAT(FailureOf("last"), HasSubstr("\"last\", which says nothing"));
  EXPECT_THAT(FailureOf("yearly=1"), HasSubstr("\"yearly=1\", which says nothing"));
  EXPECT_THAT(FailureOf("last=1,"), HasSubstr("\"\", which says nothing"));
  EXPECT_THAT(FailureOf("last=1,last=2"), HasSubstr("says \"last\" twice"));
  for (const char* each : {"last=", "last=-1", "last=x", "last=1 ", "last=1000001", "last= 1"}) {
    EXPECT_THAT(FailureOf(each), HasSubstr("no number from 0 to 1000000")) << each;
  }
  EXPECT_THAT(FailureOf("last=0,daily=0"), HasSubstr("nothing at all"));
}

TEST(RetentionTest, TheLastOnesStay) {
  EXPECT_THAT(Staying("last=2", {Of(10), Of(30), Of(20)}), ElementsAre(30, 20));
  EXPECT_THAT(Staying("last=9", {Of(10), Of(30)}), ElementsAre(30, 10));
  EXPECT_THAT(Staying("last=1", {}), IsEmpty());
}

TEST(RetentionTest, TheNewestOfEachOfTheLastPeriodsThatHaveOneStays) {
  const std::int64_t a = At(2026, 11, 22, 18, 59);
  const std::int64_t b = At(2026, 11, 22, 18, 0);
  const std::int64_t c = At(2026, 11, 22, 17, 59);
  const std::int64_t d = At(2026, 11, 20, 3, 0);
  EXPECT_THAT(Staying("hourly=2", {Of(a), Of(b), Of(c), Of(d)}), ElementsAre(a, c));
  EXPECT_THAT(Staying("hourly=3", {Of(a), Of(b), Of(c), Of(d)}), ElementsAre(a, c, d))
      << "an hour without one does not count";
  EXPECT_THAT(Staying("daily=2", {Of(a), Of(b), Of(c), Of(d)}), ElementsAre(a, d));
}

TEST(RetentionTest, AWeekBeginsOnMonday) {
  const std::int64_t sunday = At(2026, 11, 22, 23, 59);
  const std::int64_t monday = At(2026, 11, 16);
  const std::int64_t before = At(2026, 11, 15, 23, 59);
  EXPECT_THAT(Staying("weekly=5", {Of(sunday), Of(monday), Of(before)}),
              ElementsAre(sunday, before));
  EXPECT_THAT(Staying("weekly=5", {Of(At(1970, 1, 4)), Of(At(1970, 1, 1)), Of(At(1970, 1, 5))}),
              ElementsAre(At(1970, 1, 5), At(1970, 1, 4)));
}

TEST(RetentionTest, MonthsOfDifferentYearsAreDifferent) {
  const std::int64_t now = At(2026, 11, 1);
  const std::int64_t same = At(2026, 11, 1) - 1;
  const std::int64_t old = At(2025, 11, 30, 23);
  EXPECT_THAT(Staying("monthly=3", {Of(old), Of(now), Of(same)}), ElementsAre(now, same, old));
}

TEST(RetentionTest, KindsAddUpAndEachSaysWhy) {
  const std::int64_t newest = At(2026, 11, 22, 18, 30);
  const std::int64_t other = At(2026, 11, 22, 8);
  const auto verdicts =
      Judge(ParseKeep("last=1,hourly=1,daily=1,weekly=1,monthly=1"), {Of(other), Of(newest)});
  ASSERT_EQ(verdicts.size(), 2U);
  EXPECT_THAT(verdicts[0].reasons,
              ElementsAre("last", "hourly (2026-11-22 18:00)", "daily (2026-11-22)",
                          "weekly (the week from 2026-11-16)", "monthly (2026-11)"));
  EXPECT_FALSE(verdicts[1].stays);
  EXPECT_THAT(verdicts[1].reasons, IsEmpty());
}

TEST(RetentionTest, WhatIsClaimedStaysAndCountsForTheRule) {
  const auto verdicts = Judge(ParseKeep("last=1"), {Of(10, {"locked"}), Of(20), Of(30, {"held"})});
  ASSERT_EQ(verdicts.size(), 3U);
  EXPECT_THAT(verdicts[0].reasons, ElementsAre("held", "last"));
  EXPECT_FALSE(verdicts[1].stays);
  EXPECT_THAT(verdicts[2].reasons, ElementsAre("locked"));
}

TEST(RetentionTest, OneTimeTwiceIsToldApartByTheIdentifier) {
  const auto verdicts = Judge(ParseKeep("daily=1"), {{"a", 5, {}}, {"b", 5, {}}});
  EXPECT_EQ(verdicts[0].id, "b");
  EXPECT_TRUE(verdicts[0].stays);
  EXPECT_FALSE(verdicts[1].stays);
}

TEST(RetentionTest, AYearOfHoursIsJudgedByWhatThereIs) {
  std::vector<Candidate> hours;
  for (std::int64_t hour = 0; hour < 8760; ++hour)
    hours.push_back(Of(At(2025, 1, 1) + hour * 3600));
  // The last 24 hours; of 30 days 29 more; of 8 weeks the Sundays of November that are among them;
  // of 12 months those before November.
  std::size_t stay = 0;
  for (const Verdict& each : Judge(ParseKeep("hourly=24,daily=30,weekly=8,monthly=12"), hours)) {
    stay += each.stays ? 1U : 0U;
  }
  EXPECT_EQ(stay, 24U + 29U + 3U + 10U);
}

}  // namespace
}  // namespace drgroupctl
