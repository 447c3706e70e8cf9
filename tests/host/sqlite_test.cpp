#include "vreldrcore/sqlite_db.h"

#include <gmock/gmock.h>
#include <json/writer.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <limits>

#include "host_fixture.h"
#include "tree.h"
#include "vreldrcore/sqlite_failure.h"

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using VrelDRCore::DeleteCommand;
using VrelDRCore::InsertCommand;
using VrelDRCore::SelectCommand;
using VrelDRCore::SqliteDB;
using VrelDRCore::SqliteEqual;
using VrelDRCore::SqliteFailure;
using VrelDRCore::SqliteIsNull;
using VrelDRCore::SqliteTableHandler;
using VrelDRCore::SqliteValue;
using VrelDRCore::SqliteValueList;
using VrelDRCore::ToSqliteFailure;
using VrelDRCore::UpdateCommand;

class SqliteTest : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/var/sqlite-test-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    dir_ = name;
    path_ = dir_ + "/a.db";
    WriteFile(path_, "");
  }

  SqliteDB Open(unsigned int busySeconds = 0) const { return SqliteDB(path_, busySeconds, "info"); }

  // A database with one table of awkward names.
  SqliteDB OpenWithTable() const {
    SqliteDB db = Open();
    EXPECT_TRUE(db.Exec(R"(CREATE TABLE "group" ("desc" TEXT, "a ""b" INTEGER, c))"))
        << db.GetErr();
    return db;
  }

  static SqliteTableHandler Table() { return SqliteTableHandler("group"); }

  static bool Insert(const SqliteDB& db, const SqliteValue& desc, const SqliteValue& number = {}) {
    SqliteValueList values;
    values.AddValue("desc", desc);
    values.AddValue("a \"b", number);
    InsertCommand command;
    command.SetTable(Table());
    command.SetFieldValues(values);
    return db.InsertRecord(command);
  }

  static SelectCommand SelectAll() {
    SelectCommand command;
    command.SetTable(Table());
    command.SelectAll();
    return command;
  }

  // The texts of "desc" of what the command selects.
  static std::vector<std::string> Texts(const SqliteDB& db, const SelectCommand& command) {
    std::vector<SqliteValueList> rows;
    EXPECT_TRUE(db.SelectRecords(command, rows)) << db.GetErr();
    std::vector<std::string> texts;
    for (const SqliteValueList& row : rows) {
      std::string text = "(none)";
      row.GetValue("desc", text);
      texts.push_back(text);
    }
    return texts;
  }

  std::string dir_;
  std::string path_;
};

TEST_F(SqliteTest, AMissingFileFailsAndIsNotMade) {
  const std::string missing = dir_ + "/missing.db";
  const SqliteDB db(missing, 1, "info");
  EXPECT_FALSE(db.IsExisted());
  std::vector<SqliteValueList> rows;
  EXPECT_FALSE(db.SelectRecords(SelectAll(), rows));
  EXPECT_EQ(db.GetErrCode() & 0xff, SQLITE_CANTOPEN);
  EXPECT_FALSE(db.GetErrMsg().asString().empty());
  EXPECT_FALSE(Insert(db, "x"));
  EXPECT_FALSE(db.Exec("CREATE TABLE t (a)"));
  EXPECT_FALSE(db.DeleteRecord(Table(), SqliteEqual("desc", "x")));
  EXPECT_FALSE(fs::exists(missing));
}

TEST_F(SqliteTest, NamesThatMeanSomethingElseToSqliteAreFileNames) {
  for (const char* name : {"", ":memory:", "file:x?mode=memory"}) {
    const SqliteDB db(name, 0, "info");
    EXPECT_FALSE(db.Exec("CREATE TABLE t (a)")) << name;
    EXPECT_NE(db.GetErrCode(), 0) << name;
  }
}

TEST_F(SqliteTest, NothingIsOpenedBeforeTheFirstCommand) {
  const SqliteDB db(dir_ + "/later.db", 0, "info");
  EXPECT_EQ(db.GetErrCode(), 0);
  EXPECT_EQ(db.GetPath(), dir_ + "/later.db");
  WriteFile(dir_ + "/later.db", "");
  EXPECT_TRUE(db.IsExisted());
  EXPECT_TRUE(db.Exec("CREATE TABLE t (a)"));
}

