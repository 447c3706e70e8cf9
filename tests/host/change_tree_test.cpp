#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>

#include "engine_fixture.h"
#include "random_tree.h"
#include "tree.h"

// Trees that were changed at random go from one volume to another, by what changed.

namespace host_test {
namespace {

namespace fs = std::filesystem;

// How many bytes of the file are no holes.
std::uint64_t DataBytes(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK);
  std::uint64_t count = 0;
  for (off_t at = 0; (at = lseek(fd, at, SEEK_DATA)) >= 0;) {
    const off_t hole = lseek(fd, at, SEEK_HOLE);
    count += static_cast<std::uint64_t>(hole - at);
    at = hole;
  }
  close(fd);
  return count;
}

class ChangeTreeTest : public EngineTest {
 protected:
  // Large holes are holes in both places; of small ones a program that sends makes what it likes,
  // and so does the stream between volumes on btrfs of all.
  void ExpectHoles(const std::string& id) {
    if (AreBothBtrfs()) return;
    const std::string root = A().SnapshotPath(id);
    for (const auto& each : fs::recursive_directory_iterator(root)) {
      if (each.is_symlink() || !each.is_regular_file()) continue;
      const std::string below = each.path().lexically_relative(root);
      EXPECT_LE(DataBytes(B().SnapshotPath(id) + "/" + below), DataBytes(each.path()) + 1'000'000)
          << below;
    }
  }

  void ExpectArrived(const std::string& id) {
    SCOPED_TRACE(id);
    auto wanted = DescribeTree(A().SnapshotPath(id));
    // "btrfs receive" sometimes leaves the top with the time at which it came.
    if (AreBothBtrfs()) wanted["."] = DescribeTree(B().SnapshotPath(id))["."];
    ExpectTree(B().SnapshotPath(id), wanted);
  }

  void ShipRounds(std::uint64_t seed, int rounds) {
    RandomTree tree(A().TargetPath(), seed);
    tree.Change(60);
    Take(A(), "s0");
    Ship(A(), "s0", "", B());
    for (int i = 1; i <= rounds; ++i) {
      SCOPED_TRACE("round " + std::to_string(i));
      const std::string base = "s" + std::to_string(i - 1);
      const std::string id = "s" + std::to_string(i);
      tree.Change(i % 3 == 0 ? 60 : 12);
      Take(A(), id);
      Ship(A(), id, base, B());
      ExpectArrived(id);
      ExpectHoles(id);
      ExpectNothingIncoming(B());
      if (HasFailure()) return;
    }
    ExpectArrived("s0");
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, ChangeTreeTest,
                         testing::Values("ext4-ext4", "ext4-xfs", "ext4-btrfs", "xfs-ext4",
                                         "xfs-xfs", "xfs-btrfs", "btrfs-ext4", "btrfs-xfs",
                                         "btrfs-btrfs"),
                         EngineTest::NameOf);

TEST_P(ChangeTreeTest, WhatWasChangedAtRandomArrivesAsItIs) {
  ShipRounds(1, 12);
}

TEST_P(ChangeTreeTest, SoDoesWhatWasChangedOtherwise) {
  ShipRounds(2, 12);
}

class CompressedTreeTest : public ChangeTreeTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, CompressedTreeTest,
                         testing::Values("btrfs-ext4", "btrfs-xfs", "btrfs-btrfs"),
                         EngineTest::NameOf);

TEST_P(CompressedTreeTest, WhatIsCompressedArrivesAsItIs) {
  ASSERT_EQ(mount(nullptr, A().path.c_str(), nullptr, MS_REMOUNT, "compress-force=zstd"), 0);
  ShipRounds(3, 12);
}

TEST_P(CompressedTreeTest, AFileThatIsToBeCompressedArrivesWithoutThat) {
  const std::string file = A().TargetPath() + "/file";
  WriteFile(file, "first");
  ASSERT_EQ(setxattr(file.c_str(), "btrfs.compression", "zstd", 4, 0), 0) << errno;
  Take(A(), "s0");
  Ship(A(), "s0", "", B());
  WriteFile(file, "second");
  Take(A(), "s1");
  Ship(A(), "s1", "s0", B());
  EXPECT_EQ(ReadFile(B().SnapshotPath("s0") + "/file"), "first");
  EXPECT_EQ(ReadFile(B().SnapshotPath("s1") + "/file"), "second");
}

}  // namespace
}  // namespace host_test
