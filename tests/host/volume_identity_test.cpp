#include <gmock/gmock.h>
#include <json/reader.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>

#include "base/kill_point.h"
#include "host_fixture.h"
#include "tree.h"
#include "vreldr/volume.h"
#include "vreldrnode/dr_node.h"

// By what a volume is known.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using VrelDR::Target;
using VrelDR::TargetManager;
using VrelDR::TargetOperation;
using VrelDR::VolumeManager;

class VolumeIdentityTest : public HostTest {
 protected:
  std::string File() const { return VolumePath() + "/.vreldr/volume.json"; }

  Json::Value ReadFileJson() const {
    Json::Value json;
    std::istringstream(ReadFile(File())) >> json;
    return json;
  }
  void Change(const std::string& member, const std::string& value) const {
    Json::Value json = ReadFileJson();
    json[member] = value;
    WriteFile(File(), json.toStyledString());
  }
  void Sql(const std::string& sql) const {
    ASSERT_EQ(RunProgram({"sqlite3", "-bail", StateDir() + "/replica.db", sql}), 0) << sql;
  }
  // As an earlier version leaves the volume and the records.
  void ForgetIdentity() const {
    fs::remove(File());
    Sql("DELETE FROM volumes");
  }
  void Mount() const {
    ASSERT_EQ(RunProgram({"mount", "-o", "loop", VolumePath() + ".img", VolumePath()}), 0);
  }
  static std::string Problem() {
    std::vector<VrelDR::VolumeInfo> volumes;
    EXPECT_TRUE(VolumeManager().List(volumes));
    return volumes.empty() ? "no volume" : volumes.front().problem;
  }
  static bool Create(const TargetManager& manager, const std::string& id,
                     const std::string& volume = "v1") {
    VrelDR::TargetSpec spec;
    spec.target = Target(id, VrelDR::kTargetShare);
    spec.volume = volume;
    return manager.Create(spec);
  }

  // Expects the volume to be out of reach, for readers and writers, and nothing to be written.
  void ExpectOutOfReach(const std::vector<std::string>& parts) const {
    const auto before = DescribeTree(VolumePath());
    const TargetOperation operation(Target("share1", 2));
    std::set<std::string> snapIds;
    std::string snapId;
    EXPECT_FALSE(operation.IsExisted());
    ExpectError(operation, VrelDR::kErrVolumeMissing, parts);
    EXPECT_FALSE(operation.ListSnapshotIds(snapIds));
    ExpectError(operation, VrelDR::kErrVolumeMissing, parts);
    EXPECT_FALSE(operation.TakeSnapshot({}, snapId));
    ExpectError(operation, VrelDR::kErrVolumeMissing, parts);
    const TargetManager manager;
    EXPECT_FALSE(Create(manager, "new"));
    ExpectError(manager, VrelDR::kErrVolumeMissing, parts);
    EXPECT_FALSE(manager.Remove("share1", true));
    ExpectError(manager, VrelDR::kErrVolumeMissing, parts);
    for (const std::string& part : parts) EXPECT_THAT(Problem(), HasSubstr(part));
    EXPECT_EQ(DescribeTree(VolumePath()), before);
  }
  static void Adopt() {
    const VolumeManager manager;
    std::string id;
    EXPECT_FALSE(manager.Initialise("v1", false, id));
    ExpectError(manager, VrelDR::kErrVolumeMissing, {"v1"});
    ASSERT_TRUE(manager.Initialise("v1", true, id)) << manager.GetErr();
    EXPECT_EQ(id.size(), 36U);
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, VolumeIdentityTest,
                         testing::Values("tmpfs", "ext4", "xfs", "btrfs"), HostTest::NameOf);

// Those that can be unmounted.
class UnmountableVolumeTest : public VolumeIdentityTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, UnmountableVolumeTest,
                         testing::Values("ext4", "xfs", "btrfs"), HostTest::NameOf);

TEST_P(VolumeIdentityTest, AnEmptyVolumeGetsItWithItsFirstTarget) {
  EXPECT_EQ(Problem(), "");
  MakeShare("share1");
  const Json::Value identity = ReadFileJson();
  EXPECT_EQ(identity["node"], VrelDRNode::DRNode::getLocalNodeId());
  EXPECT_EQ(identity["name"], "v1");
  EXPECT_EQ(identity["id"].asString().size(), 36U);
  const std::string kind = GetParam() == "ext4" ? "ext:" : GetParam() + ":";
  if (IsOnImage()) {
    EXPECT_EQ(identity["file_system"].asString().substr(0, kind.size()), kind);
    EXPECT_GT(identity["file_system"].asString().size(), kind.size() + 15);
  }
  Sql("CREATE TEMP TABLE t (ok CHECK (ok)); INSERT INTO t SELECT count(*) = 1 FROM volumes WHERE "
      "name = 'v1' AND id = '" +
      identity["id"].asString() + "' AND file_system = '" + identity["file_system"].asString() +
      "'");
  MakeShare("share2");
  EXPECT_EQ(ReadFileJson(), identity);
  EXPECT_EQ(Problem(), "");
}

