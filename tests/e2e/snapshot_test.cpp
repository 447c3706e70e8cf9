#include <filesystem>
#include <memory>

#include "host_fixture.h"
#include "tool_fixture.h"
#include "tree.h"

// The main job, on each file system: group snapshots hold the bytes of their moment.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using host_test::DescribeTree;
using host_test::WriteFile;
using testing::ElementsAre;
using testing::HasSubstr;

class SnapshotTest : public ToolTest, public testing::WithParamInterface<std::string> {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    if (GetParam() == "directory") return;
    std::string why;
    image_ = std::make_unique<host_test::MountedImage>(GetParam(), VolumePath(), why);
    if (!image_->IsMounted()) GTEST_SKIP() << why;
  }
  void TearDown() override {
    image_.reset();
    ToolTest::TearDown();
  }

  // What the targets hold, by target.
  static std::map<std::string, std::map<std::string, std::string>> Contents(
      const std::map<std::string, std::string>& paths) {
    std::map<std::string, std::map<std::string, std::string>> contents;
    for (const auto& [target, path] : paths) {
      // A lun is a file. The folder of another target is the engine's, what is in it the user's.
      if (!fs::is_directory(path)) {
        contents[target]["disk"] = host_test::ReadFile(path);
      } else {
        contents[target] = DescribeTree(path);
        contents[target].erase(".");
      }
    }
    return contents;
  }

  static void ChangeTargets() {
    const auto paths = TargetPaths();
    WriteFile(paths.at("lun"), std::string(90000, 'l'));
    WriteFile(paths.at("share") + "/one", "second text");
    fs::remove(paths.at("share") + "/below/two");
    WriteFile(paths.at("guest") + "/guest.img", std::string(60000, 'g'));
  }

 private:
  std::unique_ptr<host_test::MountedImage> image_;
};

INSTANTIATE_TEST_SUITE_P(FileSystems, SnapshotTest,
                         testing::Values("directory", "ext4", "xfs", "btrfs"),
                         [](const auto& each) { return each.param; });

TEST_P(SnapshotTest, EachGroupSnapshotHoldsTheBytesOfItsMoment) {
  MakeGroup();
  const auto before = Contents(TargetPaths());
  const std::string first = TakeSnapshot();
  ChangeTargets();
  const auto after = Contents(TargetPaths());
  ASSERT_NE(before, after);
  const std::string second = TakeSnapshot();
  ASSERT_NE(first, second);

  EXPECT_EQ(Contents(SnapshotPaths(first)), before);
  EXPECT_EQ(Contents(SnapshotPaths(second)), after);
  EXPECT_THAT(ListSnapshots(), ElementsAre(first, second));

  const auto gone = SnapshotPaths(first);
  RunWell({"snapshot", "delete", first, "--yes"});
  EXPECT_THAT(ListSnapshots(), ElementsAre(second));
  for (const auto& [target, path] : gone) EXPECT_FALSE(fs::exists(path)) << path;
  EXPECT_EQ(Contents(SnapshotPaths(second)), after);
  EXPECT_EQ(Contents(TargetPaths()), after);
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
  for (const char* target : {"\"lun\"", "\"share\"", "\"guest\"", "\"v1\""}) {
    EXPECT_THAT(result.err, HasSubstr(target));
  }
}

TEST_P(SnapshotTest, DeletingTheGroupWithItsSnapshotsLeavesTheTargets) {
  MakeGroup();
  const auto before = Contents(TargetPaths());
  const auto paths = SnapshotPaths(TakeSnapshot({"--lock"}));
  RunBadly(kRefused, {"group", "delete", "g", "--yes"}, {"1 group snapshot", "--force"});
  EXPECT_EQ(ListSnapshots().size(), 1U);
  const Json::Value report = RunWell({"group", "delete", "g", "--force", "--yes", "--json"}).Json();
  EXPECT_EQ(report["deleted_gsnap_count"], 1);
  EXPECT_TRUE(report["left_snapshots"].empty());
  for (const auto& [target, path] : paths) EXPECT_FALSE(fs::exists(path)) << path;
  EXPECT_EQ(Contents(TargetPaths()), before);
  EXPECT_FALSE(fs::exists(LinkDirectory("g")));
  EXPECT_FALSE(fs::exists(GroupDirectory("g")));
}

}  // namespace
}  // namespace e2e
