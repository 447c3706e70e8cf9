#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/statvfs.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <set>

#include "host_fixture.h"
#include "tree.h"

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using VrelDR::Target;
using VrelDR::TargetOperation;
using VrelDR::Operation::Snapshot;
using VrelDR::Operation::SnapshotMeta;

class SnapshotTest : public HostTest {
 protected:
  std::uint64_t FreeBytes() const {
    struct statvfs info;
    EXPECT_EQ(statvfs(VolumePath().c_str(), &info), 0);
    return std::uint64_t{info.f_bavail} * info.f_frsize;
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, SnapshotTest,
                         testing::Values("tmpfs", "ext4", "xfs", "btrfs"), HostTest::NameOf);

// Where the system refuses to change a snapshot; whether a tmpfs does depends on the kernel.
class ImmutableSnapshotTest : public SnapshotTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, ImmutableSnapshotTest,
                         testing::Values("ext4", "xfs", "btrfs"), HostTest::NameOf);

class SharingSnapshotTest : public SnapshotTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, SharingSnapshotTest, testing::Values("xfs", "btrfs"),
                         HostTest::NameOf);

// A snapshot on btrfs has everything, sockets too.
class CopiedSnapshotTest : public SnapshotTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, CopiedSnapshotTest, testing::Values("tmpfs", "ext4", "xfs"),
                         HostTest::NameOf);

TEST_P(SnapshotTest, HoldsExactlyWhatTheTargetHeld) {
  MakeShare("share1");
  const std::string path = PathOf("share1");
  MakeSampleTree(path);
  const auto before = DescribeTree(path);
  const Snapshot snapshot = Take("share1");
  EXPECT_EQ(DescribeTree(snapshot.path), before);
  EXPECT_EQ(DescribeTree(path), before);
  EXPECT_LT(AllocatedBytes(snapshot.path + "/sparse"), std::uint64_t{1 << 20});
  ExpectNoLeftovers();
}

TEST_P(SnapshotTest, DoesNotSeeWhatIsDoneToTheTargetAfterwards) {
  MakeShare("share1");
  const std::string path = PathOf("share1");
  MakeSampleTree(path);
  const auto before = DescribeTree(path);
  const Snapshot first = Take("share1");
  WriteFile(path + "/plain", "other text\n");
  fs::remove_all(path + "/folder");
  WriteFile(path + "/new", "new");
  const auto after = DescribeTree(path);
  const Snapshot second = Take("share1");
  EXPECT_EQ(DescribeTree(first.path), before);
  EXPECT_EQ(DescribeTree(second.path), after);
  EXPECT_NE(before, after);
}

TEST_P(SnapshotTest, OfALunHoldsItsImageAndItsHoles) {
  MakeLun("lun1", 40 << 20);
  const int fd = open(PathOf("lun1").c_str(), O_WRONLY);
  ASSERT_EQ(pwrite(fd, "bytes", 5, 30 << 20), 5);
  close(fd);
  const Snapshot snapshot = Take("lun1");
  EXPECT_EQ(ReadFile(snapshot.path), ReadFile(PathOf("lun1")));
  EXPECT_LT(AllocatedBytes(snapshot.path), std::uint64_t{1 << 20});
}

TEST_P(SnapshotTest, IsDescribedAsItWasTaken) {
  MakeLun("lun1", 4096);
  const TargetOperation operation(Target("lun1", 1));
  const auto begun = static_cast<std::uint32_t>(std::time(nullptr));
  const SnapshotMeta meta("by \"hand\"\nand more", true, true, "somebody");
  std::string snapId;
  ASSERT_TRUE(operation.TakeSnapshot(meta, snapId)) << operation.GetErr();
  const auto ended = static_cast<std::uint32_t>(std::time(nullptr));
  EXPECT_EQ(snapId.size(), 36u);
  EXPECT_TRUE(operation.IsSnapshotExisted(snapId));
  const Snapshot snapshot = operation.GetSnapshot(snapId);
  EXPECT_EQ(snapshot.snap_id, snapId);
  EXPECT_GE(snapshot.create_time, begun);
  EXPECT_LE(snapshot.create_time, ended);
  EXPECT_EQ(snapshot.meta.description, meta.description);
  EXPECT_EQ(snapshot.meta.taken_by, meta.taken_by);
  EXPECT_TRUE(snapshot.meta.is_locked);
  EXPECT_TRUE(snapshot.meta.is_app_consistent);
}