TEST_F(SqliteTest, ADanglingLinkIsNoDatabase) {
  fs::create_symlink(dir_ + "/nowhere", dir_ + "/link");
  const SqliteDB db(dir_ + "/link", 0, "info");
  EXPECT_FALSE(db.IsExisted());
  EXPECT_FALSE(db.Exec("CREATE TABLE t (a)"));
  EXPECT_FALSE(fs::exists(dir_ + "/nowhere"));
}

TEST_F(SqliteTest, ALinkedDatabaseIsWorkedOn) {
  { OpenWithTable(); }
  fs::create_symlink(path_, dir_ + "/link");
  EXPECT_TRUE(Insert(SqliteDB(dir_ + "/link", 0, "info"), "through"));
  EXPECT_THAT(Texts(Open(), SelectAll()), ElementsAre("through"));
}

TEST_F(SqliteTest, WhatIsNotADatabaseIsRefusedAndUntouched) {
  const std::string junk(5000, 'j');
  WriteFile(path_, junk);
  const SqliteDB db = Open();
  EXPECT_FALSE(db.Exec("CREATE TABLE t (a)"));
  EXPECT_EQ(db.GetErrCode(), SQLITE_NOTADB);
  EXPECT_EQ(ReadFile(path_), junk);
}

TEST_F(SqliteTest, ATruncatedDatabaseIsReported) {
  {
    const SqliteDB db = OpenWithTable();
    for (int i = 0; i < 200; ++i) ASSERT_TRUE(Insert(db, std::string(300, 'x')));
  }
  fs::resize_file(path_, fs::file_size(path_) / 2);
  const SqliteDB db = Open();
  std::vector<SqliteValueList> rows;
  EXPECT_FALSE(db.SelectRecords(SelectAll(), rows));
  EXPECT_EQ(db.GetErrCode() & 0xff, SQLITE_CORRUPT);
}

TEST_F(SqliteTest, TextComesBackAsItWentIn) {
  const SqliteDB db = OpenWithTable();
  const std::vector<std::string> texts = {"",
                                          "plain",
                                          "'; DROP TABLE \"group\"; --",
                                          "\"quoted\"",
                                          std::string("zero\0byte", 9),
                                          "line\nbreak",
                                          "\xc3\xa4",
                                          "\xff not UTF-8"};
  for (const std::string& text : texts) ASSERT_TRUE(Insert(db, text)) << db.GetErr();
  EXPECT_EQ(Texts(db, SelectAll()), texts);
  for (const std::string& text : texts) {
    SelectCommand command = SelectAll();
    command.SetCondition(SqliteEqual("desc", text));
    EXPECT_THAT(Texts(db, command), ElementsAre(text));
  }
}

TEST_F(SqliteTest, ANullColumnIsNotPresent) {
  const SqliteDB db = OpenWithTable();
  ASSERT_TRUE(Insert(db, SqliteValue(), SqliteValue(7)));
  SqliteValueList row;
  ASSERT_TRUE(db.SelectRecord(SelectAll(), row));
  std::string text = "as it was";
  int number = 0;
  EXPECT_FALSE(row.GetValue("desc", text));
  EXPECT_FALSE(row.GetValue("no such column", text));
  EXPECT_EQ(text, "as it was");
  EXPECT_TRUE(row.GetValue("a \"b", number));
  EXPECT_EQ(number, 7);
}

