#include <sys/mount.h>

#include <filesystem>

#include "tool_fixture.h"
#include "tree.h"
#include "vreldr/target_operation.h"

// Group snapshots that cannot be taken or deleted whole: nothing is hidden.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using host_test::WriteFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

// A group of a lun on "v1" and a share on "v2", which is small and in memory.
class SnapshotFailureTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    ASSERT_EQ(mount("tmpfs", VolumePath("v2").c_str(), "tmpfs", 0, "size=1m"), 0);
    WriteFile(Root() + "/image", std::string(10000, 'i'));
    RunWell({"target", "import", "lun", "--volume", "v1", "--type", "lun", Root() + "/image"});
    RunWell({"target", "create", "share", "--volume", "v2", "--type", "share"});
    RunWell({"group", "create", "g", "--target", "lun", "share"});
  }
  void TearDown() override {
    umount2(VolumePath("v2").c_str(), MNT_DETACH);
    ToolTest::TearDown();
  }

  static std::uint64_t CountSnapshots(const std::string& target) {
    const Json::Value targets = RunWell({"target", "list", "--json"}).Json()["targets"];
    for (const Json::Value& each : targets) {
      if (each["target_id"] == target) return each["snapshot_count"].asUInt64();
    }
    return 0;
  }

  // The files on a volume.
  std::set<std::string> Files(const std::string& volume) const {
    std::set<std::string> files;
    for (const auto& [path, what] : Tree(VolumePath(volume))) {
      if (!fs::is_directory(VolumePath(volume) + "/" + path)) files.insert(path);
    }
    return files;
  }

  // A snapshot of one target that this process takes; its identifier.
  static std::string TakeAlone(const std::string& target) {
    const VrelDR::TargetOperation operation(VrelDR::Target(target, VrelDR::kTargetLun));
    std::string id;
    EXPECT_TRUE(operation.TakeSnapshot({}, id)) << operation.GetErr();
    return id;
  }

  // What `snapshot create g --json` fails with.
  static Json::Value FailToCreate(Code code) {
    const Result result = Run({"snapshot", "create", "g", "--json"});
    EXPECT_EQ(result.code, code) << result.err;
    return result.Json()["error"];
  }
};

TEST_F(SnapshotFailureTest, AFullVolumeIsToldAndWhatWasTakenOfOtherTargetsGoes) {
  WriteFile(TargetPaths().at("share") + "/big", std::string(700000, 'b'));
  // Somebody else's, which no catalogue records either.
  const std::string other = TakeAlone("lun");
  const auto files = Files("v1");
  const Json::Value error = FailToCreate(kStorage);
  EXPECT_THAT(error["message"].asString(),
              AllOf(HasSubstr("\"share\""), HasSubstr("no space left")));
  EXPECT_TRUE(ListSnapshots().empty());
  EXPECT_EQ(Files("v1"), files);
  EXPECT_EQ(CountSnapshots("lun"), 1U) << "not by this command";
  EXPECT_TRUE(fs::exists(VolumePath("v1") + "/.vreldr/snapshots/lun/" + other));
  EXPECT_EQ(CountSnapshots("share"), 0U);

  const Result told = RunBadly(kStorage, {"snapshot", "create", "g"}, {"\"share\"", "free space"});
  EXPECT_THAT(told.err, Not(HasSubstr("belong to no group snapshot"))) << "nothing is left";

  fs::remove(TargetPaths().at("share") + "/big");
  TakeSnapshot();
  EXPECT_EQ(ListSnapshots().size(), 1U);
}

// The full volume is the one that has to be deleted on.
TEST_F(SnapshotFailureTest, ASnapshotGoesFromTheVolumeThatItsTargetFilled) {
  RunWell({"target", "create", "more", "--volume", "v2", "--type", "share"});
  RunWell({"group", "create", "h", "--target", "share", "more"});
  WriteFile(TargetPaths().at("share") + "/big", std::string(300000, 'b'));
  WriteFile(TargetPaths().at("more") + "/big", std::string(300000, 'b'));
  const auto files = Files("v2");
  const Result result = Run({"snapshot", "create", "h", "--json"});
  EXPECT_EQ(result.code, kStorage) << result.err;
  EXPECT_THAT(result.Json()["error"]["message"].asString(), HasSubstr("no space left"));
  EXPECT_EQ(CountSnapshots("share"), 0U);
  EXPECT_EQ(Files("v2"), files);
}

TEST_F(SnapshotFailureTest, WithACatalogueThatCannotBeReadWhatWasTakenStaysAndIsNamed) {
  setenv("VRELDR_FAIL_POINT", "take_up@share", 1);
  RunWell({"group", "create", "h", "--target", "lun"});
  fs::rename(DatabaseOf("h"), Root() + "/away");
  const Json::Value error = FailToCreate(kStorage);
  EXPECT_EQ(error["target_id"], "share");
  ASSERT_EQ(error["left_snapshots"].size(), 1U);
  EXPECT_EQ(error["left_snapshots"][0]["target_id"], "lun");
  EXPECT_THAT(error["left_snapshots"][0]["problem"].asString(), HasSubstr(DatabaseOf("h")));
  const std::string left = error["left_snapshots"][0]["tsnap_id"].asString();
  EXPECT_TRUE(fs::exists(VolumePath("v1") + "/.vreldr/snapshots/lun/" + left));
  const Result told = RunBadly(kStorage, {"snapshot", "create", "g"},
                               {"\"share\"", "\"lun\"", "belong to no group snapshot"});
  unsetenv("VRELDR_FAIL_POINT");
  EXPECT_THAT(told.err, Not(HasSubstr(left))) << "only what this run has left";
  RunBadly(kCatalogue, {"target", "prune", "lun", "--yes"}, {DatabaseOf("h")});
  EXPECT_EQ(CountSnapshots("lun"), 2U);
  fs::rename(Root() + "/away", DatabaseOf("h"));
  RunWell({"target", "prune", "lun", "--yes"});
  EXPECT_EQ(CountSnapshots("lun"), 0U);
}

