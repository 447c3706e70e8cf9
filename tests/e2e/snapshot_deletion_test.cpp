#include <fcntl.h>
#include <pty.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>

#include "bind_mount.h"
#include "tool_fixture.h"

// Deleting group snapshots: consent, what is out of reach, and interruptions, of creations too.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class SnapshotDeletionTest : public ToolTest {
 protected:
  static void ExpectNoTargetSnapshots() {
    const Json::Value targets = RunWell({"target", "list", "--json"}).Json()["targets"];
    EXPECT_EQ(targets.size(), 3U);
    for (const Json::Value& each : targets) EXPECT_EQ(each["snapshot_count"], 0) << each;
  }
};

TEST_F(SnapshotDeletionTest, DeletionTellsHowManyTargetSnapshotsWent) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  const Json::Value report = RunWell({"snapshot", "delete", id, "--yes", "--json"}).Json();
  EXPECT_THAT(report.getMemberNames(), ElementsAre("deleted_count", "gsnap_id", "left_snapshots"));
  EXPECT_EQ(report["gsnap_id"], id);
  EXPECT_EQ(report["deleted_count"], 3);
}

TEST_F(SnapshotDeletionTest, DeletionIsRefusedWithoutConsentAndWhenLocked) {
  MakeGroup();
  const std::string open = TakeSnapshot();
  const std::string locked = TakeSnapshot({"--lock"});
  RunBadly(kRefused, {"snapshot", "delete", open}, {open, "--yes"});
  RunBadly(kRefused, {"snapshot", "delete", locked, "--yes"}, {locked, "locked", "--force"});
  EXPECT_THAT(ListSnapshots(), ElementsAre(open, locked));
  RunWell({"snapshot", "delete", locked, "--yes", "--force"});
  EXPECT_THAT(ListSnapshots(), ElementsAre(open));
}

// Whether a target snapshot exists could not be found out: the library takes it for gone.
TEST_F(SnapshotDeletionTest, WhatCouldNotBeAskedAboutIsAskedAgainAndDeleted) {
  MakeGroup();
  for (const bool withGroup : {false, true}) {
    const std::string id = TakeSnapshot();
    setenv("VRELDR_FAIL_POINT", "ask@share,ask@guest", 1);
    const Result result =
        Run(withGroup ? std::vector<std::string>{"group", "delete", "g", "--yes", "--force"}
                      : std::vector<std::string>{"snapshot", "delete", id, "--yes"});
    unsetenv("VRELDR_FAIL_POINT");
    EXPECT_EQ(result.code, kDone) << result.err;
    ExpectNoTargetSnapshots();
  }
}

// What is left cannot be removed now: that is not told as done.
TEST_F(SnapshotDeletionTest, WhatAnInterruptedDeletionLeftAndCannotGoIsNotToldAsDeleted) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  const std::string path = fs::path(SnapshotPaths(id).at("lun")).parent_path();
  setenv("VRELDR_KILL_POINT", "delete.marked", 1);
  EXPECT_EQ(Run({"snapshot", "delete", id, "--yes"}).code, 128 + 9);
  unsetenv("VRELDR_KILL_POINT");
  {
    const host_test::BindMount mounted(path, path);
    const Result result = Run({"snapshot", "delete", id, "--yes"});
    EXPECT_EQ(result.code, kRefused);
    EXPECT_THAT(result.err, testing::AllOf(HasSubstr("interrupted deletion"), HasSubstr(path)));
    EXPECT_THAT(ListSnapshots(), ElementsAre(id));
  }
  RunWell({"snapshot", "delete", id, "--yes"});
  EXPECT_FALSE(fs::exists(path));
}

