#include <filesystem>

#include "plan_fixture.h"

// Group snapshots that have lost the part of a target: they are told from whole ones everywhere.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

class IncompleteTest : public PlanTest {
 protected:
  // Lets a deletion end half way: the parts of the lun and the guest go, the share's stays.
  void DeleteHalf(const std::string& id) const {
    RunSql(Root() + "/state/replica.db",
           "CREATE TRIGGER keep BEFORE UPDATE ON snapshots WHEN NEW.state = 3 AND NEW.target_id IN "
           "('share', 'share-dr') BEGIN SELECT RAISE(ABORT, 'no'); END");
    EXPECT_NE(Run({"snapshot", "delete", id, "--yes", "--force"}).code, kDone);
    RunSql(Root() + "/state/replica.db", "DROP TRIGGER keep");
  }
  static std::string ListedStatus(const std::string& id, const std::string& group = "g") {
    const Json::Value document = RunWell({"snapshot", "list", group, "--json"}).Json();
    for (const Json::Value& each : document["snapshots"]) {
      if (each["gsnap_id"] == id) return each["status"].asString();
    }
    return "not listed";
  }
  static std::vector<std::string> Texts(const Json::Value& list) {
    std::vector<std::string> texts;
    for (const Json::Value& each : list) texts.push_back(each.asString());
    return texts;
  }
};

INSTANTIATE_TEST_SUITE_P(Volumes, IncompleteTest, testing::Values("directory"),
                         FileSystemsTest::NameOf);

TEST_P(IncompleteTest, WhatIsShownSaysSoAndNamesTheTargets) {
  MakeGroup();
  const std::string whole = TakeSnapshot();
  const std::string half = TakeSnapshot();
  DeleteHalf(half);
  EXPECT_EQ(ListedStatus(whole), "ready");
  EXPECT_EQ(ListedStatus(half), "incomplete");
  const Json::Value latest = RunWell({"snapshot", "list", "g", "--latest", "--json"}).Json();
  EXPECT_EQ(latest["snapshots"][0]["status"], "incomplete");
  EXPECT_THAT(RunWell({"snapshot", "list", "g"}).out,
              testing::ContainsRegex(half + " .*incomplete"));
  const Json::Value shown = RunWell({"snapshot", "show", half, "--json"}).Json();
  EXPECT_EQ(shown["status"], "incomplete");
  EXPECT_THAT(Texts(shown["missing_targets"]), ElementsAre("lun", "guest"));
  const std::string text = RunWell({"snapshot", "show", half}).out;
  EXPECT_THAT(text, HasSubstr("incomplete"));
  EXPECT_THAT(text, testing::ContainsRegex("Lacks target: +lun, guest"));

  RunWell({"snapshot", "delete", half, "--yes"});
  EXPECT_THAT(ListSnapshots(), ElementsAre(whole));
}

TEST_P(IncompleteTest, RestoringOrCloningItIsRefusedWithoutForce) {
  MakeGroup();
  const std::string half = TakeSnapshot();
  DeleteHalf(half);
  ChangeMain();
  const auto changed = MainContents();
  const auto volume = Tree(VolumePath());
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"snapshot", "restore", half, "--yes"},
        {"snapshot", "clone", half}}) {
    RunBadly(kRefused, words, {half, "incomplete", "\"lun\", \"guest\"", "--force"});
    auto json = words;
    json.push_back("--json");
    EXPECT_THAT(Texts(Run(json).Json()["error"]["missing_targets"]), ElementsAre("lun", "guest"));
  }
  EXPECT_EQ(Tree(VolumePath()), volume);

  const Json::Value restored =
      RunWell({"snapshot", "restore", half, "--yes", "--force", "--json"}).Json();
  EXPECT_THAT(restored["warnings"][0].asString(), HasSubstr("\"lun\", \"guest\""));
  ASSERT_EQ(restored["targets"].size(), 1U);
  const auto now = MainContents();
  EXPECT_EQ(now.at("lun"), changed.at("lun"));
  EXPECT_EQ(now.at("guest"), changed.at("guest"));
  EXPECT_NE(now.at("share"), changed.at("share"));
  EXPECT_EQ(RunWell({"snapshot", "clone", half, "--force", "--json"}).Json()["clones"].size(), 1U);
}

