#include <sys/mount.h>

#include <filesystem>

#include "file_systems_fixture.h"

// Restores that are refused, or that fail at a target.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using host_test::WriteFile;
using testing::HasSubstr;

// A group of a lun on "v1", a share on "v2", which is small and in memory, and another lun.
class RestoreFailureTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    ASSERT_EQ(mount("tmpfs", VolumePath("v2").c_str(), "tmpfs", 0, "size=4m"), 0);
    WriteFile(Root() + "/image", std::string(10000, 'i'));
    for (const char* id : {"first", "last"}) {
      RunWell({"target", "import", id, "--volume", "v1", "--type", "lun", Root() + "/image"});
    }
    RunWell({"target", "create", "share", "--volume", "v2", "--type", "share"});
    WriteFile(TargetPaths().at("share") + "/file", std::string(1000000, 'f'));
    RunWell({"group", "create", "g", "--target", "first", "share", "last"});
    id_ = TakeSnapshot();
    before_ = ReadContents(TargetPaths());
    for (const char* id : {"first", "last"}) WriteFile(TargetPaths().at(id), "changed");
    WriteFile(TargetPaths().at("share") + "/file", "changed");
    changed_ = ReadContents(TargetPaths());
  }
  void TearDown() override {
    umount2(VolumePath("v2").c_str(), MNT_DETACH);
    ToolTest::TearDown();
  }

  void ExpectRefused(Code code, const std::vector<std::string>& options,
                     const std::vector<std::string>& parts) {
    const auto before = Tree(VolumePath());
    std::vector<std::string> words{"snapshot", "restore", id_};
    words.insert(words.end(), options.begin(), options.end());
    RunBadly(code, words, parts);
    EXPECT_EQ(Tree(VolumePath()), before);
  }
  std::string ShareSnapshot() const {
    return fs::directory_iterator(VolumePath("v2") + "/.vreldr/snapshots/share")->path();
  }

  std::string id_;
  TargetContents before_;
  TargetContents changed_;
};

TEST_F(RestoreFailureTest, NoSpaceTellsTargetByTargetWhatWasDone) {
  const std::string filler = VolumePath("v2") + "/filler";
  WriteFile(filler, std::string(2500000, 'x'));
  const Result result = Run({"snapshot", "restore", id_, "--yes", "--no-undo", "--json"});
  EXPECT_EQ(result.code, kStorage) << result.err;
  const Json::Value error = result.Json()["error"];
  EXPECT_EQ(error["target_id"], "share");
  ASSERT_EQ(error["targets"].size(), 3U);
  EXPECT_EQ(error["targets"][0]["result"], "done");
  EXPECT_EQ(error["targets"][1]["result"], "failed");
  EXPECT_THAT(error["targets"][1]["problem"].asString(), HasSubstr("no space left"));
  EXPECT_EQ(error["targets"][2]["result"], "not started");

  auto now = ReadContents(TargetPaths());
  EXPECT_EQ(now.at("first"), before_.at("first"));
  EXPECT_EQ(now.at("share"), changed_.at("share"));
  EXPECT_EQ(now.at("last"), changed_.at("last"));
  ExpectNoLeftovers(VolumePath("v2"));
  RunBadly(kStorage, {"snapshot", "restore", id_, "--yes", "--no-undo"},
           {id_, "\"first\": done", "\"share\": failed", "\"last\": not started"});

  fs::remove(filler);
  RunWell({"snapshot", "restore", id_, "--yes"});
  EXPECT_EQ(ReadContents(TargetPaths()), before_);
}

TEST_F(RestoreFailureTest, WithoutRoomForWhatUndoesItNothingIsRestored) {
  WriteFile(TargetPaths().at("share") + "/file", std::string(1700000, 'c'));
  changed_ = ReadContents(TargetPaths());
  RunBadly(kStorage, {"snapshot", "restore", id_, "--yes"},
           {"no space left", "nothing was restored", "--no-undo"});
  EXPECT_EQ(ReadContents(TargetPaths()), changed_);
  EXPECT_EQ(ListSnapshots().size(), 1U);
  EXPECT_EQ(RunWell({"group", "show", "g", "--json"}).Json()["unfinished_restore"], "");
  RunWell({"snapshot", "restore", id_, "--yes", "--no-undo"});
  EXPECT_EQ(ReadContents(TargetPaths()), before_);
  RunBadly(kRefused, {"snapshot", "restore", "--undo", "g", "--yes"}, {"nothing to undo", id_});
}

TEST_F(RestoreFailureTest, ATargetThatIsGoneIsToldBeforeAnythingIsDone) {
  fs::rename(VolumePath("v2") + "/share", VolumePath("v2") + "/away");
  ExpectRefused(kNotFound, {"--yes"}, {id_, "\"share\"", "are gone"});
  fs::rename(VolumePath("v2") + "/away", VolumePath("v2") + "/share");
  RunWell({"target", "remove", "share", "--with-snapshots", "--yes"});
  ExpectRefused(kNotFound, {"--yes", "--force"}, {id_, "\"share\"", "does not exist"});
}

TEST_F(RestoreFailureTest, ATargetSnapshotThatIsGoneIsToldBeforeAnythingIsDone) {
  host_test::RunProgram({"chattr", "-R", "-f", "-i", ShareSnapshot()});
  fs::remove_all(ShareSnapshot());
  ExpectRefused(kNotFound, {"--yes", "--force"}, {id_, "\"share\"", "no such snapshot"});
}

TEST_F(RestoreFailureTest, AVolumeThatIsAwayOrReadOnlyIsToldBeforeAnythingIsDone) {
  ASSERT_EQ(mount(nullptr, VolumePath("v2").c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
  ExpectRefused(kStorage, {"--yes"}, {"\"v2\""});
  umount2(VolumePath("v2").c_str(), MNT_DETACH);
  ExpectRefused(kStorage, {"--yes"}, {id_, "\"share\"", "mount it"});
}

TEST_F(RestoreFailureTest, ABadOneNeedsForce) {
  RunSql(DatabaseOf("g"), "UPDATE gsnap_meta SET status = 2");
  ExpectRefused(kRefused, {"--yes"}, {id_, "is bad", "--force"});
  RunWell({"snapshot", "restore", id_, "--yes", "--force"});
  EXPECT_EQ(ReadContents(TargetPaths()), before_);
}

TEST_F(RestoreFailureTest, NothingIsLostWithoutYes) {
  ExpectRefused(kRefused, {}, {id_, "replace all that 3 targets now hold", "--yes"});
}

TEST_F(RestoreFailureTest, UnknownNamesAreTold) {
  RunBadly(kNotFound, {"snapshot", "restore", "g-gsnap-1", "--yes"}, {"g-gsnap-1"});
  RunBadly(kNotFound, {"snapshot", "restore", "x-gsnap-1", "--yes"}, {"\"x\""});
  RunBadly(kUsage, {"snapshot", "restore", "g", "--yes"}, {"\"g\"", "GROUP-gsnap-SECONDS"});
  EXPECT_EQ(ReadContents(TargetPaths()), changed_);
}

TEST_F(RestoreFailureTest, RowsThatNameNothingAreToldBeforeAnythingIsDone) {
  RunSql(DatabaseOf("g"), "UPDATE target_snap_list SET target_type = 0 WHERE target_id = 'last'");
  ExpectRefused(kCatalogue, {"--yes"}, {id_, "names no target snapshot"});
  RunSql(DatabaseOf("g"), "DELETE FROM target_snap_list");
  ExpectRefused(kCatalogue, {"--yes"}, {id_, "without target snapshots"});
}

}  // namespace
}  // namespace e2e
