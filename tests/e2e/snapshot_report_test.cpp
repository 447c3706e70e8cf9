#include <filesystem>

#include "host_fixture.h"
#include "tool_fixture.h"

// What is told of group snapshots.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

using SnapshotReportTest = ToolTest;

TEST_F(SnapshotReportTest, CreationTellsTheGroupSnapshotAndItsParts) {
  MakeGroup();
  const Json::Value made = RunWell({"snapshot", "create", "g", "--json"}).Json();
  EXPECT_THAT(made.getMemberNames(),
              ElementsAre("consistency", "cut_grade", "cut_held_ms", "cut_id", "cut_members",
                          "cut_method", "cut_skew_ms", "group_id", "gsnap_id",
                          "is_consistency_by_hand", "name", "targets", "warnings"))
      << "a directory is a volume whose snapshots are copies";
  EXPECT_THAT(made["warnings"][0].asString(), HasSubstr("not of one instant"));
  EXPECT_EQ(made["group_id"], "g");
  EXPECT_EQ(made["gsnap_id"].asString().rfind("g-gsnap-", 0), 0U);
  EXPECT_EQ(made["name"].asString().rfind("GMT-", 0), 0U);
  ASSERT_EQ(made["targets"].size(), 3U);
  for (const Json::Value& each : made["targets"]) {
    EXPECT_THAT(each.getMemberNames(),
                ElementsAre("exists", "path", "problem", "target_id", "tsnap_id", "type"));
    EXPECT_EQ(each["tsnap_id"].asString().size(), 36U);
  }
  EXPECT_EQ(made["targets"][0]["target_id"], "lun");
  EXPECT_EQ(made["targets"][1]["type"], "share");
}

TEST_F(SnapshotReportTest, ShowTellsWhatTheUserSaidOfIt) {
  MakeGroup();
  const std::string id = TakeSnapshot({"--description", "before the upgrade", "--lock"});
  RunWell({"snapshot", "edit", id, "--consistency", "application"});
  const Json::Value shown = RunWell({"snapshot", "show", id, "--json"}).Json();
  EXPECT_THAT(
      shown.getMemberNames(),
      ElementsAre("consistency", "cut_grade", "cut_held_ms", "cut_id", "cut_members", "cut_method",
                  "cut_skew_ms", "description", "group_id", "gsnap_id", "is_consistency_by_hand",
                  "is_locked", "missing_targets", "name", "replicas", "status", "targets", "time"));
  EXPECT_EQ(shown["description"], "before the upgrade");
  EXPECT_EQ(shown["is_locked"], true);
  EXPECT_EQ(shown["consistency"], "application");
  EXPECT_EQ(shown["is_consistency_by_hand"], true);
  EXPECT_EQ(shown["cut_grade"], "not of one instant");
  EXPECT_EQ(shown["cut_members"], 3);
  EXPECT_EQ(shown["status"], "ready");
  EXPECT_EQ(shown["group_id"], "g");
  EXPECT_EQ(shown["missing_targets"], Json::Value(Json::arrayValue));
  EXPECT_EQ("g-gsnap-" + shown["time"].asString(), id);

  const std::string text = RunWell({"snapshot", "show", id}).out;
  for (const char* part : {"before the upgrade", "application", "ready", "GMT-", "lun", "share"}) {
    EXPECT_THAT(text, HasSubstr(part));
  }
}

TEST_F(SnapshotReportTest, ListTellsEveryGroupSnapshotOrTheLatest) {
  MakeGroup();
  const std::string first = TakeSnapshot({"--description", "one"});
  const std::string second = TakeSnapshot({"--lock"});
  const Json::Value all = RunWell({"snapshot", "list", "g", "--json"}).Json()["snapshots"];
  ASSERT_EQ(all.size(), 2U);
  EXPECT_THAT(all[0].getMemberNames(),
              ElementsAre("consistency", "description", "gsnap_id", "is_locked", "name", "status",
                          "target_count", "time"));
  EXPECT_EQ(all[0]["description"], "one");
  EXPECT_EQ(all[0]["consistency"], "unspecified");
  EXPECT_EQ(all[1]["is_locked"], true);
  EXPECT_EQ(all[1]["target_count"], 3);
  const Json::Value latest =
      RunWell({"snapshot", "list", "g", "--latest", "--json"}).Json()["snapshots"];
  ASSERT_EQ(latest.size(), 1U);
  EXPECT_EQ(latest[0]["gsnap_id"], second);
  EXPECT_THAT(RunWell({"snapshot", "list", "g", "--latest"}).out, Not(HasSubstr(first)));
}

TEST_F(SnapshotReportTest, ShowTellsWhichTargetSnapshotsAreGone) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  const std::string path = SnapshotPaths(id).at("share");
  // Fails where the snapshot could not be made immutable, and need not be done there.
  host_test::RunProgram({"chattr", "-R", "-i", path});
  fs::remove_all(path);
  RunWell({"target", "remove", "guest", "--with-snapshots", "--yes"});
  const Json::Value targets = RunWell({"snapshot", "show", id, "--json"}).Json()["targets"];
  EXPECT_EQ(targets[0]["exists"], Json::Value(true));
  EXPECT_EQ(targets[1]["exists"], Json::Value(false));
  EXPECT_THAT(targets[1]["problem"].asString(), HasSubstr("no such snapshot"));
  EXPECT_EQ(targets[2]["exists"], Json::Value(false));
  EXPECT_THAT(targets[2]["problem"].asString(), HasSubstr("does not exist"));
  RunWell({"snapshot", "delete", id, "--yes"});
}

}  // namespace
}  // namespace e2e
