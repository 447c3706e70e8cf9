#include <sys/mount.h>

#include <filesystem>

#include "file_systems_fixture.h"
#include "tree.h"

// Groups: making, listing and deleting them.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using host_test::ReadFile;
using host_test::WriteFile;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class GroupTest : public ToolTest {
 protected:
  // Everything that a group leaves on the machine, apart from the empty root of the links.
  std::map<std::string, std::string> Traces() const {
    auto traces = Tree(Root() + "/state/groups");
    traces.merge(Tree(fs::path(LinkDirectory("g")).parent_path()));
    traces.erase(".");
    return traces;
  }
  void MakeTargets() {
    for (const char* id : {"a", "b"}) {
      RunWell({"target", "create", id, "--volume", "v1", "--type", "share"});
    }
  }
};

TEST_F(GroupTest, CreationMakesTheDefinitionTheCatalogueAndTheLink) {
  MakeTargets();
  const Json::Value made = RunWell({"group", "create", "g", "--target", "b", "a", "--json"}).Json();
  EXPECT_THAT(made.getMemberNames(), ElementsAre("directory", "group_id", "target_count"));
  EXPECT_EQ(made["directory"], GroupDirectory("g"));
  EXPECT_EQ(fs::read_symlink(LinkDirectory("g") + "/drgroup.db"), DatabaseOf("g"));
  EXPECT_EQ(ReadFile(GroupDirectory("g") + "/group.json"),
            R"({"group_id":"g","targets":[{"target_id":"b","target_type":2},)"
            R"({"target_id":"a","target_type":2}]})"
            "\n");
  EXPECT_EQ(fs::status(GroupDirectory("g") + "/group.json").permissions(), fs::perms(0644));
  EXPECT_TRUE(ListSnapshots().empty());
  const Json::Value shown = RunWell({"group", "show", "g", "--json"}).Json();
  EXPECT_THAT(shown.getMemberNames(),
              ElementsAre("directory", "group_id", "gsnap_count", "hook", "keep", "latest_gsnap_id",
                          "targets", "undo_gsnap_id", "unfinished_change", "unfinished_restore",
                          "writers"));
  ASSERT_EQ(shown["targets"].size(), 2U);
  EXPECT_THAT(shown["targets"][0].getMemberNames(),
              ElementsAre("exists", "path", "problem", "target_id", "type", "volume"));
  EXPECT_EQ(shown["targets"][0]["target_id"], "b");
}

TEST_F(GroupTest, ADirectoryOfTheUsersIsMadeWholeAndStaysAfterDeletion) {
  MakeTargets();
  fs::create_directory(Root() + "/mine");
  RunWell({"group", "create", "g", "--target", "a", "--target", "b", "--dir", Root() + "/mine"});
  RunWell({"group", "create", "h", "--target", "a", "--dir", Root() + "/new/deep/"});
  EXPECT_TRUE(fs::exists(Root() + "/new/deep/drgroup.db"));
  RunBadly(kRefused, {"group", "delete", "g"}, {"\"g\"", "--yes"});
  RunWell({"group", "delete", "g", "--yes"});
  RunWell({"group", "delete", "h", "--yes"});
  EXPECT_TRUE(fs::is_empty(Root() + "/mine"));
  EXPECT_TRUE(Traces().empty());
  RunBadly(kNotFound, {"group", "show", "g"}, {"\"g\"", "group list"});
  EXPECT_EQ(TargetPaths().size(), 2U);
}

TEST_F(GroupTest, ListTellsEveryGroupAndWhatIsWrongWithIt) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  RunWell({"group", "create", "other", "--target", "lun"});
  fs::remove(DatabaseOf("other"));
  fs::create_directory(LinkDirectory("half"));
  const Json::Value groups = RunWell({"group", "list", "--json"}).Json()["groups"];
  ASSERT_EQ(groups.size(), 3U);
  EXPECT_THAT(groups[0].getMemberNames(),
              ElementsAre("directory", "group_id", "gsnap_count", "latest_gsnap_id", "problem",
                          "target_count"));
  EXPECT_EQ(groups[0]["group_id"], "g");
  EXPECT_EQ(groups[0]["target_count"], 3);
  EXPECT_EQ(groups[0]["gsnap_count"], 1);
  EXPECT_EQ(groups[0]["latest_gsnap_id"], id);
  EXPECT_EQ(groups[0]["problem"], "");
  EXPECT_EQ(groups[1]["group_id"], "half");
  EXPECT_THAT(groups[1]["problem"].asString(), HasSubstr("missing"));
  EXPECT_EQ(groups[2]["group_id"], "other");
  EXPECT_THAT(groups[2]["problem"].asString(), HasSubstr(DatabaseOf("other")));
  EXPECT_TRUE(groups[2]["gsnap_count"].isNull());
}

TEST_F(GroupTest, ABadListOfTargetsMakesNothing) {
  MakeTargets();
  RunBadly(kUsage, {"group", "create", "g"}, {"--target"});
  RunBadly(kUsage, {"group", "create", "g", "--target"}, {"--target"});
  RunBadly(kUsage, {"group", "create", "g", "--target", "a", "b", "a"}, {"\"a\"", "twice"});
  RunBadly(kNotFound, {"group", "create", "g", "--target", "a", "c"}, {"\"c\"", "target list"});
  EXPECT_TRUE(Traces().empty());
}

