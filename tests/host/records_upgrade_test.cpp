#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vreldr/error.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "base/kill_point.h"
#include "behind_writer.h"
#include "foundation/records.h"
#include "foundation/schema.h"
#include "foundation/upgrade_mark.h"
#include "host_fixture.h"
#include "log_capture.h"
#include "store/store.h"
#include "tree.h"

// Bringing records of every earlier version to the newest one: what is in them stays, whatever
// interrupts it and whoever else does the same.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using VrelDRCore::SelectCommand;
using VrelDRCore::SqliteDB;
using VrelDRCore::SqliteTableHandler;
using VrelDRCore::SqliteValueList;

constexpr int kNewest = 8;
// How records that are too new for this program are told from others.
const std::string kLater = std::to_string(kNewest + 1);

// Rows for every table that a version has, in all states, as programs of that version wrote them.
constexpr std::array kRows{
    R"(
INSERT INTO targets (id, type, volume, state, last_snap_time) VALUES
  ('lun', 1, 'v1', 2, 1700000000), ('it''s a sh' || char(228) || 're', 2, 'v 2', 1, 0),
  ('guest', 3, 'v1', 3, 4294967295);
INSERT INTO snapshots (target_id, snap_id, create_time, state, description, is_locked,
                       is_app_consistent, taken_by) VALUES
  ('lun', 's1', 1700000000, 2, 'before ''the'' change', 1, 0, 'tool'),
  ('lun', 's2', 0, 1, '', 0, 1, ''), ('guest', 's1', 4294967295, 3, char(10), 0, 0, 'x');
DELETE FROM snapshots WHERE snap_id = 's2';
)",
    R"(
INSERT INTO plans (id, state, solution_type, target_type, protected_target_id, dr_target_id,
                   schedule_mode, main_site, dr_site, status, direction, is_reprotected,
                   hand_snap_id) VALUES
  ('p1', 2, 1, 1, 'lun', 'lun-dr', 1, 'n1', 'n2', 2, 2, 1, 's1'),
  ('p2', 3, 1, 3, 'guest', 'guest-dr', 2, 'n1', 'n1', 1, 1, 0, '');
INSERT INTO retention_locks (target_id, snap_id, locker) VALUES ('lun', 's1', 'planp1'),
  ('lun-dr', 's1', 'planp1');
INSERT INTO pending_snaps (plan_id, snap_id) VALUES ('p1', 's1'), ('p2', 's9');
INSERT INTO sync_reports VALUES ('p1', 3, 's1', 9000000000, 9000000001, 7, 1700000000, 1700000009);
INSERT INTO journals VALUES ('p1', 2, 1, 55, 1700000000, 'half', 's1', 4711, 1),
  ('p2', 9, 2, 100, 1, '', '', 1, 0);
)",
    R"(
INSERT INTO volumes VALUES ('v1', 'id-1', 'btrfs:00'), ('v 2', 'id-2', '0x1021994');
UPDATE snapshots SET maker = 'm-' || seq;
UPDATE plans SET hand_failures = seq + 6;
)",
    R"(
UPDATE targets SET locator = 'at ' || id;
)",
    R"(
INSERT INTO cuts VALUES ('c1', 2, 2, 1, 'btrfs transaction', 0, 0), ('c2', 3, 0, 0, 'copy', 7, 9);
UPDATE snapshots SET cut_id = 'c1' WHERE target_id = 'lun';
)",
    R"(
UPDATE cuts SET is_made_by_sync = 1 WHERE id = 'c2';
)",
    R"(
INSERT INTO snapshots (target_id, seq, snap_id, state) VALUES ('lun', 9, 's0', 2);
UPDATE snapshot_sequence SET last = 12;
)",
};

// A new version adds its rows here, and what it makes of older ones to Upgraded.
static_assert(VrelHost::kRecordsSchema.size() == kNewest && kRows.size() == kNewest - 1);

using Row = std::map<std::string, std::string>;
using Content = std::map<std::string, std::vector<Row>>;

