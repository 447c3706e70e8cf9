#include <filesystem>

#include "paused_shipment.h"
#include "plan_fixture.h"

// What was done with a group, as its history tells it.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using host_test::ReadFile;
using host_test::WriteFile;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class HistoryTest : public PlanTest {
 protected:
  static Json::Value Runs(std::vector<std::string> words = {"g"}) {
    words.insert(words.begin(), "history");
    words.emplace_back("--json");
    return RunWell(words).Json()["runs"];
  }
  // "sync done", the newest first.
  static std::vector<std::string> Texts(const Json::Value& runs) {
    std::vector<std::string> texts;
    for (const Json::Value& each : runs) {
      texts.push_back(each["kind"].asString() + " " + each["result"].asString());
    }
    return texts;
  }
  std::string HistoryOf(const std::string& group) const {
    return GroupDirectory(group) + "/history.db";
  }
  // A wrong configuration of a volume: everything that needs it fails.
  void FailSync() {
    LoseVolume("v2");
    EXPECT_NE(Run({"sync", "g"}).code, kDone);
    BringVolumeBack("v2");
  }
};

INSTANTIATE_TEST_SUITE_P(Volumes, HistoryTest, testing::Values("directory"), HistoryTest::NameOf);

TEST_P(HistoryTest, WhatWasDoneIsToldTheNewestFirst) {
  MakeGroup();
  EXPECT_THAT(Runs(), IsEmpty());
  const std::string gsnap = TakeSnapshot();
  RunWell({"protect", "g", "--volume", "v2"});
  RunWell({"sync", "g"});
  RunWell({"switchover", "g"});
  RunWell({"failover", "g", "--yes"});
  RunWell({"action", "run", "reprotect", "g"});
  RunWell({"unprotect", "g", "--yes"});
  RunWell({"snapshot", "restore", gsnap, "--yes"});
  RunWell({"snapshot", "delete", gsnap, "--yes"});
  const Json::Value runs = Runs();
  EXPECT_THAT(Texts(runs), ElementsAre("delete done", "restore done", "unprotect done",
                                       "reprotect done", "failover done", "switchover done",
                                       "sync done", "protect done", "snapshot done"));
  EXPECT_THAT(runs[0].getMemberNames(),
              ElementsAre("begin_time", "duration_ms", "duration_seconds", "exit_code", "group_id",
                          "gsnap_id", "kind", "lag_seconds", "message", "result", "sent_bytes",
                          "sent_text"));
  EXPECT_EQ(runs[8]["gsnap_id"], gsnap);
  EXPECT_EQ(runs[1]["gsnap_id"], gsnap);
  EXPECT_GT(runs[6]["sent_bytes"].asInt64(), 0);
  EXPECT_LT(runs[6]["lag_seconds"].asInt64(), 60);
  EXPECT_TRUE(runs[8]["sent_bytes"].isNull());
  EXPECT_GT(runs[8]["duration_ms"].asInt64(), 0);
  EXPECT_THAT(RunWell({"history", "g", "--last", "3"}).out,
              AllOf(HasSubstr("BEGAN"), HasSubstr("unprotect"), Not(HasSubstr("switchover"))));
}

TEST_P(HistoryTest, AFailureIsToldWithItsMessage) {
  MakeGroup();
  RunWell({"protect", "g", "--volume", "v2"});
  FailSync();
  RunWell({"sync", "g"});
  const Json::Value failed = Runs({"g", "--failed"});
  ASSERT_EQ(failed.size(), 1U);
  EXPECT_EQ(failed[0]["kind"], "sync");
  EXPECT_EQ(failed[0]["result"], "failed");
  EXPECT_EQ(failed[0]["exit_code"], kStorage);
  EXPECT_THAT(failed[0]["message"].asString(), HasSubstr("\"v2\""));
  EXPECT_THAT(Texts(Runs()), ElementsAre("sync done", "sync failed", "protect done"));
}

TEST_P(HistoryTest, WhatWasNotBegunIsNoRun) {
  MakeGroup();
  const std::string gsnap = TakeSnapshot();
  RunBadly(kUsage, {"sync", "g", "--lock"}, {"--dr-group"});
  RunBadly(kRefused, {"snapshot", "delete", gsnap}, {"--yes"});
  RunWell({"protect", "g", "--volume", "v2", "--dry-run"});
  RunWell({"snapshot", "prune", "g", "--keep", "last=1", "--explain"});
  RunWell({"protect", "g", "--volume", "v2"});
  RunWell({"action", "run", "can_sync", "g"});
  EXPECT_THAT(Texts(Runs()), ElementsAre("protect done", "snapshot done"));
}

