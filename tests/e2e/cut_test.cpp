#include <chrono>
#include <filesystem>

#include "file_systems_fixture.h"

// Group snapshots of one cut: how good it was, what is recorded of that, and what is asked for.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using host_test::ReadFile;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using Words = std::vector<std::string>;

class CutTest : public FileSystemsTest {
 protected:
  void SetUp() override {
    FileSystemsTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    for (const char* id : {"a", "b"}) {
      RunWell({"target", "create", id, "--volume", "v1", "--type", "share"});
    }
    RunWell({"group", "create", "g", "--target", "a", "b"});
  }

  std::string NotePath() const { return Root() + "/notes"; }
  std::string Notes() const { return fs::exists(NotePath()) ? ReadFile(NotePath()) : ""; }
  // Lets a command be the writer that is held: it writes down what is asked of it.
  void HoldByCommand(const std::string& freeze, const Words& options = {}) const {
    Words words{"group",
                "quiesce",
                "g",
                "--freeze-command",
                "/bin/sh -c 'echo freeze >>" + NotePath() + "; " + freeze + "'",
                "--thaw-command",
                "/bin/sh -c 'echo thaw >>" + NotePath() + "'"};
    words.insert(words.end(), options.begin(), options.end());
    RunWell(words);
  }
  static Json::Value Create(const Words& options = {}) {
    Words words{"snapshot", "create", "g", "--json"};
    words.insert(words.end(), options.begin(), options.end());
    return RunWell(words).Json();
  }
  // Nothing of a group snapshot is there, neither recorded nor on the volume.
  void ExpectNone() const {
    EXPECT_THAT(ListSnapshots(), IsEmpty());
    for (const char* id : {"a", "b"}) {
      const fs::path dir = VolumePath() + "/.vreldr/snapshots/" + id;
      if (!fs::exists(dir)) continue;
      EXPECT_TRUE(fs::is_empty(dir)) << *fs::directory_iterator(dir);
    }
    ExpectNoLeftovers(VolumePath());
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, CutTest, testing::Values("ext4", "xfs", "btrfs"),
                         FileSystemsTest::NameOf);

TEST_P(CutTest, WhatWasFoundOutIsRecordedAndShown) {
  const Json::Value made = Create();
  EXPECT_EQ(made["consistency"], IsBtrfs() ? "crash" : "unspecified");
  EXPECT_EQ(made["cut_grade"], IsBtrfs() ? "one instant proven" : "not of one instant");
  EXPECT_EQ(made["cut_members"], 2);
  EXPECT_EQ(made["cut_held_ms"], 0);
  EXPECT_EQ(made["cut_skew_ms"].asInt() > 0, !IsBtrfs());
  EXPECT_EQ(made["is_consistency_by_hand"], false);
  const Json::Value shown =
      RunWell({"snapshot", "show", made["gsnap_id"].asString(), "--json"}).Json();
  for (const char* key : {"consistency", "cut_grade", "cut_id", "cut_members", "cut_method",
                          "cut_skew_ms", "cut_held_ms", "is_consistency_by_hand"}) {
    EXPECT_EQ(shown[key], made[key]) << key;
  }
  RunWell({"snapshot", "edit", made["gsnap_id"].asString(), "--consistency", "application"});
  EXPECT_THAT(RunWell({"snapshot", "show", made["gsnap_id"].asString()}).out,
              HasSubstr("Consistency said by hand:  yes"));
}

TEST_P(CutTest, LessThanWhatIsRequiredIsNone) {
  RunBadly(kRefused, {"snapshot", "create", "g", "--require", "app"}, {"\"g\"", "group quiesce g"});
  ExpectNone();
  if (IsBtrfs()) {
    EXPECT_EQ(Create({"--require", "crash"})["consistency"], "crash");
    return;
  }
  RunBadly(kRefused, {"snapshot", "create", "g", "--require", "crash"},
           {"\"g\"", "not of one instant", "nobody was held"});
  ExpectNone();
}

TEST_P(CutTest, HeldWritersMakeItCrashConsistentAndACommandThatWritesStateMore) {
  HoldByCommand("true");
  const Json::Value crash = Create({"--require", "crash"});
  EXPECT_EQ(crash["consistency"], "crash");
  EXPECT_EQ(crash["cut_grade"], IsBtrfs() ? "one instant proven" : "writers were held");
  // Nobody is held for what is of one instant without that.
  EXPECT_EQ(Notes(), IsBtrfs() ? "" : "freeze\nthaw\n");
  EXPECT_EQ(crash["cut_held_ms"].asInt() > 0, !IsBtrfs());
  fs::remove(NotePath());
  HoldByCommand("true", {"--application"});
  const Json::Value app = Create({"--require", "app"});
  EXPECT_EQ(app["consistency"], "application");
  EXPECT_GT(app["cut_held_ms"].asInt(), 0);
  EXPECT_EQ(Notes(), "freeze\nthaw\n");
}

TEST_P(CutTest, ACommandThatFailsOrHangsLeavesNothingAndEverybodyGoesOn) {
  HoldByCommand("echo no such database >&2; exit 3", {"--application"});
  RunBadly(kRefused, {"snapshot", "create", "g"}, {"\"g\"", "no such database"});
  EXPECT_EQ(Notes(), "freeze\nthaw\n");
  ExpectNone();
  fs::remove(NotePath());
  HoldByCommand("exec sleep 100", {"--application", "--deadline", "300"});
  const auto begun = std::chrono::steady_clock::now();
  RunBadly(kRefused, {"snapshot", "create", "g"}, {"\"g\"", "not frozen in time"});
  EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(60));
  EXPECT_EQ(Notes(), "freeze\nthaw\n");
  ExpectNone();
}