std::vector<Row> RowsOf(const SqliteDB& db, const std::string& table) {
  std::vector<Row> rows;
  SelectCommand command;
  command.SetTable(SqliteTableHandler(table));
  EXPECT_TRUE(db.SelectEach(command, [&rows](const SqliteValueList& values) {
    Row& row = rows.emplace_back();
    for (std::size_t i = 0; i < values.Size(); ++i) {
      row[values.NameAt(i)] = values.ValueAt(i).AsText();
    }
    return true;
  })) << table;
  return rows;
}

// All rows of all tables; the sequences that SQLite counts with are a table too.
Content ContentOf(const std::string& path) {
  const SqliteDB db = VrelHost::RecordsAt(path);
  Content content;
  for (Row& each : RowsOf(db, "sqlite_master")) {
    if (each["type"] == "table") content[each["name"]] = RowsOf(db, each["name"]);
  }
  return content;
}

// The statements by which tables and indexes were made.
std::map<std::string, std::string> SchemaOf(const std::string& path) {
  std::map<std::string, std::string> schema;
  for (Row& each : RowsOf(VrelHost::RecordsAt(path), "sqlite_master")) {
    schema[each["type"] + " " + each["name"]] = each["sql"];
  }
  return schema;
}

// What the records of an earlier version have to hold once they are of the newest.
Content Upgraded(Content content, int version) {
  if (version < 2) {
    for (const char* table : {"plans", "retention_locks", "pending_snaps", "sync_reports"}) {
      content[table];
    }
    content["journals"];
  }
  if (version < 3) {
    content["volumes"];
    for (Row& row : content["snapshots"]) row["maker"] = "";
    for (Row& row : content["plans"]) row["hand_failures"] = "0";
  }
  if (version < 4) {
    for (Row& row : content["targets"]) row["locator"] = row["id"];
  }
  if (version < 5) {
    content["cuts"];
    for (Row& row : content["snapshots"]) row["cut_id"] = "";
  }
  if (version < 6) {
    for (Row& row : content["cuts"]) row["is_made_by_sync"] = "0";
  }
  if (version < 7) {
    Row& sequence = content["snapshot_sequence"].emplace_back();
    sequence["last"] = "0";
    std::erase_if(content["sqlite_sequence"], [&](Row& row) {
      if (row["name"] == "snapshots") sequence["last"] = row["seq"];
      return row["name"] == "snapshots";
    });
    std::ranges::sort(content["snapshots"], {},
                      [](Row& row) { return std::pair(row["target_id"], std::stol(row["seq"])); });
  }
  content["vreldrcore_db_info"] = {{{"key", "version"}, {"value", std::to_string(kNewest)}}};
  return content;
}

class RecordsUpgradeTest : public HostTest {
 protected:
  std::string Records() const { return Root() + "/replica.db"; }

  // Puts records of the version in the place of those there.
  void MakeVersion(int version, bool withRows) const {
    RemoveRecords(Records());
    WriteFile(Records(), "");
    std::string sql =
        "BEGIN; CREATE TABLE vreldrcore_db_info (key TEXT NOT NULL PRIMARY KEY,"
        " value TEXT NOT NULL); INSERT INTO vreldrcore_db_info VALUES ('version', '" +
        std::to_string(version) + "');";
    for (std::size_t i = 0; i < static_cast<std::size_t>(version); ++i) {
      sql += VrelHost::kRecordsSchema[i];
      if (withRows && i < kRows.size()) sql += kRows[i];
    }
    const SqliteDB db = VrelHost::RecordsAt(Records());
    ASSERT_TRUE(db.Exec(sql + "COMMIT")) << db.GetErr();
  }

  static void RemoveRecords(const std::string& path) {
    fs::remove(path);
    for (const char* each : VrelHost::kSideFiles) fs::remove(path + each);
  }

  static VrelDR::Status Upgrade(const std::string& path) {
    return VrelHost::UpgradeRecords(VrelHost::RecordsAt(path));
  }

