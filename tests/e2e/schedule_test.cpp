#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <sstream>

#include "plan_fixture.h"

// What is done with groups by the calendar.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using host_test::ReadFile;
using host_test::WriteFile;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class ScheduleTest : public PlanTest {
 protected:
  std::string MarkPath(const std::string& group, const std::string& kind) const {
    return GroupDirectory(group) + "/schedule." + kind + ".json";
  }
  Json::Value Mark(const std::string& group, const std::string& kind) const {
    Result file;
    file.out = ReadFile(MarkPath(group, kind));
    return file.Json();
  }
  // As if the last run had been at that time, and the next one due at the other.
  void SetMark(const std::string& group, const std::string& kind, long last, long next) const {
    WriteFile(MarkPath(group, kind), R"({"calendar":"hourly","last":)" + std::to_string(last) +
                                         R"(,"next":)" + std::to_string(next) + "}\n");
  }
  // Three elapses were missed.
  void MakeDue(const std::string& group, const std::string& kind) const {
    const long now = std::time(nullptr);
    SetMark(group, kind, now - 4 * 3600, now - 3 * 3600);
  }
  static Json::Value Show(const std::string& group = "g") {
    return RunWell({"schedule", "show", group, "--json"}).Json()["schedule"];
  }
  static Json::Value RunDue(std::vector<std::string> words = {}) {
    words.insert(words.begin(), {"schedule", "run", "--json"});
    return RunWell(words).Json()["runs"];
  }
};

INSTANTIATE_TEST_SUITE_P(Volumes, ScheduleTest, testing::Values("directory"), ScheduleTest::NameOf);

TEST_P(ScheduleTest, AScheduleIsSetShownChangedAndTakenAway) {
  MakeGroup();
  EXPECT_THAT(Show(), IsEmpty());
  RunWell({"schedule", "set", "g", "--snapshot", "hourly", "--prune", "daily"});
  RunWell({"schedule", "set", "g", "--sync", "*:0/15"});
  RunWell({"group", "rename", "g", "h"});
  const Json::Value shown = Show("h");
  ASSERT_EQ(shown.size(), 3U);
  EXPECT_THAT(shown[0].getMemberNames(),
              ElementsAre("calendar", "group_id", "kind", "last_message", "last_result",
                          "last_time", "next_time", "note"));
  EXPECT_EQ(shown[1]["kind"], "sync");
  EXPECT_EQ(shown[1]["calendar"], "*:0/15");
  const long wait = shown[1]["next_time"].asInt64() - std::time(nullptr);
  EXPECT_GE(wait, -1);
  EXPECT_LE(wait, 900);
  EXPECT_EQ(shown[1]["next_time"].asInt64() % 900, 0);
  EXPECT_TRUE(shown[1]["last_time"].isNull());
  RunWell({"schedule", "remove", "h", "--sync"});
  EXPECT_EQ(Show("h").size(), 2U);
  EXPECT_THAT(RunWell({"schedule", "remove", "h"}).out, HasSubstr("Nothing is done"));
  EXPECT_THAT(ReadFile(GroupDirectory("g") + "/group.json"), testing::Not(HasSubstr("schedule")));
  RunWell({"schedule", "set", "h", "--snapshot", "hourly"});
  RunWell({"group", "delete", "h", "--yes"});
  EXPECT_FALSE(fs::exists(GroupDirectory("g"))) << "nothing is left of the schedule";
}

TEST_P(ScheduleTest, WhatWasMissedIsMadeUpOnce) {
  MakeGroup();
  RunWell({"schedule", "set", "g", "--snapshot", "hourly"});
  EXPECT_THAT(RunDue(), IsEmpty()) << "what elapsed before does not count";
  MakeDue("g", "snapshot");
  EXPECT_THAT(Show()[0]["note"].asString(), HasSubstr("overdue by 3h"));
  const Json::Value runs = RunDue();
  ASSERT_EQ(runs.size(), 1U);
  EXPECT_EQ(runs[0]["kind"], "snapshot");
  EXPECT_EQ(runs[0]["result"], "done");
  EXPECT_EQ(ListSnapshots().size(), 1U);
  EXPECT_THAT(RunDue(), IsEmpty());
  EXPECT_EQ(ListSnapshots().size(), 1U);
  EXPECT_EQ(Show()[0]["last_result"], "done");
  EXPECT_GT(Show()[0]["next_time"].asInt64(), std::time(nullptr) - 1);
  EXPECT_THAT(RunWell({"history", "g"}).out, HasSubstr("snapshot"));
}

