#include <filesystem>

#include "file_systems_fixture.h"

// Bringing a catalogue in line with what the targets really have.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

class RepairTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    MakeGroup();
    id_ = TakeSnapshot();
  }

  static Json::Value Repair(const std::vector<std::string>& options) {
    std::vector<std::string> words{"snapshot", "repair", "g", "--json"};
    words.insert(words.end(), options.begin(), options.end());
    const Json::Value report = RunWell(words).Json();
    EXPECT_THAT(report.getMemberNames(), ElementsAre("changed", "deleted", "dry_run", "group_id",
                                                     "incomplete", "left_snapshots"));
    return report;
  }
  // What --dry-run tells, with everything as it was; then what is told of doing it.
  Json::Value RepairAsPlanned() {
    const auto before = Tree(Root());
    const Json::Value plan = Repair({"--dry-run"});
    EXPECT_EQ(Tree(Root()), before);
    const Json::Value report = Repair({"--yes"});
    for (const char* key : {"changed", "deleted", "incomplete", "left_snapshots"}) {
      EXPECT_EQ(plan[key], report[key]) << key;
    }
    EXPECT_TRUE(plan["dry_run"].asBool() && !report["dry_run"].asBool());
    const auto after = Tree(Root());
    const Json::Value again = Repair({"--yes"});
    EXPECT_TRUE(again["changed"].empty() && again["deleted"].empty());
    EXPECT_EQ(Tree(Root()), after) << "a second repair has nothing to do";
    return report;
  }
  std::string Status() {
    return RunWell({"snapshot", "show", id_, "--json"}).Json()["status"].asString();
  }
  // Takes a target's snapshot away behind everybody's back.
  void LoseSnapshot(const std::string& target) {
    for (const auto& each : fs::directory_iterator(VolumePath() + "/.vreldr/snapshots/" + target)) {
      host_test::RunProgram({"chattr", "-R", "-f", "-i", each.path()});
      fs::remove_all(each.path());
    }
  }

  std::string id_;
};

TEST_F(RepairTest, ASoundCatalogueIsLeftAlone) {
  const auto before = Tree(Root());
  EXPECT_THAT(RunWell({"snapshot", "repair", "g"}).out, HasSubstr("Nothing to repair"));
  EXPECT_EQ(Tree(Root()), before);
}

TEST_F(RepairTest, ALostTargetSnapshotMakesItBadForGood) {
  const std::string other = TakeSnapshot();
  RunWell({"snapshot", "delete", other, "--yes"});
  LoseSnapshot("share");
  const Json::Value report = RepairAsPlanned();
  EXPECT_TRUE(report["deleted"].empty());
  ASSERT_EQ(report["changed"].size(), 1U);
  EXPECT_THAT(report["changed"][0].getMemberNames(),
              ElementsAre("from", "gsnap_id", "reason", "to"));
  EXPECT_EQ(report["changed"][0]["gsnap_id"], id_);
  EXPECT_EQ(report["changed"][0]["from"], "ready");
  EXPECT_EQ(report["changed"][0]["to"], "bad");
  EXPECT_THAT(report["changed"][0]["reason"].asString(), HasSubstr("\"share\""));
  EXPECT_EQ(Status(), "bad");
  RunBadly(kRefused, {"snapshot", "restore", id_, "--yes"}, {id_, "is bad"});
}

TEST_F(RepairTest, ALostTargetMakesItBad) {
  RunWell({"target", "remove", "share", "--with-snapshots", "--yes"});
  EXPECT_EQ(RepairAsPlanned()["changed"][0]["to"], "bad");
  EXPECT_EQ(Status(), "bad");
}

TEST_F(RepairTest, AVolumeThatIsAwayMakesItUnknownUntilItIsBack) {
  fs::rename(VolumePath(), Root() + "/away");
  EXPECT_EQ(RepairAsPlanned()["changed"][0]["to"], "unknown");
  EXPECT_EQ(Status(), "unknown");
  fs::rename(Root() + "/away", VolumePath());
  EXPECT_EQ(RepairAsPlanned()["changed"][0]["to"], "ready");
  EXPECT_EQ(Status(), "ready");
}

