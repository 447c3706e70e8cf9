#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>

#include "engine_fixture.h"
#include "tree.h"

// Snapshots go from one volume to another.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using VrelDR::Status;

constexpr std::size_t kMiB = 1 << 20;

class ShipTest : public EngineTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, ShipTest,
                         testing::Values("tmpfs-tmpfs", "ext4-ext4", "xfs-xfs", "btrfs-btrfs",
                                         "btrfs-ext4", "ext4-btrfs", "xfs-btrfs", "btrfs-xfs"),
                         EngineTest::NameOf);

// Where the system refuses to change what has arrived; whether a tmpfs does depends on the kernel.
class FrozenShipTest : public EngineTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, FrozenShipTest,
                         testing::Values("ext4-ext4", "xfs-xfs", "btrfs-btrfs", "btrfs-ext4",
                                         "ext4-btrfs"),
                         EngineTest::NameOf);

TEST_P(ShipTest, ASnapshotArrivesAsItIs) {
  MakeOddTree(A().TargetPath());
  Take(A(), "s1");
  Ship(A(), "s1", "", B());
  ExpectSame(A(), B(), "s1");
  ExpectNothingIncoming(B());
}

TEST_P(ShipTest, AnEmptySnapshotArrivesToo) {
  Take(A(), "s1");
  Ship(A(), "s1", "", B());
  ExpectSame(A(), B(), "s1");
  ExpectNothingIncoming(B());
}

TEST_P(ShipTest, WhatHasChangedSinceTheBaseArrives) {
  MakeOddTree(A().TargetPath());
  Take(A(), "s1");
  Ship(A(), "s1", "", B());
  const auto first = DescribeTree(A().SnapshotPath("s1"));
  ChangeOddTree(A().TargetPath());
  Take(A(), "s2");
  Ship(A(), "s2", "s1", B());
  ExpectSame(A(), B(), "s2");
  ExpectTree(B().SnapshotPath("s1"), first);
  // And back to what it was.
  ASSERT_TRUE(A().Restore("s1").IsOk());
  Take(A(), "s3");
  Ship(A(), "s3", "s2", B());
  ExpectSame(A(), B(), "s3");
  ExpectNothingIncoming(B());
}

