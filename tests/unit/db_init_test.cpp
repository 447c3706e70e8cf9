#include <sys/stat.h>
#include <vreldrgroup/db.h>

#include <filesystem>
#include <fstream>

#include "catalogue_test.h"
#include "sync_record.h"

namespace unit {
namespace {

namespace fs = std::filesystem;

using VrelDRGroup::DRGroupDB;

class GroupDbInit : public CatalogueTest {
 protected:
  std::string Exec(const std::string& dir) const {
    return "VLIBCExec(" + kScript + ", repair_db, " + dir + ")";
  }

  // A second database, which the group's link may lead to by mistake.
  void MakeOther() {
    ASSERT_TRUE(DRGroupDB::Init("/var/groups/two", "g2", true));
    RawDb("/var/groups/two/drgroup.db").Exec("INSERT INTO gsnap_meta (gsnap_id) VALUES ('two')");
    core.Clear();
  }

  void Link(const std::string& target) const {
    fs::create_directories(linkDir);
    fs::remove(linkPath);
    fs::create_symlink(target, linkPath);
  }

  ino_t LinkInode() const {
    struct stat st = {};
    EXPECT_EQ(lstat(linkPath.c_str(), &st), 0);
    return st.st_ino;
  }

  static mode_t Mode(const std::string& path) {
    struct stat st = {};
    EXPECT_EQ(stat(path.c_str(), &st), 0) << path;
    return st.st_mode & 07777;
  }
};

TEST_F(GroupDbInit, RefusesAnEmptyArgumentInSilence) {
  EXPECT_FALSE(DRGroupDB::Init("", "g1", true));
  EXPECT_FALSE(DRGroupDB::Init(dbDir, "", true));
  EXPECT_FALSE(DRGroupDB::Init("", "", false));
  EXPECT_THAT(core.OfPlatform(), IsEmpty());
  EXPECT_THAT(log.Entries(), IsEmpty());
  EXPECT_FALSE(Exists(dbDir));
  EXPECT_FALSE(Exists(kLinkRoot));
}

TEST_F(GroupDbInit, MakesANewCatalogueWithOneRunOfTheScript) {
  EXPECT_TRUE(DRGroupDB::Init(dbDir, "g1", true));
  EXPECT_THAT(core.OfPlatform(),
              ElementsAre("VLIBCFileExist(" + dbPath + ")", "VLIBCFileExist(" + kScript + ")",
                          "CreateDir(" + dbDir + ", 755)", Exec(dbDir),
                          "VLIBCFileLStat(" + linkPath + ", 15)",
                          "VLIBCFileExist(" + linkPath + ")", "CreateDir(" + linkDir + ", 755)"));
  EXPECT_EQ(fs::read_symlink(linkPath), dbPath);
  EXPECT_THAT(MetaRows(), IsEmpty());
  EXPECT_THAT(SnapRows(), IsEmpty());
  EXPECT_THAT(ReplicaRows(), IsEmpty());
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(GroupDbInit, LooksAtTheLinkItselfOnlyToRelink) {
  EXPECT_TRUE(DRGroupDB::Init(dbDir, "g1", false));
  EXPECT_THAT(core.OfPlatform(),
              ElementsAre("VLIBCFileExist(" + dbPath + ")", "VLIBCFileExist(" + kScript + ")",
                          "CreateDir(" + dbDir + ", 755)", Exec(dbDir),
                          "VLIBCFileExist(" + linkPath + ")", "CreateDir(" + linkDir + ", 755)"));
  EXPECT_EQ(fs::read_symlink(linkPath), dbPath);
}

TEST_F(GroupDbInit, MakesDirectoriesThatOthersMayEnter) {
  umask(022);
  EXPECT_TRUE(DRGroupDB::Init(dbDir, "g1", true));
  EXPECT_EQ(Mode(dbDir), 0755U);
  EXPECT_EQ(Mode(linkDir), 0755U);
}

TEST_F(GroupDbInit, RunsTheScriptOnceOnTheLinkDirectoryOfAnExistingCatalogue) {
  MakeCatalogue();
  AddMeta("g1-gsnap-5", 5);
  const ino_t link = LinkInode();
  EXPECT_TRUE(DRGroupDB::Init(dbDir, "g1", true));
  EXPECT_THAT(core.OfPlatform(),
              ElementsAre("VLIBCFileExist(" + dbPath + ")", "VLIBCFileLStat(" + linkPath + ", 15)",
                          "VLIBCFileExist(" + linkPath + ")", "VLIBCFileExist(" + kScript + ")",
                          "CreateDir(" + linkDir + ", 755)", Exec(linkDir)));
  EXPECT_EQ(LinkInode(), link);
  EXPECT_THAT(MetaRows(), ElementsAre("'d'|0|0|'g1-gsnap-5'|'g1'|5|1"));
}

TEST_F(GroupDbInit, LinksAnExistingDatabaseAndUpgradesItThroughTheLink) {
  MakeCatalogue();
  fs::remove_all(kLinkRoot);
  EXPECT_TRUE(DRGroupDB::Init(dbDir, "g1", false));
  EXPECT_EQ(fs::read_symlink(linkPath), dbPath);
  EXPECT_THAT(core.Of({"VLIBCExec"}), ElementsAre(Exec(linkDir)));
}

TEST_F(GroupDbInit, BringsAnOlderDatabaseToTheCurrentSchema) {
  MakeCatalogue();
  AddMeta("g1-gsnap-5", 5);
  Db().Exec("ALTER TABLE gsnap_meta DROP COLUMN minor_id");
  Db().Exec("UPDATE vreldrcore_db_info SET value = 1 WHERE key = 'version'");
  EXPECT_TRUE(DRGroupDB::Init(dbDir, "g1", true));
  EXPECT_THAT(Db().Rows("SELECT gsnap_id, minor_id FROM gsnap_meta"),
              ElementsAre("'g1-gsnap-5'|NULL"));
}

TEST_F(GroupDbInit, ReplacesALinkToAnotherFileWhenItIsToRelink) {
  MakeCatalogue();
  MakeOther();
  Link("/var/groups/two/drgroup.db");
  EXPECT_TRUE(DRGroupDB::Init(dbDir, "g1", true));
  EXPECT_EQ(fs::read_symlink(linkPath), dbPath);
  EXPECT_TRUE(Exists("/var/groups/two/drgroup.db"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(GroupDbInit, TrustsALinkToAnotherFileWhenItIsNotToRelink) {
  MakeCatalogue();
  MakeOther();
  Link("/var/groups/two/drgroup.db");
  EXPECT_TRUE(DRGroupDB::Init(dbDir, "g1", false));
  EXPECT_EQ(fs::read_symlink(linkPath), "/var/groups/two/drgroup.db");
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(GroupDbInit, ReplacesALinkThatLeadsToTheSameFileInOtherWords) {
  MakeCatalogue();
  Link(dbDir + "/./drgroup.db");
  EXPECT_TRUE(DRGroupDB::Init(dbDir, "g1", true));
  EXPECT_EQ(fs::read_symlink(linkPath), dbPath);
}

TEST_F(GroupDbInit, ReplacesALinkThatIsLongerOrShorterThanThePath) {
  MakeCatalogue();
  MakeOther();
  fs::copy_file(dbPath, dbPath + "2");
  for (const std::string& target : {dbPath + "2", dbPath.substr(0, dbPath.size() - 1)}) {
    Link(target);
    EXPECT_TRUE(DRGroupDB::Init(dbDir, "g1", true));
    EXPECT_EQ(fs::read_symlink(linkPath), dbPath);
  }
}

TEST_F(GroupDbInit, ReplacesADanglingLinkWhenItIsToRelink) {
  MakeCatalogue();
  Link("/var/groups/none/drgroup.db");
  EXPECT_TRUE(DRGroupDB::Init(dbDir, "g1", true));
  EXPECT_EQ(fs::read_symlink(linkPath), dbPath);
}

TEST_F(GroupDbInit, FailsOnADanglingLinkWhenItIsNotToRelink) {
  MakeCatalogue();
  Link("/var/groups/none/drgroup.db");
  EXPECT_FALSE(DRGroupDB::Init(dbDir, "g1", false));
  EXPECT_THAT(
      log.Entries(),
      ElementsAre(Err("db", "Init", "Failed to link [" + dbPath + "] to [" + linkPath + "]")));
  EXPECT_EQ(fs::read_symlink(linkPath), "/var/groups/none/drgroup.db");
  EXPECT_THAT(core.Of({"VLIBCExec"}), IsEmpty());
}

TEST_F(GroupDbInit, ReplacesAFileInPlaceOfTheLinkWhenItIsToRelink) {
  MakeCatalogue();
  fs::remove(linkPath);
  std::ofstream(linkPath) << "not a link";
  EXPECT_TRUE(DRGroupDB::Init(dbDir, "g1", true));
  EXPECT_EQ(fs::read_symlink(linkPath), dbPath);
}

TEST_F(GroupDbInit, KeepsADatabaseInPlaceOfTheLinkWhenItIsNotToRelink) {
  MakeCatalogue();
  fs::remove(linkPath);
  fs::copy_file(dbPath, linkPath);
  EXPECT_TRUE(DRGroupDB::Init(dbDir, "g1", false));
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(linkPath)));
}

TEST_F(GroupDbInit, FailsWithoutTheScriptBeforeAnythingIsMade) {
  fs::remove(kScript);
  EXPECT_FALSE(DRGroupDB::Init(dbDir, "g1", true));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Err("db", "RepairDRGroupDBByDBDir",
                              "[" + kScript + "] is not existed to init db [" + dbPath + "]")));
  EXPECT_FALSE(Exists(dbDir));
  EXPECT_FALSE(Exists(linkDir));
}

TEST_F(GroupDbInit, FailsOnAnExistingDatabaseWithoutTheScriptButLinksIt) {
  MakeCatalogue();
  fs::remove_all(kLinkRoot);
  fs::remove(kScript);
  EXPECT_FALSE(DRGroupDB::Init(dbDir, "g1", true));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Err("db", "RepairDRGroupDBByDBDir",
                              "[" + kScript + "] is not existed to init db [" + linkPath + "]")));
  EXPECT_EQ(fs::read_symlink(linkPath), dbPath);
}

TEST_F(GroupDbInit, FailsWhenTheScriptFails) {
  WriteScript("#!/bin/sh\nexit 3\n");
  EXPECT_FALSE(DRGroupDB::Init(dbDir, "g1", true));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Err("db", "RepairDRGroupDBByDBDir",
                              "Failed to exec [" + kScript + " repair_db " + dbDir + "]")));
  EXPECT_FALSE(Exists(linkDir));
}

