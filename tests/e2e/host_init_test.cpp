#include <sys/mount.h>

#include <filesystem>

#include "tool_fixture.h"
#include "tree.h"

// A host that lacks a part of itself, and volumes that are not what they should be.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using host_test::ReadFile;
using host_test::WriteFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class HostInitTest : public ToolTest {
 protected:
  std::string Records() const { return Root() + "/state/replica.db"; }
  static std::string StatusOf(const std::string& gsnapId) {
    return RunWell({"snapshot", "show", gsnapId, "--json"}).Json()["status"].asString();
  }
  static std::string ProblemOf(const std::string& volume) {
    const Json::Value document = RunWell({"volume", "list", "--json"}).Json();
    for (const Json::Value& each : document["volumes"]) {
      if (each["name"] == volume) return each["problem"].asString();
    }
    return "no such volume";
  }
};

TEST_F(HostInitTest, RepairSetsNothingBadWhileTheRecordsAreAway) {
  MakeGroup();
  const std::string gsnapId = TakeSnapshot();
  const std::string good = ReadFile(Records());
  fs::remove(Records() + "-journal");
  for (const char* text : std::vector<const char*>{"", "x", nullptr}) {
    SCOPED_TRACE(text == nullptr ? "missing" : text);
    fs::remove(Records());
    if (text != nullptr) WriteFile(Records(), text);
    RunBadly(kStorage, {"target", "list"}, {Records(), "host init"});
    RunBadly(kStorage, {"target", "create", "new", "--volume", "v2", "--type", "share"},
             {Records(), "host init"});
    EXPECT_NE(Run({"snapshot", "delete", gsnapId, "--yes"}).code, kDone);
    EXPECT_NE(Run({"snapshot", "restore", gsnapId, "--yes"}).code, kDone);
    Run({"snapshot", "repair", "g", "--yes"});
    EXPECT_NE(StatusOf(gsnapId), "bad");
    EXPECT_EQ(fs::exists(Records()), text != nullptr);
    EXPECT_FALSE(fs::exists(VolumePath("v2") + "/.vreldr"));
  }
  WriteFile(Records(), good);
  RunWell({"snapshot", "repair", "g", "--yes"});
  EXPECT_EQ(StatusOf(gsnapId), "ready");
  RunWell({"snapshot", "restore", gsnapId, "--yes"});
}

TEST_F(HostInitTest, RepairSetsNothingBadWithAWrongStateDirectory) {
  MakeGroup();
  const std::string gsnapId = TakeSnapshot();
  const std::string config = ReadFile(Root() + "/config.json");
  std::string wrong = config;
  wrong.replace(wrong.find("/state\""), 7, "/elsewhere\"");
  WriteFile(Root() + "/config.json", wrong);
  RunBadly(kStorage, {"target", "list"}, {Root() + "/elsewhere", "\"v1\"", "state_dir"});
  Run({"snapshot", "repair", "g", "--yes"});
  EXPECT_NE(StatusOf(gsnapId), "bad");
  // Not even where nothing at all says that there was a host.
  for (const char* each : {"v1", "v2"}) fs::rename(VolumePath(each), VolumePath(each) + "-away");
  for (const char* each : {"v1", "v2"}) fs::create_directory(VolumePath(each));
  Run({"snapshot", "repair", "g", "--yes"});
  EXPECT_NE(StatusOf(gsnapId), "bad");
  EXPECT_FALSE(fs::exists(Root() + "/elsewhere"));
  for (const char* each : {"v1", "v2"}) fs::remove(VolumePath(each));
  for (const char* each : {"v1", "v2"}) fs::rename(VolumePath(each) + "-away", VolumePath(each));
  WriteFile(Root() + "/config.json", config);
  RunWell({"snapshot", "repair", "g", "--yes"});
  EXPECT_EQ(StatusOf(gsnapId), "ready");
}

TEST_F(HostInitTest, AHostIsMadeOnceAndReported) {
  const Json::Value report = RunWell({"host", "init", "--json"}).Json();
  EXPECT_THAT(report.getMemberNames(), ElementsAre("found", "moved", "node_id", "state_dir"));
  EXPECT_EQ(report["node_id"].asString() + "\n", ReadFile(Root() + "/state/node_id"));
  EXPECT_EQ(report["state_dir"], Root() + "/state");
  EXPECT_TRUE(report["found"].empty());
  RunBadly(kRefused, {"host", "init", "--yes"}, {Root() + "/state", "a host already"});
  MakeGroup();
}

TEST_F(HostInitTest, AHostIsMadeAnewOnlyWhenThatIsConfirmed) {
  MakeGroup();
  const std::string node = ReadFile(Root() + "/state/node_id");
  WriteFile(Records(), "junk");
  RunUnasked({"host", "init"}, {Records(), "damaged", "\"v1\""},
             {"Traces of a host:", "To be moved aside:"});
  EXPECT_EQ(ReadFile(Records()), "junk");
  const Json::Value report = RunWell({"host", "init", "--yes", "--json"}).Json();
  EXPECT_EQ(report["node_id"].asString() + "\n", node);
  EXPECT_EQ(report["found"].size(), 3U) << report;
  ASSERT_EQ(report["moved"][0], Records() + ".damaged-1");
  EXPECT_EQ(ReadFile(Records() + ".damaged-1"), "junk");
  EXPECT_THAT(TargetPaths(), IsEmpty());
  EXPECT_TRUE(fs::exists(VolumePath("v1") + "/lun/disk.img"));
}

