#include <sqlite3.h>
#include <vreldr/target_operation.h>

#include <algorithm>
#include <string>
#include <vector>

#include "bind_mount.h"
#include "plan_fixture.h"

// Catalogues with a long history: what is asked about one thing reads nothing of the rest. The rest
// of the rows is garbage in these tests, so that whoever reads it fails.

namespace e2e {
namespace {

using host_test::ReadFile;
using host_test::WriteFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using Words = std::vector<std::string>;

constexpr int kHistory = 4000;  // group snapshots, of three targets each

class LongHistoryTest : public PlanTest {
 protected:
  // Puts a history before whatever the group's catalogue gets from now on.
  void AddHistory(const std::string& group) const {
    RunSql(DatabaseOf(group),
           "BEGIN; CREATE TEMP TABLE n AS WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 "
           "FROM n LIMIT " +
               std::to_string(kHistory) + ") SELECT i, '" + group +
               "-gsnap-' || (1000000000 + i) AS id FROM n;"
               "INSERT INTO gsnap_meta SELECT 'a description that takes some room', 0, 1, id, '" +
               group + "', 1000000000 + i, 1, 1 FROM n;" +
               "INSERT INTO target_snap_list SELECT t.v, 1, printf('%08x-', i * 7919 % 4001) || "
               "t.v || '-once', id FROM n, (SELECT 'lun' AS v UNION ALL SELECT 'share' UNION ALL "
               "SELECT 'guest') t ORDER BY i; COMMIT");
  }

  // Puts garbage in the place of most pages of the tables' rows. The first and the last of each,
  // and the indexes, stay.
  void SpoilHistory(const std::string& group) const {
    std::string bytes = ReadFile(DatabaseOf(group));
    const std::size_t pageSize =
        static_cast<unsigned char>(bytes[16]) * 256U + static_cast<unsigned char>(bytes[17]);
    for (const char* table : {"gsnap_meta", "target_snap_list"}) {
      const std::vector<std::size_t> pages = LeavesOf(group, table);
      ASSERT_GE(pages.size(), 20U) << table;
      for (std::size_t i = 1; i + 8 < pages.size(); ++i) {
        bytes.replace((pages[i] - 1) * pageSize, pageSize, std::string(pageSize, '\x5a'));
      }
    }
    WriteFile(DatabaseOf(group), bytes);
  }

  void MakeLong(const std::string& group) const {
    AddHistory(group);
    SpoilHistory(group);
    if (HasFatalFailure()) return;
    RunBadly(kCatalogue, {"snapshot", "list", group}, {DatabaseOf(group), "damaged"});
  }

  // A snapshot of the lun that nothing records; its identifier.
  static std::string TakeAlone(const std::string& description) {
    const VrelDR::TargetOperation operation(VrelDR::Target("lun", VrelDR::kTargetLun));
    std::string id;
    EXPECT_TRUE(operation.TakeSnapshot({description, false, false, ""}, id)) << operation.GetErr();
    return id;
  }

