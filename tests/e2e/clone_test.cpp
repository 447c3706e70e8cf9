#include <sys/mount.h>

#include <filesystem>
#include <set>

#include "file_systems_fixture.h"

// Cloning group snapshots: new, independent targets, all or none.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using host_test::WriteFile;
using testing::ElementsAre;

class CloneTest : public FileSystemsTest {
 protected:
  // What is on the volume is what is listed.
  void ExpectOnlyListedTargets() const {
    std::set<std::string> listed;
    for (const auto& [target, path] : TargetPaths()) listed.insert(target);
    std::set<std::string> there;
    for (const auto& each : fs::directory_iterator(VolumePath())) {
      const std::string name = each.path().filename();
      if (name != ".vreldr" && name != "lost+found") there.insert(name);
    }
    EXPECT_EQ(there, listed);
    ExpectNoLeftovers(VolumePath());
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, CloneTest,
                         testing::Values("directory", "ext4", "xfs", "btrfs"),
                         FileSystemsTest::NameOf);

// The paths of the clones by the target that they come from.
std::map<std::string, std::string> ClonePaths(const Json::Value& report) {
  std::map<std::string, std::string> paths;
  for (const Json::Value& each : report["clones"]) {
    paths[each["target_id"].asString()] = each["path"].asString();
  }
  return paths;
}

TEST_P(CloneTest, ClonesHoldTheSnapshotsBytesAndAreIndependent) {
  MakeGroup();
  const auto before = ReadContents(TargetPaths());
  const std::string id = TakeSnapshot();
  ChangeTargets(TargetPaths());
  const auto after = ReadContents(TargetPaths());

  const Json::Value report = RunWell({"snapshot", "clone", id, "--json"}).Json();
  EXPECT_THAT(report.getMemberNames(), ElementsAre("clones", "gsnap_id"));
  ASSERT_EQ(report["clones"].size(), 3U);
  const auto listed = TargetPaths();
  EXPECT_EQ(listed.size(), 6U);
  for (const Json::Value& each : report["clones"]) {
    EXPECT_THAT(each.getMemberNames(), ElementsAre("clone_id", "path", "target_id", "type"));
    EXPECT_EQ(each["clone_id"].asString().size(), 36U);
    EXPECT_EQ(listed.at(each["clone_id"].asString()), each["path"].asString());
    EXPECT_EQ(each["type"], each["target_id"]) << "the targets are named after their kinds";
  }
  const auto clones = ClonePaths(report);
  EXPECT_EQ(ReadContents(clones), before);

  // Later writes to one side are not seen by the other.
  ChangeTargets(clones);
  EXPECT_EQ(ReadContents(SnapshotPaths(id)), before);
  RunWell({"snapshot", "restore", id, "--yes"});
  EXPECT_EQ(ReadContents(TargetPaths()).at("share"), before.at("share"));
  EXPECT_NE(ReadContents(clones).at("share"), before.at("share"));
  RunWell({"snapshot", "delete", id, "--yes"});
  EXPECT_EQ(ReadContents(clones).at("lun"), after.at("lun"));

  // A clone is a target like any other.
  const std::string clone = report["clones"][0]["clone_id"].asString();
  RunWell({"group", "create", "clones", "--target", clone});
  RunWell({"snapshot", "create", "clones"});
  RunWell({"group", "delete", "clones", "--force", "--yes"});
  RunWell({"target", "remove", clone, "--yes"});
  ExpectOnlyListedTargets();
}

TEST_P(CloneTest, ACloneThatIsKilledLeavesNothingThatLooksWholeAndIsNot) {
  MakeGroup();
  const auto before = ReadContents(TargetPaths());
  const std::string id = TakeSnapshot();
  std::size_t clones = 0;
  for (const char* step : {"create.recorded", "copy.file", "create.copied", "create.synced",
                           "create.renamed", "create.whole", "create.done"}) {
    if (IsBtrfs() && std::string(step) == "copy.file") continue;  // nothing is copied there
    SCOPED_TRACE(step);
    ExpectKilledAt(step, {"snapshot", "clone", id});
    const bool isWhole = std::string(step) == "create.done";
    auto paths = TargetPaths();
    EXPECT_EQ(paths.size(), 3 + clones + (isWhole ? 1 : 0));
    for (const char* target : {"lun", "share", "guest"}) paths.erase(target);
    for (const auto& [clone, content] : ReadContents(paths)) {
      EXPECT_TRUE(content == before.at("lun") || content == before.at("share") ||
                  content == before.at("guest"))
          << clone;
    }

    const Json::Value report = RunWell({"snapshot", "clone", id, "--json"}).Json();
    clones += 3 + (isWhole ? 1 : 0);
    EXPECT_EQ(ReadContents(ClonePaths(report)), before);
    EXPECT_EQ(TargetPaths().size(), 3 + clones);
    ExpectOnlyListedTargets();
  }
}

// A group of a lun on "v1" and a share on "v2", which is small and in memory.
class CloneFailureTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    ASSERT_EQ(mount("tmpfs", VolumePath("v2").c_str(), "tmpfs", 0, "size=4m"), 0);
    WriteFile(Root() + "/image", std::string(10000, 'i'));
    RunWell({"target", "import", "lun", "--volume", "v1", "--type", "lun", Root() + "/image"});
    RunWell({"target", "create", "share", "--volume", "v2", "--type", "share"});
    WriteFile(TargetPaths().at("share") + "/file", std::string(1000000, 'f'));
    RunWell({"group", "create", "g", "--target", "lun", "share"});
    id_ = TakeSnapshot();
  }
  void TearDown() override {
    umount2(VolumePath("v2").c_str(), MNT_DETACH);
    ToolTest::TearDown();
  }

  std::string id_;
};

