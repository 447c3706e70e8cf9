#include <filesystem>

#include "file_systems_fixture.h"

// Giving a group another identifier.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using host_test::ReadFile;
using testing::HasSubstr;

class RenameTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    RunWell({"target", "create", "share", "--volume", "v1", "--type", "share"});
  }

  // A group with two group snapshots and a replica of one; what it is called.
  void MakeNamed(const std::string& group) {
    RunWell({"group", "create", group, "--target", "share"});
    for (int i = 0; i < 2; ++i) RunWell({"snapshot", "create", group});
    RunSql(DatabaseOf(group),
           "INSERT INTO target_replica_list SELECT 'share', 'there', gsnap_id FROM gsnap_meta");
  }

  // Expects that the group in `dir` is known as `to` everywhere, and nobody knows `from`.
  void ExpectRenamed(const std::string& from, const std::string& to, const std::string& dir) {
    SCOPED_TRACE(from + " -> " + to);
    EXPECT_FALSE(fs::exists(LinkDirectory(from)));
    EXPECT_EQ(fs::read_symlink(LinkDirectory(to) + "/drgroup.db"), dir + "/drgroup.db");
    EXPECT_THAT(ReadFile(dir + "/group.json"), HasSubstr("\"group_id\":\"" + to + "\""));
    RunSql(dir + "/drgroup.db",
           "CREATE TEMP TABLE checked (ok CHECK (ok)); "
           "INSERT INTO checked SELECT tag = '" +
               to + "' AND gsnap_id = '" + to +
               "-gsnap-' || gsnap_time FROM gsnap_meta; "
               "INSERT INTO checked SELECT count(*) = 2 FROM gsnap_meta; "
               "INSERT INTO checked SELECT gsnap_id IN (SELECT gsnap_id FROM gsnap_meta) FROM "
               "target_snap_list; "
               "INSERT INTO checked SELECT count(*) = 2 FROM target_replica_list WHERE gsnap_id IN "
               "(SELECT gsnap_id FROM gsnap_meta)");
    const auto ids = ListSnapshots(to);
    ASSERT_EQ(ids.size(), 2U);
    for (const std::string& id : ids) EXPECT_EQ(SnapshotPaths(id).size(), 1U);
    RunBadly(kNotFound, {"group", "show", from}, {"\"" + from + "\""});
    RunWell({"snapshot", "repair", to, "--yes"});
    EXPECT_EQ(ListSnapshots(to), ids);
  }
};

TEST_F(RenameTest, EveryRecordGetsTheNewNameWhateverTheNamesHaveInCommon) {
  const std::vector<std::pair<std::string, std::string>> names{
      {"office", "shop"},      // plain
      {"g", "h"},              // in "-gsnap-" too
      {"gsnap", "a-gsnap-b"},  // "
      {"1", "2"},              // in the time too
      {"x", "xx"},             // the new name has the old one in it
      {"long-gsnap-7", "long"},
      {"b", "b-gsnap-7"},
      {"with space %s", "caf\xc3\xa9 %n"}};
  for (const auto& [from, to] : names) {
    MakeNamed(from);
    const std::string dir = GroupDirectory(from);
    const Json::Value report = RunWell({"group", "rename", from, to, "--json"}).Json();
    EXPECT_THAT(report.getMemberNames(),
                testing::ElementsAre("directory", "group_id", "old_group_id"));
    ExpectRenamed(from, to, dir);
    RunWell({"snapshot", "create", to});
    RunWell({"group", "delete", to, "--force", "--yes"});
    EXPECT_FALSE(fs::exists(dir));
  }
}