TEST_P(ScheduleTest, EachKindIsRunByItsOwnCalendar) {
  MakeGroup();
  RunWell({"protect", "g", "--volume", "v2"});
  RunWell({"group", "retention", "g", "--keep", "last=1"});
  for (int i = 0; i < 2; ++i) TakeSnapshot();
  RunWell(
      {"schedule", "set", "g", "--snapshot", "hourly", "--sync", "hourly", "--prune", "hourly"});
  MakeDue("g", "sync");
  MakeDue("g", "prune");
  EXPECT_EQ(RunDue({"g"}).size(), 2U);
  EXPECT_EQ(ListSnapshots().size(), 1U);
  EXPECT_EQ(LastArrivedContents(), MainContents());
  MakeDue("g", "snapshot");
  EXPECT_EQ(RunDue({"g", "--kind", "snapshot"}).size(), 1U);
  EXPECT_EQ(ListSnapshots().size(), 2U);
}

TEST_P(ScheduleTest, WhereTheCopiesDoNotWorkItIsPassedOver) {
  MakeGroup();
  RunWell({"protect", "g", "--volume", "v2", "--dr-group", "gd"});
  RunWell({"sync", "g"});
  RunWell({"schedule", "set", "gd", "--snapshot", "hourly"});
  MakeDue("gd", "snapshot");
  const Json::Value runs = RunDue();
  ASSERT_EQ(runs.size(), 1U);
  EXPECT_EQ(runs[0]["result"], "skipped");
  EXPECT_THAT(Show("gd")[0]["note"].asString(), HasSubstr("does not work"));
  EXPECT_THAT(ListSnapshots("gd"), IsEmpty());
  RunWell({"switchover", "g"});
  EXPECT_EQ(Show("gd")[0]["note"], "");
  MakeDue("gd", "snapshot");
  EXPECT_EQ(RunDue()[0]["result"], "done");
  EXPECT_EQ(ListSnapshots("gd").size(), 1U);
}

TEST_P(ScheduleTest, AGroupThatFailsKeepsNoOtherFromItsTurn) {
  MakeGroup();
  RunWell({"protect", "g", "--volume", "v2"});
  RunWell({"target", "create", "own", "--volume", "v1", "--type", "share"});
  RunWell({"group", "create", "z", "--target", "own"});
  RunWell({"schedule", "set", "g", "--sync", "hourly"});
  RunWell({"schedule", "set", "z", "--snapshot", "hourly"});
  RunWell({"group", "create", "a", "--target", "own"});
  WriteFile(GroupDirectory("a") + "/group.json", "spoilt");
  MakeDue("g", "sync");
  MakeDue("z", "snapshot");
  LoseVolume("v2");
  const Result result = Run({"schedule", "run", "--json"});
  BringVolumeBack("v2");
  EXPECT_EQ(result.code, kStorage) << "the largest of 5, 8 and 0";
  EXPECT_EQ(result.Json()["runs"].size(), 3U);
  EXPECT_EQ(ListSnapshots("z").size(), 1U);
  EXPECT_EQ(Show()[0]["last_result"], "failed");
  EXPECT_THAT(Show()[0]["last_message"].asString(), HasSubstr("\"v2\""));
}

TEST_P(ScheduleTest, AClockThatWasPutBackRunsNothingTwiceAndStopsNothingForLong) {
  MakeGroup();
  RunWell({"schedule", "set", "g", "--snapshot", "hourly"});
  const long now = std::time(nullptr);
  const long elapse = (now / 3600 + 1) * 3600;
  SetMark("g", "snapshot", elapse + 5, elapse + 3600);  // the coming one was run already
  EXPECT_THAT(RunDue(), IsEmpty());
  EXPECT_EQ(Mark("g", "snapshot")["last"], Json::Int64(elapse + 5));
  EXPECT_THAT(Show()[0]["note"].asString(), HasSubstr("ahead of this host's clock"));
  SetMark("g", "snapshot", now + 365L * 86400, now + 366L * 86400);
  EXPECT_THAT(RunDue(), IsEmpty());
  EXPECT_LE(Mark("g", "snapshot")["last"].asInt64(), std::time(nullptr));
  EXPECT_LE(Mark("g", "snapshot")["next"].asInt64(), std::time(nullptr) + 3600);
  // One that is due by a clock of the future is not run by it.
  SetMark("g", "snapshot", now + 365L * 86400, now - 60);
  EXPECT_THAT(RunDue(), IsEmpty());
  EXPECT_THAT(ListSnapshots(), IsEmpty());
}

