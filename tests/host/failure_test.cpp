#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "host_fixture.h"
#include "opening.h"
#include "tree.h"
#include "vreldr/volume.h"

// Volumes that are full, read-only or gone, and several processes at once.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using VrelDR::Target;
using VrelDR::TargetEntry;
using VrelDR::TargetManager;
using VrelDR::TargetOperation;

class FailureTest : public HostTest {
 protected:
  static VrelDR::TargetSpec ShareSpec(const std::string& id) {
    VrelDR::TargetSpec spec;
    spec.target = Target(id, VrelDR::kTargetShare);
    spec.volume = "v1";
    return spec;
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, FailureTest, testing::Values("tmpfs", "ext4", "xfs", "btrfs"),
                         HostTest::NameOf);

// On volumes that can be filled, remounted and unmounted.
class MountedVolumeTest : public FailureTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, MountedVolumeTest, testing::Values("ext4", "xfs", "btrfs"),
                         HostTest::NameOf);

// On a small volume where a snapshot takes as much room as its target.
class SmallVolumeTest : public FailureTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, SmallVolumeTest, testing::Values("ext4"), HostTest::NameOf);

TEST_P(SmallVolumeTest, AFullVolumeLeavesNothingHalfMade) {
  MakeShare("share1");
  // More than half of the volume.
  WriteFile(PathOf("share1") + "/a small one", "x");
  WriteFile(PathOf("share1") + "/big", std::string(30 << 20, 'x'));
  const auto tree = DescribeTree(PathOf("share1"));
  const TargetOperation operation(Target("share1", 2));
  std::string snapId;
  EXPECT_FALSE(operation.TakeSnapshot({}, snapId));
  ExpectError(operation, VrelDR::kErrNoSpace,
              {"cannot take a snapshot of target \"share1\" on volume \"v1\"",
               "no space left on device", "free space"});
  EXPECT_THAT(ListIds("share1"), IsEmpty());
  EXPECT_TRUE(fs::is_empty(VolumePath() + "/.vreldr/snapshots/share1"));
  ExpectNoLeftovers();
  EXPECT_EQ(DescribeTree(PathOf("share1")), tree);

  auto spec = ShareSpec("share2");
  spec.sources = {PathOf("share1")};
  const TargetManager manager;
  EXPECT_FALSE(manager.Create(spec));
  ExpectError(manager, VrelDR::kErrNoSpace, {"share2", "no space left"});
  EXPECT_FALSE(fs::exists(VolumePath() + "/share2"));
  ExpectNoLeftovers();

  fs::remove(PathOf("share1") + "/big");
  Take("share1");
}

TEST_P(MountedVolumeTest, ASnapshotCanBeDeletedFromAFullVolume) {
  MakeShare("share1");
  WriteFile(PathOf("share1") + "/some", std::string(1 << 20, 's'));
  const auto snapshot = Take("share1");
  const int fd = open((VolumePath() + "/filler").c_str(), O_WRONLY | O_CREAT, 0600);
  const std::string block(1 << 16, 'f');
  for (std::size_t size = block.size(); size > 0; size /= 2) {
    while (write(fd, block.data(), size) > 0) {
    }
  }
  close(fd);
  const TargetOperation operation(2, "share1");
  EXPECT_TRUE(operation.DeleteSnapshot(snapshot.snap_id)) << operation.GetErr();
  EXPECT_THAT(ListIds("share1"), IsEmpty());
}