TEST_F(RenameTest, OneThatIsKilledIsFinishedByRunningItAgain) {
  for (const std::string from : {"office", "g"}) {
    for (const char* step : {"rename.reserved", "rename.defined", "rename.rewritten"}) {
      SCOPED_TRACE(from + " " + step);
      MakeNamed(from);
      ExpectKilledAt(step, {"group", "rename", from, "shop"});
      if (std::string(step) != "rename.reserved") {
        // Nothing can be done with it by its old name in the meantime, and nothing is lost.
        for (const std::vector<std::string>& words :
             {std::vector<std::string>{"snapshot", "list", from},
              {"snapshot", "create", from},
              {"snapshot", "repair", from, "--yes"},
              {"group", "delete", from, "--yes"},
              {"group", "rename", from, "other"}}) {
          RunBadly(kCatalogue, words, {"\"" + from + "\"", "group rename " + from + " shop"});
        }
      }
      RunWell({"group", "rename", from, "shop"});
      ExpectRenamed(from, "shop", GroupDirectory(from));
      RunWell({"group", "delete", "shop", "--force", "--yes"});
    }
    MakeNamed(from);
    ExpectKilledAt("rename.linked", {"group", "rename", from, "shop"});
    ExpectRenamed(from, "shop", GroupDirectory(from));
    RunWell({"group", "delete", "shop", "--force", "--yes"});
  }
}

// Whatever the command and the name, what is told is how to finish the renaming.
TEST_F(RenameTest, WhoeverMeetsAnInterruptedOneIsToldToRunItAgain) {
  for (const char* step : {"rename.defined", "rename.rewritten"}) {
    SCOPED_TRACE(step);
    MakeNamed("office");
    const std::string id = ListSnapshots("office").front();
    RunWell({"group", "create", "third", "--target", "share"});
    ExpectKilledAt(step, {"group", "rename", "office", "shop"});
    const auto groups = Tree(Root() + "/state/groups");
    const auto volume = Tree(VolumePath());
    const auto links = Tree(fs::path(LinkDirectory("g")).parent_path());
    for (const std::string name : {"office", "shop"}) {
      const std::string time = id.substr(id.rfind('-') + 1);
      for (const std::vector<std::string>& words :
           {std::vector<std::string>{"group", "show", name},
            {"group", "delete", name, "--yes"},
            {"group", "delete", name, "--yes", "--force"},
            {"group", "upgrade", name},
            {"group", "rename", name, "other"},
            {"group", "rename", "third", "shop"},
            {"group", "create", "shop", "--target", "share"},
            {"group", "relink", "shop", GroupDirectory("office")},
            {"snapshot", "create", name},
            {"snapshot", "list", name},
            {"snapshot", "show", name + "-gsnap-" + time},
            {"snapshot", "edit", name + "-gsnap-" + time, "--lock"},
            {"snapshot", "restore", name + "-gsnap-" + time, "--yes", "--force"},
            {"snapshot", "clone", name + "-gsnap-" + time},
            {"snapshot", "delete", name + "-gsnap-" + time, "--yes", "--force"},
            {"snapshot", "repair", name, "--yes"},
            {"target", "prune", "share", "--yes"},
            {"protect", name, "--volume", "v2"},
            {"sync", name},
            {"status", name},
            {"unprotect", name, "--yes"}}) {
        const Result result =
            RunBadly(kCatalogue, words, {"\"drgroupctl group rename office shop\""});
        EXPECT_THAT(result.err, testing::Not(HasSubstr("delete"))) << result.err;
      }
    }
    const Json::Value listed = RunWell({"group", "list", "--json"}).Json()["groups"];
    EXPECT_EQ(listed.size(), 3U);
    for (const Json::Value& each : listed) {
      if (each["group_id"] == "third") continue;
      EXPECT_THAT(each["problem"].asString(), HasSubstr("group rename office shop"));
    }
    EXPECT_EQ(Tree(Root() + "/state/groups"), groups);
    EXPECT_EQ(Tree(VolumePath()), volume);
    EXPECT_EQ(Tree(fs::path(LinkDirectory("g")).parent_path()), links);
    RunWell({"group", "rename", "office", "shop"});
    ExpectRenamed("office", "shop", GroupDirectory("office"));
    for (const char* name : {"shop", "third"}) {
      RunWell({"group", "delete", name, "--force", "--yes"});
    }
  }
}