TEST_F(SnapshotFailureTest, WhatCannotBeDeletedAgainStaysAndIsNamed) {
  setenv("VRELDR_FAIL_POINT", "take_up@share", 1);
  RunSql(Root() + "/state/replica.db",
         "CREATE TRIGGER keep BEFORE UPDATE ON snapshots WHEN NEW.state = 3 "
         "BEGIN SELECT RAISE(ABORT, 'no'); END");
  const Json::Value error = FailToCreate(kStorage);
  unsetenv("VRELDR_FAIL_POINT");
  ASSERT_EQ(error["left_snapshots"].size(), 1U);
  EXPECT_THAT(error["left_snapshots"][0]["problem"].asString(), HasSubstr("replica.db"));
  EXPECT_EQ(CountSnapshots("lun"), 1U);
}

TEST_F(SnapshotFailureTest, AReadOnlyVolumeIsTold) {
  ASSERT_EQ(mount(nullptr, VolumePath("v2").c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
  const Json::Value error = FailToCreate(kStorage);
  EXPECT_THAT(error["message"].asString(), AllOf(HasSubstr("\"share\""), HasSubstr("read-only")));
  EXPECT_EQ(CountSnapshots("lun"), 0U);
  EXPECT_TRUE(ListSnapshots().empty());
}

TEST_F(SnapshotFailureTest, ATargetThatIsGoneIsToldBeforeAnySnapshotIsTaken) {
  RunWell({"target", "remove", "share", "--yes"});
  RunBadly(kNotFound, {"snapshot", "create", "g"}, {"\"g\"", "\"share\"", "does not exist"});
  EXPECT_EQ(CountSnapshots("lun"), 0U);
  fs::rename(VolumePath("v1") + "/lun", Root() + "/away");
  RunBadly(kNotFound, {"snapshot", "create", "g"}, {"\"lun\"", "are gone"});
}

TEST_F(SnapshotFailureTest, ACatalogueThatRefusesATargetsRowLeavesNoSnapshot) {
  RunSql(DatabaseOf("g"),
         "CREATE TRIGGER refuse BEFORE INSERT ON target_snap_list WHEN NEW.target_id = 'share' "
         "BEGIN SELECT RAISE(ABORT, 'no'); END");
  const Json::Value error = FailToCreate(kCatalogue);
  EXPECT_EQ(error["target_id"], "share");
  EXPECT_THAT(error["message"].asString(), HasSubstr(DatabaseOf("g")));
  EXPECT_EQ(error["left_snapshots"].size(), 0U);
  EXPECT_EQ(CountSnapshots("lun"), 0U);
  EXPECT_EQ(CountSnapshots("share"), 0U);
  EXPECT_TRUE(ListSnapshots().empty());
}

TEST_F(SnapshotFailureTest, ACatalogueThatRefusesTheLastRowLeavesNone) {
  RunSql(DatabaseOf("g"),
         "CREATE TRIGGER refuse BEFORE INSERT ON gsnap_meta BEGIN SELECT RAISE(ABORT, 'no'); END");
  const Json::Value error = FailToCreate(kCatalogue);
  EXPECT_EQ(error["left_snapshots"].size(), 0U);
  EXPECT_EQ(CountSnapshots("lun"), 0U);
  EXPECT_EQ(CountSnapshots("share"), 0U);
  EXPECT_FALSE(error.isMember("target_id"));
  EXPECT_TRUE(ListSnapshots().empty());
}

TEST_F(SnapshotFailureTest, RecordsThatStayAfterADeletionAreTold) {
  for (const char* table : {"gsnap_meta", "target_snap_list", "target_replica_list"}) {
    const std::string id = TakeSnapshot();
    RunSql(DatabaseOf("g"),
           "INSERT INTO target_replica_list VALUES ('lun', 'other', '" + id + "')");
    RunSql(DatabaseOf("g"), "CREATE TRIGGER keep BEFORE DELETE ON " + std::string(table) +
                                " BEGIN SELECT RAISE(ABORT, 'no'); END");
    RunBadly(kCatalogue, {"snapshot", "delete", id, "--yes"}, {id, "not all of its records"});
    RunSql(DatabaseOf("g"), "DROP TRIGGER keep");
  }
  EXPECT_EQ(CountSnapshots("lun"), 0U);
}

TEST_F(SnapshotFailureTest, ADeletionThatATargetRefusesCanBeRunAgain) {
  const std::string id = TakeSnapshot();
  ASSERT_EQ(mount(nullptr, VolumePath("v2").c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
  RunBadly(kStorage, {"snapshot", "delete", id, "--yes"},
           {id, "\"share\"", "read-only", "tried again"});
  EXPECT_THAT(ListSnapshots(), ElementsAre(id));
  EXPECT_EQ(CountSnapshots("lun"), 0U);
  ASSERT_EQ(mount(nullptr, VolumePath("v2").c_str(), nullptr, MS_REMOUNT, nullptr), 0);
  RunWell({"snapshot", "delete", id, "--yes"});
  EXPECT_TRUE(ListSnapshots().empty());
  EXPECT_EQ(CountSnapshots("share"), 0U);
}

}  // namespace
}  // namespace e2e