TEST_P(CutTest, ACommandThatIsNotThereIsToldBeforeAnythingIsDone) {
  RunWell({"group", "quiesce", "g", "--freeze-command", "/no/such/program", "--thaw-command",
           "/bin/true", "--application"});
  RunBadly(kRefused, {"snapshot", "create", "g"}, {"\"g\"", "/no/such/program"});
  ExpectNone();
}

TEST_P(CutTest, ASyncShipsOneCutAndTheOtherSideKnowsIt) {
  if (!IsBtrfs()) HoldByCommand("true");
  WriteConfiguration({"v1", "v2"});
  RunWell({"protect", "g", "--volume", "v2", "--dr-group", "g-dr"});
  const Json::Value synced = RunWell({"sync", "g", "--json"}).Json();
  EXPECT_EQ(synced["cut_grade"], IsBtrfs() ? "one instant proven" : "writers were held");
  const Json::Value recorded = RunWell({"snapshot", "sync", "g-dr", "--json"}).Json();
  EXPECT_EQ(recorded["consistency"], "crash");
  EXPECT_EQ(recorded["cut_id"], synced["cut_id"]);
  EXPECT_THAT(recorded["targets"], SizeIs(2));
}

TEST_P(CutTest, AFailoverGoesToTheNewestCutThatAllReplicasHave) {
  WriteConfiguration({"v1", "v2"});
  RunWell({"protect", "g", "--volume", "v2"});
  const auto write = [this](const std::string& text) {
    for (const char* id : {"a", "b"}) host_test::WriteFile(VolumePath() + "/" + id + "/file", text);
  };
  write("first");
  const std::string first = RunWell({"sync", "g", "--json"}).Json()["cut_id"].asString();
  write("second");
  setenv("VRELDR_FAIL_POINT", "ship@b-dr", 1);
  EXPECT_NE(Run({"sync", "g"}).code, kDone);
  unsetenv("VRELDR_FAIL_POINT");
  const Json::Value mixed =
      RunWell({"failover", "g", "--mixed", "--dry-run", "--json"}).Json()["takeover"];
  const Json::Value common = RunWell({"failover", "g", "--dry-run", "--json"}).Json()["takeover"];
  EXPECT_NE(common[0]["snap_id"], mixed[0]["snap_id"]);
  EXPECT_EQ(common[1]["snap_id"], mixed[1]["snap_id"]);
  // It is less than what one of them has, so that it has to be agreed to.
  RunUnasked({"failover", "g"}, {"newest cut that all replicas have", "--yes"}, {"\"a\"", "\"b\""});
  RunWell({"failover", "g", "--yes"});
  for (const char* id : {"a-dr", "b-dr"}) {
    EXPECT_EQ(ReadFile(VolumePath("v2") + "/" + id + "/file"), "first") << id;
  }
}