TEST_F(GroupDbInit, FailsWhenTheScriptFailsOnTheLinkDirectory) {
  MakeCatalogue();
  WriteScript("#!/bin/sh\nexit 1\n");
  EXPECT_FALSE(DRGroupDB::Init(dbDir, "g1", true));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Err("db", "RepairDRGroupDBByDBDir",
                              "Failed to exec [" + kScript + " repair_db " + linkDir + "]")));
  EXPECT_EQ(fs::read_symlink(linkPath), dbPath);
}

TEST_F(GroupDbInit, FailsWhenTheScriptCannotBeStarted) {
  fs::permissions(kScript, fs::perms::none);
  WriteScript("");
  EXPECT_FALSE(DRGroupDB::Init(dbDir, "g1", true));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Err("db", "RepairDRGroupDBByDBDir",
                              "Failed to exec [" + kScript + " repair_db " + dbDir + "]")));
}

TEST_F(GroupDbInit, LeavesItToTheScriptThatADirectoryCannotBeMade) {
  fs::create_directories("/var/groups");
  std::ofstream(dbDir) << "a file";
  EXPECT_FALSE(DRGroupDB::Init(dbDir, "g1", true));
  EXPECT_THAT(core.Of({"VLIBCExec"}), ElementsAre(Exec(dbDir)));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Err("db", "RepairDRGroupDBByDBDir",
                              "Failed to exec [" + kScript + " repair_db " + dbDir + "]")));
}