TEST_F(SqliteTest, NumbersNarrowAsInC) {
  const SqliteDB db = OpenWithTable();
  for (const long value : {4294967296L, 4294967297L, -1L, std::numeric_limits<long>::min()}) {
    ASSERT_TRUE(Insert(db, "x", value));
  }
  std::vector<SqliteValueList> rows;
  ASSERT_TRUE(db.SelectRecords(SelectAll(), rows));
  unsigned int narrow = 5;
  int number = 5;
  long wide = 5;
  bool flag = false;
  EXPECT_TRUE(rows[0].GetValue("a \"b", narrow));
  EXPECT_EQ(narrow, 0u);
  EXPECT_TRUE(rows[0].GetValue("a \"b", wide));
  EXPECT_EQ(wide, 4294967296L);
  EXPECT_TRUE(rows[0].GetValue("a \"b", flag));
  EXPECT_TRUE(flag);
  EXPECT_TRUE(rows[1].GetValue("a \"b", number));
  EXPECT_EQ(number, 1);
  EXPECT_TRUE(rows[2].GetValue("a \"b", narrow));
  EXPECT_EQ(narrow, 4294967295u);
  EXPECT_TRUE(rows[3].GetValue("a \"b", wide));
  EXPECT_EQ(wide, std::numeric_limits<long>::min());
}

TEST_F(SqliteTest, SelectsWhatIsAskedForInTheOrderAskedFor) {
  const SqliteDB db = OpenWithTable();
  ASSERT_TRUE(Insert(db, "b", 1));
  ASSERT_TRUE(Insert(db, "c", 1));
  ASSERT_TRUE(Insert(db, "a", 2));
  ASSERT_TRUE(Insert(db, SqliteValue(), 1));
  SelectCommand command = SelectAll();
  command.AddOrderField("desc");
  EXPECT_THAT(Texts(db, command), ElementsAre("(none)", "a", "b", "c"));
  command.SetCondition(SqliteEqual("a \"b", 1));
  command.SetOrderByDESC();
  EXPECT_THAT(Texts(db, command), ElementsAre("c", "b", "(none)"));
  command.SetLimit(1);
  EXPECT_THAT(Texts(db, command), ElementsAre("c"));
  command.SetLimit(0);
  EXPECT_THAT(Texts(db, command), IsEmpty());
  SelectCommand nulls = SelectAll();
  nulls.SetCondition(SqliteIsNull("desc"));
  EXPECT_THAT(Texts(db, nulls), ElementsAre("(none)"));

  SelectCommand field = SelectAll();
  field.AddField("desc");
  SqliteValueList row;
  ASSERT_TRUE(db.SelectRecord(field, row));
  EXPECT_EQ(row.Size(), 1u);
  EXPECT_EQ(row.NameAt(0), "desc");
}

TEST_F(SqliteTest, SelectingOneRowOfNoneIsNoError) {
  const SqliteDB db = OpenWithTable();
  SqliteValueList row;
  EXPECT_FALSE(db.SelectRecord(SelectAll(), row));
  EXPECT_EQ(db.GetErrCode(), 0);
}

TEST_F(SqliteTest, VisitingStopsWhenTheVisitorSaysSo) {
  const SqliteDB db = OpenWithTable();
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(Insert(db, "x", i));
  int seen = 0;
  EXPECT_TRUE(db.SelectEach(SelectAll(), [&seen](const SqliteValueList&) { return ++seen < 3; }));
  EXPECT_EQ(seen, 3);
  EXPECT_EQ(db.GetErrCode(), 0);
}

TEST_F(SqliteTest, UpdatesWhatTheConditionPicks) {
  const SqliteDB db = OpenWithTable();
  ASSERT_TRUE(Insert(db, "a", 1));
  ASSERT_TRUE(Insert(db, "b", 2));
  UpdateCommand command;
  command.SetTable(Table());
  command.AddFieldValue<std::string>("desc", "changed");
  command.AddFieldValue<int>("c", 3);
  EXPECT_FALSE(db.UpdateRecord(command));
  EXPECT_NE(db.GetErrCode(), 0);
  EXPECT_THAT(Texts(db, SelectAll()), ElementsAre("a", "b"));
  command.SetCondition(SqliteEqual("a \"b", 2));
  EXPECT_TRUE(db.UpdateRecord(command)) << db.GetErr();
  EXPECT_THAT(Texts(db, SelectAll()), ElementsAre("a", "changed"));
  command.SetCondition(SqliteEqual("a \"b", 99));
  EXPECT_TRUE(db.UpdateRecord(command));
}