TEST_P(CutTest, PruningLeavesTheNewestCutThatAllReplicasHave) {
  WriteConfiguration({"v1", "v2"});
  RunWell({"protect", "g", "--volume", "v2"});
  RunWell({"sync", "g"});
  const std::string common = RunWell({"sync", "g", "--json"}).Json()["cut_id"].asString();
  setenv("VRELDR_FAIL_POINT", "ship@b-dr", 1);
  EXPECT_NE(Run({"sync", "g"}).code, kDone);
  unsetenv("VRELDR_FAIL_POINT");
  RunWell({"group", "create", "other", "--target", "a"});
  RunWell({"sync", "other"});
  const Json::Value wanted = RunWell({"failover", "g", "--dry-run", "--json"}).Json()["takeover"];
  for (const char* group : {"other", "g"}) {
    const Json::Value pruned = RunWell({"snapshot", "prune", group, "--yes", "--json"}).Json();
    for (const Json::Value& gone : pruned["snapshots"]) {
      for (const Json::Value& each : wanted) EXPECT_NE(gone["snap_id"], each["snap_id"]) << common;
    }
  }
  const Json::Value now = RunWell({"failover", "g", "--dry-run", "--json"}).Json()["takeover"];
  for (int i = 0; i < 2; ++i) EXPECT_EQ(now[i]["snap_id"], wanted[i]["snap_id"]);
  RunWell({"sync", "g"});
  EXPECT_GT(RunWell({"snapshot", "prune", "g", "--yes", "--json"}).Json()["deleted_count"].asInt(),
            0);
}

TEST_P(CutTest, AFailoverSaysWhetherItsSnapshotsAreOfOneInstant) {
  WriteConfiguration({"v1", "v2"});
  RunWell({"protect", "g", "--volume", "v2"});
  const auto told = [](const Words& options) {
    Words words{"failover", "g", "--json"};
    words.insert(words.end(), options.begin(), options.end());
    std::string lines;
    const Json::Value document = Run(words).Json();
    for (const Json::Value& each : document["error"]["losses"]) {
      lines += each.asString() + "\n";
    }
    return lines;
  };
  const Json::Value synced = RunWell({"sync", "g", "--json"}).Json();
  EXPECT_EQ(told({}).find("the snapshots are not of one instant, but were taken within ") ==
                std::string::npos,
            IsBtrfs());
  const Json::Value planned = RunWell({"failover", "g", "--dry-run", "--json"}).Json();
  for (const char* key : {"cut_grade", "cut_id", "cut_members", "cut_skew_ms"}) {
    EXPECT_EQ(planned[key], synced[key]) << key;
  }
  HoldByCommand("true");
  RunWell({"sync", "g"});
  EXPECT_THAT(told({}), testing::Not(HasSubstr("instant")));
  setenv("VRELDR_FAIL_POINT", "ship@b-dr", 1);
  EXPECT_NE(Run({"sync", "g"}).code, kDone);
  unsetenv("VRELDR_FAIL_POINT");
  EXPECT_THAT(told({"--mixed"}), HasSubstr("of different cuts"));
  RunWell({"failover", "g", "--mixed", "--yes"});
}

TEST_P(CutTest, AFailoverToSnapshotsOfNoCutWantsToBeTold) {
  WriteConfiguration({"v1", "v2"});
  RunWell({"protect", "g", "--volume", "v2"});
  RunWell({"action", "run", "sync", "g"});
  RunBadly(kRefused, {"failover", "g"}, {"\"a-dr\"", "\"b-dr\"", "no cut", "--mixed"});
  RunWell({"failover", "g", "--mixed", "--yes"});
}

TEST_P(CutTest, ASyncWhoseWritersCannotBeHeldSendsNothing) {
  WriteConfiguration({"v1", "v2"});
  RunWell({"protect", "g", "--volume", "v2"});
  HoldByCommand("exit 1", {"--application"});
  RunBadly(kRefused, {"sync", "g"}, {"\"g\"", "nothing was sent"});
  ExpectNone();
  const Json::Value status = RunWell({"status", "g", "--json"}).Json()["targets"];
  for (const Json::Value& each : status) {
    EXPECT_EQ(each["last_snap_state"], "none");
  }
}

}  // namespace
}  // namespace e2e