TEST_P(SnapshotTest, TellsWhichProcessHasTakenIt) {
  MakeShare("share1");
  const std::string here = VrelDR::Operation::ThisMaker();
  EXPECT_FALSE(here.empty());
  EXPECT_EQ(VrelDR::Operation::ThisMaker(), here);
  const TargetOperation operation(Target("share1", VrelDR::kTargetShare));
  std::string id;
  ASSERT_TRUE(operation.TakeSnapshot(SnapshotMeta(), id)) << operation.GetErr();
  // A child that was forked off is another process, and so is the child of that.
  const auto inChild = [](const auto& work) {
    const pid_t child = fork();
    if (child == 0) _exit(work() ? 0 : 1);
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
  };
  EXPECT_TRUE(inChild([&] {
    const std::string there = VrelDR::Operation::ThisMaker();
    std::string childs;
    return !there.empty() && there != here && operation.TakeSnapshot(SnapshotMeta(), childs) &&
           inChild([&] {
             const std::string below = VrelDR::Operation::ThisMaker();
             return !below.empty() && below != here && below != there;
           });
  }));
  const std::vector<Snapshot> snapshots = operation.ListSnapshots();
  ASSERT_EQ(snapshots.size(), 2U);
  EXPECT_EQ(snapshots[0].maker, here);
  EXPECT_FALSE(snapshots[1].maker.empty());
  EXPECT_NE(snapshots[1].maker, here);
}

TEST_P(SnapshotTest, SnapshotsAreListedOldestFirstAndNeverShareATime) {
  MakeLun("lun1", 4096);
  std::vector<std::string> taken;
  std::set<std::uint32_t> times;
  for (int i = 0; i < 4; ++i) {
    const Snapshot snapshot = Take("lun1");
    taken.push_back(snapshot.snap_id);
    times.insert(snapshot.create_time);
  }
  EXPECT_EQ(ListIds("lun1"), taken);
  EXPECT_EQ(times.size(), 4u);
  std::set<std::string> ids{"one that was there"};
  ASSERT_TRUE(TargetOperation(1, "lun1").ListSnapshotIds(ids));
  EXPECT_EQ(ids.size(), 5u);
}

TEST_P(SnapshotTest, ATimeIsNotUsedAgainAfterItsSnapshotWasDeleted) {
  MakeLun("lun1", 4096);
  const Snapshot first = Take("lun1");
  ASSERT_TRUE(TargetOperation(1, "lun1").DeleteSnapshot(first.snap_id));
  EXPECT_GT(Take("lun1").create_time, first.create_time);
}

TEST_P(SnapshotTest, DeletingOneLeavesTheOthersAlone) {
  MakeShare("share1");
  MakeSampleTree(PathOf("share1"));
  const auto tree = DescribeTree(PathOf("share1"));
  const Snapshot first = Take("share1");
  const Snapshot second = Take("share1");
  const Snapshot third = Take("share1");
  const TargetOperation operation(Target("share1", 2));
  ASSERT_TRUE(operation.DeleteSnapshot(second.snap_id)) << operation.GetErr();
  EXPECT_THAT(ListIds("share1"), ElementsAre(first.snap_id, third.snap_id));
  EXPECT_FALSE(fs::exists(second.path));
  EXPECT_EQ(DescribeTree(first.path), tree);
  EXPECT_EQ(DescribeTree(third.path), tree);
  EXPECT_EQ(DescribeTree(PathOf("share1")), tree);
  ExpectNoLeftovers();
}

TEST_P(SnapshotTest, WhatDoesNotExistIsSaidSo) {
  MakeLun("lun1", 4096);
  const TargetOperation operation(Target("lun1", 1));
  EXPECT_FALSE(operation.IsSnapshotExisted("none"));
  EXPECT_EQ(operation.GetErrCode(), 0);
  const Snapshot snapshot = operation.GetSnapshot("none");
  EXPECT_EQ(snapshot.create_time, 0u);
  EXPECT_EQ(snapshot.snap_id, "");
  for (const char* id : {"none", "", "..", "../../lun1"}) {
    EXPECT_FALSE(operation.DeleteSnapshot(id));
    ExpectError(operation, VrelDR::kErrSnapshotMissing, {"lun1"});
  }
  EXPECT_TRUE(fs::exists(PathOf("lun1")));

  const TargetOperation missing(Target("../state", 1));
  EXPECT_FALSE(missing.IsExisted());
  EXPECT_EQ(missing.GetErrCode(), 0);
  EXPECT_THAT(missing.ListSnapshots(), IsEmpty());
  ExpectError(missing, VrelDR::kErrTargetMissing, {"../state"});
  std::string snapId = "as it was";
  EXPECT_FALSE(missing.TakeSnapshot({}, snapId));
  ExpectError(missing, VrelDR::kErrTargetMissing, {"../state"});
  EXPECT_EQ(snapId, "as it was");
}

TEST_P(SnapshotTest, ATargetIsFoundByItsIdentifierWhateverKindIsAskedFor) {
  MakeShare("share1");
  const Snapshot snapshot = Take("share1");
  EXPECT_TRUE(TargetOperation(VrelDR::kTargetLun, "share1").IsSnapshotExisted(snapshot.snap_id));
}