  int UpgradeKilledAt(std::string_view point) const {
    return RunInChild({{"VRELDR_KILL_POINT", std::string(point)}},
                      [this] { return Upgrade(Records()).IsOk() ? 0 : 1; });
  }
};

INSTANTIATE_TEST_SUITE_P(Volumes, RecordsUpgradeTest, testing::Values("tmpfs"), HostTest::NameOf);

TEST_P(RecordsUpgradeTest, RecordsOfEveryEarlierVersionKeepWhatTheyHold) {
  const std::string anew = Root() + "/new.db";
  ASSERT_TRUE(VrelHost::MakeRecords(anew).IsOk());
  for (int version = 1; version < kNewest; ++version) {
    for (const bool withRows : {false, true}) {
      SCOPED_TRACE(std::to_string(version) + (withRows ? " with rows" : " empty"));
      MakeVersion(version, withRows);
      const Content before = ContentOf(Records());
      ASSERT_EQ(before.at("targets").size(), withRows ? 3U : 0U);
      const test_support::LogCapture log;
      const VrelDR::Status status = Upgrade(Records());
      ASSERT_TRUE(status.IsOk()) << status.message;
      const auto lines = log.Entries();
      ASSERT_EQ(lines.size(), 2U);
      EXPECT_THAT(lines[0].text, HasSubstr(Records() + "\" are being upgraded from version " +
                                           std::to_string(version) + " to "));
      EXPECT_THAT(lines[1].text, HasSubstr(Records() + "\" were upgraded"));
      EXPECT_EQ(ContentOf(Records()), Upgraded(before, version));
      EXPECT_EQ(SchemaOf(Records()), SchemaOf(anew));
      const std::string bytes = ReadFile(Records());
      EXPECT_TRUE(Upgrade(Records()).IsOk());
      EXPECT_EQ(ReadFile(Records()), bytes) << "the newest version stays as it is";
    }
  }
}

TEST_P(RecordsUpgradeTest, EveryTableOfEveryVersionHasRowsHere) {
  for (int version = 1; version < kNewest; ++version) {
    MakeVersion(version, true);
    for (const auto& [table, rows] : ContentOf(Records())) {
      EXPECT_FALSE(rows.empty()) << table << " of version " << version;
    }
  }
}

TEST_P(RecordsUpgradeTest, OneThatIsKilledHasHappenedOnceItIsCommittedAndNotBefore) {
  for (int version = 1; version < kNewest; ++version) {
    SCOPED_TRACE(version);
    MakeVersion(version, true);
    const Content before = ContentOf(Records());
    EXPECT_EQ(UpgradeKilledAt(VrelDR::kRecordsUpgrading), 128 + SIGKILL);
    EXPECT_EQ(ContentOf(Records()), before);
    EXPECT_EQ(UpgradeKilledAt(VrelDR::kRecordsUpgraded), 128 + SIGKILL);
    EXPECT_EQ(ContentOf(Records()), Upgraded(before, version));
    EXPECT_EQ(UpgradeKilledAt(VrelDR::kRecordsUpgrading), 0) << "there is nothing left to do";
  }
}