TEST_F(SqliteTest, AllConditionsHaveToHold) {
  const SqliteDB db = OpenWithTable();
  for (const char* text : {"a", "b"}) {
    for (const int number : {1, 2}) ASSERT_TRUE(Insert(db, text, number));
    ASSERT_TRUE(Insert(db, text));
  }
  SelectCommand select = SelectAll();
  select.AddCondition(SqliteEqual("a \"b", 2));
  EXPECT_THAT(Texts(db, select), ElementsAre("a", "b"));
  select.AddCondition(SqliteEqual("desc", "b"));
  EXPECT_THAT(Texts(db, select), ElementsAre("b"));
  select.SetCondition(SqliteIsNull("a \"b"));
  select.AddCondition(VrelDRCore::SqliteCondition());
  select.AddCondition(SqliteEqual("desc", "a"));
  EXPECT_THAT(Texts(db, select), ElementsAre("a"));
  DeleteCommand command;
  command.SetTable(Table());
  command.AddCondition(SqliteEqual("desc", "a"));
  command.AddCondition(SqliteIsNull("a \"b"));
  EXPECT_TRUE(db.DeleteRecord(command));
  EXPECT_THAT(Texts(db, SelectAll()), ElementsAre("a", "a", "b", "b", "b"));
}

TEST_F(SqliteTest, ACommandCanBeGivenWhileTheSameOneVisitsItsRows) {
  const SqliteDB db = OpenWithTable();
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(Insert(db, "x", i));
  int seen = 0;
  for (int round = 0; round < 2; ++round) {
    EXPECT_TRUE(db.SelectEach(SelectAll(), [&](const SqliteValueList&) {
      EXPECT_TRUE(db.SelectEach(SelectAll(), [&](const SqliteValueList&) { return ++seen > 0; }));
      return true;
    }));
  }
  EXPECT_EQ(seen, 18);
}

TEST_F(SqliteTest, ACommandThatIsGivenAgainSeesATableThatWasChangedMeanwhile) {
  const SqliteDB db = OpenWithTable();
  ASSERT_TRUE(Insert(db, "x", 1));
  EXPECT_THAT(Texts(db, SelectAll()), ElementsAre("x"));
  const SqliteDB other(path_, 1, "info");
  ASSERT_TRUE(other.Exec(R"(ALTER TABLE "group" ADD COLUMN later DEFAULT 'new')"));
  std::string later;
  EXPECT_TRUE(db.SelectEach(
      SelectAll(), [&](const SqliteValueList& row) { return row.GetValue("later", later); }));
  EXPECT_EQ(later, "new");
}

TEST_F(SqliteTest, DeletesWhatTheConditionPicksAndAllOnlyWhenAsked) {
  const SqliteDB db = OpenWithTable();
  ASSERT_TRUE(Insert(db, "a"));
  ASSERT_TRUE(Insert(db, "b"));
  ASSERT_TRUE(Insert(db, "c"));
  DeleteCommand command;
  command.SetTable(Table());
  EXPECT_FALSE(db.DeleteRecord(command));
  EXPECT_THAT(Texts(db, SelectAll()), SizeIs(3));
  command.SetCondition(SqliteEqual("desc", "b"));
  EXPECT_TRUE(db.DeleteRecord(command));
  EXPECT_TRUE(db.DeleteRecord(Table(), SqliteEqual("desc", "nobody")));
  EXPECT_THAT(Texts(db, SelectAll()), ElementsAre("a", "c"));
  DeleteCommand all;
  all.SetTable(Table());
  all.DeleteAll();
  EXPECT_TRUE(db.DeleteRecord(all));
  EXPECT_THAT(Texts(db, SelectAll()), IsEmpty());
}

TEST_F(SqliteTest, FailuresAreRecordedAndTheNextSuccessClearsThem) {
  const SqliteDB db = OpenWithTable();
  EXPECT_FALSE(db.Exec("SELECT * FROM nothing"));
  EXPECT_EQ(db.GetErrCode(), SQLITE_ERROR);
  EXPECT_THAT(db.GetErrMsg().asString(), HasSubstr("nothing"));
  EXPECT_TRUE(Insert(db, "x"));
  EXPECT_EQ(db.GetErrCode(), 0);
  EXPECT_TRUE(db.GetErrMsg().isNull());
  SelectCommand missing;
  missing.SetTable(SqliteTableHandler("no such table"));
  std::vector<SqliteValueList> rows;
  EXPECT_FALSE(db.SelectRecords(missing, rows));
  EXPECT_THAT(db.GetErrMsg().asString(), HasSubstr("no such table"));
}

