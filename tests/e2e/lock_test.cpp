#include <fcntl.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <memory>

#include "tool_fixture.h"

// Several processes at once.

namespace e2e {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Clock = std::chrono::steady_clock;

// Holds the lock on a database that keeps everybody else out.
class DatabaseLock {
 public:
  explicit DatabaseLock(const std::string& path) {
    EXPECT_EQ(sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db_, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
  }
  DatabaseLock(const DatabaseLock&) = delete;
  DatabaseLock& operator=(const DatabaseLock&) = delete;
  ~DatabaseLock() { sqlite3_close(db_); }

 private:
  sqlite3* db_ = nullptr;
};

using LockTest = ToolTest;

// Slow on purpose, and once for all verbs: each waits as long as a writer is given, at one time.
TEST_F(LockTest, ACatalogueThatStaysLockedIsToldAfterTwentySeconds) {
  MakeGroup();
  std::vector<std::vector<std::string>> verbs;
  std::vector<std::string> groups;
  for (const char* verb : {"create", "delete", "list", "show", "group"}) {
    const std::string group = "locked-" + std::string(verb);
    RunWell({"group", "create", group, "--target", "lun"});
    const std::string id =
        RunWell({"snapshot", "create", group, "--json"}).Json()["gsnap_id"].asString();
    groups.push_back(group);
    const std::string name = verb;
    if (name == "group") {
      verbs.push_back({"group", "delete", group, "--yes", "--force"});
    } else {
      verbs.push_back({"snapshot", name, name == "delete" || name == "show" ? id : group});
      if (name == "delete") verbs.back().push_back("--yes");
    }
  }
  const auto volume = Tree(VolumePath());
  {
    std::vector<std::unique_ptr<DatabaseLock>> locks;
    for (const std::string& group : groups) {
      locks.push_back(std::make_unique<DatabaseLock>(DatabaseOf(group)));
    }
    const auto begin = Clock::now();
    std::vector<std::unique_ptr<Process>> processes;
    for (std::vector<std::string> words : verbs) {
      words.insert(words.begin(), DRGROUPCTL);
      processes.push_back(std::make_unique<Process>(words));
    }
    for (std::size_t i = 0; i < processes.size(); ++i) {
      const Result result = processes[i]->Wait();
      EXPECT_EQ(result.code, kBusy) << result.err;
      EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << result.err;
      EXPECT_THAT(result.err, HasSubstr(DatabaseOf(groups[i])));
      EXPECT_THAT(result.err, HasSubstr("locked by another process for longer than 20 seconds"));
    }
    const auto took = std::chrono::duration<double>(Clock::now() - begin).count();
    EXPECT_GE(took, 19.5);
    EXPECT_LT(took, 40);

    // A listing of groups does not wait that long.
    const auto groupsDocument = RunWell({"group", "list", "--json"}).Json()["groups"];
    EXPECT_THAT(groupsDocument[1]["problem"].asString(), HasSubstr("locked"));
  }
  EXPECT_EQ(Tree(VolumePath()), volume);
  for (const std::string& group : groups) EXPECT_EQ(ListSnapshots(group).size(), 1U);
}

TEST_F(LockTest, OnlyOneProcessChangesAGroup) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  const int fd = open(LinkDirectory("g").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_EQ(flock(fd, LOCK_EX | LOCK_NB), 0);
  for (const std::vector<std::string>& words : {std::vector<std::string>{"snapshot", "create", "g"},
                                                {"snapshot", "delete", id, "--yes"},
                                                {"snapshot", "edit", id, "--lock"},
                                                {"snapshot", "restore", id, "--yes"},
                                                {"snapshot", "clone", id},
                                                {"snapshot", "repair", "g", "--yes"},
                                                {"group", "rename", "g", "h"},
                                                {"group", "upgrade", "g"},
                                                {"group", "delete", "g", "--yes", "--force"},
                                                {"group", "create", "g", "--target", "lun"}}) {
    RunBadly(kBusy, words, {"\"g\"", "another process"});
  }
  EXPECT_THAT(ListSnapshots(), ElementsAre(id));
  close(fd);
  RunWell({"snapshot", "delete", id, "--yes"});
}

TEST_F(LockTest, CreationsAtOnceAreWholeOrRefused) {
  MakeGroup();
  std::vector<std::unique_ptr<Process>> processes;
  for (int i = 0; i < 6; ++i) {
    processes.push_back(
        std::make_unique<Process>(std::vector<std::string>{DRGROUPCTL, "snapshot", "create", "g"}));
  }
  std::size_t made = 0;
  for (const auto& each : processes) {
    const Result result = each->Wait();
    if (result.code == kDone) ++made;
    EXPECT_TRUE(result.code == kDone || result.code == kBusy) << result.err;
  }
  EXPECT_GE(made, 1U);
  const auto ids = ListSnapshots();
  EXPECT_EQ(ids.size(), made);
  for (const std::string& id : ids) EXPECT_EQ(SnapshotPaths(id).size(), 3U);
  const Json::Value targets = RunWell({"target", "list", "--json"}).Json()["targets"];
  for (const Json::Value& each : targets) EXPECT_EQ(each["snapshot_count"].asUInt(), made);
}

TEST_F(LockTest, GroupsCreatedAtOnceAreOneGroup) {
  MakeGroup();
  std::vector<std::unique_ptr<Process>> processes;
  for (int i = 0; i < 6; ++i) {
    processes.push_back(std::make_unique<Process>(
        std::vector<std::string>{DRGROUPCTL, "group", "create", "h", "--target", "lun"}));
  }
  int made = 0;
  for (const auto& each : processes) {
    const Result result = each->Wait();
    made += result.code == kDone ? 1 : 0;
    if (result.code != kDone) {
      EXPECT_TRUE(result.code == kBusy || result.code == kRefused) << result.err;
    }
  }
  EXPECT_EQ(made, 1);
  RunWell({"snapshot", "create", "h"});
}

}  // namespace
}  // namespace e2e