// So many rows, and so little memory for them, that SQLite writes pages of the transaction to the
// file before it is committed.
TEST_P(RecordsUpgradeTest, OneThatIsCutHalfWayIsTakenBackByItsJournalAndDoneByTheNextOpening) {
  for (int version = 1; version < 7; ++version) {
    SCOPED_TRACE(version);
    MakeVersion(version, true);
    ASSERT_TRUE(VrelHost::RecordsAt(Records()).Exec(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n"
        " WHERE i < 4000) INSERT INTO targets (id, type, volume, state)"
        " SELECT 'many' || i, 2, hex(zeroblob(500)), 2 FROM n;"
        "INSERT INTO snapshots (target_id, snap_id, state) SELECT id, 's', 2 FROM targets"
        " WHERE id LIKE 'many%';"
        "PRAGMA default_cache_size = 10"));
    const Content before = ContentOf(Records());
    const std::string old = ReadFile(Records());
    ASSERT_EQ(UpgradeKilledAt(VrelDR::kRecordsUpgrading), 128 + SIGKILL);
    const std::string half = ReadFile(Records());
    const std::string journal = ReadFile(Records() + "-journal");
    ASSERT_NE(half, old) << "nothing was written, so that this shows nothing";
    ASSERT_EQ(journal.substr(0, 4), "\xd9\xd5\x05\xf9") << "the journal is not hot";
    // What a power cut leaves when what was written last got to the disk, and when it did not.
    for (const std::string& bytes : {half, old}) {
      const fs::path cut = Root() + "/cut";
      fs::create_directory(cut);
      const std::string path = cut / "replica.db";
      WriteFile(path, bytes);
      WriteFile(path + "-journal", journal);
      EXPECT_EQ(ContentOf(path), before);
      WriteFile(path, bytes);
      WriteFile(path + "-journal", journal);
      std::optional<VrelDR::Store> store;
      const VrelDR::Status status = VrelDR::Store::Open(cut, store);
      EXPECT_TRUE(status.IsOk()) << status.message;
      store.reset();
      EXPECT_EQ(ContentOf(path), Upgraded(before, version));
      fs::remove_all(cut);
    }
  }
}

TEST_P(RecordsUpgradeTest, TwoProcessesThatBothSawTheEarlierVersionBothSucceed) {
  for (int version = 1; version < kNewest; ++version) {
    SCOPED_TRACE(version);
    MakeVersion(version, true);
    const Content before = ContentOf(Records());
    RunBehindAWriter(Records(), "", 2, [this] { return Upgrade(Records()).IsOk(); });
    EXPECT_EQ(ContentOf(Records()), Upgraded(before, version));
  }
}

TEST_P(RecordsUpgradeTest, TheyHaveALogInTheEndAlsoWhenThatWasAllThatWasDone) {
  for (const int version : {6, 7}) {
    for (const bool hasLog : {false, true}) {
      MakeVersion(version, true);
      const Content before = ContentOf(Records());
      const SqliteDB db = VrelHost::RecordsAt(Records());
      if (hasLog) {
        ASSERT_TRUE(db.Exec("PRAGMA journal_mode = WAL"));
      }
      ASSERT_TRUE(VrelHost::UpgradeRecords(db).IsOk());
      EXPECT_EQ(RowsOf(db, "pragma_journal_mode").front()["journal_mode"], "wal");
      EXPECT_FALSE(fs::exists(Records() + "-journal")) << "which may be as large as the records";
      EXPECT_EQ(ContentOf(Records()), Upgraded(before, version));
    }
  }
}

TEST_P(RecordsUpgradeTest, WhereALogCannotBeTheyKeepTheirJournal) {
  fs::create_directories(Records() + ".new-shm/in the way");
  MakeVersion(6, true);
  const Content before = ContentOf(Records());
  ASSERT_TRUE(Upgrade(Records()).IsOk());
  EXPECT_EQ(ContentOf(Records()), Upgraded(before, 6));
  EXPECT_EQ(RowsOf(VrelHost::RecordsAt(Records()), "pragma_journal_mode").front()["journal_mode"],
            "delete");
}

TEST_P(RecordsUpgradeTest, WhoComesMeanwhileIsToldOrWaits) {
  MakeVersion(6, true);
  std::optional<VrelHost::UpgradeMark> mark(std::in_place);
  ASSERT_TRUE(mark->Take(Records()).IsOk());
  {
    const SqliteDB upgrading = VrelHost::RecordsAt(Records());
    ASSERT_TRUE(upgrading.Exec("BEGIN EXCLUSIVE"));
    const SqliteDB other(Records(), 0, "vreldrcore_db_info");
    int version = 0;
    ASSERT_FALSE(other.GetSchemaVersion(version));
    const VrelDR::Status status = VrelHost::RecordsFailure(other);
    EXPECT_EQ(status.code, VrelDR::kErrBusy);
    EXPECT_THAT(status.message, HasSubstr("are being upgraded by another process"));
  }
  const pid_t waiting = StartChild({}, [this] { return Upgrade(Records()).IsOk() ? 0 : 1; });
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_EQ(ContentOf(Records())["vreldrcore_db_info"].front()["value"], "6");
  mark.reset();
  EXPECT_EQ(WaitFor(waiting), 0);
  EXPECT_FALSE(VrelHost::UpgradeMark::IsHeld(Records()));
  EXPECT_EQ(ContentOf(Records())["vreldrcore_db_info"].front()["value"], std::to_string(kNewest));
}

