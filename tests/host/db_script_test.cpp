// The database script: what it creates, upgrades, leaves alone and refuses, and what is left when
// it is killed. It is run as its callers run it, as a program of its own; VRELDRGROUP_DB_SCRIPT
// is its path, with the folder of its SQL beside it.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "traced_child.h"

namespace {

namespace fs = std::filesystem;

void WriteFile(const fs::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

// An open database file. Never creates one: a file that is missing is a failed test.
class Database {
 public:
  explicit Database(const fs::path& path, int flags = SQLITE_OPEN_READWRITE) {
    sqlite3* db = nullptr;
    EXPECT_EQ(SQLITE_OK, sqlite3_open_v2(path.c_str(), &db, flags, nullptr)) << path;
    db_.reset(db);
  }

  // The rows as text, "|" between columns and a newline after each row; NULL is "NULL".
  std::string Query(const std::string& sql) const {
    std::string rows;
    const auto append = [](void* out, int n, char** values, char**) {
      for (int i = 0; i < n; ++i)
        *static_cast<std::string*>(out) +=
            (i ? "|" : "") + std::string(values[i] != nullptr ? values[i] : "NULL");
      *static_cast<std::string*>(out) += "\n";
      return 0;
    };
    const int rc = sqlite3_exec(db_.get(), sql.c_str(), append, &rows, nullptr);
    EXPECT_EQ(SQLITE_OK, rc) << sql << ": " << sqlite3_errmsg(db_.get());
    return rows;
  }

  // How SQLite answers a statement, a line for each table.
  std::string PlanOf(const std::string& sql) const {
    sqlite3_stmt* prepared = nullptr;
    EXPECT_EQ(SQLITE_OK, sqlite3_prepare_v2(db_.get(), ("EXPLAIN QUERY PLAN " + sql).c_str(), -1,
                                            &prepared, nullptr))
        << sql;
    std::string plan;
    while (sqlite3_step(prepared) == SQLITE_ROW) {
      plan += reinterpret_cast<const char*>(sqlite3_column_text(prepared, 3)) + std::string("\n");
    }
    sqlite3_finalize(prepared);
    return plan;
  }

  int Try(const std::string& sql) const {
    return sqlite3_exec(db_.get(), sql.c_str(), nullptr, nullptr, nullptr);
  }

 private:
  struct Close {
    void operator()(sqlite3* db) const { sqlite3_close(db); }
  };
  std::unique_ptr<sqlite3, Close> db_;
};

// Everything that makes up the schema, in a form that does not depend on how it came to be.
std::string SchemaOf(const fs::path& file) {
  const Database db(file);
  return db.Query(
             "SELECT m.name, c.cid, c.name, c.type, c.\"notnull\", c.dflt_value, c.pk FROM "
             "sqlite_master m, pragma_table_info(m.name) c WHERE m.type = 'table' "
             "ORDER BY m.name, c.cid") +
         db.Query(
             "SELECT m.name, i.\"unique\", i.origin, i.partial, c.name, c.desc FROM sqlite_master "
             "m, "
             "pragma_index_list(m.name) i, pragma_index_xinfo(i.name) c WHERE m.type = 'table' "
             "AND c.key ORDER BY m.name, i.name, c.seqno") +
         db.Query("SELECT key, value FROM vreldrcore_db_info");
}

bool WritesToFiles(long call) {
  static const std::set<long> calls = {SYS_pwrite64,  SYS_fsync,  SYS_fdatasync,
                                       SYS_ftruncate, SYS_unlink, SYS_unlinkat};
  return calls.contains(call);
}

class DbScript : public testing::Test {
 protected:
  DbScript() {
    std::string name = fs::temp_directory_path() / "db-script-XXXXXX";
    top_ = mkdtemp(name.data());
    fs::permissions(top_, fs::perms(0755));
    dir_ = top_ / "group";
    fs::create_directory(dir_);
  }
  ~DbScript() override {
    while (mounts_-- > 0) umount2(dir_.c_str(), MNT_DETACH);
    fs::remove_all(top_);
  }

  fs::path File() const { return dir_ / "drgroup.db"; }

  Outcome Run(const Args& args, const Env& env = {}) const {
    Args all = {script_};
    all.insert(all.end(), args.begin(), args.end());
    return Child(all, env).Wait();
  }
  Outcome Repair(const Env& env = {}) const { return Run({"repair_db", dir_}, env); }
  Child::Trace RepairTraced(const std::function<bool(long)>& at, const Env& env = {}) const {
    return Child::RunTraced({script_, "repair_db", dir_}, env, at);
  }

  static void ExpectSuccess(const Outcome& outcome) {
    EXPECT_EQ(0, outcome.code);
    EXPECT_EQ("", outcome.out + outcome.err);
  }

  // One line on stderr that starts as every message does and holds all of `parts`.
  static void ExpectFailure(const Outcome& outcome, int code, const Args& parts) {
    EXPECT_EQ(code, outcome.code);
    EXPECT_EQ("", outcome.out);
    EXPECT_TRUE(outcome.err.starts_with("vreldrgroup_db.sh: ")) << outcome.err;
    EXPECT_EQ(outcome.err.size() - 1, outcome.err.find('\n')) << outcome.err;
    for (const auto& part : parts)
      EXPECT_NE(std::string::npos, outcome.err.find(part)) << part << " is not in " << outcome.err;
  }

  // The same for a database that must keep its bytes and get no journal beside it.
  void ExpectRefusal(const Args& parts, const Env& env = {}) const {
    const std::string before = ReadFile(File());
    ExpectFailure(Repair(env), 1, parts);
    EXPECT_TRUE(before == ReadFile(File())) << "the file has changed";
    EXPECT_EQ(Args{"drgroup.db"}, Entries(dir_));
  }

  // One that is killed after it has emptied its journal leaves that behind; it says nothing.
  void ExpectNoMoreThanAnEmptyJournal() const {
    const fs::path journal = dir_ / "drgroup.db-journal";
    EXPECT_EQ("", ReadFile(journal));
    fs::remove(journal);
    EXPECT_EQ(Args{"drgroup.db"}, Entries(dir_));
  }

  static Args Entries(const fs::path& dir) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir)) names.insert(entry.path().filename());
    return {names.begin(), names.end()};
  }

  // A database of schema version 1 with `rows` rows in each table.
  void MakeVersion1(int rows, bool with_version = true) const {
    const Database db(File(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    db.Query("BEGIN;" + ReadFile(script_.parent_path() / "vreldrgroup_db/schema_1.sql"));
    if (with_version)
      db.Query(
          "CREATE TABLE vreldrcore_db_info (key TEXT PRIMARY KEY, value);"
          "INSERT INTO vreldrcore_db_info VALUES ('version', 1);");
    const std::string numbers =
        "WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n "
        "LIMIT " +
        std::to_string(rows) + ") ";
    db.Query(numbers +
             "INSERT INTO gsnap_meta SELECT 'it''s \"' || char(10, 252) || i, i % 2, i % 3, "
             "'g' || i, CAST(x'610062' AS TEXT), 4294967296 + i, NULL FROM n;" +
             numbers +
             "INSERT INTO target_snap_list SELECT 't' || i, 1, 's' || i, 'g' || (i / 3) FROM n;" +
             numbers +
             "INSERT INTO target_replica_list SELECT 'a' || i, 'b' || i, 'g' || (i / 3) FROM n;"
             "COMMIT;");
  }

  // The same of version 2.
  void MakeVersion2(int rows) const {
    MakeVersion1(rows);
    Database(File()).Query("BEGIN;" +
                           ReadFile(script_.parent_path() / "vreldrgroup_db/schema_2.sql") +
                           "UPDATE vreldrcore_db_info SET value = 2; COMMIT");
  }

  // All rows of the columns of version 1, each value as SQL would write it.
  std::string Rows() const {
    const Database db(File());
    return db.Query(
               "SELECT quote(\"desc\"), is_user_locked, cw_type, gsnap_id, hex(tag), gsnap_time, "
               "status FROM gsnap_meta ORDER BY rowid") +
           db.Query("SELECT * FROM target_snap_list ORDER BY rowid") +
           db.Query("SELECT * FROM target_replica_list ORDER BY rowid");
  }

  // The schema that a fresh database gets.
  std::string FreshSchema() const {
    const fs::path fresh = top_ / "fresh";
    fs::create_directory(fresh);
    ExpectSuccess(Run({"repair_db", fresh}));
    return SchemaOf(fresh / "drgroup.db");
  }

  // From here on the test runs a copy of the script, whose SQL it may change.
  fs::path CopyScript(const std::string& folder = "copy") {
    fs::copy(script_.parent_path(), top_ / folder, fs::copy_options::recursive);
    script_ = top_ / folder / script_.filename();
    return top_ / folder / "vreldrgroup_db";
  }

  // Puts a file system of its own, `kib` KiB large, under dir_. False where the kernel allows that
  // neither to root nor in a user namespace; the caller then skips.
  bool MountSmallDisk(int kib) {
    const uid_t uid = geteuid();
    const gid_t gid = getegid();
    if (unshare(CLONE_NEWNS | (uid == 0 ? 0 : CLONE_NEWUSER)) != 0) return false;
    if (uid != 0) {
      const std::string user = std::to_string(uid), group = std::to_string(gid);
      WriteFile("/proc/self/setgroups", "deny");
      WriteFile("/proc/self/uid_map", user + " " + user + " 1");
      WriteFile("/proc/self/gid_map", group + " " + group + " 1");
    }
    const std::string size = "size=" + std::to_string(kib) + "k";
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", dir_.c_str(), "tmpfs", 0, size.c_str()) != 0)
      return false;
    ++mounts_;
    return true;
  }

  fs::path top_, dir_, script_ = VRELDRGROUP_DB_SCRIPT;
  int mounts_ = 0;
};

// ---- Creating

TEST_F(DbScript, CreatesAMissingDatabaseWithItsTablesIndexesAndVersion) {
  ExpectSuccess(Repair());
  EXPECT_EQ(
      "gsnap_meta|0|desc|TEXT|0|NULL|0\n"
      "gsnap_meta|1|is_user_locked|INTEGER|0|NULL|0\n"
      "gsnap_meta|2|cw_type|INTEGER|0|NULL|0\n"
      "gsnap_meta|3|gsnap_id|TEXT|0|NULL|0\n"
      "gsnap_meta|4|tag|TEXT|0|NULL|0\n"
      "gsnap_meta|5|gsnap_time|INTEGER|0|NULL|0\n"
      "gsnap_meta|6|status|INTEGER|0|NULL|0\n"
      "gsnap_meta|7|minor_id|INTEGER|0|NULL|0\n"
      "target_replica_list|0|src_target_id|TEXT|0|NULL|0\n"
      "target_replica_list|1|dst_target_id|TEXT|0|NULL|0\n"
      "target_replica_list|2|gsnap_id|TEXT|0|NULL|0\n"
      "target_snap_list|0|target_id|TEXT|0|NULL|0\n"
      "target_snap_list|1|target_type|INTEGER|0|NULL|0\n"
      "target_snap_list|2|tsnap_id|TEXT|0|NULL|0\n"
      "target_snap_list|3|gsnap_id|TEXT|0|NULL|0\n"
      "vreldrcore_db_info|0|key|TEXT|0|NULL|1\n"
      "vreldrcore_db_info|1|value||0|NULL|0\n"
      "gsnap_meta|1|c|0|gsnap_id|0\n"
      "gsnap_meta|0|c|0|gsnap_time|1\n"
      "target_replica_list|0|c|0|gsnap_id|0\n"
      "target_snap_list|0|c|0|gsnap_id|0\n"
      "target_snap_list|0|c|0|tsnap_id|0\n"
      "vreldrcore_db_info|1|pk|0|key|0\n"
      "version|3\n",
      SchemaOf(File()));
  EXPECT_EQ(Args{"drgroup.db"}, Entries(dir_));
}

TEST_F(DbScript, FillsAnEmptyFile) {
  WriteFile(File(), "");
  ExpectSuccess(Repair());
  EXPECT_EQ(FreshSchema(), SchemaOf(File()));
}

TEST_F(DbScript, StoresRowsWithoutValuesAndRefusesASecondRowOfTheSameGroupSnapshot) {
  ExpectSuccess(Repair());
  const Database db(File());
  for (const char* table : {"gsnap_meta", "target_snap_list", "target_replica_list"}) {
    EXPECT_EQ(SQLITE_OK, db.Try("INSERT INTO " + std::string(table) + " DEFAULT VALUES")) << table;
    const std::string insert = "INSERT INTO " + std::string(table) + " (gsnap_id) VALUES ('g')";
    EXPECT_EQ(SQLITE_OK, db.Try(insert)) << table;
    EXPECT_EQ(table == std::string("gsnap_meta") ? SQLITE_CONSTRAINT : SQLITE_OK, db.Try(insert))
        << table;
  }
}

// ---- Upgrading

TEST_F(DbScript, UpgradesVersion1InPlaceToTheSchemaOfAFreshDatabaseAndKeepsEveryRow) {
  MakeVersion1(1000);
  const std::string rows = Rows();
  ExpectSuccess(Repair());
  EXPECT_EQ(FreshSchema(), SchemaOf(File()));
  EXPECT_EQ(rows, Rows());
  EXPECT_EQ("1000\n", Database(File()).Query("SELECT count(*) FROM gsnap_meta WHERE minor_id IS "
                                             "NULL"));
  EXPECT_EQ(Args{"drgroup.db"}, Entries(dir_));
}

TEST_F(DbScript, UpgradesVersion2InPlaceAndKeepsEveryRowWithItsMinorIdentifier) {
  MakeVersion2(1000);
  Database(File()).Query("UPDATE gsnap_meta SET minor_id = rowid % 7");
  const std::string rows = Rows();
  ExpectSuccess(Repair());
  EXPECT_EQ(FreshSchema(), SchemaOf(File()));
  EXPECT_EQ(rows, Rows());
  EXPECT_EQ("1000\n",
            Database(File()).Query("SELECT count(*) FROM gsnap_meta WHERE minor_id = rowid % 7"));
  EXPECT_EQ(Args{"drgroup.db"}, Entries(dir_));
}

TEST_F(DbScript, WhatIsAskedAboutOneSnapshotOrTheLatestIsFoundByAnIndex) {
  MakeVersion2(1000);
  const std::pair<const char*, const char*> questions[] = {
      {"DELETE FROM target_snap_list WHERE tsnap_id = 's1'",
       "SEARCH target_snap_list USING INDEX target_snap_list_tsnap_id (tsnap_id=?)"},
      {"SELECT * FROM target_snap_list WHERE gsnap_id = 'g1'",
       "SEARCH target_snap_list USING INDEX target_snap_list_gsnap_id (gsnap_id=?)"},
      {"SELECT * FROM gsnap_meta WHERE tag = 'g' ORDER BY gsnap_time DESC LIMIT 1",
       "SCAN gsnap_meta USING INDEX gsnap_meta_gsnap_time"},
      // In the order in which they were recorded.
      {"SELECT * FROM gsnap_meta WHERE tag = 'g'", "SCAN gsnap_meta"}};
  // Whether anybody has had the statistics taken makes no difference.
  for (const bool isAnalyzed : {false, true}) {
    ExpectSuccess(Repair());
    const Database db(File());
    if (isAnalyzed) db.Query("ANALYZE");
    for (const auto& [question, plan] : questions) {
      EXPECT_EQ(std::string(plan) + "\n", db.PlanOf(question));
    }
  }
}

TEST_F(DbScript, OfGroupSnapshotsOfOneTimeTheFirstIsTheLatestWithTheIndexAndWithout) {
  MakeVersion2(0);
  Database(File()).Query(
      "INSERT INTO gsnap_meta (gsnap_id, tag, gsnap_time) VALUES"
      " ('a', 'g', 1), ('b', 'g', 5), ('c', 'g', 5), ('d', 'h', 9), ('e', 'g', NULL)");
  const std::string latest =
      "SELECT gsnap_id FROM gsnap_meta WHERE tag = 'g' ORDER BY gsnap_time DESC LIMIT 1";
  EXPECT_EQ("b\n", Database(File()).Query(latest));
  ExpectSuccess(Repair());
  EXPECT_EQ("b\n", Database(File()).Query(latest));
}

TEST_F(DbScript, TakesOverTheThreeTablesThatRecordNoVersion) {
  MakeVersion1(10, false);
  Database(File()).Query("DROP INDEX gsnap_meta_gsnap_id; DROP INDEX target_snap_list_gsnap_id");
  const std::string rows = Rows();
  ExpectSuccess(Repair());
  EXPECT_EQ(FreshSchema(), SchemaOf(File()));
  EXPECT_EQ(rows, Rows());
}

TEST_F(DbScript, UpgradesThroughALinkAndKeepsTheLink) {
  MakeVersion1(10);
  const fs::path link_dir = top_ / "links";
  fs::create_directory(link_dir);
  fs::create_symlink(File(), link_dir / "drgroup.db");
  ExpectSuccess(Run({"repair_db", link_dir}));
  EXPECT_TRUE(fs::is_symlink(link_dir / "drgroup.db"));
  EXPECT_EQ(Args{"drgroup.db"}, Entries(link_dir));
  EXPECT_EQ(FreshSchema(), SchemaOf(File()));
}

// ---- Changing nothing

TEST_F(DbScript, ChangesNothingWhenTheDatabaseIsCurrent) {
  ExpectSuccess(Repair());
  Database(File()).Query("INSERT INTO gsnap_meta (gsnap_id) VALUES ('g')");
  const timespec old[2] = {{1000000000, 0}, {1000000000, 0}};
  ASSERT_EQ(0, utimensat(AT_FDCWD, File().c_str(), old, 0));
  ASSERT_EQ(0, utimensat(AT_FDCWD, dir_.c_str(), old, 0));
  const std::string before = ReadFile(File());
  int writes = 0;
  const auto trace = RepairTraced([&](long call) { return writes += WritesToFiles(call), false; });
  ExpectSuccess(trace.outcome);
  EXPECT_EQ(0, writes);
  EXPECT_TRUE(before == ReadFile(File()));
  for (const fs::path& path : {File(), dir_}) {
    struct stat st {};
    ASSERT_EQ(0, stat(path.c_str(), &st));
    EXPECT_EQ(1000000000, st.st_mtim.tv_sec) << path;
  }
}

TEST_F(DbScript, LeavesTheJournalThatAWriterKeeps) {
  ExpectSuccess(Repair());
  Database(File()).Query("PRAGMA journal_mode = PERSIST; INSERT INTO gsnap_meta DEFAULT VALUES");
  const fs::path journal = dir_ / "drgroup.db-journal";
  const std::string before = ReadFile(File()) + ReadFile(journal);
  ExpectSuccess(Repair());
  EXPECT_EQ((Args{"drgroup.db", "drgroup.db-journal"}), Entries(dir_));
  EXPECT_TRUE(before == ReadFile(File()) + ReadFile(journal));
}

TEST_F(DbScript, ReadsAVersionThatIsStoredAsText) {
  ExpectSuccess(Repair());
  Database(File()).Query("UPDATE vreldrcore_db_info SET value = '3'");
  const std::string before = ReadFile(File());
  ExpectSuccess(Repair());
  EXPECT_TRUE(before == ReadFile(File()));
}

TEST_F(DbScript, StartsOneSqlite3AndNoOtherProgramWhateverThereIsToDo) {
  const Args programs = {fs::canonical("/bin/sh").filename(), "sqlite3"};
  MakeVersion1(10);
  for (const char* road : {"upgrade", "nothing to do", "creation"}) {
    if (road == std::string("creation")) fs::remove(File());
    const auto trace = RepairTraced([](long) { return false; });
    ExpectSuccess(trace.outcome);
    EXPECT_EQ(programs, trace.programs) << road;
    EXPECT_EQ(0, trace.forks) << road;
  }
}

TEST_F(DbScript, BringsTheEndOfItsJournalToDisk) {
  MakeVersion1(10);
  for (const char* road : {"upgrade", "creation"}) {
    if (road == std::string("creation")) fs::remove(File());
    std::vector<long> calls;
    const auto trace = RepairTraced([&](long call) {
      if (WritesToFiles(call)) calls.push_back(call);
      return false;
    });
    ExpectSuccess(trace.outcome);
    // A power cut may undo the removal of the journal, which then has to be empty.
    ASSERT_GE(calls.size(), 3U) << road;
    EXPECT_EQ(calls.end()[-3], SYS_ftruncate) << road;
    EXPECT_EQ(calls.end()[-2], SYS_fdatasync) << road;
    EXPECT_EQ(calls.back(), SYS_unlink) << road;
    WriteFile(dir_ / "drgroup.db-journal", "");
    ExpectSuccess(Repair());
    EXPECT_EQ(FreshSchema(), SchemaOf(File())) << road;
    fs::remove_all(top_ / "fresh");
    fs::remove(dir_ / "drgroup.db-journal");
  }
}

// ---- Names and surroundings

TEST_F(DbScript, WorksForACallerWhoHasClosedSomeOfItsFiles) {
  for (const std::string closed : {"2>&-", "1>&-", "0<&-", "2>&- 1>&-", "0<&- 1>&- 2>&-"}) {
    const std::string command = "\"$0\" repair_db \"$1\" " + closed;
    const auto run = [&](const fs::path& dir) {
      return Child({"/bin/sh", "-c", command, script_, dir}, {}).Wait();
    };
    fs::remove(File());
    ExpectSuccess(run(dir_));
    ExpectSuccess(run(dir_));
    EXPECT_EQ(FreshSchema(), SchemaOf(File())) << closed;
    fs::remove_all(top_ / "fresh");
    WriteFile(File(), "garbage, garbage");
    EXPECT_EQ(run(dir_).code, 1) << closed;
    EXPECT_EQ(run(dir_ / "missing").code, 1) << closed;
  }
}

TEST_F(DbScript, TakesAnyCharacterInTheDirectoryAndInItsOwnPath) {
  const std::string hard = "-a 'b\" $(c) \\ ; * é";
  CopyScript(hard);
  dir_ = top_ / (hard + "2");
  fs::create_directory(dir_);
  ExpectSuccess(Repair());
  EXPECT_EQ(FreshSchema(), SchemaOf(File()));
  WriteFile(File(), "garbage, garbage");
  ExpectRefusal({File(), "not a SQLite database"});
}

TEST_F(DbScript, TakesADirectoryRelativeToTheWorkingDirectory) {
  for (const auto& [cwd, dir] : std::map<fs::path, std::string>{
           {top_, "group"},
           {dir_, "."},
           {fs::temp_directory_path(), dir_.lexically_relative(fs::temp_directory_path())}}) {
    fs::remove(File());
    ExpectSuccess(Child({script_, "repair_db", dir}, {}, cwd).Wait());
    EXPECT_TRUE(fs::exists(File())) << dir;
  }
}

TEST_F(DbScript, FindsItsSqlWhenItIsStartedByAShellInItsOwnFolder) {
  fs::create_directory(top_ / "vreldrgroup_db");  // must not be found instead
  ExpectSuccess(Child({"/bin/sh", script_.filename(), "repair_db", dir_}, {{"CDPATH", top_}},
                      script_.parent_path())
                    .Wait());
  EXPECT_EQ(FreshSchema(), SchemaOf(File()));
}

TEST_F(DbScript, IgnoresTheUsersSqliteSettings) {
  WriteFile(top_ / ".sqliterc", ".headers on\n.mode csv\n.bail on\nSELECT 'loud';\n.exit 7\n");
  const Env env = {{"HOME", top_}, {"XDG_CONFIG_HOME", top_}};
  MakeVersion1(1);
  for (int i = 0; i < 2; ++i) ExpectSuccess(Repair(env));
  fs::remove(File());
  ExpectSuccess(Repair(env));
  EXPECT_EQ(FreshSchema(), SchemaOf(File()));
}

// ---- Refusing

TEST_F(DbScript, RefusesWrongUsage) {
  const std::string dir = dir_;
  for (const Args& args : {Args{},
                           {"repair_db"},
                           {"repair_db", dir, dir},
                           {"", dir},
                           {"drop_db", dir},
                           {"repair_db", ""}})
    ExpectFailure(Run(args), 2, {"usage: vreldrgroup_db.sh repair_db DIR"});
  ExpectFailure(Run({"drop_db", dir}), 2, {"drop_db"});
  ExpectFailure(Repair({{"VRELDRGROUP_DB_TIMEOUT_MS", "1s"}}), 2,
                {"VRELDRGROUP_DB_TIMEOUT_MS", "1s", "milliseconds"});
  EXPECT_EQ(Args{}, Entries(dir_));
}

TEST_F(DbScript, RefusesADirectoryThatIsMissingOrAFile) {
  ExpectFailure(Run({"repair_db", dir_ / "missing"}), 1, {dir_ / "missing", "create it first"});
  WriteFile(dir_ / "plain", "text");
  ExpectFailure(Run({"repair_db", dir_ / "plain"}), 1,
                {dir_ / "plain", "not an existing directory"});
  EXPECT_EQ(Args{"plain"}, Entries(dir_));
}

TEST_F(DbScript, RefusesADatabaseThatIsADirectoryOrALinkToNothing) {
  fs::create_directory(File());
  ExpectFailure(Repair(), 1, {File(), "not a file", "move it away"});
  fs::remove(File());
  fs::create_symlink(top_ / "nothing", File());
  ExpectFailure(Repair(), 1, {File(), "link to a file that does not exist", "remove the link"});
  EXPECT_FALSE(fs::exists(top_ / "nothing"));
  EXPECT_TRUE(fs::is_symlink(File()));
}

TEST_F(DbScript, RefusesWhatItsUserMayNotWriteTo) {
  CopyScript();
  Args as_user;
  if (geteuid() == 0) as_user = {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
  as_user.insert(as_user.end(), {script_, "repair_db", dir_});
  fs::permissions(dir_, fs::perms(0555));
  ExpectFailure(Child(as_user, {}).Wait(), 1, {dir_, "cannot be written", "permissions"});
  EXPECT_EQ(Args{}, Entries(dir_));

  fs::permissions(dir_, fs::perms(0777));
  MakeVersion1(1);
  const std::string before = ReadFile(File());
  fs::permissions(File(), fs::perms(0444));
  ExpectFailure(Child(as_user, {}).Wait(), 1, {File(), "cannot be read and written"});

  // Through a link the real file's directory counts, which has no room for a journal here.
  fs::permissions(File(), fs::perms(0666));
  fs::permissions(dir_, fs::perms(0555));
  fs::create_directory(top_ / "links");
  fs::create_symlink(File(), top_ / "links/drgroup.db");
  as_user.back() = top_ / "links";
  ExpectFailure(Child(as_user, {}).Wait(), 1, {top_ / "links/drgroup.db", "cannot be written"});
  EXPECT_TRUE(before == ReadFile(File()));
  fs::permissions(dir_, fs::perms(0755));
}

TEST_F(DbScript, RefusesAFileThatIsNotADatabase) {
  for (const std::string& bytes :
       {std::string("not a database, just text\n"), std::string(5000, '\0'),
        std::string("SQLite format 3\0", 16) + std::string(9000, 'x')}) {
    WriteFile(File(), bytes);
    ExpectRefusal({File(), "is ", "restore it from a backup"});
  }
}

TEST_F(DbScript, RefusesATruncatedDatabase) {
  MakeVersion1(500);
  const std::string whole = ReadFile(File());
  for (const size_t size : {size_t{50}, size_t{100}, size_t{1000}, size_t{4096}, whole.size() / 2,
                            whole.size() - 4096}) {
    WriteFile(File(), whole.substr(0, size));
    ExpectRefusal({File(), "is ", "restore it from a backup"});
  }
}

TEST_F(DbScript, RefusesAVersionThatItDoesNotKnow) {
  ExpectSuccess(Repair());
  for (const char* version : {"4", "4000000000", "0", "-1", "'x\n.shell touch pwned'"}) {
    Database(File()).Query("UPDATE vreldrcore_db_info SET value = " + std::string(version));
    ExpectRefusal({File(), "schema version ", "knows only 1 to 3"});
  }
  EXPECT_FALSE(fs::exists(script_.parent_path() / "vreldrgroup_db/pwned"));
  Database(File()).Query("UPDATE vreldrcore_db_info SET value = 4");
  ExpectRefusal({"has schema version 4,"});
}

TEST_F(DbScript, RefusesADatabaseThatHasLostATable) {
  for (const bool current : {true, false})
    for (const bool with_version : {true, false})
      for (const char* table : {"gsnap_meta", "target_snap_list", "target_replica_list"}) {
        if (current && !with_version) continue;
        fs::remove(File());
        MakeVersion1(1, with_version);
        if (current) ExpectSuccess(Repair());
        Database(File()).Query("DROP TABLE " + std::string(table));
        ExpectRefusal({File(), "has no table " + std::string(table), "restore", "backup"});
      }
}

TEST_F(DbScript, RefusesToTakeOverTablesWithTwoRowsOfAGroupSnapshot) {
  MakeVersion1(1, false);
  Database(File()).Query(
      "DROP INDEX gsnap_meta_gsnap_id;"
      "INSERT INTO gsnap_meta (gsnap_id) VALUES ('g1')");
  ExpectRefusal({File(), "cannot be repaired", "UNIQUE constraint failed: gsnap_meta.gsnap_id"});
}

TEST_F(DbScript, RefusesToRunWithoutSqlite3) {
  MakeVersion1(1);
  ExpectRefusal({"sqlite3", "install"}, {{"PATH", top_}});
}

TEST_F(DbScript, RefusesToRunWithoutItsSql) {
  MakeVersion1(1);
  const fs::path sql = CopyScript();
  for (const char* name : {"schema_3.sql", "schema_2.sql", "schema_1.sql", "explain.sh"}) {
    fs::rename(sql / name, sql / "away");
    ExpectRefusal({sql, "install the package again"});
    fs::rename(sql / "away", sql / name);
  }
  fs::remove_all(sql);
  ExpectRefusal({sql, "install the package again"});
}

TEST_F(DbScript, KeepsTheOldSchemaWhenAStepFailsInTheMiddle) {
  MakeVersion1(10);
  const fs::path sql = CopyScript();
  for (const char* name : {"schema_2.sql", "schema_3.sql"}) {
    const std::string step = ReadFile(sql / name);
    WriteFile(sql / name, step + "INSERT INTO nowhere VALUES (1);\nSELECT 1;\n");
    ExpectRefusal({File(), "has no table nowhere"});
    WriteFile(sql / name, step + "-- this comment hides the COMMIT\n");
    ExpectRefusal({File(), "cannot be repaired"});
    WriteFile(sql / name, step);
  }
}

TEST_F(DbScript, RefusesAFileSystemThatIsReadOnly) {
  if (!MountSmallDisk(256)) GTEST_SKIP() << "needs root or user namespaces, to mount a small disk";
  MakeVersion1(10);
  ASSERT_EQ(0, mount(nullptr, dir_.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr));
  ExpectRefusal({dir_, "cannot be written", "file system"});
}

TEST_F(DbScript, LeavesTheOldSchemaWhenTheDiskIsFullAndGoesOnWhenThereIsRoom) {
  if (!MountSmallDisk(256)) GTEST_SKIP() << "needs root or user namespaces, to mount a small disk";
  for (const bool creation : {false, true}) {
    if (creation)
      fs::remove(File());
    else
      MakeVersion1(10);
    const std::string before = ReadFile(File());
    WriteFile(dir_ / "filler", std::string(256 * 1024, 'x'));
    ExpectFailure(Repair(), 1, {File(), "does not fit on its file system", "free space"});
    EXPECT_TRUE(before == ReadFile(File()));
    EXPECT_EQ((Args{"drgroup.db", "filler"}), Entries(dir_));
    fs::remove(dir_ / "filler");
    ExpectSuccess(Repair());
    EXPECT_EQ(FreshSchema(), SchemaOf(File()));
    fs::remove_all(top_ / "fresh");
  }
}

TEST_F(DbScript, LeavesTheOldSchemaWhenAnIndexDoesNotFitOnTheDisk) {
  if (!MountSmallDisk(2048)) GTEST_SKIP() << "needs root or user namespaces, to mount a small disk";
  MakeVersion2(8000);
  const std::string before = ReadFile(File());
  // A journal fits, and some of the index.
  const auto room = fs::space(dir_).available - 64 * 1024;
  WriteFile(dir_ / "filler", std::string(room, 'x'));
  ExpectFailure(Repair(), 1, {File(), "does not fit on its file system", "free space"});
  EXPECT_TRUE(before == ReadFile(File()));
  EXPECT_EQ((Args{"drgroup.db", "filler"}), Entries(dir_));
  fs::remove(dir_ / "filler");
  ExpectSuccess(Repair());
  EXPECT_EQ(FreshSchema(), SchemaOf(File()));
}

// ---- Locks, and several at once

// While a test holds a lock it must not open and close the file another time: that would drop the
// lock, which belongs to the process.
TEST_F(DbScript, RefusesADatabaseThatIsLockedForLongerThanTheTimeout) {
  MakeVersion1(1);
  const std::string before = ReadFile(File());
  const Database holder(File());
  for (const char* lock : {"BEGIN IMMEDIATE", "BEGIN EXCLUSIVE"}) {
    holder.Query(lock);
    ExpectFailure(Repair({{"VRELDRGROUP_DB_TIMEOUT_MS", "30"}}), 1,
                  {File(), "locked by another process for longer than 30 ms", "try again"});
    holder.Query("COMMIT");
  }
  EXPECT_TRUE(before == ReadFile(File()));
}

TEST_F(DbScript, WaitsForALockThatIsReleasedInTime) {
  MakeVersion1(1);
  for (const char* lock : {"BEGIN IMMEDIATE", "BEGIN EXCLUSIVE"}) {
    Database holder(File());
    holder.Query(lock);
    int naps = 0;  // the third time that sqlite3 goes to sleep, the lock goes
    const auto trace = RepairTraced([&](long call) {
      if ((call == SYS_clock_nanosleep || call == SYS_nanosleep) && ++naps == 3)
        holder.Query("COMMIT");
      return false;
    });
    ExpectSuccess(trace.outcome);
    EXPECT_LE(3, naps);
    EXPECT_EQ("3\n", holder.Query("SELECT value FROM vreldrcore_db_info"));
    holder.Query(
        "DROP INDEX gsnap_meta_gsnap_time; DROP INDEX target_snap_list_tsnap_id;"
        "ALTER TABLE gsnap_meta DROP COLUMN minor_id;"
        "UPDATE vreldrcore_db_info SET value = 1");
  }
}

TEST_F(DbScript, WaitsTwentySecondsIfNobodySaysOtherwise) {
  const fs::path bin = top_ / "bin";
  fs::create_directory(bin);
  WriteFile(bin / "sqlite3", "#!/bin/sh\nexec /bin/cat >'" + (top_ / "commands").string() + "'\n");
  fs::permissions(bin / "sqlite3", fs::perms(0755));
  ExpectSuccess(Repair({{"PATH", bin}}));
  EXPECT_NE(std::string::npos, ("\n" + ReadFile(top_ / "commands")).find("\n.timeout 20000\n"));
}

TEST_F(DbScript, FindsACurrentDatabaseCurrentWhileAnotherProcessWritesToIt) {
  ExpectSuccess(Repair());
  const Database writer(File());
  writer.Query("BEGIN IMMEDIATE; INSERT INTO gsnap_meta (gsnap_id) VALUES ('g')");
  ExpectSuccess(Repair({{"VRELDRGROUP_DB_TIMEOUT_MS", "0"}}));
  writer.Query("COMMIT");
}

TEST_F(DbScript, MayRunManyTimesAtOnce) {
  const std::string fresh = FreshSchema();
  for (int round = 0; round < 20; ++round) {
    const bool creation = round % 2 == 0;
    fs::remove(File());
    if (!creation) MakeVersion1(100);
    const std::string rows = creation ? "" : Rows();
    std::vector<std::unique_ptr<Child>> children;
    for (int i = 0; i < 8; ++i)
      children.push_back(std::make_unique<Child>(Args{script_, "repair_db", dir_}, Env{}));
    for (auto& child : children) ExpectSuccess(child->Wait());
    EXPECT_EQ(fresh, SchemaOf(File()));
    EXPECT_EQ(rows, Rows());
    EXPECT_EQ(Args{"drgroup.db"}, Entries(dir_));
  }
}

// ---- Being killed

class KilledDbScript : public DbScript, public testing::WithParamInterface<int> {};
INSTANTIATE_TEST_SUITE_P(Versions, KilledDbScript, testing::Values(1, 2));

TEST_P(KilledDbScript, LeavesTheOldSchemaOrTheNewOneWhereverItIsKilled) {
  const std::string fresh = FreshSchema();
  GetParam() == 1 ? MakeVersion1(3000) : MakeVersion2(3000);
  const std::string rows = Rows(), old_schema = SchemaOf(File()), old_file = ReadFile(File());
  int journals = 0, olds = 0, news = 0;
  for (bool killed = true; killed;) {
    WriteFile(File(), old_file);
    const int place = olds + news + 1;
    int calls = 0;
    const auto trace = RepairTraced([&](long call) {
      return (WritesToFiles(call) || call == SYS_exit_group) && ++calls == place;
    });
    killed = trace.outcome.code == 128 + SIGKILL;
    journals += fs::exists(dir_ / "drgroup.db-journal");
    const std::string schema = SchemaOf(File());
    EXPECT_TRUE(schema == old_schema || schema == fresh) << "killed at place " << place;
    (schema == old_schema ? olds : news) += 1;
    EXPECT_EQ("ok\n", Database(File()).Query("PRAGMA integrity_check"));
    EXPECT_TRUE(rows == Rows());
    ExpectSuccess(Repair());
    EXPECT_EQ(fresh, SchemaOf(File()));
    ExpectNoMoreThanAnEmptyJournal();
  }
  EXPECT_LE(8, olds);
  EXPECT_LE(2, news);  // one of them was not killed
  EXPECT_LE(4, journals);
}

TEST_F(DbScript, FinishesACreationWhereverTheOneBeforeWasKilled) {
  const std::string fresh = FreshSchema();
  int runs = 0;
  for (bool killed = true; killed;) {
    for (const auto& name : Entries(dir_)) fs::remove(dir_ / name);
    ++runs;
    int writes = 0;
    const auto trace =
        RepairTraced([&](long call) { return WritesToFiles(call) && ++writes == runs; });
    killed = trace.outcome.code == 128 + SIGKILL;
    ExpectSuccess(Repair());
    EXPECT_EQ(fresh, SchemaOf(File()));
    ExpectNoMoreThanAnEmptyJournal();
  }
  EXPECT_LE(8, runs);
}

TEST_F(DbScript, LeavesNothingBehindWhenItIsKilledWhileItWaitsForALock) {
  MakeVersion1(1);
  const std::string before = ReadFile(File());
  const Database holder(File());
  holder.Query("BEGIN IMMEDIATE");
  const auto trace = RepairTraced([](long call) { return call == SYS_clock_nanosleep; });
  EXPECT_EQ(128 + SIGKILL, trace.outcome.code);
  holder.Query("COMMIT");
  EXPECT_TRUE(before == ReadFile(File()));
  EXPECT_EQ(Args{"drgroup.db"}, Entries(dir_));
  ExpectSuccess(Repair());
}

}  // namespace