TEST_F(SnapshotDeletionTest, WhatStaysThenIsNamedAndCanBePruned) {
  MakeGroup();
  for (const bool withGroup : {false, true}) {
    const std::string id = TakeSnapshot();
    const std::string path = SnapshotPaths(id).at("share");
    const std::string stays = fs::path(path).filename();
    // The share's snapshot can neither be asked about nor be marked for deletion.
    RunSql(Root() + "/state/replica.db",
           "CREATE TRIGGER keep BEFORE UPDATE ON snapshots WHEN NEW.state = 3 AND NEW.target_id = "
           "'share' BEGIN SELECT RAISE(ABORT, 'no'); END");
    setenv("VRELDR_FAIL_POINT", "ask@share", 1);
    const Result result = Run(
        withGroup ? std::vector<std::string>{"group", "delete", "g", "--yes", "--force", "--json"}
                  : std::vector<std::string>{"snapshot", "delete", id, "--yes", "--json"});
    unsetenv("VRELDR_FAIL_POINT");
    EXPECT_NE(result.code, kDone);
    const Json::Value error = result.Json()["error"];
    ASSERT_EQ(error["left_snapshots"].size(), 1U) << error;
    EXPECT_EQ(error["left_snapshots"][0]["target_id"], "share");
    EXPECT_EQ(error["left_snapshots"][0]["tsnap_id"], stays);
    EXPECT_THAT(error["left_snapshots"][0]["problem"].asString(), HasSubstr("replica.db"));
    EXPECT_THAT(error["message"].asString(), HasSubstr(stays + " of target \"share\""));
    EXPECT_THAT(error["message"].asString(), HasSubstr("target prune"));
    EXPECT_TRUE(fs::exists(path));
    EXPECT_TRUE(ListSnapshots().empty());

    RunSql(Root() + "/state/replica.db", "DROP TRIGGER keep");
    RunWell({"target", "prune", "share", "--snapshot", stays, "--yes"});
    EXPECT_FALSE(fs::exists(path));
  }
  RunWell({"group", "delete", "g", "--yes"});
}

// The other target refuses, so that the group snapshot stays, without the part that was not asked.
TEST_F(SnapshotDeletionTest, WhatLostItsRecordInADeletionThatFailedIsDeletedToo) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  RunSql(Root() + "/state/replica.db",
         "CREATE TRIGGER keep BEFORE UPDATE ON snapshots WHEN NEW.state = 3 AND NEW.target_id = "
         "'guest' BEGIN SELECT RAISE(ABORT, 'no'); END");
  setenv("VRELDR_FAIL_POINT", "ask@share", 1);
  const Result result = Run({"snapshot", "delete", id, "--yes", "--json"});
  unsetenv("VRELDR_FAIL_POINT");
  EXPECT_NE(result.code, kDone);
  const Json::Value left = result.Json()["error"]["left_snapshots"];
  ASSERT_EQ(left.size(), 1U);
  EXPECT_EQ(left[0]["target_id"], "guest");
  RunSql(Root() + "/state/replica.db", "DROP TRIGGER keep");
  RunWell({"snapshot", "delete", id, "--yes"});
  ExpectNoTargetSnapshots();
}