TEST_P(SnapshotTest, OneThatWasRemovedBehindTheHostsBackIsNotListed) {
  MakeLun("lun1", 4096);
  const Snapshot kept = Take("lun1");
  const Snapshot lost = Take("lun1");
  // Moved rather than removed: neither needs to know how the bytes are protected.
  const fs::path snapshots = VolumePath() + "/.vreldr/snapshots/lun1";
  if (IsBtrfs()) {
    ASSERT_EQ(RunProgram({"btrfs", "subvolume", "delete", snapshots / lost.snap_id}), 0);
  } else {
    RunProgram({"chattr", "-R", "-i", snapshots / lost.snap_id});
    fs::remove_all(snapshots / lost.snap_id);
  }
  EXPECT_THAT(ListIds("lun1"), ElementsAre(kept.snap_id));
  const TargetOperation operation(Target("lun1", 1));
  EXPECT_FALSE(operation.IsSnapshotExisted(lost.snap_id));
  EXPECT_FALSE(operation.DeleteSnapshot(lost.snap_id));
  ExpectError(operation, VrelDR::kErrSnapshotMissing, {lost.snap_id});
}

TEST_P(ImmutableSnapshotTest, CannotBeWrittenTo) {
  MakeShare("share1");
  MakeSampleTree(PathOf("share1"));
  const std::string path = Take("share1").path;
  const auto tree = DescribeTree(path);
  for (const char* name : {"/plain", "/folder/below/large", "/private", "/folder/two names"}) {
    EXPECT_EQ(open((path + name).c_str(), O_WRONLY), -1) << name;
    EXPECT_NE(rename((path + name).c_str(), (path + "/renamed").c_str()), 0) << name;
    EXPECT_NE(chmod((path + name).c_str(), 0777), 0) << name;
  }
  for (const char* dir : {"", "/folder", "/folder/below/deeper", "/sticky"}) {
    EXPECT_EQ(open((path + dir + "/new").c_str(), O_WRONLY | O_CREAT, 0600), -1) << dir;
  }
  for (const char* name : {"/plain", "/dangling", "/pipe", "/empty"}) {
    EXPECT_NE(unlink((path + name).c_str()), 0) << name;
  }
  EXPECT_NE(truncate((path + "/sparse").c_str(), 0), 0);
  EXPECT_EQ(DescribeTree(path), tree);
}

TEST_P(SnapshotTest, OthersThanTheOwnerCannotLookIntoSnapshots) {
  MakeShare("share1");
  Take("share1");
  EXPECT_EQ(fs::status(VolumePath() + "/.vreldr").permissions(), fs::perms(0700));
}

TEST_P(SharingSnapshotTest, SharesItsBlocksWithTheTarget) {
  MakeLun("lun1", 32 << 20);
  WriteFile(PathOf("lun1"), std::string(32 << 20, 'x'));
  sync();
  const std::uint64_t before = FreeBytes();
  const Snapshot snapshot = Take("lun1");
  sync();
  EXPECT_LT(before - FreeBytes(), std::uint64_t{4 << 20});

  // A request with room for one extent behind it.
  alignas(struct fiemap) char room[sizeof(struct fiemap) + sizeof(struct fiemap_extent)] = {};
  auto* request = reinterpret_cast<struct fiemap*>(room);
  request->fm_length = FIEMAP_MAX_OFFSET;
  request->fm_flags = FIEMAP_FLAG_SYNC;
  request->fm_extent_count = 1;
  const int fd = open(snapshot.path.c_str(), O_RDONLY);
  ASSERT_EQ(ioctl(fd, FS_IOC_FIEMAP, request), 0);
  close(fd);
  ASSERT_EQ(request->fm_mapped_extents, 1u);
  EXPECT_NE(request->fm_extents[0].fe_flags & FIEMAP_EXTENT_SHARED, 0u);
}

TEST_P(CopiedSnapshotTest, LeavesOutSockets) {
  MakeShare("share1");
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  struct sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  const std::string path = PathOf("share1") + "/s";
  ASSERT_LT(path.size(), sizeof address.sun_path);
  path.copy(address.sun_path, path.size());
  ASSERT_EQ(bind(fd, reinterpret_cast<struct sockaddr*>(&address), sizeof address), 0);
  close(fd);
  WriteFile(PathOf("share1") + "/file", "kept");
  const Snapshot snapshot = Take("share1");
  EXPECT_EQ(ReadFile(snapshot.path + "/file"), "kept");
  EXPECT_FALSE(fs::exists(snapshot.path + "/s"));
}

TEST_P(SnapshotTest, HoldsManyFilesAndDeepFolders) {
  MakeShare("share1");
  std::string deep = PathOf("share1");
  for (int i = 0; i < 100; ++i) deep += "/d";
  fs::create_directories(deep);
  WriteFile(deep + "/bottom", "deep");
  for (int i = 0; i < 1000; ++i) WriteFile(PathOf("share1") + "/f" + std::to_string(i), "x");
  const Snapshot snapshot = Take("share1");
  EXPECT_EQ(DescribeTree(snapshot.path), DescribeTree(PathOf("share1")));
  EXPECT_TRUE(TargetOperation(2, "share1").DeleteSnapshot(snapshot.snap_id));
}

}  // namespace
}  // namespace host_test
