#include <sys/mount.h>

#include "bind_mount.h"
#include "plan_fixture.h"

// What is mounted inside a target is somebody else's, whatever is done to the target.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using host_test::BindMount;
using host_test::ReadFile;
using host_test::WriteFile;

// Expects a refusal that has all `parts`; an action shows its checks, too.
void ExpectRefusal(const Result& result, const std::vector<std::string>& parts) {
  EXPECT_EQ(result.code, kRefused) << result.err;
  for (const std::string& part : parts) EXPECT_THAT(result.err, testing::HasSubstr(part));
}

class MountTest : public PlanTest {
 protected:
  void SetUp() override {
    PlanTest::SetUp();
    outside_ = Root() + "/outside";
    fs::create_directory(outside_);
    WriteFile(outside_ + "/precious", "precious");
  }
  void ExpectOutsideUntouched() {
    EXPECT_EQ(ReadFile(outside_ + "/precious"), "precious");
    WriteFile(outside_ + "/precious", "precious");
    EXPECT_EQ(std::distance(fs::directory_iterator(outside_), {}), 1);
  }
  static void ExpectWarning(const std::vector<std::string>& words, const std::string& place) {
    const Result result = RunWell(words);
    EXPECT_THAT(result.err, testing::AllOf(testing::HasSubstr("what is mounted inside target"),
                                           testing::HasSubstr(place)));
  }

  std::string outside_;
};

INSTANTIATE_TEST_SUITE_P(FileSystems, MountTest, testing::Values("ext4", "btrfs"),
                         FileSystemsTest::NameOf);

TEST_P(MountTest, IsInNoSnapshotAndIsSaid) {
  MakeGroup();
  const std::string place = TargetPaths().at("share") + "/below";
  const auto before = ReadContents(TargetPaths());
  const BindMount mounted(outside_, place);
  ExpectWarning({"snapshot", "create", "g"}, place);
  ExpectWarning({"protect", "g", "--volume", "v2"}, place);
  ExpectWarning({"sync", "g"}, place);
  ASSERT_EQ(umount2(place.c_str(), MNT_DETACH), 0);
  EXPECT_EQ(ReadContents(SnapshotPaths(ListSnapshots().at(0))), before);
  const BindMount again(outside_, place);
  ExpectWarning({"switchover", "g"}, place);
  ExpectOutsideUntouched();
}

TEST_P(MountTest, KeepsATargetFromBeingReplacedBeforeAnyOtherIs) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  ChangeTargets(TargetPaths());
  // The last of the group: those before it are not touched either.
  const std::string place = TargetPaths().at("guest") + "/mnt";
  fs::create_directory(place);
  const auto changed = ReadContents(TargetPaths());
  {
    const BindMount mounted(outside_, place);
    RunBadly(kRefused, {"snapshot", "restore", id, "--yes"}, {"guest", place, "unmount"});
    RunBadly(kRefused, {"target", "remove", "guest", "--with-snapshots", "--yes"},
             {"guest", place, "unmount"});
    ExpectOutsideUntouched();
  }
  EXPECT_EQ(ReadContents(TargetPaths()), changed);
  RunWell({"snapshot", "restore", id, "--yes"});
}

TEST_P(MountTest, KeepsAReplicaFromTakingOverAndTheCheckSaysSo) {
  MakeProtected();
  // In it nobody can make a folder to mount something on.
  const std::string place = VolumePath("v2") + "/share-dr";
  const auto tree = Tree(Root() + "/state/groups");
  {
    const BindMount mounted(outside_, place);
    for (const char* verb : {"switchover", "failover"}) {
      ExpectRefusal(Run({verb, "g", "--dry-run"}), {"share", place, "unmount"});
    }
    const std::vector<std::vector<std::string>> refused = {
        {"switchover", "g"}, {"failover", "g", "--yes"}, {"failover", "g", "--force", "--yes"}};
    for (const std::vector<std::string>& words : refused) {
      ExpectRefusal(Run(words), {"share", place, "unmount"});
    }
    ExpectOutsideUntouched();
  }
  EXPECT_EQ(Tree(Root() + "/state/groups"), tree);
  RunWell({"failover", "g", "--yes"});
}

TEST_P(MountTest, InASourceDoesNotKeepAReplicaFromTakingOver) {
  MakeProtected();
  const std::string place = TargetPaths().at("share") + "/below";
  {
    const BindMount mounted(outside_, place);
    RunWell({"failover", "g", "--yes"});
    ExpectOutsideUntouched();
    RunWell({"reprotect", "g"});
    RunWell({"sync", "g"});
    ExpectRefusal(Run({"switchover", "g"}), {"share", place, "unmount"});
    ExpectOutsideUntouched();
  }
  RunWell({"switchover", "g"});
}

class NestedSubvolumeTest : public PlanTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, NestedSubvolumeTest, testing::Values("btrfs"),
                         FileSystemsTest::NameOf);

TEST_P(NestedSubvolumeTest, IsRefusedByNameAndNeverLost) {
  MakeProtected();
  const std::string id = TakeSnapshot();
  const std::string nested = TargetPaths().at("share") + "/nested";
  ASSERT_EQ(host_test::RunProgram({"btrfs", "subvolume", "create", nested}), 0);
  WriteFile(nested + "/data", "only here");
  const std::vector<std::vector<std::string>> refused = {
      {"snapshot", "create", "g"},
      {"snapshot", "restore", id, "--yes"},
      {"sync", "g"},
      {"switchover", "g"},
      {"target", "remove", "share", "--with-snapshots", "--yes"}};
  for (const std::vector<std::string>& words : refused) {
    ExpectRefusal(Run(words), {"share", nested});
  }
  EXPECT_EQ(ReadFile(nested + "/data"), "only here");
  EXPECT_THAT(ListSnapshots(), testing::ElementsAre(id));
}

}  // namespace
}  // namespace e2e
