#include <sys/mount.h>

#include <filesystem>

#include "tool_fixture.h"
#include "tree.h"

// Catalogues that cannot be used: one line that tells them apart, nothing changed, and no snapshot
// taken that nothing would record.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using host_test::ReadFile;
using host_test::WriteFile;
using testing::ElementsAre;
using testing::HasSubstr;
using Words = std::vector<std::string>;

class BadCatalogueTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    MakeGroup();
    id_ = TakeSnapshot();
  }

  // Every verb that needs the catalogue fails like this, and leaves everything as it is.
  void ExpectRefused(Code code, const Words& parts) {
    const auto group = Tree(GroupDirectory("g"));
    const auto volume = Tree(VolumePath());
    for (const Words& words :
         {Words{"snapshot", "create", "g"}, Words{"snapshot", "list", "g"},
          Words{"snapshot", "show", id_}, Words{"snapshot", "delete", id_, "--yes", "--force"},
          Words{"snapshot", "edit", id_, "--lock"}, Words{"snapshot", "restore", id_, "--yes"},
          Words{"snapshot", "clone", id_}, Words{"snapshot", "repair", "g", "--yes"},
          Words{"group", "rename", "g", "h"}, Words{"group", "show", "g"},
          Words{"group", "delete", "g", "--yes"}}) {
      RunBadly(code, words, parts);
    }
    EXPECT_EQ(Tree(GroupDirectory("g")), group);
    EXPECT_EQ(Tree(VolumePath()), volume);
    const Json::Value groups = RunWell({"group", "list", "--json"}).Json()["groups"];
    EXPECT_THAT(groups[0]["problem"].asString(), HasSubstr(parts.back()));
  }

  std::string id_;
};

TEST_F(BadCatalogueTest, AMissingDatabaseIsNotMadeAnew) {
  fs::remove(DatabaseOf("g"));
  ExpectRefused(kCatalogue, {"group \"g\"", DatabaseOf("g"), "backup", "missing"});
}

TEST_F(BadCatalogueTest, AFileThatIsNoDatabase) {
  WriteFile(DatabaseOf("g"), std::string(40000, 'x'));
  ExpectRefused(kCatalogue, {DatabaseOf("g"), "backup", "not an SQLite database"});
}

TEST_F(BadCatalogueTest, ATruncatedDatabase) {
  fs::resize_file(DatabaseOf("g"), 5000);
  ExpectRefused(kCatalogue, {DatabaseOf("g"), "backup", "truncated"});
}

TEST_F(BadCatalogueTest, AnEmptyDatabaseIsNotFilledAnew) {
  fs::resize_file(DatabaseOf("g"), 0);
  ExpectRefused(kCatalogue, {DatabaseOf("g"), "backup", "empty"});
}

TEST_F(BadCatalogueTest, ALostTableIsNamed) {
  for (const char* table : {"target_replica_list", "target_snap_list", "gsnap_meta"}) {
    RunSql(DatabaseOf("g"), std::string("DROP TABLE ") + table);
    ExpectRefused(kCatalogue,
                  {DatabaseOf("g"), "backup", "lost its table \"" + std::string(table)});
  }
}

TEST_F(BadCatalogueTest, ADamagedPageIsFoundAndNothingIsLost) {
  // More rows than one page holds, and garbage in place of the last page.
  RunSql(DatabaseOf("g"),
         "WITH RECURSIVE n (i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < 2000) "
         "INSERT INTO gsnap_meta (\"desc\", tag, gsnap_id, gsnap_time, status) "
         "SELECT printf('%0300d', i), 'g', printf('g-gsnap-%d', i), i, 1 FROM n");
  std::string bytes = ReadFile(DatabaseOf("g"));
  bytes.replace(bytes.size() / 2, bytes.size() / 2, std::string(bytes.size() / 2, '\x5a'));
  WriteFile(DatabaseOf("g"), bytes);
  RunBadly(kCatalogue, {"snapshot", "list", "g"}, {DatabaseOf("g"), "damaged", "backup"});
  EXPECT_EQ(ReadFile(DatabaseOf("g")), bytes);
}

TEST_F(BadCatalogueTest, ARowWithoutATimeIsToldApartFromAMissingOne) {
  RunSql(DatabaseOf("g"), "UPDATE gsnap_meta SET gsnap_time = 0");
  RunBadly(kCatalogue, {"snapshot", "show", id_}, {id_, DatabaseOf("g")});
  RunSql(DatabaseOf("g"), "DELETE FROM gsnap_meta");
  RunBadly(kCatalogue, {"snapshot", "delete", id_, "--yes"}, {id_, "only in part"});
  // The target snapshots are there and recorded: the group is not deleted from under them.
  RunBadly(kRefused, {"group", "delete", "g", "--yes"}, {"3 target snapshots", "--force"});
  const Json::Value report = RunWell({"group", "delete", "g", "--yes", "--force", "--json"}).Json();
  EXPECT_EQ(report["left_snapshots"].size(), 3U);
}