TEST_P(UnmountableVolumeTest, AVolumeThatIsNotMountedIsOutOfReachAndNothingIsWrittenUnderIt) {
  MakeShare("share1");
  Take("share1");
  UnmountVolume();
  ExpectOutOfReach({"v1", "mount it"});
  EXPECT_TRUE(fs::is_empty(VolumePath()));
  // Nor is it taken for the volume when something has come to be there.
  fs::create_directories(VolumePath() + "/.vreldr/snapshots/share1");
  fs::create_directory(VolumePath() + "/share1");
  ExpectOutOfReach({"v1", "no identity", "mount it"});
  fs::remove_all(VolumePath() + "/share1");
  fs::remove_all(VolumePath() + "/.vreldr");
  Mount();
  EXPECT_TRUE(TargetOperation(Target("share1", 2)).IsExisted());
  EXPECT_EQ(ListIds("share1").size(), 1U);
  EXPECT_EQ(RunProgram({"umount", VolumePath()}), 0);
}

TEST_P(VolumeIdentityTest, AVolumeThatIsNotEmptyNeedsToBeInitialised) {
  WriteFile(VolumePath() + "/somebody's", "text");
  const TargetManager manager;
  EXPECT_FALSE(Create(manager, "share1"));
  ExpectError(manager, VrelDR::kErrVolumeMissing,
              {VolumePath(), "not empty", "volume init v1", "\"v1\""});
  EXPECT_FALSE(fs::exists(VolumePath() + "/.vreldr"));
  EXPECT_THAT(Problem(), HasSubstr("volume init v1"));
  const VolumeManager volumes;
  std::string id;
  ASSERT_TRUE(volumes.Initialise("v1", false, id)) << volumes.GetErr();
  EXPECT_EQ(ReadFileJson()["id"], id);
  EXPECT_FALSE(volumes.Initialise("v1", true, id));
  ExpectError(volumes, VrelDR::kErrExists, {"v1", "already"});
  MakeShare("share1");
  EXPECT_EQ(ReadFile(VolumePath() + "/somebody's"), "text");
}

TEST_P(VolumeIdentityTest, AnotherIdentityIsOutOfReachUntilItIsAdopted) {
  MakeShare("share1");
  const std::string good = ReadFile(File());
  Change("node", "another node");
  ExpectOutOfReach({"another node", "--adopt"});
  WriteFile(File(), good);
  Change("name", "v9");
  ExpectOutOfReach({"is volume \"v9\"", "--adopt"});
  WriteFile(File(), good);
  Change("id", "x");
  ExpectOutOfReach({"another volume of that name", "--adopt"});
  for (const char* text : {"", "{", "[]", "{\"id\": 5}"}) {
    WriteFile(File(), text);
    ExpectOutOfReach({"damaged", "--adopt"});
  }
  fs::remove(File());
  ExpectOutOfReach({"no identity", "--adopt"});
  Adopt();
  EXPECT_EQ(Problem(), "");
  EXPECT_TRUE(TargetOperation(Target("share1", 2)).IsExisted());
  Take("share1");
}

TEST_P(VolumeIdentityTest, DataThatHasMovedToAnotherFileSystemIsAdopted) {
  MakeShare("share1");
  Take("share1");
  const std::string id = ReadFileJson()["id"].asString();
  Sql("UPDATE volumes SET file_system = 'other'");
  ExpectOutOfReach({"another file system", "\"other\"", "--adopt"});
  const VolumeManager manager;
  VrelDR::VolumeExamination found;
  ASSERT_TRUE(manager.Examine("v1", found)) << manager.GetErr();
  EXPECT_FALSE(found.is_initialised);
  EXPECT_TRUE(found.needs_adoption);
  ASSERT_EQ(found.targets.size(), 1U);
  EXPECT_TRUE(found.targets[0].is_existed);
  EXPECT_EQ(found.targets[0].snapshots.size(), 1U);
  Adopt();
  EXPECT_EQ(ReadFileJson()["id"], id);
  EXPECT_EQ(ListIds("share1").size(), 1U);
}

TEST_P(VolumeIdentityTest, AVolumeOfAnEarlierVersionGetsItAtTheFirstUseThatFindsAllItsTargets) {
  MakeShare("share1");
  MakeShare("share2");
  ForgetIdentity();
  EXPECT_TRUE(TargetOperation(Target("share1", 2)).IsExisted());
  EXPECT_TRUE(fs::exists(File()));
  Take("share2");

  ForgetIdentity();
  fs::rename(VolumePath() + "/share2", VolumePath() + "/away");
  ExpectOutOfReach({"lacks target \"share2\"", "--adopt"});
  const VolumeManager manager;
  VrelDR::VolumeExamination found;
  ASSERT_TRUE(manager.Examine("v1", found)) << manager.GetErr();
  EXPECT_TRUE(found.needs_adoption);
  ASSERT_EQ(found.targets.size(), 2U);
  EXPECT_TRUE(found.targets[0].is_existed);
  EXPECT_FALSE(found.targets[1].is_existed);
  Adopt();
  EXPECT_TRUE(TargetOperation(Target("share1", 2)).IsExisted());
  const TargetOperation lost(Target("share2", 2));
  EXPECT_FALSE(lost.IsExisted());
  EXPECT_EQ(lost.GetErrCode(), 0) << "it is really gone now";
}