// "v2" is a file system of its own, and not mounted later on.
class UnmountedVolumeTest : public HostInitTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    fs::create_directory(Root() + "/disk");
    ASSERT_EQ(mount("tmpfs", (Root() + "/disk").c_str(), "tmpfs", 0, "size=8m"), 0);
    Mount();
    MakeGroup();
    RunWell({"target", "create", "old", "--volume", "v2", "--type", "share"});
  }
  void TearDown() override {
    Unmount();
    umount2((Root() + "/disk").c_str(), MNT_DETACH);
    ToolTest::TearDown();
  }
  void Mount() const {
    ASSERT_EQ(
        mount((Root() + "/disk").c_str(), VolumePath("v2").c_str(), nullptr, MS_BIND, nullptr), 0);
  }
  void Unmount() const { umount2(VolumePath("v2").c_str(), MNT_DETACH); }
};

TEST_F(UnmountedVolumeTest, NothingIsProtectedOntoItAndNothingWrittenUnderIt) {
  Unmount();
  EXPECT_THAT(ProblemOf("v2"), HasSubstr("mount it"));
  RunBadly(kStorage, {"protect", "g", "--volume", "v2", "--dr-group", "gd"},
           {"\"v2\"", "mount it"});
  RunBadly(kStorage, {"target", "create", "new", "--volume", "v2", "--type", "share"},
           {"\"v2\"", "mount it"});
  EXPECT_TRUE(fs::is_empty(VolumePath("v2")));
  Mount();
  EXPECT_EQ(ProblemOf("v2"), "");
  RunWell({"protect", "g", "--volume", "v2"});
  RunWell({"sync", "g"});
}

TEST_F(UnmountedVolumeTest, ASyncOntoItIsRefused) {
  RunWell({"protect", "g", "--volume", "v2"});
  RunWell({"sync", "g"});
  Unmount();
  EXPECT_NE(Run({"sync", "g"}).code, kDone);
  EXPECT_TRUE(fs::is_empty(VolumePath("v2")));
  Mount();
  RunWell({"sync", "g"});
}

TEST_F(HostInitTest, AVolumeThatIsNotEmptyIsInitialisedByTheVerb) {
  WriteFile(VolumePath("v2") + "/mine", "text");
  RunWell({"host", "init"});
  EXPECT_THAT(ProblemOf("v2"), HasSubstr("volume init v2"));
  RunBadly(kStorage, {"target", "create", "a", "--volume", "v2", "--type", "share"},
           {"\"v2\"", "not empty", "volume init v2"});
  const Json::Value report = RunWell({"volume", "init", "v2", "--json"}).Json();
  EXPECT_THAT(report.getMemberNames(),
              ElementsAre("id", "is_adopted", "targets", "volume", "where"));
  EXPECT_EQ(report["id"].asString().size(), 36U);
  EXPECT_EQ(report["is_adopted"], false);
  RunWell({"target", "create", "a", "--volume", "v2", "--type", "share"});
  RunBadly(kRefused, {"volume", "init", "v2"}, {"\"v2\"", "already"});
  RunBadly(kNotFound, {"volume", "init", "v9"}, {"\"v9\"", "volume list"});
}

TEST_F(HostInitTest, DataThatHasMovedIsAdoptedAfterItWasShownAndConfirmed) {
  MakeGroup();
  const std::string gsnapId = TakeSnapshot();
  fs::remove(VolumePath() + "/.vreldr/volume.json");
  fs::rename(VolumePath() + "/guest", Root() + "/guest");
  RunBadly(kStorage, {"snapshot", "create", "g"}, {"volume init v1 --adopt"});
  RunBadly(kStorage, {"volume", "init", "v1"}, {"\"v1\"", "no identity"});
  RunUnasked({"volume", "init", "v1", "--adopt"}, {"3 recorded targets", "1 "},
             {"target \"guest\" is NOT there"});
  const Result result = RunWell({"volume", "init", "v1", "--adopt", "--yes", "--json"});
  EXPECT_THAT(result.err, HasSubstr("target \"guest\" is NOT there"));
  EXPECT_THAT(result.err, HasSubstr("target \"lun\" is there, with 1 of 1 snapshot"));
  const Json::Value report = result.Json();
  EXPECT_EQ(report["is_adopted"], true);
  ASSERT_EQ(report["targets"].size(), 3U);
  EXPECT_EQ(report["targets"][0]["target_id"], "guest");
  EXPECT_EQ(report["targets"][0]["exists"], false);
  EXPECT_EQ(report["targets"][1]["exists"], true);
  EXPECT_EQ(report["targets"][1]["snapshots"].size(), 1U);
  fs::rename(Root() + "/guest", VolumePath() + "/guest");
  RunWell({"snapshot", "restore", gsnapId, "--yes"});
}

}  // namespace
}  // namespace e2e