TEST_P(RecordsUpgradeTest, WithoutRoomTheOldOnesStayWhole) {
  const std::string dir = Root() + "/small";
  std::string why;
  fs::create_directory(dir);
  const MountedImage image("ext4", dir, why);
  if (!image.IsMounted()) GTEST_SKIP() << why;
  MakeVersion(6, true);
  ASSERT_TRUE(VrelHost::RecordsAt(Records()).Exec(
      "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 20000)"
      " INSERT INTO snapshots (target_id, snap_id, state) SELECT 'lun', hex(randomblob(80)), 2"
      " FROM n"));
  const Content before = ContentOf(Records());
  const std::string path = dir + "/replica.db";
  fs::copy_file(Records(), path);
  {
    std::ofstream filler(dir + "/filler", std::ios::binary);
    const std::string much(1 << 16, 'x');
    while (filler.write(much.data(), static_cast<std::streamsize>(much.size())).flush()) {
    }
  }
  const VrelDR::Status status = Upgrade(path);
  EXPECT_EQ(status.code, VrelDR::kErrStore);
  EXPECT_THAT(status.message, HasSubstr("free space"));
  EXPECT_EQ(ContentOf(path), before);
  fs::remove(dir + "/filler");
  ASSERT_TRUE(Upgrade(path).IsOk());
  EXPECT_EQ(ContentOf(path), Upgraded(before, 6));
}

TEST_P(RecordsUpgradeTest, OneThatALaterProgramHasOvertakenIsRefusedAndTakesNothingBack) {
  MakeVersion(6, true);
  const std::string last =
      "UPDATE vreldrcore_db_info SET value = '" + kLater + "'; CREATE TABLE later (a)";
  RunBehindAWriter(Records(), last, 2, [this] {
    const VrelDR::Status status = Upgrade(Records());
    return status.code == VrelDR::kErrStore &&
           status.message.find("are of version " + kLater + ",") != std::string::npos;
  });
  Content after = ContentOf(Records());
  EXPECT_EQ(after["vreldrcore_db_info"].front()["value"], kLater);
  EXPECT_EQ(after.count("later"), 1U);
  EXPECT_EQ(after.count("snapshot_sequence"), 0U);
}

TEST_P(RecordsUpgradeTest, RecordsOfALaterVersionAreRefusedAndStayAsTheyAre) {
  MakeVersion(kNewest, true);
  ASSERT_TRUE(
      VrelHost::RecordsAt(Records()).Exec("ALTER TABLE targets ADD COLUMN later;"
                                          "UPDATE vreldrcore_db_info SET value = '" +
                                          kLater + "'"));
  const auto before = DescribeTree(Root());
  std::optional<VrelDR::Store> store;
  const VrelDR::Status status = VrelDR::Store::Open(Root(), store);
  EXPECT_EQ(status.code, VrelDR::kErrStore);
  EXPECT_THAT(status.message, HasSubstr(Records()));
  EXPECT_THAT(status.message, HasSubstr("are of version " + kLater + ","));
  EXPECT_FALSE(store);
  VrelHost::RecordsCondition condition{};
  EXPECT_TRUE(VrelHost::ExamineRecords(Records(), condition).IsOk());
  EXPECT_EQ(condition, VrelHost::RecordsCondition::kNewer);
  EXPECT_EQ(DescribeTree(Root()), before);
}

}  // namespace
}  // namespace host_test
