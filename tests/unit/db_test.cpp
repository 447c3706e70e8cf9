#include <vreldrcore/err_recorder.h>
#include <vreldrgroup/db.h>

#include <filesystem>
#include <fstream>

#include "catalogue_test.h"
#include "record_values.h"
#include "sync_record.h"

namespace unit {
namespace {

namespace fs = std::filesystem;

using VrelDRCore::ErrRecorder;
using VrelDRGroup::DRGroupDB;
using VrelDRGroup::DRTransactDB;

class GroupDb : public CatalogueTest {};

TEST_F(GroupDb, IsTheFileInTheGivenDirectory) {
  EXPECT_EQ(DRGroupDB::Get(dbDir).GetPath(), dbPath);
  EXPECT_EQ(DRGroupDB("/a/").GetPath(), "/a//drgroup.db");
}

TEST_F(GroupDb, HasNoPathWithoutADirectory) {
  EXPECT_EQ(DRGroupDB::Get("").GetPath(), "");
  EXPECT_FALSE(DRGroupDB::Get("").IsExisted());
}

TEST_F(GroupDb, IsFoundByTheGroupsIdentifierThroughItsLink) {
  EXPECT_EQ(DRGroupDB::GetRef("g1").GetPath(), linkPath);
}

TEST_F(GroupDb, TakesAGroupsIdentifierAsItIs) {
  EXPECT_EQ(DRGroupDB::GetRef("").GetPath(), kLinkRoot + "//drgroup.db");
}

TEST_F(GroupDb, IsMadeWithoutTouchingTheFileSystem) {
  DRGroupDB::Get(dbDir);
  DRGroupDB::GetRef("g1");
  EXPECT_THAT(core.OfPlatform(), IsEmpty());
  EXPECT_FALSE(Exists(dbDir));
  EXPECT_FALSE(Exists(kLinkRoot));
}

TEST_F(GroupDb, IsMadeWithTwentySecondsAndTheInfoTable) {
  DRGroupDB::Get(dbDir);
  DRGroupDB::GetRef("g1");
  DRTransactDB transact("/var/groups/any.file");
  EXPECT_THAT(core.Of({"SqliteDB"}),
              ElementsAre("SqliteDB(" + dbPath + ", 20, vreldrcore_db_info)",
                          "SqliteDB(" + linkPath + ", 20, vreldrcore_db_info)",
                          "SqliteDB(/var/groups/any.file, 20, vreldrcore_db_info)"));
}

TEST_F(GroupDb, FailsOnAMissingFileAndLeavesNoneBehind) {
  fs::create_directories(dbDir);
  const DRGroupDB db = DRGroupDB::Get(dbDir);
  EXPECT_EQ(ToString(db.GetErr()), R"({"err_code":0})");
  EXPECT_FALSE(db.Exec("CREATE TABLE t (c)"));
  EXPECT_NE(db.GetErrCode(), 0);
  EXPECT_FALSE(Exists(dbPath));
}

TEST_F(GroupDb, MovesWithItsPath) {
  DRGroupDB db = DRGroupDB::Get(dbDir);
  const DRGroupDB moved = std::move(db);
  EXPECT_EQ(moved.GetPath(), dbPath);
}

TEST_F(GroupDb, HasATableHandleForEachOfItsTables) {
  EXPECT_EQ(VrelDRGroup::GsnapMetadataSqliteTable().GetTable(), "gsnap_meta");
  EXPECT_EQ(VrelDRGroup::GsnapMetadataSqliteTable().GetSchema(), "");
  EXPECT_EQ(VrelDRGroup::TargetSnapListSqliteTable().GetTable(), "target_snap_list");
  EXPECT_EQ(VrelDRGroup::TargetSnapListSqliteTable().GetSchema(), "");
  EXPECT_EQ(VrelDRGroup::TargetReplicaListSqliteTable().GetTable(), "target_replica_list");
  EXPECT_EQ(VrelDRGroup::TargetReplicaListSqliteTable().GetSchema(), "");
}

class GroupDbClear : public CatalogueTest {
 protected:
  GroupDbClear() {
    MakeCatalogue();
    std::ofstream(dbDir + "/other") << "kept";
  }
};

TEST_F(GroupDbClear, RemovesTheLinkDirectoryAndTheFileButNotItsDirectory) {
  DRGroupDB::Clear(dbDir, "g1");
  EXPECT_FALSE(Exists(linkDir));
  EXPECT_FALSE(Exists(dbPath));
  EXPECT_TRUE(Exists(dbDir + "/other"));
  EXPECT_TRUE(Exists(kLinkRoot));
  EXPECT_THAT(core.OfPlatform(),
              ElementsAre("RemoveDir(" + linkDir + ")", "VLIBCFileExist(" + dbPath + ")"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(GroupDbClear, WithoutAGroupRemovesOnlyTheFile) {
  DRGroupDB::Clear(dbDir, "");
  EXPECT_FALSE(Exists(dbPath));
  EXPECT_TRUE(Exists(linkPath));
  EXPECT_TRUE(Exists(kLinkRoot));
}

TEST_F(GroupDbClear, WithoutADirectoryRemovesOnlyTheLinkDirectory) {
  DRGroupDB::Clear("", "g1");
  EXPECT_FALSE(Exists(linkDir));
  EXPECT_TRUE(Exists(dbPath));
}

TEST_F(GroupDbClear, WithoutEitherRemovesNothing) {
  DRGroupDB::Clear("", "");
  EXPECT_TRUE(Exists(linkPath));
  EXPECT_TRUE(Exists(dbPath));
  EXPECT_THAT(core.OfPlatform(), IsEmpty());
}

TEST_F(GroupDbClear, RemovesWhatElseIsInTheLinkDirectory) {
  fs::create_directories(linkDir + "/sub");
  std::ofstream(linkDir + "/sub/file") << "x";
  DRGroupDB::Clear("", "g1");
  EXPECT_FALSE(Exists(linkDir));
}

TEST_F(GroupDbClear, RemovesTheFilesThatSqliteKeepsBesideTheDatabase) {
  for (const char* suffix : {"-journal", "-wal", "-shm"}) std::ofstream(dbPath + suffix) << "x";
  DRGroupDB::Clear(dbDir, "g1");
  for (const char* suffix : {"-journal", "-wal", "-shm"}) EXPECT_FALSE(Exists(dbPath + suffix));
  EXPECT_TRUE(Exists(dbDir + "/other"));
}

TEST_F(GroupDbClear, BringsBothRemovalsToDisk) {
  const test_support::SyncRecord disk;
  DRGroupDB::Clear("", "g1");
  EXPECT_THAT(disk.Paths(), testing::AllOf(testing::Not(IsEmpty()), testing::Each(kLinkRoot)));
  DRGroupDB::Clear(dbDir, "");
  EXPECT_EQ(disk.Paths().back(), dbDir);
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(GroupDbClear, SaysNothingWhenThereIsNothing) {
  DRGroupDB::Clear("/var/groups/none", "g2");
  EXPECT_FALSE(Exists("/var/groups/none"));
  EXPECT_THAT(log.Entries(), IsEmpty());
  EXPECT_TRUE(Exists(linkPath));
}

TEST_F(GroupDbClear, LetsTheNextInitMakeAnEmptyDatabase) {
  AddMeta("g1-gsnap-5", 5);
  DRGroupDB::Clear(dbDir, "g1");
  EXPECT_TRUE(DRGroupDB::Init(dbDir, "g1", true));
  EXPECT_THAT(MetaRows(), IsEmpty());
}

class TransactDb : public CatalogueTest {
 protected:
  TransactDb() { MakeCatalogue(); }
};

TEST_F(TransactDb, RunsTheStatementsBetweenBeginAndCommitInOneCall) {
  const std::string sql =
      "UPDATE gsnap_meta SET tag = 'x';INSERT INTO gsnap_meta (gsnap_id) VALUES ('a');";
  DRTransactDB db(dbPath);
  EXPECT_TRUE(db.TransactExec(sql));
  EXPECT_THAT(core.Of({"Exec"}),
              ElementsAre("Exec(BEGIN TRANSACTION;" + sql + "COMMIT TRANSACTION;)"));
  EXPECT_THAT(Db().Rows("SELECT gsnap_id, tag FROM gsnap_meta"), ElementsAre("'a'|NULL"));
  EXPECT_THAT(core.Of({"SqliteDB"}),
              ElementsAre("SqliteDB(" + dbPath + ", 20, vreldrcore_db_info)"));
}

TEST_F(TransactDb, KeepsNothingOfAFailedRun) {
  {
    DRTransactDB db(dbPath);
    EXPECT_FALSE(db.TransactExec(
        "INSERT INTO gsnap_meta (gsnap_id) VALUES ('a');INSERT INTO no_such_table VALUES (1);"));
    EXPECT_NE(db.GetErrCode(), 0);
  }
  EXPECT_THAT(Db().Rows("SELECT gsnap_id FROM gsnap_meta"), IsEmpty());
}

TEST_F(TransactDb, FailsWhenTheStatementDoesNotEnd) {
  {
    DRTransactDB db(dbPath);
    EXPECT_FALSE(db.TransactExec("INSERT INTO gsnap_meta (gsnap_id) VALUES ('a')"));
  }
  EXPECT_THAT(Db().Rows("SELECT gsnap_id FROM gsnap_meta"), IsEmpty());
}

TEST_F(TransactDb, FailsOnAMissingFile) {
  DRTransactDB db("/var/groups/none.db");
  EXPECT_FALSE(db.TransactExec("SELECT 1;"));
  EXPECT_FALSE(Exists("/var/groups/none.db"));
}

// A recorder whose codes have texts, as the replication library's has.
class WithTexts : public ErrRecorder {
 public:
  std::string GetErrCodeStr(int code) const override { return code == 634 ? "gone" : ""; }
};

TEST(ErrRecorderTest, StartsWithCodeZeroAlone) {
  EXPECT_EQ(ToString(ErrRecorder().GetErr()), R"({"err_code":0})");
}

TEST(ErrRecorderTest, KnowsNoTextOfAnyCode) {
  for (const int code : {0, 401, 404, 407, 621, 622, 634, -1}) {
    EXPECT_EQ(ErrRecorder().GetErrCodeStr(code), "") << code;
  }
}

TEST(ErrRecorderTest, AddsTheTextOfACodeThatHasOne) {
  WithTexts recorder;
  recorder.SetErr(634);
  EXPECT_EQ(ToString(recorder.GetErr()), R"({"err_code":634,"err_code_str":"gone"})");
  recorder.SetErr(404);
  EXPECT_EQ(ToString(recorder.GetErr()), R"({"err_code":404})");
}

TEST(ErrRecorderTest, AddsAMessageOfAnyKindButNull) {
  WithTexts recorder;
  for (const char* message : {R"({"a":[1]})", "[]", "\"\"", "false", "0"}) {
    recorder.SetErr(634, Json(message));
    EXPECT_EQ(ToString(recorder.GetErr()),
              std::string(R"({"err_code":634,"err_code_str":"gone","err_msg":)") + message + "}");
  }
  recorder.SetErr(634, Json::Value());
  EXPECT_EQ(ToString(recorder.GetErr()), R"({"err_code":634,"err_code_str":"gone"})");
}

}  // namespace
}  // namespace unit
