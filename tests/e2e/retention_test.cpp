#include <filesystem>

#include "plan_fixture.h"

// Which group snapshots stay when a group is pruned by a rule.

namespace e2e {
namespace {

using host_test::ReadFile;
using host_test::WriteFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class RetentionTest : public PlanTest {
 protected:
  std::vector<std::string> TakeSnapshots(int count) const {
    std::vector<std::string> ids;
    for (int i = 0; i < count; ++i) ids.push_back(TakeSnapshot());
    return ids;
  }
  static Json::Value VerdictOn(const std::string& gsnapId, const Json::Value& report) {
    for (const Json::Value& each : report["verdicts"]) {
      if (each["gsnap_id"] == gsnapId) return each;
    }
    return {};
  }
  static Json::Value Explain(const std::string& rule) {
    return RunWell({"snapshot", "prune", "g", "--keep", rule, "--explain", "--json"}).Json();
  }
};

INSTANTIATE_TEST_SUITE_P(Volumes, RetentionTest, testing::Values("directory"),
                         RetentionTest::NameOf);

TEST_P(RetentionTest, ARuleIsKeptShownAndTakenAway) {
  MakeGroup();
  EXPECT_THAT(RunWell({"group", "retention", "g"}).out, HasSubstr("Every group snapshot stays"));
  RunWell({"group", "retention", "g", "--keep", "daily=3,last=2"});
  EXPECT_EQ(RunWell({"group", "retention", "g", "--json"}).Json()["keep"], "last=2,daily=3");
  EXPECT_THAT(RunWell({"group", "show", "g"}).out, HasSubstr("last=2,daily=3"));
  RunWell({"group", "rename", "g", "h"});
  EXPECT_EQ(RunWell({"group", "retention", "h", "--json"}).Json()["keep"], "last=2,daily=3");
  RunBadly(kUsage, {"group", "retention", "h", "--keep", "all"}, {"\"all\"", "last=24"});
  RunBadly(kUsage, {"group", "retention", "h", "--keep", "last=1", "--none"}, {"give one of them"});
  RunWell({"group", "retention", "h", "--none"});
  EXPECT_THAT(ReadFile(GroupDirectory("g") + "/group.json"), Not(HasSubstr("keep")));
  WriteFile(GroupDirectory("g") + "/group.json",
            R"({"group_id":"h","targets":[{"target_id":"lun","target_type":1}],"keep":"forever"})"
            "\n");
  RunBadly(kCatalogue, {"group", "retention", "h"}, {"\"keep\"", "\"forever\""});
}

TEST_P(RetentionTest, WhatTheRuleDoesNotKeepGoesWithItsTargetSnapshots) {
  MakeGroup();
  const std::vector<std::string> ids = TakeSnapshots(4);
  const auto paths = SnapshotPaths(ids[1]);
  const Json::Value told = Explain("last=2");
  EXPECT_EQ(VerdictOn(ids[3], told)["reasons"][0], "last");
  EXPECT_EQ(VerdictOn(ids[1], told)["stays"], false);
  EXPECT_EQ(VerdictOn(ids[1], told)["reasons"].size(), 0U);
  EXPECT_EQ(told["deleted_by_rule_count"], 0);
  EXPECT_THAT(RunWell({"snapshot", "prune", "g", "--keep", "last=2", "--dry-run"}).out,
              HasSubstr("by its rule 2 group snapshots"));
  EXPECT_EQ(ListSnapshots().size(), 4U);
  RunBadly(kRefused, {"snapshot", "prune", "g", "--keep", "last=2"}, {"--yes"});

  RunWell({"group", "retention", "g", "--keep", "last=2"});
  const Json::Value report = RunWell({"snapshot", "prune", "g", "--yes", "--json"}).Json();
  EXPECT_EQ(report["deleted_by_rule_count"], 2);
  EXPECT_EQ(report["keep"], "last=2");
  EXPECT_THAT(ListSnapshots(), ElementsAre(ids[2], ids[3]));
  for (const auto& each : paths) EXPECT_FALSE(std::filesystem::exists(each.second)) << each.second;
  EXPECT_EQ(RunWell({"snapshot", "prune", "g", "--json"}).Json()["deleted_by_rule_count"], 0)
      << "nothing is left to be asked about";
}

TEST_P(RetentionTest, WhatIsLockedOrWaitsToBeSentStays) {
  MakeGroup();
  const std::vector<std::string> ids = TakeSnapshots(4);
  RunWell({"snapshot", "edit", ids[0], "--lock"});
  RunWell({"protect", "g", "--volume", "v2"});
  RunWell({"snapshot", "ship", ids[1]});
  const Json::Value told = Explain("last=1");
  EXPECT_EQ(VerdictOn(ids[0], told)["reasons"][0], "it is locked");
  EXPECT_THAT(VerdictOn(ids[1], told)["reasons"][0].asString(), HasSubstr("waits to be sent"));
  EXPECT_EQ(VerdictOn(ids[2], told)["stays"], false);
  RunWell({"snapshot", "prune", "g", "--keep", "last=1", "--yes"});
  EXPECT_THAT(ListSnapshots(), ElementsAre(ids[0], ids[1], ids[3]));
}

TEST_P(RetentionTest, TheNewestCutThatBothSidesHaveStaysOnBoth) {
  MakeGroup();
  RunWell({"protect", "g", "--volume", "v2", "--dr-group", "gd"});
  RunWell({"sync", "g", "--dr-group", "gd"});
  RunWell({"sync", "g", "--dr-group", "gd"});
  const std::string shared = ListSnapshots().back();
  const std::string own = TakeSnapshot();
  EXPECT_THAT(VerdictOn(shared, Explain("last=1"))["reasons"][0].asString(),
              HasSubstr("is held by plan"));
  RunWell({"snapshot", "prune", "g", "--keep", "last=1", "--yes"});
  EXPECT_THAT(ListSnapshots(), ElementsAre(shared, own));
  RunWell({"snapshot", "prune", "gd", "--keep", "last=1", "--yes"});
  EXPECT_EQ(RunWell({"snapshot", "list", "gd", "--json"}).Json()["snapshots"].size(), 1U);
  RunWell({"sync", "g", "--dr-group", "gd"});
}

TEST_P(RetentionTest, WhatSyncsHaveMadeGoesByTheRulesOfEachSideAlone) {
  MakeGroup();
  RunWell({"protect", "g", "--volume", "v2", "--dr-group", "gd"});
  for (int i = 0; i < 5; ++i) RunWell({"sync", "g", "--dr-group", "gd"});
  const auto listed = [](const std::string& group) {
    const Json::Value list = RunWell({"snapshot", "list", group, "--json"}).Json();
    return list["snapshots"].size();
  };
  RunWell({"group", "retention", "g", "--keep", "last=4"});
  RunWell({"group", "retention", "gd", "--keep", "last=3"});
  const Json::Value told = RunWell({"snapshot", "prune", "g", "--explain", "--json"}).Json();
  EXPECT_EQ(told["group_snapshots"].size(), 0U) << "none goes as a sync's";
  RunWell({"snapshot", "prune", "g", "--yes"});
  EXPECT_EQ(listed("g"), 4U);
  EXPECT_EQ(listed("gd"), 5U) << "that side has its own rule";
  RunWell({"snapshot", "prune", "gd", "--yes"});
  EXPECT_EQ(listed("g"), 4U);
  EXPECT_EQ(listed("gd"), 3U);

  // Without any rule they go as before.
  RunWell({"group", "retention", "g", "--none"});
  RunWell({"snapshot", "prune", "g", "--yes"});
  EXPECT_EQ(listed("gd"), 3U);
  RunWell({"group", "retention", "gd", "--none"});
  RunWell({"snapshot", "prune", "g", "--yes"});
  EXPECT_EQ(listed("g"), 1U);
  EXPECT_EQ(listed("gd"), 1U);
}

// Also the one that has a part of the one that another group has a part of.
TEST_P(RetentionTest, AGroupSnapshotStaysThatHasAPartOfOneThatStays) {
  MakeGroup();
  RunWell({"group", "create", "other", "--target", "lun"});
  const std::vector<std::string> ids = TakeSnapshots(4);
  const auto partOf = [](const std::string& gsnapId, const std::string& target) {
    return "(SELECT tsnap_id FROM target_snap_list WHERE gsnap_id = '" + gsnapId +
           "' AND target_id = '" + target + "')";
  };
  const Json::Value parts = RunWell({"snapshot", "show", ids[1], "--json"}).Json()["targets"];
  for (const Json::Value& each : parts) {
    if (each["target_id"] != "lun") continue;
    RunSql(DatabaseOf("other"), "INSERT INTO target_snap_list VALUES ('lun', 1, '" +
                                    each["tsnap_id"].asString() + "', 'other-gsnap-1')");
  }
  RunSql(DatabaseOf("g"), "UPDATE target_snap_list SET tsnap_id = " + partOf(ids[1], "share") +
                              " WHERE gsnap_id = '" + ids[0] + "' AND target_id = 'share'");
  const Json::Value told = Explain("last=1");
  EXPECT_EQ(VerdictOn(ids[1], told)["reasons"][0],
            "its snapshot of target \"lun\" belongs to \"other-gsnap-1\", too");
  EXPECT_EQ(VerdictOn(ids[0], told)["reasons"][0],
            "its snapshot of target \"share\" belongs to \"" + ids[1] + "\", too");
  EXPECT_EQ(VerdictOn(ids[2], told)["stays"], false);
  RunWell({"snapshot", "prune", "g", "--keep", "last=1", "--yes"});
  EXPECT_THAT(ListSnapshots(), ElementsAre(ids[0], ids[1], ids[3]));
}

TEST_P(RetentionTest, WhatIsOutOfReachStays) {
  MakeGroup();
  const std::vector<std::string> ids = TakeSnapshots(3);
  std::filesystem::rename(VolumePath("v1"), VolumePath("v1") + "-away");
  const Json::Value told = Explain("last=1");
  std::filesystem::rename(VolumePath("v1") + "-away", VolumePath("v1"));
  for (const std::string& each : {ids[0], ids[1]}) {
    EXPECT_THAT(VerdictOn(each, told)["reasons"][0].asString(), HasSubstr("is out of reach: "));
  }
  EXPECT_EQ(VerdictOn(ids[0], Explain("last=1"))["stays"], false);
}

TEST_P(RetentionTest, EveryCutStaysWhileAReplicaIsOutOfReach) {
  MakeProtected();
  const std::vector<std::string> ids = TakeSnapshots(2);
  std::filesystem::rename(VolumePath("v2"), VolumePath("v2") + "-away");
  const Json::Value told = Explain("last=1");
  std::filesystem::rename(VolumePath("v2") + "-away", VolumePath("v2"));
  EXPECT_THAT(VerdictOn(ids[0], told)["reasons"][0].asString(),
              HasSubstr("it cannot be told whether a failover needs its cut: "));
  EXPECT_EQ(VerdictOn(ids[0], Explain("last=1"))["stays"], false);
}

TEST_P(RetentionTest, ACatalogueThatCannotBeReadClaimsEverything) {
  MakeGroup();
  RunWell({"group", "create", "other", "--target", "lun"});
  const std::vector<std::string> ids = TakeSnapshots(3);
  const std::string good = ReadFile(GroupDirectory("other") + "/drgroup.db");
  WriteFile(GroupDirectory("other") + "/drgroup.db", "spoilt");
  RunBadly(kCatalogue, {"snapshot", "prune", "g", "--keep", "last=1", "--yes"}, {"\"other\""});
  EXPECT_EQ(ListSnapshots().size(), 3U);
  WriteFile(GroupDirectory("other") + "/drgroup.db", good);
  RunWell({"snapshot", "prune", "g", "--keep", "last=1", "--yes"});
  EXPECT_THAT(ListSnapshots(), ElementsAre(ids[2]));
}

TEST_P(RetentionTest, APruningThatIsKilledIsFinishedByTheSameCommand) {
  MakeGroup();
  const std::vector<std::string> ids = TakeSnapshots(3);
  const std::vector<std::string> words{"snapshot", "prune", "g", "--keep", "last=1", "--yes"};
  ASSERT_TRUE(RunKilledAt("delete.marked", words));
  RunWell(words);
  EXPECT_THAT(ListSnapshots(), ElementsAre(ids[2]));
  const Json::Value found = RunWell({"snapshot", "repair", "g", "--dry-run", "--json"}).Json();
  for (const char* each : {"deleted", "changed", "incomplete"}) {
    EXPECT_EQ(found[each].size(), 0U) << each;
  }
}

}  // namespace
}  // namespace e2e
