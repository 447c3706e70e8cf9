#include <vreldrgroup/snapshot/gsnap_utils.h>

#include <filesystem>

#include "file_systems_fixture.h"

// Links that another program has pointed elsewhere: told, never followed, and mended.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using Words = std::vector<std::string>;

class RelinkTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    MakeGroup();
    id_ = TakeSnapshot();
    RunWell({"group", "create", "h", "--target", "lun"});
    RunWell({"snapshot", "create", "h"});
  }

  // What another program does that makes the group in a directory of its own.
  static void MakeElsewhere(const std::string& group, const std::string& dir) {
    fs::create_directories(dir);
    int error = 0;
    EXPECT_TRUE(VrelDRGroup::Utils::InitDRGroupDB(dir, group, error, true)) << error;
    EXPECT_EQ(LinkOf(group), dir + "/drgroup.db");
  }
  static std::string LinkOf(const std::string& group) {
    return fs::read_symlink(LinkDirectory(group) + "/drgroup.db");
  }

  // Every verb tells the same and changes nothing.
  void ExpectTold(const Words& parts) {
    const auto before = Tree(Root());
    for (const Words& words :
         {Words{"group", "show", "g"}, Words{"group", "delete", "g", "--yes"},
          Words{"group", "delete", "g", "--yes", "--force"}, Words{"group", "rename", "g", "new"},
          Words{"group", "upgrade", "g"}, Words{"snapshot", "create", "g"},
          Words{"snapshot", "list", "g"}, Words{"snapshot", "show", id_},
          Words{"snapshot", "restore", id_, "--yes", "--force"},
          Words{"snapshot", "delete", id_, "--yes", "--force"},
          Words{"snapshot", "repair", "g", "--yes"}, Words{"target", "prune", "lun", "--yes"},
          Words{"status", "g"}}) {
      RunBadly(kCatalogue, words, parts);
    }
    const Json::Value groups = RunWell({"group", "list", "--json"}).Json()["groups"];
    EXPECT_THAT(groups[0]["problem"].asString(), HasSubstr(parts.back()));
    EXPECT_EQ(Tree(Root()), before);
  }
  void ExpectMended(const std::string& dir) {
    EXPECT_EQ(LinkOf("g"), dir + "/drgroup.db");
    EXPECT_THAT(ListSnapshots(), ElementsAre(id_));
    EXPECT_EQ(SnapshotPaths(id_).size(), 3U);
    EXPECT_EQ(ListSnapshots("h").size(), 1U);
  }

  std::string id_;
};

TEST_F(RelinkTest, ALinkToACatalogueWithoutDefinitionIsToldAndMended) {
  const std::string other = Root() + "/elsewhere";
  MakeElsewhere("g", other);
  const std::string command = "\"drgroupctl group relink g " + GroupDirectory("g") + "\"";
  ExpectTold({"\"g\"", other, "no definition", command});
  const Json::Value report =
      RunWell({"group", "relink", "g", GroupDirectory("g"), "--json"}).Json();
  EXPECT_THAT(report.getMemberNames(), ElementsAre("directory", "group_id", "old_directory"));
  EXPECT_EQ(report["old_directory"], other);
  ExpectMended(GroupDirectory("g"));
  RunWell({"group", "relink", "g", GroupDirectory("g")});
  ExpectMended(GroupDirectory("g"));
  EXPECT_TRUE(fs::exists(other + "/drgroup.db")) << "the other program's";
}

TEST_F(RelinkTest, ALinkToAnotherGroupIsToldAndNeverTakesThatGroupWithIt) {
  MakeElsewhere("g", GroupDirectory("h"));
  ExpectTold({"\"g\"", "belongs to group \"h\"",
              "\"drgroupctl group relink g " + GroupDirectory("g") + "\""});
  RunWell({"group", "relink", "g", GroupDirectory("g")});
  ExpectMended(GroupDirectory("g"));
}

TEST_F(RelinkTest, LinksThatWereExchangedAreMendedOneAfterTheOther) {
  MakeElsewhere("g", GroupDirectory("h"));
  MakeElsewhere("h", GroupDirectory("g"));
  RunWell({"group", "relink", "g", GroupDirectory("g")});
  RunWell({"group", "relink", "h", GroupDirectory("h")});
  ExpectMended(GroupDirectory("g"));
}

TEST_F(RelinkTest, AGroupInADirectoryOfTheUsersIsMendedToo) {
  const std::string own = Root() + "/own";
  RunWell({"group", "create", "u", "--target", "lun", "--dir", own});
  MakeElsewhere("u", Root() + "/elsewhere");
  RunBadly(kCatalogue, {"snapshot", "create", "u"}, {"elsewhere", "group relink"});
  MakeElsewhere("u", GroupDirectory("h"));
  RunBadly(kCatalogue, {"snapshot", "list", "u"},
           {"belongs to group \"h\"", "group relink u DIRECTORY"});
  RunWell({"group", "relink", "u", own + "/"});
  EXPECT_EQ(LinkOf("u"), own + "/drgroup.db");
  RunWell({"snapshot", "create", "u"});
}

TEST_F(RelinkTest, OnlyTheGroupsOwnDirectoryIsTaken) {
  MakeElsewhere("g", Root() + "/elsewhere");
  const auto before = Tree(Root());
  RunBadly(kRefused, {"group", "relink", "g", GroupDirectory("h")},
           {GroupDirectory("h"), "belongs to group \"h\""});
  RunBadly(kRefused, {"group", "relink", "g", Root() + "/elsewhere"}, {"no group.json"});
  RunBadly(kNotFound, {"group", "relink", "g", Root() + "/nothing"},
           {"nothing", "correct the path"});
  RunBadly(kNotFound, {"group", "relink", "nobody", GroupDirectory("g")}, {"\"nobody\""});
  RunBadly(kUsage, {"group", "relink", "g", LinkDirectory("g")}, {"is for the links"});
  EXPECT_EQ(Tree(Root()), before);

  RunSql(DatabaseOf("g"), "UPDATE gsnap_meta SET tag = 'other'");
  RunBadly(kRefused, {"group", "relink", "g", GroupDirectory("g")}, {"\"other\""});
  RunSql(DatabaseOf("g"), "UPDATE gsnap_meta SET tag = 'g'");
  RunSql(DatabaseOf("g"), "DROP TABLE target_replica_list");
  RunBadly(kCatalogue, {"group", "relink", "g", GroupDirectory("g")}, {"target_replica_list"});
  fs::resize_file(DatabaseOf("g"), 0);
  RunBadly(kCatalogue, {"group", "relink", "g", GroupDirectory("g")}, {"empty"});
  EXPECT_EQ(LinkOf("g"), Root() + "/elsewhere/drgroup.db");
}

TEST_F(RelinkTest, OneThatIsKilledLeavesTheOldLinkOrTheNewAndIsRunAgain) {
  const std::string other = Root() + "/elsewhere";
  for (const std::string step : {"relink.made", "relink.replaced"}) {
    MakeElsewhere("g", other);
    ExpectKilledAt(step, {"group", "relink", "g", GroupDirectory("g")});
    EXPECT_EQ(LinkOf("g"), (step == "relink.made" ? other : GroupDirectory("g")) + "/drgroup.db");
    RunWell({"group", "relink", "g", GroupDirectory("g")});
    ExpectMended(GroupDirectory("g"));
    const auto root = fs::path(LinkDirectory("g")).parent_path();
    EXPECT_EQ(std::distance(fs::directory_iterator(root), fs::directory_iterator()), 2)
        << "nothing but the groups";
  }
}

}  // namespace
}  // namespace e2e