TEST_P(ScheduleTest, WhatStillRunsIsNotStartedAgain) {
  MakeGroup();
  RunWell({"schedule", "set", "g", "--snapshot", "hourly"});
  MakeDue("g", "snapshot");
  const int fd = open((GroupDirectory("g") + "/schedule.lock").c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_NE(fd, -1);
  struct flock range = {};
  range.l_type = F_WRLCK;
  range.l_whence = SEEK_SET;
  range.l_len = 1;
  ASSERT_EQ(fcntl(fd, F_OFD_SETLK, &range), 0);
  EXPECT_THAT(RunDue(), IsEmpty());
  EXPECT_EQ(RunDue({"g", "--kind", "snapshot"})[0]["result"], "running");
  EXPECT_THAT(ListSnapshots(), IsEmpty());
  close(fd);
  EXPECT_EQ(RunDue().size(), 1U);
}

TEST_P(ScheduleTest, ARunThatWasKilledIsInterruptedAndNotRepeatedForTheSameTime) {
  MakeGroup();
  RunWell({"schedule", "set", "g", "--snapshot", "hourly"});
  MakeDue("g", "snapshot");
  ASSERT_TRUE(RunKilledAt("cut.taken", {"schedule", "run", "g", "--kind", "snapshot"}));
  EXPECT_EQ(Show()[0]["last_result"], "interrupted");
  EXPECT_THAT(RunDue(), IsEmpty());
  MakeDue("g", "snapshot");
  EXPECT_EQ(RunDue()[0]["result"], "done");
}

TEST_P(ScheduleTest, WhatIsNoCalendarIsRefused) {
  MakeGroup();
  RunBadly(kUsage, {"schedule", "set", "g", "--snapshot", "every now and then"},
           {"\"every now and then\"", "systemd.time"});
  RunBadly(kUsage, {"schedule", "set", "g", "--sync", ""}, {"\"\""});
  RunBadly(kUsage, {"schedule", "set", "g", "--sync", "2001-01-01"}, {"nothing to come"});
  RunBadly(kUsage, {"schedule", "set", "g"}, {"--snapshot, --sync or --prune"});
  RunBadly(kUsage, {"schedule", "run", "--kind", "sync"}, {"name the GROUP"});
  RunBadly(kUsage, {"schedule", "run", "g", "--kind", "nap"}, {"\"nap\""});
  RunBadly(kRefused, {"schedule", "run", "g", "--kind", "sync"}, {"no schedule", "schedule set"});
  RunBadly(kNotFound, {"schedule", "set", "nobody", "--sync", "daily"}, {"\"nobody\""});
  EXPECT_THAT(Show(), IsEmpty());
  WriteFile(GroupDirectory("g") + "/group.json",
            R"({"group_id":"g","targets":[{"target_id":"lun","target_type":1}],)"
            R"("schedule":{"nap":"daily"}})");
  RunBadly(kCatalogue, {"schedule", "show", "g"}, {"\"schedule\"", "\"nap\""});
}

TEST_P(ScheduleTest, WithoutTheProgramThatKnowsCalendarsItsPackageIsNamed) {
  MakeGroup();
  const std::string path = std::getenv("PATH");
  setenv("PATH", "/nonexistent", 1);
  RunBadly(kConfiguration, {"schedule", "set", "g", "--snapshot", "hourly"},
           {"systemd-analyze", "package systemd"});
  setenv("PATH", path.c_str(), 1);
}

TEST_P(ScheduleTest, AMarkThatCannotBeReadIsToldAndRunsNothing) {
  MakeGroup();
  RunWell({"schedule", "set", "g", "--snapshot", "hourly"});
  WriteFile(MarkPath("g", "snapshot"), "spoilt");
  const Result result = Run({"schedule", "run"});
  EXPECT_EQ(result.code, kCatalogue);
  EXPECT_THAT(result.err, AllOf(HasSubstr("schedule.snapshot.json"), HasSubstr("remove it")));
  EXPECT_THAT(Show()[0]["note"].asString(), HasSubstr("remove it"));
  EXPECT_THAT(ListSnapshots(), IsEmpty());
}

// The units, with the tool of this build in the place of the installed one.
TEST_P(ScheduleTest, TheUnitsAreSoundAndWhatTheyStartRuns) {
  const std::string service = ReadFile(DRGROUPCTL_SCHEDULE_SERVICE);
  const std::size_t at = service.find("ExecStart=") + 10;
  std::istringstream line(service.substr(at, service.find('\n', at) - at));
  std::vector<std::string> words;
  for (std::string word; line >> word;) words.push_back(word);
  ASSERT_GT(words.size(), 1U);
  EXPECT_THAT(words[0], testing::EndsWith("/bin/drgroupctl"));
  std::string own = service;
  own.replace(at, words[0].size(), DRGROUPCTL);
  WriteFile(Root() + "/drgroupctl-schedule.service", own);
  fs::copy(DRGROUPCTL_SCHEDULE_TIMER, Root() + "/drgroupctl-schedule.timer");
  const Result verdict =
      Process({"systemd-analyze", "verify", "--man=no", Root() + "/drgroupctl-schedule.service",
               Root() + "/drgroupctl-schedule.timer"})
          .Wait();
  EXPECT_EQ(verdict.code, 0) << verdict.err;
  EXPECT_THAT(verdict.err, testing::Not(HasSubstr("drgroupctl-schedule")));

  MakeGroup();
  RunWell({"schedule", "set", "g", "--snapshot", "hourly"});
  MakeDue("g", "snapshot");
  words[0] = DRGROUPCTL;
  const Result result = Process(words).Wait();
  EXPECT_EQ(result.code, kDone) << result.err;
  EXPECT_EQ(ListSnapshots().size(), 1U);
}

}  // namespace
}  // namespace e2e