TEST_P(MountedVolumeTest, AReadOnlyVolumeCanBeLookedAtAndNotChanged) {
  MakeShare("share1");
  const auto snapshot = Take("share1");
  ASSERT_TRUE(Remount("ro"));
  EXPECT_THAT(ListIds("share1"), ElementsAre(snapshot.snap_id));
  const TargetOperation operation(Target("share1", 2));
  EXPECT_TRUE(operation.IsExisted());
  std::string snapId;
  EXPECT_FALSE(operation.TakeSnapshot({}, snapId));
  ExpectError(operation, VrelDR::kErrReadOnly, {"share1", "v1", "read-only", "make it writable"});
  EXPECT_THAT(ListIds("share1"), ElementsAre(snapshot.snap_id));
  const TargetManager manager;
  EXPECT_FALSE(manager.Create(ShareSpec("share2")));
  ExpectError(manager, VrelDR::kErrReadOnly, {"share2", "v1", "read-only"});
  std::vector<VrelDR::VolumeInfo> volumes;
  EXPECT_TRUE(VrelDR::VolumeManager().List(volumes));
  ASSERT_THAT(volumes, SizeIs(1));
  EXPECT_THAT(volumes[0].problem, testing::HasSubstr("read-only"));

  EXPECT_FALSE(operation.DeleteSnapshot(snapshot.snap_id));
  ExpectError(operation, VrelDR::kErrReadOnly, {"share1"});
  EXPECT_FALSE(manager.Remove("share1", true));
  ExpectError(manager, VrelDR::kErrReadOnly, {"share1"});
  EXPECT_THAT(ListIds("share1"), ElementsAre(snapshot.snap_id));
  ASSERT_TRUE(Remount("rw"));
  const auto next = Take("share1");
  EXPECT_THAT(ListIds("share1"), ElementsAre(snapshot.snap_id, next.snap_id));
  ExpectNoLeftovers();
}

TEST_P(MountedVolumeTest, AVolumeThatIsNotMountedIsMissingAndItsTargetsAreNotTakenForRemoved) {
  MakeShare("share1");
  Take("share1");
  UnmountVolume();
  const TargetOperation operation(Target("share1", 2));
  EXPECT_FALSE(operation.IsExisted());
  ExpectError(operation, VrelDR::kErrVolumeMissing, {"share1", "v1", "mount it"});
  EXPECT_THAT(operation.ListSnapshots(), IsEmpty());
  ExpectError(operation, VrelDR::kErrVolumeMissing, {"v1"});
  const TargetManager manager;
  EXPECT_FALSE(manager.Remove("share1", true));
  ExpectError(manager, VrelDR::kErrVolumeMissing, {"v1"});
  std::vector<TargetEntry> targets;
  EXPECT_TRUE(manager.List(targets));
  ASSERT_THAT(targets, SizeIs(1));
  EXPECT_FALSE(targets[0].is_existed);
}

TEST_P(FailureTest, AVolumeWhoseDirectoryIsGoneIsMissing) {
  MakeShare("share1");
  UnmountVolume();
  fs::rename(VolumePath(), Root() + "/elsewhere");
  const TargetOperation operation(Target("share1", 2));
  EXPECT_FALSE(operation.IsExisted());
  ExpectError(operation, VrelDR::kErrVolumeMissing, {VolumePath()});
  const TargetManager manager;
  EXPECT_FALSE(manager.Create(ShareSpec("share2")));
  ExpectError(manager, VrelDR::kErrVolumeMissing, {VolumePath()});
  std::vector<VrelDR::VolumeInfo> volumes;
  ASSERT_TRUE(VrelDR::VolumeManager().List(volumes));
  EXPECT_THAT(volumes[0].problem, testing::HasSubstr("missing"));
}

TEST_P(FailureTest, ATargetThatSomebodyWorksOnIsBusyAndCanBeLookedAt) {
  MakeShare("share1");
  const auto snapshot = Take("share1");
  const int lock = open((StateDir() + "/locks/share1").c_str(), O_RDWR);
  ASSERT_EQ(flock(lock, LOCK_EX | LOCK_NB), 0);
  const TargetOperation operation(Target("share1", 2));
  std::string snapId;
  EXPECT_FALSE(operation.TakeSnapshot({}, snapId));
  ExpectError(operation, VrelDR::kErrBusy, {"share1", "another process"});
  EXPECT_FALSE(operation.DeleteSnapshot(snapshot.snap_id));
  ExpectError(operation, VrelDR::kErrBusy, {"share1"});
  EXPECT_FALSE(TargetManager().Remove("share1", true));
  EXPECT_TRUE(operation.IsExisted());
  EXPECT_THAT(ListIds("share1"), ElementsAre(snapshot.snap_id));
  close(lock);
  EXPECT_TRUE(operation.TakeSnapshot({}, snapId)) << operation.GetErr();
}