TEST_P(ShipTest, OnlyWhatHasChangedIsSent) {
  const std::string image = A().TargetPath() + "/disk.img";
  WriteFile(image, RandomBytes(16 * kMiB));
  fs::resize_file(image, 40 * kMiB);
  Take(A(), "s1");
  const std::uint64_t all = Ship(A(), "s1", "", B());
  EXPECT_GE(all, 16 * kMiB);
  EXPECT_LE(all, 17 * kMiB);
  Overwrite(image, 5 * kMiB + 77, RandomBytes(160'000));
  Take(A(), "s2");
  const std::uint64_t changed = Ship(A(), "s2", "s1", B());
  RecordProperty("changed", std::to_string(changed));
  EXPECT_GE(changed, 160'000u);
  EXPECT_LE(changed, 260'000u);
  ExpectSame(A(), B(), "s2");
  EXPECT_LE(AllocatedBytes(B().SnapshotPath("s2") + "/disk.img"), 20 * kMiB);
}

TEST_P(ShipTest, TheDirectionCanBeTurnedAgainAndAgain) {
  MakeOddTree(A().TargetPath());
  WriteFile(A().TargetPath() + "/big", RandomBytes(4 * kMiB));
  Take(A(), "s0");
  Ship(A(), "s0", "", B());
  Side* from = &A();
  Side* to = &B();
  for (int i = 1; i <= 6; ++i) {
    SCOPED_TRACE(i);
    std::swap(from, to);
    const std::string base = "s" + std::to_string(i - 1);
    const std::string id = "s" + std::to_string(i);
    ASSERT_TRUE(to->Demote().IsOk());
    const Status promoted = from->Promote(base);
    ASSERT_TRUE(promoted.IsOk()) << promoted.message;
    ExpectTree(from->TargetPath(), DescribeTree(to->SnapshotPath(base)));
    Overwrite(from->TargetPath() + "/big", 100'000, RandomBytes(5000));
    WriteFile(from->TargetPath() + "/new in " + id, id);
    fs::remove(from->TargetPath() + "/new in " + base);
    Take(*from, id);
    EXPECT_LE(Ship(*from, id, base, *to), 300'000u);
    ExpectSame(*from, *to, id);
  }
  for (int i = 0; i < 6; ++i) ExpectSame(A(), B(), "s" + std::to_string(i));
}

TEST_P(ShipTest, ABaseThatEitherSideLacksIsDoneWithout) {
  MakeOddTree(A().TargetPath());
  Take(A(), "s1");
  Ship(A(), "s1", "", B());
  Take(A(), "s2");
  ASSERT_TRUE(B().RemoveSnapshot("s1").IsOk());
  Ship(A(), "s2", "s1", B());
  ExpectSame(A(), B(), "s2");
  ChangeOddTree(A().TargetPath());
  Take(A(), "s3");
  ASSERT_TRUE(A().RemoveSnapshot("s2").IsOk());
  Ship(A(), "s3", "s2", B());
  ExpectSame(A(), B(), "s3");
}

TEST_P(ShipTest, ABaseThatWasMadeInBothPlacesServesToo) {
  MakeOddTree(A().TargetPath());
  MakeOddTree(B().TargetPath());
  Take(A(), "s1");
  Take(B(), "s1");
  ChangeOddTree(A().TargetPath());
  Take(A(), "s2");
  Ship(A(), "s2", "s1", B());
  ExpectSame(A(), B(), "s2");
  ExpectNothingIncoming(B());
}

TEST_P(ShipTest, TheReplicaCanBeOnTheSameVolume) {
  Side other;
  other.type = A().type;
  other.path = A().path;
  other.place = B().place;
  MakeEngine(other, "a");
  ASSERT_TRUE(other.Create({}).IsOk());
  MakeOddTree(A().TargetPath());
  Take(A(), "s1");
  Ship(A(), "s1", "", other);
  ExpectSame(A(), other, "s1");
  ASSERT_TRUE(other.Promote("s1").IsOk());
  ChangeOddTree(other.TargetPath());
  Take(other, "s2");
  Ship(other, "s2", "s1", A());
  ExpectSame(A(), other, "s2");
}

TEST_P(ShipTest, AFileThatIsAllHoleUnderSeveralNamesArrivesAsOne) {
  WriteFile(A().TargetPath() + "/a", "");
  fs::resize_file(A().TargetPath() + "/a", 20 * kMiB);
  fs::create_hard_link(A().TargetPath() + "/a", A().TargetPath() + "/b");
  Take(A(), "s1");
  EXPECT_LE(Ship(A(), "s1", "", B()), 10'000u);
  ExpectSame(A(), B(), "s1");
  EXPECT_LE(AllocatedBytes(B().SnapshotPath("s1") + "/a"), 100'000u);
}

TEST_P(ShipTest, ASnapshotThatIsThereIsNotSentAgain) {
  WriteFile(A().TargetPath() + "/big", RandomBytes(kMiB));
  Take(A(), "s1");
  Ship(A(), "s1", "", B());
  TestWatcher watcher;
  EXPECT_TRUE(TryShip(A(), "s1", "", B(), watcher).IsOk());
  EXPECT_EQ(watcher.GetSent(), 0u);
  ExpectSame(A(), B(), "s1");
  ExpectNothingIncoming(B());
}

TEST_P(FrozenShipTest, WhatArrivedCannotBeChanged) {
  MakeOddTree(A().TargetPath());
  Take(A(), "s1");
  Ship(A(), "s1", "", B());
  const std::string path = B().SnapshotPath("s1");
  EXPECT_EQ(open((path + "/plain").c_str(), O_WRONLY), -1);
  EXPECT_EQ(open((path + "/folder/new").c_str(), O_WRONLY | O_CREAT, 0600), -1);
  EXPECT_EQ(open((path + "/new").c_str(), O_WRONLY | O_CREAT, 0600), -1);
  EXPECT_NE(unlink((path + "/dangling").c_str()), 0);
  EXPECT_TRUE(B().RemoveSnapshot("s1").IsOk());
  EXPECT_FALSE(fs::exists(path));
}

TEST_P(ShipTest, AStoppedShipmentEndsAtOnceAndGoesOnWhereItWas) {
  MakeOddTree(A().TargetPath());
  WriteFile(A().TargetPath() + "/big", RandomBytes(8 * kMiB));
  Take(A(), "s1");
  SlowDown();
  TestWatcher watcher;
  watcher.StopAfter(3 * kMiB);
  ExpectStatus(TryShip(A(), "s1", "", B(), watcher), VrelDR::kErrStopped, "stopped");
  FullSpeed();
  EXPECT_FALSE(fs::exists(B().SnapshotPath("s1")));
  EXPECT_LT(watcher.GetDelay(), std::chrono::seconds(1));
  // Cleaning up leaves it alone.
  EXPECT_TRUE(B().CleanUp().IsOk());
  const std::uint64_t rest = Ship(A(), "s1", "", B());
  RecordProperty("rest", std::to_string(rest));
  EXPECT_LE(rest, 7 * kMiB);
  ExpectSame(A(), B(), "s1");
  ExpectNothingIncoming(B());
  // What was completed so serves as a base like any other, in both directions.
  ChangeOddTree(A().TargetPath());
  Take(A(), "s2");
  EXPECT_LE(Ship(A(), "s2", "s1", B()), kMiB);
  ExpectSame(A(), B(), "s2");
  ASSERT_TRUE(B().Promote("s1").IsOk());
  WriteFile(B().TargetPath() + "/there", "there");
  Take(B(), "s3");
  EXPECT_LE(Ship(B(), "s3", "s1", A()), kMiB);
  ExpectSame(A(), B(), "s3");
}

TEST_P(ShipTest, AStoppedShipmentOfChangesGoesOnWhereItWas) {
  MakeOddTree(A().TargetPath());
  WriteFile(A().TargetPath() + "/big", RandomBytes(10 * kMiB));
  Take(A(), "s1");
  Ship(A(), "s1", "", B());
  ChangeOddTree(A().TargetPath());
  Overwrite(A().TargetPath() + "/big", 2 * kMiB, RandomBytes(6 * kMiB));
  Take(A(), "s2");
  SlowDown();
  TestWatcher watcher;
  watcher.StopAfter(3 * kMiB);
  ExpectStatus(TryShip(A(), "s2", "s1", B(), watcher), VrelDR::kErrStopped, "stopped");
  FullSpeed();
  EXPECT_LE(Ship(A(), "s2", "s1", B()), 4 * kMiB);
  ExpectSame(A(), B(), "s1");
  ExpectSame(A(), B(), "s2");
  ExpectNothingIncoming(B());
}

TEST_P(ShipTest, WhatIsLeftOfAShipmentCanBeDropped) {
  WriteFile(A().TargetPath() + "/big", RandomBytes(8 * kMiB));
  Take(A(), "s1");
  SlowDown();
  TestWatcher watcher;
  watcher.StopAfter(3 * kMiB);
  ExpectStatus(TryShip(A(), "s1", "", B(), watcher), VrelDR::kErrStopped, "stopped");
  FullSpeed();
  const std::string incoming = B().path + "/.vreldr/incoming/replica/s1";
  EXPECT_TRUE(fs::exists(incoming));
  EXPECT_TRUE(B().Drop("s1").IsOk());
  EXPECT_TRUE(fs::exists(incoming));
  EXPECT_TRUE(B().Drop("").IsOk());
  EXPECT_FALSE(fs::exists(incoming));
  EXPECT_TRUE(B().Drop("").IsOk());
  EXPECT_GE(Ship(A(), "s1", "", B()), 8 * kMiB);
  ExpectSame(A(), B(), "s1");
}

TEST_P(ShipTest, RemovingTheReplicaRemovesWhatWasOnItsWay) {
  WriteFile(A().TargetPath() + "/big", RandomBytes(8 * kMiB));
  Take(A(), "s1");
  SlowDown();
  TestWatcher watcher;
  watcher.StopAfter(3 * kMiB);
  ExpectStatus(TryShip(A(), "s1", "", B(), watcher), VrelDR::kErrStopped, "stopped");
  EXPECT_TRUE(B().Remove().IsOk());
  ExpectNothingIncoming(B());
}

}  // namespace
}  // namespace host_test