TEST_P(UnmountableVolumeTest, AVolumeOfAnEarlierVersionThatIsReadOnlyIsRead) {
  MakeShare("share1");
  ForgetIdentity();
  ASSERT_TRUE(Remount("ro"));
  EXPECT_TRUE(TargetOperation(Target("share1", 2)).IsExisted());
  EXPECT_FALSE(fs::exists(File()));
  ASSERT_TRUE(Remount("rw"));
  EXPECT_TRUE(TargetOperation(Target("share1", 2)).IsExisted());
  EXPECT_TRUE(fs::exists(File()));
}

TEST_P(VolumeIdentityTest, AFirstUseThatWasKilledIsGoneOnWith) {
  for (const std::string_view point :
       {VrelDR::kVolumeOwnMade, VrelDR::kVolumeWritten, VrelDR::kVolumePlaced,
        VrelDR::kVolumeMarked, VrelDR::kVolumeRecorded, VrelDR::kCreateRecorded}) {
    SCOPED_TRACE(std::string(point));
    const int code = RunInChild({{"VRELDR_KILL_POINT", std::string(point)}},
                                [] { return Create(TargetManager(), "share1") ? 0 : 1; });
    EXPECT_EQ(code, 128 + SIGKILL);
    const std::string before = fs::exists(File()) ? ReadFile(File()) : "";
    MakeShare("share1");
    if (!before.empty()) {
      EXPECT_EQ(ReadFile(File()), before);
    }
    EXPECT_FALSE(fs::exists(File() + ".new"));
    ASSERT_TRUE(TargetManager().Remove("share1", true));
    fs::remove_all(VolumePath() + "/.vreldr");
    Sql("DELETE FROM volumes");
  }
}

TEST_P(VolumeIdentityTest, AnAdoptionThatWasKilledCanBeRunAgain) {
  MakeShare("share1");
  for (const std::string_view point : {VrelDR::kVolumeWritten, VrelDR::kVolumePlaced,
                                       VrelDR::kVolumeMarked, VrelDR::kVolumeRecorded}) {
    SCOPED_TRACE(std::string(point));
    Change("node", "another node");
    const auto adopt = [] {
      std::string id;
      const VolumeManager manager;
      return manager.Initialise("v1", true, id) || manager.GetErrCode() == VrelDR::kErrExists ? 0
                                                                                              : 1;
    };
    EXPECT_EQ(RunInChild({{"VRELDR_KILL_POINT", std::string(point)}}, adopt), 128 + SIGKILL);
    EXPECT_EQ(adopt(), 0);
    EXPECT_TRUE(TargetOperation(Target("share1", 2)).IsExisted());
    EXPECT_FALSE(fs::exists(File() + ".new"));
  }
}

TEST_P(VolumeIdentityTest, TwoVolumesOfOneIdentityAreRefused) {
  MakeShare("share1");
  fs::create_directory_symlink(VolumePath(), Root() + "/v2");
  WriteFile(Root() + "/config.json",
            R"({"state_dir": ")" + StateDir() +
                R"(", "volumes": [{"name": "v1", "engine": "local", "path": ")" + VolumePath() +
                R"("}, {"name": "v2", "engine": "local", "path": ")" + Root() + R"(/v2"}]})");
  const TargetManager manager;
  EXPECT_FALSE(Create(manager, "share2", "v2"));
  ExpectError(manager, VrelDR::kErrVolumeMissing, {"is volume \"v1\"", "\"v2\""});
  const VolumeManager volumes;
  std::string id;
  EXPECT_FALSE(volumes.Initialise("v2", true, id));
  ExpectError(volumes, VrelDR::kErrExists, {"\"v1\"", "\"v2\""});
  EXPECT_TRUE(TargetOperation(Target("share1", 2)).IsExisted());
}

TEST_P(VolumeIdentityTest, AVolumeWhoseTargetsHaveAllGoneIsEmptyAgain) {
  MakeShare("share1");
  ASSERT_TRUE(TargetManager().Remove("share1", true));
  ForgetIdentity();
  MakeShare("share2");
}

TEST_P(UnmountableVolumeTest, ACopyOfTheImageIsTheVolume) {
  MakeShare("share1");
  UnmountVolume();
  const std::string image = VolumePath() + ".img";
  fs::copy_file(image, image + ".copy");
  fs::rename(image + ".copy", image);
  Mount();
  EXPECT_EQ(Problem(), "");
  EXPECT_TRUE(TargetOperation(Target("share1", 2)).IsExisted());
  EXPECT_EQ(RunProgram({"umount", VolumePath()}), 0);
}

}  // namespace
}  // namespace host_test