TEST_P(IncompleteTest, RepairNamesItAndLeavesItAsItIs) {
  MakeGroup();
  const std::string half = TakeSnapshot();
  DeleteHalf(half);
  const auto before = Tree(Root());
  for (const char* option : {"--dry-run", "--yes"}) {
    const Json::Value report = RunWell({"snapshot", "repair", "g", option, "--json"}).Json();
    EXPECT_TRUE(report["changed"].empty() && report["deleted"].empty());
    ASSERT_EQ(report["incomplete"].size(), 1U);
    EXPECT_EQ(report["incomplete"][0]["gsnap_id"], half);
    EXPECT_THAT(Texts(report["incomplete"][0]["missing_targets"]), ElementsAre("lun", "guest"));
    const std::string text = RunWell({"snapshot", "repair", "g", option}).out;
    EXPECT_THAT(text, HasSubstr("left as they are: delete them, or restore them with --force"));
    EXPECT_THAT(text, HasSubstr("LACKS TARGET"));
  }
  EXPECT_EQ(Tree(Root()), before);
}

TEST_P(IncompleteTest, OneThatIsBadStaysBad) {
  MakeGroup();
  const std::string half = TakeSnapshot();
  DeleteHalf(half);
  RunSql(DatabaseOf("g"), "UPDATE gsnap_meta SET status = 2");
  EXPECT_EQ(ListedStatus(half), "bad");
  EXPECT_EQ(RunWell({"snapshot", "show", half, "--json"}).Json()["status"], "bad");
  EXPECT_EQ(RunWell({"snapshot", "repair", "g", "--json"}).Json()["incomplete"].size(), 1U);
}

TEST_P(IncompleteTest, WithoutTheDefinitionItCannotBeToldAndNothingIsRestored) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  const std::string definition = GroupDirectory("g") + "/group.json";
  fs::rename(definition, Root() + "/away");
  const Json::Value listed = RunWell({"snapshot", "list", "g", "--json"}).Json();
  EXPECT_EQ(listed["snapshots"][0]["status"], "ready") << "as the catalogue has it";
  EXPECT_THAT(listed["warnings"][0].asString(), HasSubstr(GroupDirectory("g")));
  EXPECT_TRUE(RunWell({"snapshot", "show", id, "--json"}).Json()["missing_targets"].isNull());
  RunBadly(kRefused, {"snapshot", "restore", id, "--yes"}, {id, "cannot be told", "--force"});
  RunBadly(kCatalogue, {"snapshot", "restore", id, "--yes", "--force"}, {definition, "--no-undo"});
  RunWell({"snapshot", "restore", id, "--yes", "--force", "--no-undo"});
}

// The group of the DR copies has a definition of its own, and so have the group snapshots in it.
TEST_P(IncompleteTest, AGroupDoesNotFailOverToItWithoutForce) {
  MakeProtected();
  const std::string whole = TakeSnapshot();
  RunWell({"snapshot", "ship", whole});
  RunWell({"sync", "g"});
  const std::string copies =
      RunWell({"snapshot", "sync", "gd", "--json"}).Json()["gsnap_id"].asString();
  RunSql(DatabaseOf("gd"), "DELETE FROM target_snap_list WHERE target_id <> 'share-dr'");
  RunSql(DatabaseOf("g"), "DELETE FROM target_snap_list WHERE target_id <> 'share'");
  EXPECT_EQ(ListedStatus(copies, "gd"), "incomplete");
  EXPECT_EQ(ListedStatus(whole), "incomplete");
  for (const auto& [id, missing] : std::map<std::string, std::string>{
           {copies, "\"lun-dr\", \"guest-dr\""}, {whole, "\"lun\", \"guest\""}}) {
    RunBadly(kRefused, {"failover", "g", "--snapshot", id}, {id, "incomplete", missing, "--force"});
    EXPECT_EQ(States(), AllProtected());
  }
  const Result dry = RunWell({"failover", "g", "--snapshot", whole, "--force", "--dry-run"});
  EXPECT_THAT(dry.err, HasSubstr("\"lun\", \"guest\" stays as it is"));
  EXPECT_EQ(States(), AllProtected());
  RunWell({"failover", "g", "--snapshot", whole, "--force", "--yes"});
  std::vector<std::string> states = AllProtected();
  states[1] = AllFailedOver()[1];
  EXPECT_EQ(States(), states) << "the share alone";
}

}  // namespace
}  // namespace e2e