// Runs a deletion at a terminal on which somebody types `answer`; `streams` are what the tool has
// of the terminal, $2 in the words of a shell.
Result DeleteAtTerminal(const std::string& gsnapId, const std::string& answer,
                        const std::string& streams = "<&$2 2>&$2") {
  int keyboard = -1;
  int terminal = -1;
  EXPECT_EQ(openpty(&keyboard, &terminal, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(write(keyboard, answer.data(), answer.size()), static_cast<ssize_t>(answer.size()));
  Result result = Process({"/bin/sh", "-c", "exec \"$0\" snapshot delete \"$1\" " + streams,
                           DRGROUPCTL, gsnapId, std::to_string(terminal)})
                      .Wait();
  // Nobody writes to the terminal any more: what is there is all, in as many pieces as it came.
  fcntl(keyboard, F_SETFL, O_NONBLOCK);
  char said[4096];
  for (ssize_t got = 0; (got = read(keyboard, said, sizeof said)) > 0;) {
    result.err.append(said, static_cast<std::size_t>(got));
  }
  close(keyboard);
  close(terminal);
  return result;
}

TEST_F(SnapshotDeletionTest, DeletionAsksAtATerminal) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  for (const char* answer : {"n\n", "\n", "yellow\n"}) {
    const Result refused = DeleteAtTerminal(id, answer);
    EXPECT_EQ(refused.code, kRefused);
    EXPECT_THAT(refused.err, HasSubstr("delete group snapshot \"" + id + "\""));
    EXPECT_THAT(refused.err, HasSubstr("[y/N]"));
    EXPECT_THAT(ListSnapshots(), ElementsAre(id));
  }
  for (const char* streams : {"2>&$2", "<&$2"}) {
    const Result refused = DeleteAtTerminal(id, "y\n", streams);
    EXPECT_EQ(refused.code, kRefused);
    EXPECT_THAT(refused.err, Not(HasSubstr("[y/N]"))) << "nobody could answer";
    EXPECT_THAT(ListSnapshots(), ElementsAre(id));
  }
  EXPECT_EQ(DeleteAtTerminal(id, "y\n").code, kDone);
  EXPECT_TRUE(ListSnapshots().empty());
}

TEST_F(SnapshotDeletionTest, ACreationThatIsKilledLeavesNoGroupSnapshotAndCanBeRunAgain) {
  MakeGroup();
  for (const char* step : {"take.recorded", "take.copied", "take.renamed", "take.done"}) {
    setenv("VRELDR_KILL_POINT", step, 1);
    const Result killed = Run({"snapshot", "create", "g"});
    unsetenv("VRELDR_KILL_POINT");
    EXPECT_EQ(killed.code, 128 + 9) << step;
    EXPECT_TRUE(ListSnapshots().empty());
  }
  const std::string id = TakeSnapshot();
  EXPECT_EQ(SnapshotPaths(id).size(), 3U);
}

TEST_F(SnapshotDeletionTest, ADeletionThatIsKilledCanBeRunAgain) {
  MakeGroup();
  for (const char* step : {"delete.marked", "delete.bytes_gone", "delete.done"}) {
    const std::string id = TakeSnapshot();
    const auto paths = SnapshotPaths(id);
    setenv("VRELDR_KILL_POINT", step, 1);
    EXPECT_EQ(Run({"snapshot", "delete", id, "--yes"}).code, 128 + 9) << step;
    unsetenv("VRELDR_KILL_POINT");
    EXPECT_THAT(ListSnapshots(), ElementsAre(id));
    RunWell({"snapshot", "delete", id, "--yes"});
    EXPECT_TRUE(ListSnapshots().empty());
    // What was marked does not exist for the host, which leaves its bytes for the next change.
    for (const auto& [target, path] : paths) EXPECT_FALSE(fs::exists(path)) << target << step;
  }
  ExpectNoTargetSnapshots();
}

// A creation that fails takes back what has its name.
TEST_F(SnapshotDeletionTest, ACreationNeverTakesTheNameOfAnotherGroupSnapshot) {
  MakeGroup();
  std::vector<std::string> taken;
  std::vector<std::string> paths;
  // As a clock leaves it that was ahead for a while.
  const std::string ahead = std::to_string(std::time(nullptr) + 1000);
  RunSql(Root() + "/state/replica.db", "UPDATE targets SET last_snap_time = " + ahead);
  for (int at = 0; at < 2; ++at) {
    taken.push_back(TakeSnapshot({"--lock"}));
    paths.push_back(SnapshotPaths(taken.back()).at("share"));
  }
  RunWell({"target", "remove", "lun", "--with-snapshots", "--yes"});
  RunWell({"target", "create", "lun", "--volume", "v1", "--type", "lun", "--size", "1M"});
  RunBadly(kRefused, {"snapshot", "create", "g"}, {"ahead of this host's clock", "\"lun\""});
  EXPECT_EQ(ListSnapshots(), taken);
  for (const std::string& path : paths) EXPECT_TRUE(fs::exists(path)) << path;
}

TEST_F(SnapshotDeletionTest, WhatIsNotThereIsNotCountedAsDeleted) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  RunWell({"target", "remove", "lun", "--with-snapshots", "--yes"});
  const Json::Value report = RunWell({"snapshot", "delete", id, "--yes", "--json"}).Json();
  EXPECT_EQ(report["deleted_count"], 2);
}

TEST_F(SnapshotDeletionTest, WhatIsOutOfReachIsNotForgottenWithoutForce) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  fs::rename(VolumePath(), Root() + "/away");
  const Json::Value targets = RunWell({"snapshot", "show", id, "--json"}).Json()["targets"];
  EXPECT_TRUE(targets[0]["exists"].isNull());
  EXPECT_NE(targets[0]["problem"], "");
  RunBadly(kRefused, {"snapshot", "delete", id, "--yes"}, {id, "out of reach", "--force"});
  RunBadly(kRefused, {"group", "delete", "g", "--yes", "--force"}, {id, "out of reach"});
  fs::rename(Root() + "/away", VolumePath());
  EXPECT_THAT(ListSnapshots(), ElementsAre(id));
  EXPECT_EQ(SnapshotPaths(id).size(), 3U);

  // An empty directory where the volume should be mounted says nothing of the volume's snapshots.
  fs::rename(VolumePath(), Root() + "/away");
  fs::create_directory(VolumePath());
  RunBadly(kRefused, {"snapshot", "delete", id, "--yes"}, {id, "out of reach", "--force"});
  const Json::Value report =
      RunWell({"snapshot", "delete", id, "--yes", "--force", "--json"}).Json();
  EXPECT_EQ(report["left_snapshots"].size(), 3U);
  EXPECT_EQ(report["deleted_count"], 0);
}

}  // namespace
}  // namespace e2e