TEST_F(GroupDbInit, KeepsTheNewDatabaseWhenTheLinkCannotBeMade) {
  fs::create_directories(kLinkRoot);
  std::ofstream(linkDir) << "a file";
  EXPECT_FALSE(DRGroupDB::Init(dbDir, "g1", true));
  EXPECT_THAT(
      log.Entries(),
      ElementsAre(Err("db", "Init", "Failed to link [" + dbPath + "] to [" + linkPath + "]")));
  EXPECT_THAT(MetaRows(), IsEmpty());
}

TEST_F(GroupDbInit, BringsTheLinkAndTheNewDirectoriesAboveItToDiskAfterItWasMade) {
  const std::string etc = fs::path(kLinkRoot).parent_path();
  fs::remove_all(etc);
  const test_support::SyncRecord disk;
  EXPECT_TRUE(DRGroupDB::Init(dbDir, "g1", true));
  // The directories were brought to disk before, as they were made; what is last is the link's own.
  std::vector<std::string> last = disk.Paths();
  ASSERT_GE(last.size(), 4U);
  last.erase(last.begin(), last.end() - 4);
  EXPECT_THAT(last, ElementsAre(linkDir, kLinkRoot, etc, fs::path(etc).parent_path()));
}

TEST_F(GroupDbInit, BringsALinkInADirectoryThatWasThereToDisk) {
  MakeCatalogue();
  for (const bool relink : {true, false}) {
    fs::remove(linkPath);
    const test_support::SyncRecord disk;
    EXPECT_TRUE(DRGroupDB::Init(dbDir, "g1", relink));
    EXPECT_THAT(disk.Paths(), ElementsAre(linkDir));
  }
}