// The first target that decides is the one that counts, in the order of the records.
TEST_F(RepairTest, ALostSnapshotBeforeATargetThatCannotBeAskedIsBad) {
  RunWell({"target", "create", "far", "--volume", "v2", "--type", "share"});
  RunWell({"group", "create", "h", "--target", "lun", "far"});
  RunWell({"group", "create", "i", "--target", "far", "lun"});
  for (const char* group : {"h", "i"}) RunWell({"snapshot", "create", group});
  LoseSnapshot("lun");
  fs::rename(VolumePath("v2"), Root() + "/away");
  for (const auto& [group, status] :
       std::vector<std::pair<std::string, std::string>>{{"h", "bad"}, {"i", "unknown"}}) {
    const Json::Value plan = RunWell({"snapshot", "repair", group, "--dry-run", "--json"}).Json();
    EXPECT_EQ(plan["changed"][0]["to"], status);
    const Json::Value report = RunWell({"snapshot", "repair", group, "--yes", "--json"}).Json();
    EXPECT_EQ(report["changed"], plan["changed"]);
  }
}

TEST_F(RepairTest, HalfRecordedOnesAreDeletedAndWhatStaysIsNamed) {
  const std::string second = TakeSnapshot();
  const std::string third = TakeSnapshot();
  RunSql(DatabaseOf("g"), "DELETE FROM gsnap_meta WHERE gsnap_id = '" + second + "'");
  RunSql(DatabaseOf("g"), "DELETE FROM target_snap_list WHERE gsnap_id = '" + third + "'");
  const Json::Value report = RepairAsPlanned();
  EXPECT_TRUE(report["changed"].empty());
  ASSERT_EQ(report["deleted"].size(), 2U);
  EXPECT_EQ(report["deleted"][0]["gsnap_id"], second);
  EXPECT_EQ(report["deleted"][1]["gsnap_id"], third);
  EXPECT_EQ(report["left_snapshots"].size(), 3U) << "those of the second";
  EXPECT_THAT(ListSnapshots(), ElementsAre(id_));
  EXPECT_EQ(Status(), "ready");
}

TEST_F(RepairTest, ItShowsWhatItIsGoingToDoBeforeItDoesIt) {
  LoseSnapshot("lun");
  RunUnasked({"snapshot", "repair", "g"}, {"set the status of 1 group snapshot", "--dry-run"},
             {"Set group snapshot \"" + id_ + "\" from ready to bad"});
  EXPECT_EQ(Status(), "ready");
  const Result result = RunWell({"snapshot", "repair", "g", "--yes"});
  EXPECT_THAT(result.err, HasSubstr("Set group snapshot \"" + id_ + "\" from ready to bad"));
  EXPECT_THAT(result.out, HasSubstr("CHANGED"));
  EXPECT_EQ(Status(), "bad");
}

TEST_F(RepairTest, RecordsOfAnotherGroupAreNotFollowed) {
  RunWell({"group", "create", "h", "--target", "lun"});
  const std::string other =
      RunWell({"snapshot", "create", "h", "--json"}).Json()["gsnap_id"].asString();
  RunSql(DatabaseOf("g"), "INSERT INTO target_snap_list VALUES ('lun', 1, 'x', '" + other + "')");
  const auto before = Tree(Root());
  RunBadly(kCatalogue, {"snapshot", "repair", "g", "--yes"}, {"\"g\"", other, "backup"});
  EXPECT_EQ(Tree(Root()), before);
  EXPECT_EQ(SnapshotPaths(other).size(), 1U);
}

TEST_F(RepairTest, WhatCannotBeWrittenIsTold) {
  LoseSnapshot("lun");
  RunSql(DatabaseOf("g"),
         "CREATE TRIGGER refuse BEFORE UPDATE ON gsnap_meta WHEN NEW.status = 2 "
         "BEGIN SELECT RAISE(FAIL, 'no'); END");
  const Result result = Run({"snapshot", "repair", "g", "--yes", "--json"});
  EXPECT_EQ(result.code, kCatalogue) << result.err;
  const Json::Value error = result.Json()["error"];
  EXPECT_THAT(error["message"].asString(), HasSubstr("of 1 change 0 could be made"));
  EXPECT_TRUE(error["changed"].empty() && error["deleted"].empty());
  EXPECT_EQ(Status(), "ready");
}

TEST_F(RepairTest, AnUnknownGroupIsTold) {
  RunBadly(kNotFound, {"snapshot", "repair", "x", "--yes"}, {"\"x\""});
}

}  // namespace
}  // namespace e2e
