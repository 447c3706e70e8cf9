#include <filesystem>

#include "earlier_records.h"
#include "tool_fixture.h"

// Bringing catalogues and the host's records to the current schema.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

class UpgradeTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    RunWell({"target", "create", "share", "--volume", "v1", "--type", "share"});
    for (const char* group : {"g", "h"}) {
      RunWell({"group", "create", group, "--target", "share"});
      RunWell({"snapshot", "create", group});
      // As the first schema has it.
      RunSql(DatabaseOf(group),
             "DROP INDEX gsnap_meta_gsnap_time; DROP INDEX target_snap_list_tsnap_id; "
             "ALTER TABLE gsnap_meta DROP COLUMN minor_id; "
             "UPDATE vreldrcore_db_info SET value = 1 WHERE key = 'version'");
    }
  }
  // Fails unless every row has the new column's default.
  static void ExpectCurrent(const std::string& database) {
    RunSql(database,
           "CREATE TEMP TABLE checked (ok CHECK (ok)); "
           "INSERT INTO checked SELECT minor_id = 1 FROM gsnap_meta; "
           "INSERT INTO checked SELECT count(*) > 0 FROM gsnap_meta; "
           "INSERT INTO checked SELECT value = 3 FROM vreldrcore_db_info WHERE key = 'version'; "
           "INSERT INTO checked SELECT count(*) = 2 FROM sqlite_master WHERE type = 'index' "
           "AND name IN ('gsnap_meta_gsnap_time', 'target_snap_list_tsnap_id')");
  }
};

TEST_F(UpgradeTest, AllGroupsAreUpgradedWhenNoneIsNamed) {
  const Json::Value report = RunWell({"group", "upgrade", "--json"}).Json();
  EXPECT_THAT(report.getMemberNames(), ElementsAre("groups"));
  ASSERT_EQ(report["groups"].size(), 2U);
  for (const Json::Value& each : report["groups"]) {
    EXPECT_THAT(each.getMemberNames(), ElementsAre("group_id", "problem", "result"));
    EXPECT_EQ(each["result"], "done");
  }
  ExpectCurrent(DatabaseOf("g"));
  ExpectCurrent(DatabaseOf("h"));
  RunWell({"group", "upgrade", "g", "h"});
  EXPECT_EQ(ListSnapshots().size(), 1U);
}

TEST_F(UpgradeTest, AValueThatIsThereStays) {
  RunWell({"group", "upgrade", "g"});
  RunSql(DatabaseOf("g"), "UPDATE gsnap_meta SET minor_id = 0");
  const auto before = Tree(GroupDirectory("g"));
  RunWell({"group", "upgrade", "g"});
  EXPECT_EQ(Tree(GroupDirectory("g")).at("drgroup.db"), before.at("drgroup.db"));
}

TEST_F(UpgradeTest, OneGroupsFailureDoesNotStopTheOthers) {
  fs::remove(DatabaseOf("g"));
  const Result result = Run({"group", "upgrade", "--json"});
  EXPECT_EQ(result.code, kCatalogue) << result.err;
  EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << result.err;
  const Json::Value error = result.Json()["error"];
  EXPECT_THAT(error["message"].asString(), HasSubstr("of 2 groups 1 could be upgraded"));
  ASSERT_EQ(error["groups"].size(), 2U);
  EXPECT_EQ(error["groups"][0]["result"], "failed");
  EXPECT_EQ(error["groups"][1]["result"], "done");
  ExpectCurrent(DatabaseOf("h"));
  EXPECT_FALSE(fs::exists(DatabaseOf("g"))) << "a lost catalogue is not made anew";
  RunBadly(kCatalogue, {"group", "upgrade", "g"}, {"\"g\"", DatabaseOf("g"), "missing"});
  RunBadly(kNotFound, {"group", "upgrade", "x"}, {"\"x\""});
}

class RecordsUpgradeTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    WriteConfiguration({"v1", "v2"});
    MakeGroup();
    RunWell({"protect", "g", "--volume", "v2", "--dr-group", "gd"});
    RunWell({"sync", "g"});
  }
  std::string Records() const { return Root() + "/state/replica.db"; }
};

TEST_F(RecordsUpgradeTest, ThePlansOfAnEarlierHostGoOnWithTheFirstCommand) {
  const std::string plans = RunWell({"plan", "list", "--json"}).out;
  RunSql(Records(),
         std::string("BEGIN;") + test_support::kBackToVersion6 +
             "DROP TABLE cuts; DROP INDEX snapshots_by_cut; "
             "ALTER TABLE snapshots DROP COLUMN cut_id; ALTER TABLE targets DROP COLUMN locator;"
             "UPDATE vreldrcore_db_info SET value = '3' WHERE key = 'version'; COMMIT");
  EXPECT_EQ(RunWell({"plan", "list", "--json"}).out, plans);
  RunWell({"sync", "g"});
  RunWell({"switchover", "g"});
  RunWell({"target", "create", "late", "--volume", "v1", "--type", "share"});
  RunSql(Records(),
         "CREATE TEMP TABLE checked (ok CHECK (ok)); "
         "INSERT INTO checked SELECT count(*) = 7 AND min(locator = id) FROM targets; "
         "INSERT INTO checked SELECT value = 8 FROM vreldrcore_db_info WHERE key = 'version'");
}

TEST_F(RecordsUpgradeTest, RecordsOfALaterProgramAreRefusedAndLeftAlone) {
  RunSql(Records(), "UPDATE vreldrcore_db_info SET value = '9' WHERE key = 'version'");
  const auto before = Tree(Root());
  for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
           {"target", "list"}, {"plan", "list"}, {"snapshot", "create", "g"}}) {
    RunBadly(kStorage, words, {Records(), "version 9"});
  }
  EXPECT_EQ(Tree(Root()), before);
}

}  // namespace
}  // namespace e2e