TEST_F(GroupDbInit, BringsNothingToDiskWhereTheLinkStays) {
  MakeCatalogue();
  const test_support::SyncRecord disk;
  EXPECT_TRUE(DRGroupDB::Init(dbDir, "g1", true));
  EXPECT_THAT(disk.Paths(), IsEmpty());
}

TEST_F(GroupDbInit, CountsALinkThatCannotBeBroughtToDiskAsOneThatCannotBeMade) {
  MakeCatalogue();
  for (const std::string& dir : {linkDir, kLinkRoot}) {
    fs::remove_all(linkDir);
    core.Clear();
    log.Clear();
    test_support::SyncRecord disk;
    disk.Fail(dir);
    EXPECT_FALSE(DRGroupDB::Init(dbDir, "g1", true)) << dir;
    EXPECT_THAT(
        log.Entries(),
        ElementsAre(Err("db", "Init", "Failed to link [" + dbPath + "] to [" + linkPath + "]")));
    EXPECT_THAT(
        core.OfPlatform(),
        ElementsAre("VLIBCFileExist(" + dbPath + ")", "VLIBCFileLStat(" + linkPath + ", 15)",
                    "VLIBCFileExist(" + linkPath + ")", "CreateDir(" + linkDir + ", 755)"));
    EXPECT_FALSE(fs::is_symlink(fs::symlink_status(linkPath))) << dir;
    disk.Fail("");
    EXPECT_TRUE(DRGroupDB::Init(dbDir, "g1", true)) << dir;
  }
}

TEST_F(GroupDbInit, TakesNamesWithSpacesQuotesAndFormatsAsTheyAre) {
  const std::string dir = "/var/groups/it's \"one\" %s%n\n\xC3\xA9";
  EXPECT_TRUE(DRGroupDB::Init(dir, "g '%d'\xC3\xA9", true));
  EXPECT_EQ(fs::read_symlink(kLinkRoot + "/g '%d'\xC3\xA9/drgroup.db"), dir + "/drgroup.db");
  EXPECT_THAT(RawDb(dir + "/drgroup.db").Rows("SELECT * FROM gsnap_meta"), IsEmpty());
  EXPECT_TRUE(DRGroupDB::Init(dir, "g '%d'\xC3\xA9", true));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(GroupDbInit, LogsNamesWithFormatsAsTheyAre) {
  fs::remove(kScript);
  EXPECT_FALSE(DRGroupDB::Init("/var/groups/%s%n%d", "%n", true));
  EXPECT_THAT(log.Entries(), ElementsAre(Err("db", "RepairDRGroupDBByDBDir",
                                             "[" + kScript +
                                                 "] is not existed to init db "
                                                 "[/var/groups/%s%n%d/drgroup.db]")));
}

}  // namespace
}  // namespace unit