 private:
  // In the order of their rows.
  std::vector<std::size_t> LeavesOf(const std::string& group, const std::string& table) const {
    sqlite3* db = nullptr;
    sqlite3_stmt* statement = nullptr;
    std::vector<std::size_t> pages;
    EXPECT_EQ(sqlite3_open_v2(DatabaseOf(group).c_str(), &db, SQLITE_OPEN_READONLY, nullptr),
              SQLITE_OK);
    const std::string sql = "SELECT pageno FROM dbstat WHERE name = '" + table +
                            "' AND pagetype = 'leaf' ORDER BY path";
    EXPECT_EQ(sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr), SQLITE_OK)
        << sqlite3_errmsg(db);
    while (sqlite3_step(statement) == SQLITE_ROW) {
      pages.push_back(static_cast<std::size_t>(sqlite3_column_int64(statement, 0)));
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
    return pages;
  }
};

INSTANTIATE_TEST_SUITE_P(Volumes, LongHistoryTest, testing::Values("directory"),
                         LongHistoryTest::NameOf);

TEST_P(LongHistoryTest, TheLatestAndTheNumberOfGroupSnapshotsAreFoundWithoutTheOthers) {
  MakeGroup();
  MakeLong("g");
  const std::string latest = TakeSnapshot();
  const Json::Value list = RunWell({"snapshot", "list", "g", "--latest", "--json"}).Json();
  ASSERT_THAT(list["snapshots"], SizeIs(1));
  EXPECT_EQ(list["snapshots"][0]["gsnap_id"], latest);
  EXPECT_EQ(list["snapshots"][0]["target_count"], 3);
  EXPECT_EQ(list["snapshots"][0]["status"], "ready");
  const Json::Value group = RunWell({"group", "list", "--json"}).Json()["groups"][0];
  EXPECT_EQ(group["problem"], "");
  EXPECT_EQ(group["gsnap_count"], kHistory + 1);
  EXPECT_EQ(group["latest_gsnap_id"], latest);
  const Json::Value shown = RunWell({"group", "show", "g", "--json"}).Json();
  EXPECT_EQ(shown["gsnap_count"], kHistory + 1);
  EXPECT_EQ(shown["latest_gsnap_id"], latest);
}

TEST_P(LongHistoryTest, AGroupSnapshotIsShownAndDeletedWithoutTheOthers) {
  MakeGroup();
  MakeLong("g");
  const std::string id = TakeSnapshot();
  EXPECT_THAT(RunWell({"snapshot", "show", id, "--json"}).Json()["targets"], SizeIs(3));
  RunBadly(kNotFound, {"snapshot", "show", "g-gsnap-5"}, {"there is no group snapshot"});
  EXPECT_EQ(RunWell({"snapshot", "delete", id, "--yes", "--json"}).Json()["deleted_count"], 3);
  RunBadly(kNotFound, {"snapshot", "show", id}, {id});
  RunSql(DatabaseOf("g"), "DELETE FROM gsnap_meta WHERE gsnap_id = 'g-gsnap-1000004000'");
  RunBadly(kCatalogue, {"snapshot", "show", "g-gsnap-1000004000"}, {"recorded only in part"});
}

// The part of the first target was taken by then.
TEST_P(LongHistoryTest, ACreationThatFailsTakesBackWhatItTookWhateverIsRecordedElsewhere) {
  MakeGroup();
  RunWell({"group", "create", "h", "--target", "share"});
  MakeLong("h");
  MakeLong("g");
  const std::string kept = TakeAlone("");
  RunSql(DatabaseOf("g"),
         "CREATE TRIGGER keep BEFORE INSERT ON target_snap_list WHEN NEW.target_id = 'guest' "
         "BEGIN SELECT RAISE(ABORT, 'no'); END");
  const Result result = Run({"snapshot", "create", "g", "--json"});
  EXPECT_EQ(result.code, kCatalogue) << result.err;
  EXPECT_THAT(result.Json()["error"]["left_snapshots"], SizeIs(0)) << result.err;
  const Json::Value targets = RunWell({"target", "list", "--json"}).Json()["targets"];
  for (const Json::Value& each : targets) {
    EXPECT_EQ(each["snapshot_count"], each["target_id"] == "lun" ? 1 : 0) << each;
  }
}

TEST_P(LongHistoryTest, PruningATargetAsksForItsSnapshotsAlone) {
  MakeGroup();
  RunWell({"group", "create", "h", "--target", "lun"});
  MakeLong("h");
  MakeLong("g");
  const std::string left = TakeAlone("");
  const std::string recorded = TakeAlone("");
  RunSql(DatabaseOf("h"),
         "INSERT INTO target_snap_list VALUES ('lun', 1, '" + recorded + "', 'h-gsnap-1')");
  TakeSnapshot();
  const Json::Value pruned = RunWell({"target", "prune", "lun", "--yes", "--json"}).Json();
  ASSERT_THAT(pruned["snapshots"], SizeIs(1));
  EXPECT_EQ(pruned["snapshots"][0]["tsnap_id"], left);
  RunBadly(kRefused, {"target", "prune", "lun", "--yes", "--snapshot", recorded},
           {recorded, "is recorded in group snapshot"});
}

TEST_P(LongHistoryTest, PruningAGroupAsksForWhatSyncsHaveMadeAlone) {
  MakeProtected();
  RunWell({"group", "create", "h", "--target", "share"});
  for (const char* group : {"h", "g", "gd"}) MakeLong(group);
  Words sync{"sync", "g", "--dr-group", "gd", "--json"};
  ChangeMain();
  const Json::Value first = RunWell(sync).Json();
  ChangeMain();
  const Json::Value second = RunWell(sync).Json();
  const std::string own = TakeSnapshot();
  const Json::Value pruned = RunWell({"snapshot", "prune", "g", "--yes", "--json"}).Json();
  ASSERT_THAT(pruned["group_snapshots"], SizeIs(2));
  for (const Json::Value& each : pruned["group_snapshots"]) {
    EXPECT_EQ(each["gsnap_id"], first[each["group_id"] == "g" ? "gsnap_id" : "dr_gsnap_id"]);
  }
  for (const std::string& stays : {own, second["gsnap_id"].asString()}) {
    for (const Json::Value& each :
         RunWell({"snapshot", "show", stays, "--json"}).Json()["targets"]) {
      EXPECT_EQ(each["exists"], true) << each;
    }
  }
  EXPECT_THAT(RunWell({"snapshot", "prune", "g", "--yes", "--json"}).Json()["group_snapshots"],
              SizeIs(0));
}

TEST_P(LongHistoryTest, TheRemovalOfACopyIsClaimedByWhatRecordsItsSnapshotsAlone) {
  MakeProtected();
  RunWell({"group", "create", "h", "--target", "share"});
  for (const char* group : {"h", "g", "gd"}) MakeLong(group);
  ChangeMain();
  const Json::Value synced = RunWell({"sync", "g", "--dr-group", "gd", "--lock", "--json"}).Json();
  const std::string recorded = synced["dr_gsnap_id"].asString();
  const Result refused = Run({"unprotect", "g", "--delete-data", "--yes", "--json"});
  EXPECT_EQ(refused.code, kRefused) << refused.err;
  const Json::Value claims = refused.Json()["error"]["claims"];
  ASSERT_THAT(claims, SizeIs(3)) << refused.err;
  for (const Json::Value& each : claims) {
    EXPECT_THAT(each.asString(),
                HasSubstr("is recorded in group snapshot \"" + recorded + "\", which is locked"));
  }
}

// Also one that lies far back.
TEST_P(LongHistoryTest, ASyncRecordsWhatWasShippedAndIsNotRecordedAndLooksAtNoOther) {
  MakeProtected();
  const std::string shipped = TakeSnapshot({"--description", "early"});
  RunWell({"snapshot", "ship", shipped});
  for (const char* group : {"g", "gd"}) MakeLong(group);
  const Words sync{"sync", "g", "--dr-group", "gd", "--json"};
  ChangeMain();
  const Json::Value first = RunWell(sync).Json();
  ASSERT_THAT(first["shipped_gsnaps"], SizeIs(1));
  const std::string recorded = first["shipped_gsnaps"][0]["gsnap_id"].asString();
  EXPECT_EQ(RunWell({"snapshot", "show", recorded, "--json"}).Json()["description"], "early");
  ChangeMain();
  EXPECT_THAT(RunWell(sync).Json()["shipped_gsnaps"], SizeIs(0));
  RunWell({"snapshot", "sync", "gd"});
  for (const char* table : {"gsnap_meta", "target_snap_list", "target_replica_list"}) {
    RunSql(DatabaseOf("gd"),
           std::string("DELETE FROM ") + table + " WHERE gsnap_id = '" + recorded + "'");
  }
  ChangeMain();
  const Json::Value again = RunWell(sync).Json()["shipped_gsnaps"];
  ASSERT_THAT(again, SizeIs(1));
  EXPECT_EQ(again[0]["gsnap_id"], recorded);
  EXPECT_EQ(RunWell({"snapshot", "show", recorded, "--json"}).Json()["status"], "ready");
}

// What an earlier release has left on a disk that can only be read now.
TEST_P(LongHistoryTest, ACatalogueOfAnEarlierSchemaIsReadWhereItCannotBeUpgraded) {
  MakeGroup();
  const std::string first = TakeSnapshot();
  const std::string latest = TakeSnapshot();
  AddHistory("g");
  RunSql(DatabaseOf("g"),
         "DROP INDEX gsnap_meta_gsnap_time; DROP INDEX target_snap_list_tsnap_id; "
         "ALTER TABLE gsnap_meta DROP COLUMN minor_id; "
         "UPDATE vreldrcore_db_info SET value = 1 WHERE key = 'version'");
  const std::string left = TakeAlone("");
  const auto before = Tree(GroupDirectory("g"));
  {
    const host_test::BindMount mounted(GroupDirectory("g"), GroupDirectory("g"));
    ASSERT_EQ(mount(nullptr, GroupDirectory("g").c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY,
                    nullptr),
              0);
    const Json::Value list = RunWell({"snapshot", "list", "g", "--json"}).Json()["snapshots"];
    ASSERT_EQ(list.size(), kHistory + 2U);
    EXPECT_EQ(list[0]["gsnap_id"], first);
    EXPECT_EQ(list[0]["target_count"], 3);
    EXPECT_EQ(list[kHistory + 1]["target_count"], 3);
    const Json::Value one =
        RunWell({"snapshot", "list", "g", "--latest", "--json"}).Json()["snapshots"];
    ASSERT_THAT(one, SizeIs(1));
    EXPECT_EQ(one[0]["gsnap_id"], latest);
    EXPECT_EQ(RunWell({"group", "show", "g", "--json"}).Json()["gsnap_count"], kHistory + 2);
    EXPECT_EQ(RunWell({"group", "list", "--json"}).Json()["groups"][0]["problem"], "");
    EXPECT_THAT(RunWell({"snapshot", "show", first, "--json"}).Json()["targets"], SizeIs(3));
    const Json::Value dry = RunWell({"target", "prune", "lun", "--dry-run", "--json"}).Json();
    ASSERT_THAT(dry["snapshots"], SizeIs(1));
    EXPECT_EQ(dry["snapshots"][0]["tsnap_id"], left);
  }
  EXPECT_EQ(Tree(GroupDirectory("g")), before);
}

}  // namespace
}  // namespace e2e