// Nothing is wrong with the file then, and running it again would not help.
TEST_F(BadCatalogueTest, ARecordThatMeansNothingIsToldByItsTable) {
  const auto expectTold = [&](const Words& words, const std::string& table) {
    const Result result =
        RunBadly(kCatalogue, words, {DatabaseOf("g"), "table \"" + table + "\"", "backup"});
    EXPECT_THAT(result.err, testing::Not(HasSubstr("run it again")));
    EXPECT_THAT(result.err, testing::Not(HasSubstr("system log")));
  };
  RunSql(DatabaseOf("g"), "UPDATE gsnap_meta SET gsnap_time = 0");
  expectTold({"snapshot", "show", id_}, "gsnap_meta");
  RunSql(DatabaseOf("g"), "UPDATE gsnap_meta SET gsnap_time = 1700000000");
  RunSql(DatabaseOf("g"),
         "INSERT INTO target_snap_list (target_id, target_type, tsnap_id, gsnap_id) "
         "VALUES (NULL, NULL, NULL, NULL)");
  expectTold({"snapshot", "repair", "g", "--dry-run"}, "target_snap_list");
  expectTold({"snapshot", "list", "g"}, "target_snap_list");
}

TEST_F(BadCatalogueTest, ALinkThatIsNone) {
  fs::remove(LinkDirectory("g") + "/drgroup.db");
  fs::copy(DatabaseOf("g"), LinkDirectory("g") + "/drgroup.db");
  ExpectRefused(kCatalogue, {"backup", LinkDirectory("g") + "/drgroup.db"});
}

TEST_F(BadCatalogueTest, ADefinitionThatIsNoUse) {
  const std::string path = GroupDirectory("g") + "/group.json";
  for (const char* text :
       {"", "no JSON", "[]", "{}", R"({"group_id": "g"})", R"({"group_id": "g", "targets": []})",
        R"({"group_id": "g", "targets": [{"target_id": 5, "target_type": 1}]})",
        R"({"group_id": "g", "targets": [{"target_id": "lun", "target_type": 9}]})",
        R"({"group_id": "h", "targets": [{"target_id": "lun", "target_type": 1}]})"}) {
    WriteFile(path, text);
    RunBadly(kCatalogue, {"snapshot", "create", "g"}, {GroupDirectory("g")});
    RunBadly(kCatalogue, {"group", "show", "g"}, {GroupDirectory("g")});
    EXPECT_EQ(ReadFile(path), text);
  }
  fs::remove(path);
  RunBadly(kCatalogue, {"snapshot", "create", "g"}, {path, "missing"});
  EXPECT_THAT(ListSnapshots(), ElementsAre(id_));
}

TEST_F(BadCatalogueTest, WhatTheDatabaseScriptRefusesIsToldInOneLine) {
  RunSql(DatabaseOf("g"), "UPDATE vreldrcore_db_info SET value = 99");
  const auto volume = Tree(VolumePath());
  RunBadly(kCatalogue, {"snapshot", "create", "g"},
           {"no group snapshot was made", "schema version 99"});
  EXPECT_EQ(Tree(VolumePath()), volume);
  EXPECT_THAT(ListSnapshots(), ElementsAre(id_));
}

TEST_F(BadCatalogueTest, AMissingScriptTakesNoSnapshot) {
  const std::string script = "/var/packages/Guestora/target/sbin/vreldrgroup_db.sh";
  const auto volume = Tree(VolumePath());
  fs::rename(script, script + ".away");
  RunBadly(kCatalogue, {"snapshot", "create", "g"}, {"vreldrgroup_db.sh", "install"});
  fs::rename(script + ".away", script);
  EXPECT_EQ(Tree(VolumePath()), volume);
}

// A group whose catalogue is on a file system of its own.
class SmallCatalogueTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    fs::create_directory(Dir());
    ASSERT_EQ(mount("tmpfs", Dir().c_str(), "tmpfs", 0, "size=256k"), 0);
    MakeGroup();
    RunWell({"group", "create", "small", "--target", "lun", "--dir", Dir()});
  }
  void TearDown() override {
    umount2(Dir().c_str(), MNT_DETACH);
    ToolTest::TearDown();
  }
  std::string Dir() const { return Root() + "/small"; }
};

TEST_F(SmallCatalogueTest, AReadOnlyFileSystemIsNamedAndTakesNoSnapshot) {
  const std::string id =
      RunWell({"snapshot", "create", "small", "--json"}).Json()["gsnap_id"].asString();
  ASSERT_EQ(mount(nullptr, Dir().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
  const auto volume = Tree(VolumePath());
  EXPECT_THAT(ListSnapshots("small"), ElementsAre(id));
  for (const Words& words :
       {Words{"snapshot", "create", "small"}, Words{"snapshot", "delete", id, "--yes"},
        Words{"group", "delete", "small", "--yes", "--force"}}) {
    RunBadly(kStorage, words, {Dir() + "/drgroup.db", "cannot be written"});
  }
  RunBadly(kStorage, {"group", "create", "new", "--target", "lun", "--dir", Dir() + "/new"},
           {Dir() + "/new"});
  EXPECT_EQ(Tree(VolumePath()), volume);
  EXPECT_FALSE(fs::exists(LinkDirectory("new")));
}

TEST_F(SmallCatalogueTest, AFullFileSystemIsNamedAndWhatWasTakenIsTakenBack) {
  WriteFile(Dir() + "/filler", "");
  // Everything but a page, which is not enough for a row of this size.
  const auto free = fs::space(Dir()).available;
  WriteFile(Dir() + "/filler", std::string(free - 4096, 'f'));
  const auto volume = Tree(VolumePath());
  RunBadly(kStorage, {"snapshot", "create", "small", "--description", std::string(60000, 'd')},
           {Dir(), "full"});
  EXPECT_TRUE(ListSnapshots("small").empty());
  fs::remove(Dir() + "/filler");
  RunWell({"snapshot", "create", "small", "--description", std::string(60000, 'd')});
  EXPECT_EQ(ListSnapshots("small").size(), 1U);
}

}  // namespace
}  // namespace e2e