TEST_F(RenameTest, ANameThatWasOnlyReservedIsNotToBeDeleted) {
  MakeNamed("office");
  ExpectKilledAt("rename.reserved", {"group", "rename", "office", "shop"});
  const Result result = RunBadly(kCatalogue, {"group", "show", "shop"}, {"group rename OLD shop"});
  EXPECT_THAT(result.err, testing::Not(HasSubstr("delete")));
  EXPECT_EQ(ListSnapshots("office").size(), 2U) << "nothing has happened to it";
  RunWell({"group", "rename", "office", "shop"});
  ExpectRenamed("office", "shop", GroupDirectory("office"));
}

TEST_F(RenameTest, BadNamesAreRefusedAndChangeNothing) {
  MakeNamed("office");
  RunWell({"group", "create", "shop", "--target", "share"});
  const auto groups = Tree(Root() + "/state/groups");
  const auto links = Tree(fs::path(LinkDirectory("g")).parent_path());
  RunBadly(kRefused, {"group", "rename", "office", "shop"}, {"\"shop\"", "exists already"});
  RunBadly(kUsage, {"group", "rename", "office", "office"}, {"\"office\"", "that name already"});
  RunBadly(kUsage, {"group", "rename", "office", "a/b"}, {"\"a/b\"", "slash"});
  RunBadly(kUsage, {"group", "rename", "office", "it's"}, {"quote"});
  RunBadly(kUsage, {"group", "rename", "office", ""}, {"empty"});
  RunBadly(kUsage, {"group", "rename", "office"}, {"NEW"});
  RunBadly(kNotFound, {"group", "rename", "nobody", "other"}, {"\"nobody\""});
  EXPECT_EQ(Tree(Root() + "/state/groups"), groups);
  EXPECT_EQ(Tree(fs::path(LinkDirectory("g")).parent_path()), links);
}

TEST_F(RenameTest, ACatalogueWithRecordsOfAnotherGroupIsLeftAlone) {
  MakeNamed("office");
  for (const char* sql : {"UPDATE target_replica_list SET gsnap_id = 'officer-gsnap-7'",
                          "UPDATE gsnap_meta SET tag = 'officer'"}) {
    RunSql(DatabaseOf("office"), sql);
    const std::string definition = ReadFile(GroupDirectory("office") + "/group.json");
    const std::string database = ReadFile(DatabaseOf("office"));
    RunBadly(kCatalogue, {"group", "rename", "office", "shop"}, {"\"office\"", "officer"});
    EXPECT_EQ(ReadFile(GroupDirectory("office") + "/group.json"), definition);
    EXPECT_EQ(ReadFile(DatabaseOf("office")), database);
    EXPECT_FALSE(fs::exists(LinkDirectory("shop")));
  }
}

TEST_F(RenameTest, WhenOneStatementFailsNothingIsChanged) {
  for (const std::string from : {"office", "g"}) {
    MakeNamed(from);
    RunSql(DatabaseOf(from),
           "CREATE TRIGGER refuse BEFORE UPDATE ON target_replica_list BEGIN SELECT RAISE(FAIL, "
           "'no'); END");
    RunBadly(kCatalogue, {"group", "rename", from, "shop"}, {from, "were not renamed"});
    EXPECT_FALSE(fs::exists(LinkDirectory("shop")));
    EXPECT_EQ(ListSnapshots(from).size(), 2U);
    for (const std::string& id : ListSnapshots(from)) EXPECT_EQ(SnapshotPaths(id).size(), 1U);
    RunSql(DatabaseOf(from), "DROP TRIGGER refuse");
    RunWell({"group", "rename", from, "shop"});
    ExpectRenamed(from, "shop", GroupDirectory(from));
    RunWell({"group", "delete", "shop", "--force", "--yes"});
  }
}

TEST_F(RenameTest, ALinkDirectoryThatSomebodyLeftEmptyIsNoGroup) {
  MakeNamed("office");
  fs::create_directory(LinkDirectory("shop"));
  RunWell({"group", "rename", "office", "shop"});
  ExpectRenamed("office", "shop", GroupDirectory("office"));
}

}  // namespace
}  // namespace e2e
