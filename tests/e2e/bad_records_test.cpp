#include <sqlite3.h>

#include <algorithm>

#include "plan_fixture.h"

// The host's records when the file is spoilt: every verb that reads plans says which file, what is
// wrong with it and what to do, and never sends anybody to a log.

namespace e2e {
namespace {

using host_test::ReadFile;
using host_test::WriteFile;
using testing::HasSubstr;
using testing::Not;
using Words = std::vector<std::string>;

class BadRecordsTest : public PlanTest {
 protected:
  std::string Records() const { return Root() + "/state/replica.db"; }

  // Puts garbage in the place of a table's pages. The tables of these tests and their indexes have
  // one page each.
  void SpoilTable(const std::string& table) const {
    std::string bytes = ReadFile(Records());
    const std::size_t pageSize =
        static_cast<unsigned char>(bytes[16]) * 256U + static_cast<unsigned char>(bytes[17]);
    const std::vector<std::size_t> pages = PagesOf(table);
    ASSERT_FALSE(pages.empty()) << table;
    for (const std::size_t page : pages) {
      ASSERT_GE(bytes.size(), page * pageSize);
      bytes.replace((page - 1) * pageSize, pageSize, std::string(pageSize, '\x5a'));
    }
    WriteFile(Records(), bytes);
  }

  // Fails like this, with one line and no word of a log.
  static void ExpectRefused(const Words& words, const Words& parts) {
    SCOPED_TRACE(testing::PrintToString(words));
    const Result result = Run(words);
    EXPECT_EQ(result.code, kStorage);
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    for (const std::string& part : parts) EXPECT_THAT(result.err, HasSubstr(part));
    EXPECT_THAT(result.err, Not(HasSubstr("system log")));
    EXPECT_THAT(result.err, Not(HasSubstr("can be now")));
  }

 private:
  std::vector<std::size_t> PagesOf(const std::string& table) const {
    sqlite3* db = nullptr;
    sqlite3_stmt* statement = nullptr;
    std::vector<std::size_t> pages;
    EXPECT_EQ(sqlite3_open_v2(Records().c_str(), &db, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
    const std::string sql = "SELECT rootpage FROM sqlite_master WHERE tbl_name = '" + table + "'";
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK) {
      while (sqlite3_step(statement) == SQLITE_ROW) {
        pages.push_back(static_cast<std::size_t>(sqlite3_column_int64(statement, 0)));
      }
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
    return pages;
  }
};

INSTANTIATE_TEST_SUITE_P(Volumes, BadRecordsTest, testing::Values("directory"),
                         FileSystemsTest::NameOf);

TEST_P(BadRecordsTest, AFileThatIsNoDatabaseIsNamedByEveryVerbThatReadsPlans) {
  MakeProtected();
  const std::string planId =
      RunWell({"plan", "list", "--json"}).Json()["plans"][0]["plan_id"].asString();
  WriteFile(Records(), std::string(40000, 'x'));
  for (const Words& words :
       {Words{"plan", "list"}, Words{"plan", "show", planId}, Words{"status"}, Words{"status", "g"},
        Words{"sync", "g"}, Words{"failover", "g", "--force", "--yes"},
        Words{"action", "run", "sync", "g"}, Words{"unprotect", "g", "--yes"}}) {
    ExpectRefused(words, {Records(), "not a database", "put back a copy"});
  }
}

TEST_P(BadRecordsTest, ASpoiltTableOfPlansIsNamedByEveryVerbThatReadsPlans) {
  MakeProtected();
  const std::string planId =
      RunWell({"plan", "list", "--json"}).Json()["plans"][0]["plan_id"].asString();
  SpoilTable("plans");
  for (const Words& words :
       {Words{"plan", "list"}, Words{"plan", "show", planId}, Words{"status"}, Words{"status", "g"},
        Words{"sync", "g"}, Words{"switchover", "g"}, Words{"failover", "g", "--force", "--yes"},
        Words{"action", "run", "sync", "g"}, Words{"unprotect", "g", "--yes"}}) {
    ExpectRefused(words, {Records(), "malformed", "put back a copy"});
  }
}

// What cannot be told of a plan is not told as nothing.
TEST_P(BadRecordsTest, StatusSaysWhatASpoiltTableKeepsFromItAndShowsTheRest) {
  MakeProtected();
  const std::string good = ReadFile(Records());
  for (const char* table : {"journals", "pending_snaps", "retention_locks"}) {
    SCOPED_TRACE(table);
    SpoilTable(table);
    const Json::Value row = RunWell({"status", "g", "--json"}).Json()["targets"][0];
    EXPECT_EQ(row["state"], "protected");
    EXPECT_THAT(row["problem"].asString(), HasSubstr(Records()));
    EXPECT_THAT(row["problem"].asString(), HasSubstr("malformed"));
    EXPECT_EQ(row["site"], table == std::string("journals") ? "unknown" : "normal");
    EXPECT_EQ(row["pending_count"].isNull(), table == std::string("pending_snaps"));
    EXPECT_EQ(row["last_snap_state"],
              table == std::string("retention_locks") ? "unknown" : "present");
    WriteFile(Records(), good);
    EXPECT_EQ(RunWell({"status", "g", "--json"}).Json()["targets"][0]["problem"], "");
  }
}

TEST_P(BadRecordsTest, NothingIsDroppedWhileItCannotBeToldWhatHasArrived) {
  MakeProtected();
  SpoilTable("retention_locks");
  ExpectRefused({"plan", "drop-arrived", "lun", "--yes"}, {Records(), "malformed"});
}

}  // namespace
}  // namespace e2e
