#include <vreldrgroup/db.h>
#include <vreldrgroup/snapshot/gsnap_op.h>

#include <filesystem>

#include "catalogue_test.h"
#include "record_values.h"

namespace unit {
namespace {

namespace fs = std::filesystem;

using test_support::ShortErr;
using VrelDRGroup::DRGroupDB;
using VrelDRGroup::Operation::GroupSnapMetaUpdater;
using VrelDRGroup::Operation::GsnapUpdateDBField;
using VrelDRGroup::Operation::GsnapUpdateDRGroupGsnapId;

auto Line(const std::string& message) {
  return ShortErr("snapshot/gsnap_op.cpp", message);
}

// A group "g1" with one group snapshot of one target, and rows of another group.
class Renaming : public CatalogueTest {
 protected:
  Renaming() {
    MakeCatalogue();
    AddMeta("g1-gsnap-GMT-2020.01.01-00.00.00", 10);
    AddSnap("g1-t1", 1, "g1-s1", "g1-gsnap-GMT-2020.01.01-00.00.00");
    AddReplica("g1-t1", "g1-r1", "g1-gsnap-GMT-2020.01.01-00.00.00");
    AddMeta("g3-gsnap-20", 20);
    Db().Exec("UPDATE gsnap_meta SET tag = 'g3' WHERE gsnap_time = 20");
  }

  void ExpectAllAsItWas() const {
    EXPECT_THAT(MetaRows(), ElementsAre("'d'|0|0|'g1-gsnap-GMT-2020.01.01-00.00.00'|'g1'|10|1",
                                        "'d'|0|0|'g3-gsnap-20'|'g3'|20|1"));
    EXPECT_THAT(SnapRows(), ElementsAre("'g1-t1'|1|'g1-s1'|'g1-gsnap-GMT-2020.01.01-00.00.00'"));
    EXPECT_THAT(ReplicaRows(), ElementsAre("'g1-t1'|'g1-r1'|'g1-gsnap-GMT-2020.01.01-00.00.00'"));
  }

  bool Replace(const std::string& tableFields, const std::string& oldStr,
               const std::string& newStr) const {
    return GsnapUpdateDBField(dbPath, Json(tableFields), oldStr, newStr);
  }

  static auto ExecFailed(const std::string& sql) {
    return Line("Sqlite query transact exec failed: [" + sql + "]");
  }
  static auto RenameFailed() {
    return Line(
        "Failed to updata gsnapid in drgroup db fields, tablefeilds info: "
        R"([{"gsnap_meta":["gsnap_id","tag"],"target_replica_list":["gsnap_id"],)"
        R"("target_snap_list":["gsnap_id"]}])");
  }