TEST_F(GroupTest, AGroupThatExistsIsNotMadeAgain) {
  MakeGroup();
  const auto before = Traces();
  RunBadly(kRefused, {"group", "create", "g", "--target", "lun"}, {"\"g\"", "exists"});
  RunBadly(kRefused, {"group", "create", "g", "--target", "lun", "--dir", Root() + "/new"},
           {"\"g\"", "exists"});
  EXPECT_EQ(Traces(), before);
  EXPECT_FALSE(fs::exists(Root() + "/new"));
}

TEST_F(GroupTest, ADirectoryWithAnotherCatalogueIsRefused) {
  MakeGroup();
  const auto before = Traces();
  RunBadly(kRefused, {"group", "create", "h", "--target", "lun", "--dir", GroupDirectory("g")},
           {GroupDirectory("g"), "\"g\""});
  fs::create_directory(Root() + "/unknown");
  fs::copy(DatabaseOf("g"), Root() + "/unknown/drgroup.db");
  RunBadly(kRefused, {"group", "create", "h", "--target", "lun", "--dir", Root() + "/unknown"},
           {Root() + "/unknown", "unknown group"});
  RunBadly(kUsage, {"group", "create", "h", "--target", "lun", "--dir", LinkDirectory("h")},
           {LinkDirectory("h")});
  EXPECT_EQ(Traces(), before);
}

// It would be rolled back and removed with the target.
TEST_F(GroupTest, ADirectoryOnAVolumeIsRefused) {
  MakeGroup();
  for (const char* below : {"/share/records", "/.vreldr/snapshots/share", "/new"}) {
    const std::string dir = VolumePath() + below;
    RunBadly(kRefused, {"group", "create", "h", "--target", "lun", "--dir", dir},
             {"\"v1\"", "outside the volumes"});
    EXPECT_FALSE(fs::exists(dir));
  }
  RunBadly(kNotFound, {"group", "show", "h"}, {"\"h\""});
}

TEST_F(GroupTest, ALostLinkIsMadeAgainForTheSameTargets) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  fs::remove_all(LinkDirectory("g"));
  RunBadly(kNotFound, {"snapshot", "list", "g"}, {"\"g\""});
  RunBadly(kRefused, {"group", "create", "g", "--target", "lun"}, {"other targets"});
  EXPECT_FALSE(fs::exists(LinkDirectory("g")));
  RunWell({"group", "create", "g", "--target", "lun", "share", "guest"});
  EXPECT_THAT(ListSnapshots(), ElementsAre(id));
}

TEST_F(GroupTest, AnInterruptedCreationIsFinishedByTheSameCommand) {
  MakeTargets();
  RunWell({"group", "create", "g", "--target", "a"});
  // As if the tool had been killed before the link, and before the catalogue.
  fs::remove(LinkDirectory("g") + "/drgroup.db");
  RunBadly(kCatalogue, {"snapshot", "create", "g"}, {"\"g\"", "create the group again"});
  RunWell({"group", "create", "g", "--target", "a"});
  fs::remove(LinkDirectory("g") + "/drgroup.db");
  fs::remove(DatabaseOf("g"));
  RunWell({"group", "create", "g", "--target", "a"});
  EXPECT_TRUE(ListSnapshots().empty());
}

TEST_F(GroupTest, AFailedCreationLeavesNothing) {
  MakeTargets();
  const std::string script = "/var/packages/Guestora/target/sbin/vreldrgroup_db.sh";
  fs::rename(script, script + ".away");
  RunBadly(kCatalogue, {"group", "create", "g", "--target", "a"},
           {script.substr(0, 20), "install"});
  RunBadly(kCatalogue, {"group", "create", "g", "--target", "a", "--dir", Root() + "/x/y"}, {"g"});
  fs::rename(script + ".away", script);
  EXPECT_FALSE(fs::exists(Root() + "/x"));
  EXPECT_TRUE(Traces().empty());

  fs::create_directory(Root() + "/blocked");
  fs::create_directory(Root() + "/blocked/drgroup.db");
  RunBadly(kRefused, {"group", "create", "g", "--target", "a", "--dir", Root() + "/blocked"},
           {Root() + "/blocked"});
  WriteFile(Root() + "/file", "");
  RunBadly(kStorage, {"group", "create", "g", "--target", "a", "--dir", Root() + "/file/below"},
           {Root() + "/file/below"});
  EXPECT_TRUE(Traces().empty());
  RunWell({"group", "create", "g", "--target", "a"});
}

TEST_F(GroupTest, ALinkThatCannotBeMadeLeavesNoCatalogue) {
  MakeTargets();
  fs::create_directories(LinkDirectory("g"));
  ASSERT_EQ(mount("tmpfs", LinkDirectory("g").c_str(), "tmpfs", MS_RDONLY, nullptr), 0);
  RunBadly(kCatalogue, {"group", "create", "g", "--target", "a"},
           {"\"g\"", "permissions", GroupDirectory("g")});
  EXPECT_FALSE(fs::exists(GroupDirectory("g")));
  ASSERT_EQ(umount(LinkDirectory("g").c_str()), 0);
  RunWell({"group", "create", "g", "--target", "a"});
}

