#include "file_systems_fixture.h"

// Restoring group snapshots: old or new bytes, never a mix.

namespace e2e {
namespace {

using testing::ElementsAre;

class RestoreTest : public FileSystemsTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, RestoreTest,
                         testing::Values("directory", "ext4", "xfs", "btrfs"),
                         FileSystemsTest::NameOf);

TEST_P(RestoreTest, TargetsHoldTheSnapshotsBytesAgain) {
  MakeGroup();
  const auto before = ReadContents(TargetPaths());
  const std::string first = TakeSnapshot({"--lock"});
  ChangeTargets(TargetPaths());
  const auto after = ReadContents(TargetPaths());
  ASSERT_NE(before, after);
  const std::string second = TakeSnapshot();

  const Json::Value report = RunWell({"snapshot", "restore", first, "--yes", "--json"}).Json();
  EXPECT_THAT(report.getMemberNames(), ElementsAre("before_id", "gsnap_id", "targets"));
  ASSERT_EQ(report["targets"].size(), 3U);
  for (const Json::Value& each : report["targets"]) {
    EXPECT_THAT(each.getMemberNames(), ElementsAre("problem", "result", "target_id", "tsnap_id"));
    EXPECT_EQ(each["result"], "done");
  }
  EXPECT_EQ(ReadContents(TargetPaths()), before);
  ExpectNoLeftovers(VolumePath());

  // Whatever is written afterwards reaches no snapshot, and there is a way forward again.
  ChangeTargets(TargetPaths());
  EXPECT_EQ(ReadContents(SnapshotPaths(first)), before);
  RunWell({"snapshot", "restore", second, "--yes", "--no-undo"});
  EXPECT_EQ(ReadContents(TargetPaths()), after);
  const std::string third = TakeSnapshot();
  EXPECT_EQ(ReadContents(SnapshotPaths(third)), after);
  EXPECT_THAT(ListSnapshots(), ElementsAre(first, second, report["before_id"].asString(), third));
}

TEST_P(RestoreTest, ARestoreThatIsKilledLeavesOldOrNewBytesAndCanBeRunAgain) {
  MakeGroup();
  // A group whose first target has several files: the step after one file is inside its copy.
  RunWell({"group", "create", "s", "--target", "share", "guest", "lun"});
  const auto before = ReadContents(TargetPaths());
  const std::vector<std::string> ids{
      TakeSnapshot(), RunWell({"snapshot", "create", "s", "--json"}).Json()["gsnap_id"].asString()};
  for (const std::string& id : ids) {
    for (const char* step :
         {"copy.file", "restore.copied", "restore.synced", "restore.exchanged", "restore.done"}) {
      if (IsBtrfs() && std::string(step) == "copy.file") continue;  // nothing is copied there
      SCOPED_TRACE(id + " " + step);
      ChangeTargets(TargetPaths());
      const auto changed = ReadContents(TargetPaths());
      ExpectKilledAt(step, {"snapshot", "restore", id, "--yes", "--no-undo"});
      auto now = ReadContents(TargetPaths());
      const std::string first = id == ids[0] ? "lun" : "share";
      const bool exchanged =
          std::string(step) == "restore.exchanged" || std::string(step) == "restore.done";
      EXPECT_EQ(now.at(first), (exchanged ? before : changed).at(first));
      now.erase(first);
      for (const auto& [target, content] : now) EXPECT_EQ(content, changed.at(target)) << target;

      RunWell({"snapshot", "restore", id, "--yes", "--no-undo"});
      EXPECT_EQ(ReadContents(TargetPaths()), before);
      ExpectNoLeftovers(VolumePath());
    }
    EXPECT_EQ(ReadContents(SnapshotPaths(id)), before);
  }
}

}  // namespace
}  // namespace e2e