TEST_P(FailureTest, SomebodyWhoHasATargetForAMomentIsWaitedFor) {
  MakeShare("share1");
  const auto snapshot = Take("share1");
  const std::string path = StateDir() + "/locks/share1";
  const int lock = open(path.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(flock(lock, LOCK_EX | LOCK_NB), 0);
  const Opening tried(path);
  const TargetOperation operation(Target("share1", 2));
  bool isDeleted = false;
  std::thread deletion([&] { isDeleted = operation.DeleteSnapshot(snapshot.snap_id); });
  tried.Wait();
  close(lock);
  deletion.join();
  EXPECT_TRUE(isDeleted) << operation.GetErr();
}

TEST_P(FailureTest, ManyProcessesStartOnAFreshHostAtOnce) {
  // Each takes a few snapshots of a target of its own and some of one that all share.
  constexpr int kProcesses = 6;
  const int result = RunInChild({}, [&] {
    std::vector<pid_t> children;
    for (int i = 0; i < kProcesses; ++i) {
      const pid_t pid = fork();
      if (pid == 0) {
        const std::string id = "own" + std::to_string(i);
        bool good = TargetManager().Create(ShareSpec(id));
        TargetManager().Create(ShareSpec("common"));
        for (int k = 0; k < 3; ++k) {
          std::string snapId;
          good = good && TargetOperation(2, id).TakeSnapshot({}, snapId);
          const TargetOperation common(2, "common");
          good =
              good && (common.TakeSnapshot({}, snapId) || common.GetErrCode() == VrelDR::kErrBusy ||
                       common.GetErrCode() == VrelDR::kErrTargetMissing);
        }
        _exit(good ? 0 : 1);
      }
      children.push_back(pid);
    }
    int failed = 0;
    for (const pid_t pid : children) {
      int status = 0;
      if (waitpid(pid, &status, 0) != pid || status != 0) ++failed;
    }
    return failed;
  });
  EXPECT_EQ(result, 0) << "processes failed";
  for (int i = 0; i < kProcesses; ++i) {
    EXPECT_THAT(ListIds("own" + std::to_string(i)), SizeIs(3));
  }
  const auto common = TargetOperation(2, "common").ListSnapshots();
  const fs::directory_iterator onDisk(VolumePath() + "/.vreldr/snapshots/common");
  EXPECT_EQ(static_cast<std::size_t>(std::distance(begin(onDisk), end(onDisk))), common.size());
  ExpectNoLeftovers();
}

TEST_P(FailureTest, DamagedRecordsAreNamedAndLeftAlone) {
  MakeShare("share1");
  const std::string path = StateDir() + "/replica.db";
  const std::string junk(8192, 'j');
  WriteFile(path, junk);
  const TargetOperation operation(Target("share1", 2));
  EXPECT_FALSE(operation.IsExisted());
  ExpectError(operation, VrelDR::kErrStore, {path, "not a database"});
  EXPECT_EQ(ReadFile(path), junk);
}

TEST_P(FailureTest, RecordsOfALaterVersionAreLeftAlone) {
  MakeShare("share1");
  const std::string path = StateDir() + "/replica.db";
  ASSERT_EQ(RunProgram({"sqlite3", path, "UPDATE vreldrcore_db_info SET value = '99'"}), 0);
  const std::string before = ReadFile(path);
  const TargetOperation operation(Target("share1", 2));
  EXPECT_FALSE(operation.IsExisted());
  ExpectError(operation, VrelDR::kErrStore, {path, "version 99"});
  EXPECT_EQ(ReadFile(path), before);
}

}  // namespace
}  // namespace host_test