TEST_P(HistoryTest, ARunWhoseProcessDiedIsInterruptedAndOneThatLivesRuns) {
  MakeGroup();
  RunWell({"protect", "g", "--volume", "v2"});
  ASSERT_TRUE(RunKilledAt("sync.shipped", {"sync", "g"}));
  EXPECT_THAT(Texts(Runs()), ElementsAre("sync interrupted", "protect done"));
  EXPECT_THAT(Texts(Runs({"g", "--failed"})), ElementsAre("sync interrupted"));
  RunWell({"sync", "g"});
  EXPECT_THAT(Texts(Runs()), ElementsAre("sync done", "sync interrupted", "protect done"));
}

TEST_P(HistoryTest, ItGoesWithTheGroupWhenThatIsRenamedAndDeleted) {
  MakeGroup();
  const std::string gsnap = TakeSnapshot();
  RunWell({"group", "rename", "g", "h"});
  EXPECT_THAT(Texts(Runs({"h"})), ElementsAre("snapshot done"));
  EXPECT_EQ(Runs({"h"})[0]["group_id"], "h");
  RunWell({"group", "delete", "h", "--force", "--yes"});
  EXPECT_FALSE(fs::exists(GroupDirectory("g")));
}

TEST_P(HistoryTest, ThoseOfAllGroupsAreToldTogether) {
  MakeGroup();
  RunWell({"group", "create", "other", "--target", "lun"});
  TakeSnapshot();
  RunWell({"snapshot", "create", "other"});
  const Json::Value runs = Runs({});
  ASSERT_EQ(runs.size(), 2U);
  WriteFile(HistoryOf("other"), "spoilt");
  const Result result = Run({"history"});
  EXPECT_EQ(result.code, kDone);
  EXPECT_THAT(result.err, AllOf(HasSubstr("cannot read the history"), HasSubstr("other")));
  EXPECT_THAT(result.out, HasSubstr("snapshot"));
  RunBadly(kCatalogue, {"history", "other"}, {"cannot read the history", "move it away"});
}

// A database that is none, and a directory in its place.
TEST_P(HistoryTest, ARunIsDoneThoughItCannotBeRecorded) {
  MakeGroup();
  WriteFile(HistoryOf("g"), "spoilt");
  Result result = Run({"snapshot", "create", "g", "--json"});
  EXPECT_EQ(result.code, kDone);
  EXPECT_THAT(result.err, HasSubstr("the history of group \"g\" does not have this"));
  EXPECT_THAT(result.Json()["warnings"][1].asString(), HasSubstr("history.db"));
  fs::remove(HistoryOf("g"));
  fs::create_directory(HistoryOf("g"));
  result = Run({"snapshot", "create", "g"});
  EXPECT_EQ(result.code, kDone);
  EXPECT_THAT(result.err, HasSubstr("does not have this"));
  EXPECT_EQ(ListSnapshots().size(), 2U);
}

TEST_P(HistoryTest, TheNewestStayAndTheLastOfEachKindWithEachResult) {
  MakeGroup();
  TakeSnapshot();
  RunSql(HistoryOf("g"),
         "INSERT INTO runs (kind, begin_time, result) VALUES ('sync', 1000, 1), ('sync', 2000, 1),"
         " ('prune', 2000, 0);"
         "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 12000)"
         "INSERT INTO runs (kind, begin_time, result, duration_ms)"
         " SELECT 'snapshot', strftime('%s', 'now'), 0, 5 FROM n");
  TakeSnapshot();
  const Json::Value runs = Runs({"g", "--last", "20000"});
  EXPECT_EQ(runs.size(), 10002U);
  EXPECT_THAT(Texts(Runs({"g", "--failed"})), ElementsAre("sync failed"));
  EXPECT_EQ(Runs({"g", "--failed"})[0]["begin_time"], 2000);
}

TEST_P(HistoryTest, MonitorsGetTheLastRunOfEachKind) {
  MakeGroup();
  RunWell({"protect", "g", "--volume", "v2"});
  RunWell({"sync", "g"});
  FailSync();
  const std::string text = RunWell({"metrics"}).out;
  EXPECT_THAT(text, HasSubstr("drgroup_last_run_problem{group=\"g\",kind=\"sync\"} 1\n"));
  EXPECT_THAT(text, HasSubstr("drgroup_last_run_problem{group=\"g\",kind=\"protect\"} 0\n"));
  EXPECT_THAT(text, HasSubstr("drgroup_last_success_timestamp_seconds{group=\"g\",kind=\"sync\"}"));
  EXPECT_THAT(text, HasSubstr("drgroup_last_success_sent_bytes{group=\"g\",kind=\"sync\"}"));
}

TEST_P(HistoryTest, ABadNumberOfRunsIsRefused) {
  MakeGroup();
  for (const char* each : {"0", "-1", "many", "3x", ""}) {
    RunBadly(kUsage, {"history", "g", "--last", each}, {"--last"});
  }
  RunBadly(kNotFound, {"history", "nobody"}, {"\"nobody\""});
}

}  // namespace
}  // namespace e2e