TEST_F(CloneFailureTest, NoSpaceForOneLeavesNoClone) {
  const std::string filler = VolumePath("v2") + "/filler";
  WriteFile(filler, std::string(1800000, 'x'));
  const Result result = Run({"snapshot", "clone", id_, "--json"});
  EXPECT_EQ(result.code, kStorage) << result.err;
  const Json::Value error = result.Json()["error"];
  EXPECT_EQ(error["target_id"], "share");
  EXPECT_TRUE(error["left_clones"].isArray() && error["left_clones"].empty());
  EXPECT_EQ(TargetPaths().size(), 2U);
  ExpectNoLeftovers(VolumePath("v1"));
  ExpectNoLeftovers(VolumePath("v2"));
  std::size_t entries = 0;
  for (const auto& each : fs::directory_iterator(VolumePath("v1"))) entries += each.exists();
  EXPECT_EQ(entries, 2U) << "the target and the engine's own directory";
  RunBadly(kStorage, {"snapshot", "clone", id_}, {id_, "\"share\"", "no space left", "no clone"});

  fs::remove(filler);
  RunWell({"snapshot", "clone", id_});
  EXPECT_EQ(TargetPaths().size(), 4U);
}

TEST_F(CloneFailureTest, AMissingTargetIsToldBeforeAnythingIsDone) {
  fs::rename(VolumePath("v2") + "/share", VolumePath("v2") + "/away");
  RunBadly(kNotFound, {"snapshot", "clone", id_}, {id_, "\"share\"", "are gone"});
  RunBadly(kNotFound, {"snapshot", "clone", "g-gsnap-1"}, {"g-gsnap-1"});
  RunBadly(kNotFound, {"snapshot", "clone", "x-gsnap-1"}, {"\"x\""});
  EXPECT_EQ(TargetPaths().size(), 2U);
}

TEST_F(CloneFailureTest, ABadOneIsClonedWithAWarning) {
  RunSql(DatabaseOf("g"), "UPDATE gsnap_meta SET status = 2");
  const Result result = RunWell({"snapshot", "clone", id_});
  EXPECT_THAT(result.err, testing::HasSubstr("warning"));
  EXPECT_THAT(result.out, testing::HasSubstr("CLONE"));
  EXPECT_EQ(TargetPaths().size(), 4U);
}

}  // namespace
}  // namespace e2e