  const std::string all =
      "update 'gsnap_meta' set gsnap_id = replace(gsnap_id, 'g1', 'g2');"
      "update 'gsnap_meta' set tag = replace(tag, 'g1', 'g2');"
      "update 'target_replica_list' set gsnap_id = replace(gsnap_id, 'g1', 'g2');"
      "update 'target_snap_list' set gsnap_id = replace(gsnap_id, 'g1', 'g2');";
};

TEST_F(Renaming, RewritesTheGroupsIdentifierWhereverItIsStored) {
  EXPECT_TRUE(GsnapUpdateDRGroupGsnapId("g1", "g2", dbDir));
  EXPECT_THAT(MetaRows(), ElementsAre("'d'|0|0|'g2-gsnap-GMT-2020.01.01-00.00.00'|'g2'|10|1",
                                      "'d'|0|0|'g3-gsnap-20'|'g3'|20|1"));
  EXPECT_THAT(SnapRows(), ElementsAre("'g1-t1'|1|'g1-s1'|'g2-gsnap-GMT-2020.01.01-00.00.00'"));
  EXPECT_THAT(ReplicaRows(), ElementsAre("'g1-t1'|'g1-r1'|'g2-gsnap-GMT-2020.01.01-00.00.00'"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(Renaming, IsOneTransactionOnTheRealDatabase) {
  EXPECT_TRUE(GsnapUpdateDRGroupGsnapId("g1", "g2", dbDir));
  EXPECT_THAT(core.Of({"SqliteDB", "Exec"}),
              ElementsAre("SqliteDB(" + dbPath + ", 20, vreldrcore_db_info)",
                          "Exec(BEGIN TRANSACTION;" + all + "COMMIT TRANSACTION;)"));
  EXPECT_THAT(core.OfPlatform(), IsEmpty());
  EXPECT_EQ(fs::read_symlink(linkPath), dbPath);
}

TEST_F(Renaming, ChangesNothingWhenDoneAgain) {
  EXPECT_TRUE(GsnapUpdateDRGroupGsnapId("g1", "g2", dbDir));
  const std::vector<std::string> rows = MetaRows();
  EXPECT_TRUE(GsnapUpdateDRGroupGsnapId("g1", "g2", dbDir));
  EXPECT_EQ(MetaRows(), rows);
}

TEST_F(Renaming, LeavesAllAsItWasWhenTheLastTableRefuses) {
  Refuse("UPDATE", "target_snap_list");
  EXPECT_FALSE(GsnapUpdateDRGroupGsnapId("g1", "g2", dbDir));
  ExpectAllAsItWas();
  EXPECT_THAT(log.Entries(), ElementsAre(ExecFailed(all), RenameFailed()));
  Db().Exec("DROP TRIGGER refuse_UPDATE_target_snap_list");
  EXPECT_TRUE(GsnapUpdateDRGroupGsnapId("g1", "g2", dbDir));
}

TEST_F(Renaming, FailsInADirectoryWithoutADatabaseAndMakesNone) {
  EXPECT_FALSE(GsnapUpdateDRGroupGsnapId("g1", "g2", "/var/groups/two"));
  EXPECT_THAT(log.Entries(), ElementsAre(ExecFailed(all), RenameFailed()));
  EXPECT_FALSE(Exists("/var/groups/two"));
}

TEST_F(Renaming, PutsASlashBehindAnEmptyDirectoryToo) {
  EXPECT_FALSE(GsnapUpdateDRGroupGsnapId("g1", "g2", ""));
  EXPECT_THAT(core.Of({"SqliteDB"}), ElementsAre("SqliteDB(/drgroup.db, 20, vreldrcore_db_info)"));
}

TEST_F(Renaming, ReplacesEveryOccurrenceInsideAValue) {
  Db().Exec("UPDATE gsnap_meta SET tag = 'g1-g1xg1' WHERE gsnap_time = 10");
  EXPECT_TRUE(Replace(R"({"gsnap_meta": ["tag"]})", "g1", "new"));
  EXPECT_THAT(MetaRows(),
              ElementsAre("'d'|0|0|'g1-gsnap-GMT-2020.01.01-00.00.00'|'new-newxnew'|10|1",
                          "'d'|0|0|'g3-gsnap-20'|'g3'|20|1"));
}

TEST_F(Renaming, LeavesNullAsItIs) {
  Db().Exec("UPDATE gsnap_meta SET tag = NULL WHERE gsnap_time = 10");
  EXPECT_TRUE(GsnapUpdateDRGroupGsnapId("g1", "g2", dbDir));
  EXPECT_EQ(MetaRows().front(), "'d'|0|0|'g2-gsnap-GMT-2020.01.01-00.00.00'|NULL|10|1");
}

TEST_F(Renaming, TakesTablesByNameAndColumnsAsListed) {
  EXPECT_TRUE(Replace(R"({"target_snap_list": ["tsnap_id", "target_id"], "gsnap_meta": [],
                          "target_replica_list": ["dst_target_id"]})",
                      "g1", "g2"));
  EXPECT_THAT(core.Of({"Exec"}),
              ElementsAre("Exec(BEGIN TRANSACTION;"
                          "update 'target_replica_list' set dst_target_id = "
                          "replace(dst_target_id, 'g1', 'g2');"
                          "update 'target_snap_list' set tsnap_id = replace(tsnap_id, 'g1', 'g2');"
                          "update 'target_snap_list' set target_id = "
                          "replace(target_id, 'g1', 'g2');COMMIT TRANSACTION;)"));
  EXPECT_THAT(SnapRows(), ElementsAre("'g2-t1'|1|'g2-s1'|'g1-gsnap-GMT-2020.01.01-00.00.00'"));
  EXPECT_THAT(ReplicaRows(), ElementsAre("'g1-t1'|'g2-r1'|'g1-gsnap-GMT-2020.01.01-00.00.00'"));
}

TEST_F(Renaming, RunsAnEmptyTransactionForAnEmptyDescription) {
  for (const char* empty : {"{}", "null", R"({"gsnap_meta": []})"}) {
    core.Clear();
    EXPECT_TRUE(Replace(empty, "g1", "g2")) << empty;
    EXPECT_THAT(core.Of({"Exec"}), ElementsAre("Exec(BEGIN TRANSACTION;COMMIT TRANSACTION;)"));
  }
  ExpectAllAsItWas();
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(Renaming, RefusesATableWhoseColumnsAreNoArrayBeforeAnythingRuns) {
  for (const char* wrong :
       {R"({"gsnap_meta":"tag"})", R"({"gsnap_meta":null})", R"({"gsnap_meta":{"tag":1}})",
        R"({"gsnap_meta":7})", R"({"gsnap_meta":["tag"],"target_snap_list":"%s"})"}) {
    log.Clear();
    EXPECT_FALSE(Replace(wrong, "g1", "g2")) << wrong;
    EXPECT_THAT(log.Entries(),
                ElementsAre(Line(std::string("Invalid table field info: [") + wrong + "]")));
  }
  EXPECT_THAT(core.Of({"Exec"}), IsEmpty());
  ExpectAllAsItWas();
}

TEST_F(Renaming, RefusesADescriptionThatIsNoObjectWithoutThrowing) {
  for (const char* wrong : {"true", "7", "\"tag\"", R"(["tag"])"}) {
    log.Clear();
    EXPECT_FALSE(Replace(wrong, "g1", "g2")) << wrong;
    EXPECT_THAT(log.Entries(),
                ElementsAre(Line(std::string("Invalid table field info: [") + wrong + "]")));
  }
  EXPECT_THAT(core.Of({"Exec"}), IsEmpty());
}

TEST_F(Renaming, TakesAColumnThatIsNoTextForTheEmptyText) {
  EXPECT_FALSE(Replace(R"({"gsnap_meta": ["tag", 7]})", "g1", "g2"));
  EXPECT_THAT(log.Entries(),
              ElementsAre(ExecFailed("update 'gsnap_meta' set tag = replace(tag, 'g1', 'g2');"
                                     "update 'gsnap_meta' set  = replace(, 'g1', 'g2');")));
  ExpectAllAsItWas();
}

TEST_F(Renaming, IsUndoneByATableThatIsNotThere) {
  EXPECT_FALSE(Replace(R"({"gsnap_meta": ["tag"], "nowhere%s": ["x"]})", "g1", "g2"));
  EXPECT_THAT(log.Entries(),
              ElementsAre(ExecFailed("update 'gsnap_meta' set tag = replace(tag, 'g1', 'g2');"
                                     "update 'nowhere%s' set x = replace(x, 'g1', 'g2');")));
  ExpectAllAsItWas();
}

TEST_F(Renaming, PutsTextsIntoTheStatementAsTheyAre) {
  EXPECT_FALSE(Replace(R"({"gsnap_meta": ["tag"]})", "g'1", "%d"));
  EXPECT_THAT(log.Entries(),
              ElementsAre(ExecFailed("update 'gsnap_meta' set tag = replace(tag, 'g'1', '%d');")));
  ExpectAllAsItWas();
  EXPECT_TRUE(Replace(R"({"gsnap_meta": ["tag"]})", "g1", "o''clock"));
  EXPECT_EQ(MetaRows().front(), "'d'|0|0|'g1-gsnap-GMT-2020.01.01-00.00.00'|'o'clock'|10|1");
}

TEST_F(Renaming, KeepsAStatementOfAnyLengthWhole) {
  const std::string before = "update 'gsnap_meta' set tag = replace(tag, 'g1', '";
  const std::string behind = "');";
  for (const std::size_t length : {1022, 1023, 1024, 1025, 5000}) {
    Db().Exec("UPDATE gsnap_meta SET tag = 'g1' WHERE gsnap_time = 10");
    core.Clear();
    const std::string text(length - before.size() - behind.size(), 'n');
    EXPECT_TRUE(Replace(R"({"gsnap_meta": ["tag"]})", "g1", text)) << length;
    EXPECT_EQ(MetaRows().front(), "'d'|0|0|'g1-gsnap-GMT-2020.01.01-00.00.00'|'" + text + "'|10|1");
    EXPECT_THAT(core.Of({"Exec"}), ElementsAre("Exec(BEGIN TRANSACTION;" + before + text + behind +
                                               "COMMIT TRANSACTION;)"));
  }
}

TEST_F(Renaming, KeepsALongStatementThatFailsWholeInTheLog) {
  const std::string text(2000, 'n');
  Refuse("UPDATE", "gsnap_meta");
  EXPECT_FALSE(Replace(R"({"gsnap_meta": ["tag"]})", "g1", text));
  EXPECT_THAT(
      log.Entries(),
      ElementsAre(ExecFailed("update 'gsnap_meta' set tag = replace(tag, 'g1', '" + text + "');")));
}

// A guest "g1" with three group snapshots, whose column "minor_id" holds NULL, 0 and 7.
class Upgrading : public CatalogueTest {
 protected:
  Upgrading() {
    MakeCatalogue();
    for (const long time : {1, 2, 3}) AddMeta("g1-gsnap-" + std::to_string(time), time);
    Db().Exec("UPDATE gsnap_meta SET minor_id = 0 WHERE gsnap_time = 2");
    Db().Exec("UPDATE gsnap_meta SET minor_id = 7 WHERE gsnap_time = 3");
  }

  void MakeSecondGuest() {
    ASSERT_TRUE(DRGroupDB::Init("/var/groups/two", "g2", true));
    RawDb("/var/groups/two/drgroup.db").Exec("INSERT INTO gsnap_meta (gsnap_id) VALUES ('two')");
    core.Clear();
  }

  std::vector<std::string> MinorIds() const {
    return Db().Rows("SELECT minor_id FROM gsnap_meta ORDER BY gsnap_time");
  }
  static std::vector<std::string> MinorIdsOfTheSecond() {
    return RawDb("/var/groups/two/drgroup.db").Rows("SELECT minor_id FROM gsnap_meta");
  }

  static std::string Script(const std::string& guest) {
    return "VLIBCExec(" + kScript + ", repair_db, " + kLinkRoot + "/" + guest + ")";
  }
  static auto SchemaFailed(const std::string& guest) {
    return Line("Failed to upgrade drgroup.db's schema for guest [" + guest + "]");
  }
  static auto ColumnFailed(const std::string& guest) {
    return Line("Failed to update record to gsnap_meta table for guest [" + guest + "]");
  }
  static auto MinorIdFailed(const std::string& guest) {
    return Line("Failed to update minor id for guest [" + guest + "]");
  }
};

TEST_F(Upgrading, FillsOnlyWhatIsNull) {
  EXPECT_EQ(GroupSnapMetaUpdater("minor_id", {"g1"}), 0);
  EXPECT_THAT(MinorIds(), ElementsAre("1", "0", "7"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(Upgrading, RunsTheScriptOnTheLinkDirectoryOfEveryGuest) {
  MakeSecondGuest();
  EXPECT_EQ(GroupSnapMetaUpdater("minor_id", {"g2", "g1"}), 0);
  EXPECT_THAT(core.Of({"VLIBCExec"}), ElementsAre(Script("g2"), Script("g1")));
  EXPECT_THAT(core.Of({"CreateDir", "RemoveDir", "VLIBCFileLStat"}), IsEmpty());
  EXPECT_THAT(MinorIds(), ElementsAre("1", "0", "7"));
  EXPECT_THAT(MinorIdsOfTheSecond(), ElementsAre("1"));
}

TEST_F(Upgrading, AddsTheColumnToAnOlderCatalogueAndFillsIt) {
  Db().Exec("ALTER TABLE gsnap_meta DROP COLUMN minor_id");
  Db().Exec("UPDATE vreldrcore_db_info SET value = 1 WHERE key = 'version'");
  EXPECT_EQ(GroupSnapMetaUpdater("minor_id", {"g1"}), 0);
  EXPECT_THAT(MinorIds(), ElementsAre("1", "1", "1"));
}

TEST_F(Upgrading, OfNoGuestsDoesNothing) {
  EXPECT_EQ(GroupSnapMetaUpdater("minor_id", {}), 0);
  EXPECT_THAT(core.OfPlatform(), IsEmpty());
  EXPECT_THAT(core.Of({"SqliteDB"}), IsEmpty());
}

TEST_F(Upgrading, PassesOverAGuestWithoutADatabaseEvenWithoutAScript) {
  fs::remove(kScript);
  fs::create_directories(kLinkRoot + "/dangling");
  fs::create_symlink("/var/groups/none/drgroup.db", kLinkRoot + "/dangling/drgroup.db");
  EXPECT_EQ(GroupSnapMetaUpdater("minor_id", {"nowhere", "dangling"}), 0);
  EXPECT_THAT(core.Of({"VLIBCExec"}), IsEmpty());
  EXPECT_THAT(log.Entries(), IsEmpty());
  EXPECT_FALSE(Exists(kLinkRoot + "/nowhere"));
}

TEST_F(Upgrading, NamesAnEmptyGuestAndGoesOnWithTheOthers) {
  EXPECT_EQ(GroupSnapMetaUpdater("minor_id", {"", "nowhere", "g1"}), -1);
  EXPECT_THAT(log.Entries(), ElementsAre(Line("Guest ID is empty"), SchemaFailed("")));
  EXPECT_THAT(core.Of({"VLIBCExec"}), ElementsAre(Script("g1")));
  EXPECT_THAT(MinorIds(), ElementsAre("1", "0", "7"));
}

TEST_F(Upgrading, NeedsTheScriptAndFillsNothingWithoutIt) {
  MakeSecondGuest();
  fs::remove(kScript);
  EXPECT_EQ(GroupSnapMetaUpdater("minor_id", {"g1", "g2"}), -1);
  const std::string missing = "[" + kScript + "] is not existed to update db [" + kLinkRoot + "/";
  EXPECT_THAT(log.Entries(), ElementsAre(Line(missing + "g1/drgroup.db]"), SchemaFailed("g1"),
                                         Line(missing + "g2/drgroup.db]"), SchemaFailed("g2")));
  EXPECT_THAT(core.Of({"VLIBCExec"}), IsEmpty());
  EXPECT_THAT(MinorIds(), ElementsAre("NULL", "0", "7"));
}

TEST_F(Upgrading, GoesOnAfterAGuestWhoseSchemaCannotBeRepaired) {
  MakeSecondGuest();
  WriteScript("#!/bin/sh\ncase $2 in */g1) exit 3 ;; esac\n");
  EXPECT_EQ(GroupSnapMetaUpdater("minor_id", {"g1", "g2"}), -1);
  EXPECT_THAT(log.Entries(),
              ElementsAre(Line("Failed to exec [" + kScript + " repair_db " + kLinkRoot + "/g1]"),
                          SchemaFailed("g1")));
  EXPECT_THAT(MinorIds(), ElementsAre("NULL", "0", "7"));
  EXPECT_THAT(MinorIdsOfTheSecond(), ElementsAre("1"));
}

TEST_F(Upgrading, GoesOnAfterAGuestWhoseRowsCannotBeFilledAndKeepsItsSchema) {
  MakeSecondGuest();
  Db().Exec("ALTER TABLE gsnap_meta DROP COLUMN minor_id");
  Db().Exec("UPDATE vreldrcore_db_info SET value = 1 WHERE key = 'version'");
  Refuse("UPDATE", "gsnap_meta");
  EXPECT_EQ(GroupSnapMetaUpdater("minor_id", {"g1", "g2"}), -1);
  EXPECT_THAT(log.Entries(), ElementsAre(ColumnFailed("g1"), MinorIdFailed("g1")));
  EXPECT_THAT(MinorIds(), ElementsAre("NULL", "NULL", "NULL"));
  EXPECT_THAT(MinorIdsOfTheSecond(), ElementsAre("1"));
}

TEST_F(Upgrading, FailsOnAColumnThatIsNotThere) {
  EXPECT_EQ(GroupSnapMetaUpdater("no_such_%s", {"g1"}), -1);
  EXPECT_EQ(GroupSnapMetaUpdater("", {"g1"}), -1);
  EXPECT_THAT(log.Entries(), ElementsAre(ColumnFailed("g1"), MinorIdFailed("g1"),
                                         ColumnFailed("g1"), MinorIdFailed("g1")));
}

TEST_F(Upgrading, FillsTheColumnThatTheCallerNames) {
  Db().Exec("UPDATE gsnap_meta SET \"desc\" = NULL, status = NULL WHERE gsnap_time = 1");
  EXPECT_EQ(GroupSnapMetaUpdater("desc", {"g1"}), 0);
  EXPECT_EQ(MetaRows().front(), "'1'|0|0|'g1-gsnap-1'|'g1'|1|NULL");
  EXPECT_THAT(MinorIds(), ElementsAre("NULL", "0", "7"));
}

TEST_F(Upgrading, TakesAGuestIdentifierAsAnArgumentOfTheLog) {
  ASSERT_TRUE(DRGroupDB::Init("/var/groups/two", "g%s%n", true));
  WriteScript("#!/bin/sh\nexit 1\n");
  EXPECT_EQ(GroupSnapMetaUpdater("minor_id", {"g%s%n"}), -1);
  EXPECT_THAT(log.Entries(), ElementsAre(Line("Failed to exec [" + kScript + " repair_db " +
                                              kLinkRoot + "/g%s%n]"),
                                         SchemaFailed("g%s%n")));
}

}  // namespace
}  // namespace unit
