#include <filesystem>
#include <memory>

#include "file_systems_fixture.h"
#include "tool_fixture.h"
#include "tree.h"

// The main job, on each file system: group snapshots hold the bytes of their moment.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using host_test::WriteFile;
using testing::ElementsAre;
using testing::HasSubstr;

class SnapshotTest : public FileSystemsTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, SnapshotTest,
                         testing::Values("directory", "ext4", "xfs", "btrfs"),
                         FileSystemsTest::NameOf);

TEST_P(SnapshotTest, EachGroupSnapshotHoldsTheBytesOfItsMoment) {
  MakeGroup();
  const auto before = ReadContents(TargetPaths());
  const std::string first = TakeSnapshot();
  ChangeTargets(TargetPaths());
  const auto after = ReadContents(TargetPaths());
  ASSERT_NE(before, after);
  const std::string second = TakeSnapshot();
  ASSERT_NE(first, second);

  EXPECT_EQ(ReadContents(SnapshotPaths(first)), before);
  EXPECT_EQ(ReadContents(SnapshotPaths(second)), after);
  EXPECT_THAT(ListSnapshots(), ElementsAre(first, second));

  const auto gone = SnapshotPaths(first);
  RunWell({"snapshot", "delete", first, "--yes"});
  EXPECT_THAT(ListSnapshots(), ElementsAre(second));
  for (const auto& [target, path] : gone) EXPECT_FALSE(fs::exists(path)) << path;
  EXPECT_EQ(ReadContents(SnapshotPaths(second)), after);
  EXPECT_EQ(ReadContents(TargetPaths()), after);
  RunBadly(kNotFound, {"snapshot", "show", first}, {first, "snapshot list g"});
}

TEST_P(SnapshotTest, WarnsOnceWhenSnapshotsAreCopies) {
  MakeGroup();
  const Json::Value volumes = RunWell({"volume", "list", "--json"}).Json()["volumes"];
  ASSERT_EQ(volumes[0]["name"], "v1");
  EXPECT_EQ(volumes[0]["is_atomic"].asBool(), GetParam() == "btrfs");
  const Result result = RunWell({"snapshot", "create", "g"});
  if (GetParam() == "btrfs") {
    EXPECT_EQ(result.err, "");
    return;
  }
  EXPECT_THAT(result.err, HasSubstr("drgroupctl: warning: "));
  EXPECT_EQ(result.err.find('\n'), result.err.size() - 1);
  for (const char* part : {"\"g\"", "not of one instant", " ms", "group quiesce g"}) {
    EXPECT_THAT(result.err, HasSubstr(part));
  }
}

TEST_P(SnapshotTest, DeletingTheGroupWithItsSnapshotsLeavesTheTargets) {
  MakeGroup();
  const auto before = ReadContents(TargetPaths());
  const auto paths = SnapshotPaths(TakeSnapshot({"--lock"}));
  RunBadly(kRefused, {"group", "delete", "g", "--yes"}, {"1 group snapshot", "--force"});
  EXPECT_EQ(ListSnapshots().size(), 1U);
  const Json::Value report = RunWell({"group", "delete", "g", "--force", "--yes", "--json"}).Json();
  EXPECT_EQ(report["deleted_gsnap_count"], 1);
  EXPECT_TRUE(report["left_snapshots"].empty());
  for (const auto& [target, path] : paths) EXPECT_FALSE(fs::exists(path)) << path;
  EXPECT_EQ(ReadContents(TargetPaths()), before);
  EXPECT_FALSE(fs::exists(LinkDirectory("g")));
  EXPECT_FALSE(fs::exists(GroupDirectory("g")));
}

}  // namespace
}  // namespace e2e