TEST_F(SqliteTest, AConstraintThatIsBrokenKeepsTheFirstRow) {
  const SqliteDB db = Open();
  ASSERT_TRUE(db.Exec(R"(CREATE TABLE "group" ("desc" TEXT UNIQUE, "a ""b" INTEGER))"));
  EXPECT_TRUE(Insert(db, "x", 1));
  EXPECT_FALSE(Insert(db, "x", 2));
  EXPECT_EQ(db.GetErrCode() & 0xff, SQLITE_CONSTRAINT);
  EXPECT_THAT(Texts(db, SelectAll()), SizeIs(1));
}

TEST_F(SqliteTest, StatementsRunUpToTheFirstThatFails) {
  const SqliteDB db = OpenWithTable();
  EXPECT_FALSE(db.Exec(R"(INSERT INTO "group" ("desc") VALUES ('a'); nonsense;
                          INSERT INTO "group" ("desc") VALUES ('b'))"));
  EXPECT_THAT(Texts(db, SelectAll()), ElementsAre("a"));
}

TEST_F(SqliteTest, AnOpenTransactionIsRolledBackWhenTheObjectGoes) {
  {
    const SqliteDB db = OpenWithTable();
    ASSERT_TRUE(Insert(db, "kept"));
    ASSERT_TRUE(db.Exec("BEGIN"));
    ASSERT_TRUE(Insert(db, "lost"));
    EXPECT_THAT(Texts(db, SelectAll()), ElementsAre("kept", "lost"));
  }
  EXPECT_THAT(Texts(Open(), SelectAll()), ElementsAre("kept"));
}

TEST_F(SqliteTest, AMovedObjectTakesItsConnectionAlong) {
  SqliteDB first = OpenWithTable();
  ASSERT_TRUE(first.Exec("BEGIN"));
  ASSERT_TRUE(Insert(first, "x"));
  SqliteDB second = std::move(first);
  EXPECT_TRUE(second.Exec("COMMIT")) << second.GetErr();
  SqliteDB third = Open();
  third = std::move(second);
  EXPECT_THAT(Texts(third, SelectAll()), ElementsAre("x"));
  EXPECT_EQ(third.GetPath(), path_);
}

TEST_F(SqliteTest, AWriterWaitsForAnotherAndThenGivesUp) {
  const SqliteDB holder = OpenWithTable();
  ASSERT_TRUE(holder.Exec("BEGIN IMMEDIATE"));
  const auto begun = std::chrono::steady_clock::now();
  EXPECT_FALSE(Insert(Open(1), "x"));
  const auto waited = std::chrono::steady_clock::now() - begun;
  EXPECT_GE(waited, std::chrono::milliseconds(900));
  EXPECT_LT(waited, std::chrono::seconds(10));
  const SqliteDB atOnce = Open(0);
  EXPECT_FALSE(Insert(atOnce, "x"));
  EXPECT_EQ(atOnce.GetErrCode() & 0xff, SQLITE_BUSY);
  ASSERT_TRUE(holder.Exec("COMMIT"));
  EXPECT_TRUE(Insert(atOnce, "x"));
}

TEST_F(SqliteTest, ManyWritersAtOnceAllGetThrough) {
  { OpenWithTable(); }
  constexpr int kWriters = 4;
  constexpr int kRows = 25;
  std::vector<pid_t> children;
  const int result = RunInChild({}, [&] {
    for (int i = 0; i < kWriters; ++i) {
      const pid_t pid = fork();
      if (pid == 0) {
        bool good = true;
        for (int row = 0; row < kRows; ++row) good = good && Insert(Open(20), "x", row);
        _exit(good ? 0 : 1);
      }
      children.push_back(pid);
    }
    int failed = 0;
    for (const pid_t pid : children) {
      int status = 0;
      if (waitpid(pid, &status, 0) != pid || status != 0) ++failed;
    }
    return failed;
  });
  EXPECT_EQ(result, 0);
  EXPECT_THAT(Texts(Open(), SelectAll()), SizeIs(kWriters * kRows));
}

TEST_F(SqliteTest, CodesAreToldApartByWhatThereIsToDo) {
  const std::map<int, SqliteFailure> expected{
      {SQLITE_OK, SqliteFailure::kNone},
      {SQLITE_ERROR, SqliteFailure::kStatement},
      {SQLITE_ERROR_RETRY, SqliteFailure::kStatement},
      {SQLITE_PERM, SqliteFailure::kNotOpened},
      {SQLITE_BUSY, SqliteFailure::kHeld},
      {SQLITE_BUSY_RECOVERY, SqliteFailure::kHeld},
      {SQLITE_LOCKED, SqliteFailure::kOther},
      {SQLITE_NOMEM, SqliteFailure::kOther},
      {SQLITE_READONLY, SqliteFailure::kReadOnly},
      {SQLITE_READONLY_DIRECTORY, SqliteFailure::kReadOnly},
      {SQLITE_IOERR, SqliteFailure::kIo},
      {SQLITE_IOERR_FSYNC, SqliteFailure::kIo},
      {SQLITE_CORRUPT, SqliteFailure::kDamaged},
      {SQLITE_CORRUPT_INDEX, SqliteFailure::kDamaged},
      {SQLITE_FULL, SqliteFailure::kFull},
      {SQLITE_CANTOPEN, SqliteFailure::kNotOpened},
      {SQLITE_CANTOPEN_ISDIR, SqliteFailure::kNotOpened},
      {SQLITE_CONSTRAINT, SqliteFailure::kOther},
      {SQLITE_MISUSE, SqliteFailure::kOther},
      {SQLITE_NOTADB, SqliteFailure::kNotDatabase},
  };
  for (const auto& [code, failure] : expected) EXPECT_EQ(ToSqliteFailure(code), failure) << code;
}

TEST_F(SqliteTest, WhatFailsIsRecordedWithACodeThatTellsWhatThereIsToDo) {
  const auto after = [](const SqliteDB& db, const std::string& sql) {
    EXPECT_FALSE(db.Exec(sql)) << sql;
    return ToSqliteFailure(db.GetErrCode());
  };
  const SqliteDB db = OpenWithTable();
  EXPECT_EQ(ToSqliteFailure(db.GetErrCode()), SqliteFailure::kNone);
  EXPECT_EQ(after(db, "INSERT INTO lost VALUES (1)"), SqliteFailure::kStatement);
  ASSERT_TRUE(db.Exec("PRAGMA max_page_count = 3"));
  EXPECT_EQ(after(db, "INSERT INTO \"group\" VALUES (zeroblob(99999), 1, 1)"),
            SqliteFailure::kFull);
  ASSERT_TRUE(db.Exec("BEGIN EXCLUSIVE"));
  EXPECT_EQ(after(Open(), "DELETE FROM \"group\""), SqliteFailure::kHeld);
  ASSERT_TRUE(db.Exec("COMMIT; PRAGMA query_only = 1"));
  EXPECT_EQ(after(db, "DELETE FROM \"group\""), SqliteFailure::kReadOnly);
  EXPECT_EQ(after(SqliteDB(dir_ + "/missing.db", 0, "info"), "CREATE TABLE t (a)"),
            SqliteFailure::kNotOpened);
  EXPECT_EQ(after(SqliteDB(dir_, 0, "info"), "CREATE TABLE t (a)"), SqliteFailure::kNotOpened);
}

TEST_F(SqliteTest, AFileThatHasALogKeepsItAndOneThatHasNotGetsNone) {
  const auto journalOf = [](const SqliteDB& db) {
    SelectCommand command;
    command.SetTable(SqliteTableHandler("pragma_journal_mode"));
    SqliteValueList row;
    std::string mode;
    EXPECT_TRUE(db.SelectRecord(command, row) && row.GetValue("journal_mode", mode)) << db.GetErr();
    return mode;
  };
  ASSERT_TRUE(Open().Exec("CREATE TABLE one (a)"));
  {
    const SqliteDB db = Open();
    ASSERT_TRUE(db.Exec("INSERT INTO one VALUES (1)"));
    EXPECT_EQ(journalOf(db), "persist");
    ASSERT_TRUE(db.Exec("PRAGMA journal_mode = WAL"));
  }
  const SqliteDB reader = Open();
  EXPECT_EQ(journalOf(reader), "wal");
  const SqliteDB writer = Open();
  ASSERT_TRUE(writer.Exec("BEGIN IMMEDIATE; INSERT INTO one VALUES (2)"));
  EXPECT_EQ(journalOf(writer), "wal");
  // Nobody waits for a reader, and no reader waits.
  std::vector<SqliteValueList> rows;
  SelectCommand command;
  command.SetTable(SqliteTableHandler("one"));
  EXPECT_TRUE(reader.SelectRecords(command, rows)) << reader.GetErr();
  EXPECT_THAT(rows, SizeIs(1));
  EXPECT_TRUE(writer.Exec("COMMIT")) << writer.GetErr();
  EXPECT_TRUE(reader.SelectRecords(command, rows)) << reader.GetErr();
  EXPECT_THAT(rows, SizeIs(3));
}

TEST_F(SqliteTest, AFileWithALogIsReadWhereNobodyCanWrite) {
  const std::string dir = dir_ + "/disk #1%20?";
  std::string why;
  fs::create_directory(dir);
  const MountedImage image("ext4", dir, why);
  if (!image.IsMounted()) GTEST_SKIP() << why;
  const std::string path = dir + "/a.db";
  WriteFile(path, "");
  const auto countRows = [&] {
    const SqliteDB db(path, 0, "info");
    std::vector<SqliteValueList> rows;
    SelectCommand command;
    command.SetTable(SqliteTableHandler("one"));
    EXPECT_TRUE(db.SelectRecords(command, rows)) << db.GetErr();
    return rows.size();
  };
  ASSERT_TRUE(SqliteDB(path, 0, "info")
                  .Exec("PRAGMA journal_mode = WAL; CREATE TABLE one (a);"
                        "INSERT INTO one VALUES (1)"));
  ASSERT_TRUE(image.Remount("ro"));
  EXPECT_EQ(countRows(), 1U);
  const SqliteDB refused(path, 0, "info");
  EXPECT_FALSE(refused.Exec("INSERT INTO one VALUES (2)"));
  EXPECT_EQ(ToSqliteFailure(refused.GetErrCode()), SqliteFailure::kReadOnly);
  ASSERT_TRUE(image.Remount("rw"));
  // What a killed writer has committed is in the log alone.
  const int code = RunInChild({}, [&] {
    const SqliteDB db(path, 0, "info");
    if (db.Exec("INSERT INTO one VALUES (2)")) kill(getpid(), SIGKILL);
    return 1;
  });
  ASSERT_EQ(code, 128 + SIGKILL);
  ASSERT_GT(fs::file_size(path + "-wal"), 0U);
  ASSERT_TRUE(image.Remount("ro"));
  EXPECT_EQ(countRows(), 2U);
  ASSERT_TRUE(image.Remount("rw"));
  EXPECT_EQ(countRows(), 2U);
}

TEST_F(SqliteTest, TellsTheSchemaVersionOfTheInfoTable) {
  const SqliteDB db = Open();
  int version = 7;
  EXPECT_FALSE(db.GetSchemaVersion(version));
  EXPECT_EQ(version, 7);
  ASSERT_TRUE(db.Exec("CREATE TABLE info (key TEXT PRIMARY KEY, value TEXT)"));
  EXPECT_TRUE(db.GetSchemaVersion(version));
  EXPECT_EQ(version, 0);
  ASSERT_TRUE(db.Exec("INSERT INTO info VALUES ('version', '12')"));
  EXPECT_TRUE(db.GetSchemaVersion(version));
  EXPECT_EQ(version, 12);
}

}  // namespace
}  // namespace host_test