TEST_F(GroupTest, AKilledCreationIsFinishedByTheSameCommand) {
  MakeTargets();
  for (const char* step : {"create.reserved", "create.defined"}) {
    SCOPED_TRACE(step);
    ExpectKilledAt(step, {"group", "create", "g", "--target", "a"});
    RunBadly(kCatalogue, {"snapshot", "create", "g"}, {"\"g\"", "create the group again"});
    RunWell({"group", "create", "g", "--target", "a"});
    RunWell({"snapshot", "create", "g"});
    RunWell({"group", "delete", "g", "--yes", "--force"});
    EXPECT_TRUE(Traces().empty());
  }
  ExpectKilledAt("create.linked", {"group", "create", "g", "--target", "a"});
  RunBadly(kRefused, {"group", "create", "g", "--target", "a"}, {"exists already"});
  RunWell({"snapshot", "create", "g"});
}

TEST_F(GroupTest, AKilledDeletionIsFinishedByTheSameCommand) {
  MakeTargets();
  for (const char* step : {"delete.begun", "delete.cleared"}) {
    SCOPED_TRACE(step);
    RunWell({"group", "create", "g", "--target", "a"});
    TakeSnapshot();
    ExpectKilledAt(step, {"group", "delete", "g", "--yes", "--force"});
    for (const std::vector<std::string>& words : {std::vector<std::string>{"group", "show", "g"},
                                                  {"snapshot", "create", "g"},
                                                  {"group", "rename", "g", "h"}}) {
      RunBadly(kCatalogue, words, {"\"g\"", "drgroupctl group delete g"});
    }
    // The catalogue may be there still.
    const Result listed = Run({"snapshot", "list", "g"});
    EXPECT_EQ(listed.code, step == std::string("delete.begun") ? kDone : kCatalogue);
    EXPECT_THAT(listed.err, AllOf(HasSubstr("drgroupctl group delete g"), Not(HasSubstr("relink")),
                                  Not(HasSubstr("backup"))));
    RunWell({"group", "delete", "g", "--yes"});
    EXPECT_TRUE(Traces().empty());
  }
  RunWell({"group", "create", "g", "--target", "a"});
  ExpectKilledAt("delete.unlinked", {"group", "delete", "g", "--yes"});
  RunBadly(kNotFound, {"group", "delete", "g", "--yes"}, {"\"g\""});
  RunWell({"group", "create", "g", "--target", "a"});
  RunWell({"group", "delete", "g", "--yes"});
  EXPECT_TRUE(Traces().empty());
}

TEST_F(GroupTest, ACatalogueThatIsGoneWithItsDiskIsNotTakenForADeletedOne) {
  MakeTargets();
  const std::string dir = Root() + "/disk/g";
  RunWell({"group", "create", "g", "--target", "a", "--dir", dir});
  fs::rename(dir, dir + ".away");
  RunBadly(kCatalogue, {"group", "delete", "g", "--yes"}, {"\"g\"", "--force"});
  fs::create_directory(dir);
  RunBadly(kCatalogue, {"group", "delete", "g", "--yes"}, {"\"g\"", "--force"});
  fs::remove(dir);
  fs::rename(dir + ".away", dir);
  RunWell({"group", "show", "g"});
}

TEST_F(GroupTest, DeletionOfAnUnusableCatalogueNeedsForceAndTellsWhatIsLeft) {
  MakeGroup();
  TakeSnapshot();
  WriteFile(DatabaseOf("g"), std::string(8192, 'x'));
  const auto before = Traces();
  RunBadly(kCatalogue, {"group", "delete", "g", "--yes"},
           {DatabaseOf("g"), "not an SQLite database", "--force"});
  EXPECT_EQ(Traces(), before);
  const Result result = RunWell({"group", "delete", "g", "--yes", "--force", "--json"});
  EXPECT_THAT(result.err, HasSubstr("warning"));
  const Json::Value left = result.Json()["left_snapshots"];
  ASSERT_EQ(left.size(), 3U);
  EXPECT_THAT(left[0].getMemberNames(), ElementsAre("target_id", "tsnap_id"));
  EXPECT_EQ(left[0]["target_id"], "lun");
  EXPECT_TRUE(Traces().empty());
}

TEST_F(GroupTest, DeletionOfAGroupWhoseCatalogueIsGoneLeavesOtherGroupsSnapshotsUnnamed) {
  MakeGroup();
  RunWell({"group", "create", "h", "--target", "lun"});
  TakeSnapshot();
  RunWell({"snapshot", "create", "h"});
  fs::remove(DatabaseOf("h"));
  const Json::Value report = RunWell({"group", "delete", "h", "--yes", "--force", "--json"}).Json();
  EXPECT_EQ(report["left_snapshots"].size(), 1U);
  EXPECT_EQ(ListSnapshots().size(), 1U);
}

}  // namespace
}  // namespace e2e
