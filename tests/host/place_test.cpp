#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <set>
#include <utility>

#include "bind_mount.h"
#include "engine/local/tree_copy.h"
#include "engine/support/watch.h"
#include "engine_fixture.h"
#include "tree.h"

// What stands in a target's place and is no part of it: mounts, nested subvolumes, and a LUN's
// bytes that are somewhere else.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using VrelDR::PlaceUse;
using VrelDR::Status;

class PlaceTest : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    if (geteuid() != 0) GTEST_SKIP() << "mounting needs root";
    // Of the same file system: no number of a device tells it from the target.
    outside_ = A().path + "/outside";
    fs::create_directory(outside_);
    WriteFile(outside_ + "/precious", "precious");
    place_ = A().TargetPath() + "/a place\twith \\ odd # name";
    fs::create_directory(place_);
    WriteFile(place_ + "/covered", "covered");
    WriteFile(A().TargetPath() + "/own", "own");
  }

  void ExpectOutsideUntouched() {
    EXPECT_EQ(ReadFile(outside_ + "/precious"), "precious");
    WriteFile(outside_ + "/precious", "precious");
    WriteFile(outside_ + "/new", "new");
    EXPECT_TRUE(fs::remove(outside_ + "/new"));
  }
  static Status Create(EngineTarget target, const VrelDR::TargetContent& content) {
    VrelDR::Watcher watcher;
    Status status = target.engine->PreparePlace({target.place.id, target.place.type},
                                                target.place.locator, watcher);
    return status.IsOk() ? target.Create(content) : status;
  }

  std::string outside_;
  std::string place_;
};

INSTANTIATE_TEST_SUITE_P(FileSystems, PlaceTest,
                         testing::Values("tmpfs-tmpfs", "ext4-ext4", "xfs-xfs", "btrfs-btrfs"),
                         EngineTest::NameOf);

class NestedTest : public PlaceTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, NestedTest, testing::Values("btrfs-btrfs"),
                         EngineTest::NameOf);

TEST_P(PlaceTest, ASnapshotHasWhatIsBelowAMountAndNothingOfIt) {
  const auto tree = DescribeTree(A().TargetPath());
  {
    const BindMount dir(outside_, place_);
    const BindMount file(outside_ + "/precious", A().TargetPath() + "/own");
    std::vector<std::string> mounts;
    VrelDR::Watcher watcher;
    EXPECT_TRUE(A().engine->FindLeftOut(A().place, mounts, watcher).IsOk());
    EXPECT_THAT(mounts, ElementsAre(place_, A().TargetPath() + "/own"));
    EXPECT_TRUE(A().CheckPlace(PlaceUse::kSnapshot).IsOk());
    Take(A(), "1");
    ExpectOutsideUntouched();
  }
  ExpectTree(A().SnapshotPath("1"), tree);
  Ship(A(), "1", "", B());
  ExpectSame(A(), B(), "1");
}

TEST_P(PlaceTest, WhatIsMountedOnTheTargetItselfIsNotTakenForIt) {
  const BindMount dir(outside_, A().TargetPath());
  ExpectStatus(A().TakeSnapshot("1"), VrelDR::kErrUnsupported, A().TargetPath());
  ExpectStatus(A().Demote(), VrelDR::kErrUnsupported, A().TargetPath());
  ExpectStatus(A().Remove(), VrelDR::kErrUnsupported, A().TargetPath());
  ExpectOutsideUntouched();
}

TEST_P(PlaceTest, ATargetWithAMountInItIsNeitherReplacedNorRemoved) {
  Take(A(), "1");
  fs::remove(A().TargetPath() + "/own");
  const auto tree = DescribeTree(A().TargetPath());
  for (const bool isFile : {false, true}) {
    const std::string place = isFile ? place_ + "/covered" : place_;
    {
      const BindMount mounted(isFile ? outside_ + "/precious" : outside_, place);
      for (const PlaceUse use : {PlaceUse::kReplacement, PlaceUse::kRemoval}) {
        ExpectStatus(A().CheckPlace(use), VrelDR::kErrUnsupported, "unmount");
      }
      ExpectStatus(A().Restore("1"), VrelDR::kErrUnsupported, "mounted on");
      ExpectStatus(A().Promote("1"), VrelDR::kErrUnsupported, "mounted on");
      ExpectStatus(A().Remove(), VrelDR::kErrUnsupported, "mounted on");
      ExpectOutsideUntouched();
    }
    ExpectTree(A().TargetPath(), tree);
    ExpectNothingIncoming(A());
    EXPECT_TRUE(fs::exists(A().SnapshotPath("1")));
  }
  const Status status = A().Restore("1");
  EXPECT_TRUE(status.IsOk()) << status.message;
  EXPECT_EQ(ReadFile(A().TargetPath() + "/own"), "own");
}

TEST_P(PlaceTest, ADemotionLeavesWhatIsMountedAsItIs) {
  const BindMount dir(outside_, place_);
  const BindMount file(outside_ + "/precious", A().TargetPath() + "/own");
  for (int i = 0; i < 2; ++i) {
    EXPECT_TRUE(A().Demote().IsOk());
    ExpectOutsideUntouched();
  }
  EXPECT_TRUE(A().Promote("").IsOk());
  ExpectOutsideUntouched();
}

TEST_P(PlaceTest, ASnapshotWithAMountInItIsNotUsedAndNotRemoved) {
  Take(A(), "1");
  const auto tree = DescribeTree(A().SnapshotPath("1"));
  {
    const BindMount dir(outside_,
                        A().SnapshotPath("1") + "/" + fs::path(place_).filename().string());
    ExpectStatus(A().Restore("1"), VrelDR::kErrUnsupported, "mounted");
    ExpectStatus(A().Clone("1", A().Other("c", VrelDR::kTargetShare)), VrelDR::kErrUnsupported,
                 "mounted");
    TestWatcher watcher;
    ExpectStatus(TryShip(A(), "1", "", B(), watcher), VrelDR::kErrUnsupported, "mounted");
    ExpectStatus(A().RemoveSnapshot("1"), VrelDR::kErrUnsupported, "mounted");
    ExpectStatus(A().Remove(), VrelDR::kErrUnsupported, "mounted");
    ExpectOutsideUntouched();
  }
  ExpectTree(A().SnapshotPath("1"), tree);
}

TEST_P(PlaceTest, WhatAnInterruptedCallLeftIsNotRemovedWhileSomethingIsMountedInIt) {
  const std::string left = A().path + "/.vreldr/tmp/source/restored";
  fs::create_directories(left + "/mnt");
  {
    const BindMount dir(outside_, left + "/mnt");
    ExpectStatus(A().CleanUp(), VrelDR::kErrUnsupported, left + "/mnt");
    ExpectOutsideUntouched();
  }
  EXPECT_TRUE(A().CleanUp().IsOk());
  EXPECT_FALSE(fs::exists(left));
}

TEST_P(PlaceTest, AShipmentWithAMountInItIsNotGoneOnWith) {
  Take(A(), "1");
  const std::string incoming = B().path + "/.vreldr/incoming/replica/1";
  fs::create_directories(incoming + "/mnt");
  {
    const BindMount dir(outside_, incoming + "/mnt");
    TestWatcher watcher;
    ExpectStatus(TryShip(A(), "1", "", B(), watcher), VrelDR::kErrUnsupported, incoming);
    ExpectStatus(B().Drop(""), VrelDR::kErrUnsupported, incoming);
    ExpectOutsideUntouched();
  }
  EXPECT_TRUE(B().Drop("").IsOk());
  Ship(A(), "1", "", B());
  ExpectSame(A(), B(), "1");
}

TEST_P(PlaceTest, WhatIsMountedOnAnAreaOfTheVolumeIsNamed) {
  Take(A(), "1");
  const std::string tmp = A().path + "/.vreldr/tmp";
  const std::string incoming = B().path + "/.vreldr/incoming";
  fs::create_directories(tmp);
  fs::create_directories(incoming);
  {
    const BindMount onTmp(outside_, tmp);
    const BindMount onIncoming(outside_, incoming);
    TestWatcher watcher;
    const auto refused = VrelDR::kErrUnsupported;
    ExpectStatus(Create(A().Other("new", VrelDR::kTargetShare), {}), refused, tmp);
    ExpectStatus(A().Restore("1"), refused, tmp);
    ExpectStatus(A().Remove(), refused, tmp);
    ExpectStatus(A().CleanUp(), refused, tmp);
    ExpectStatus(TryShip(A(), "1", "", B(), watcher), refused, incoming);
    ExpectStatus(B().Drop(""), refused, incoming);
    ExpectOutsideUntouched();
  }
  Ship(A(), "1", "", B());
}

// Mounts something the first time that a shipment tells of itself.
class MountingWatcher : public TestWatcher {
 public:
  MountingWatcher(std::string from, std::string place)
      : from_(std::move(from)), place_(std::move(place)) {}
  void Tell(std::uint64_t done, std::uint64_t total, std::uint64_t sent) override {
    if (!mounted_) mounted_.emplace(from_, place_);
    TestWatcher::Tell(done, total, sent);
  }

 private:
  std::string from_, place_;
  std::optional<BindMount> mounted_;
};

TEST_P(PlaceTest, WhatIsMountedWhileAShipmentRunsDoesNotMakeItWhole) {
  Take(A(), "1");
  const std::string place = A().path + "/.vreldr/snapshots/source/1/a place\twith \\ odd # name";
  ASSERT_TRUE(fs::is_directory(place));
  {
    MountingWatcher watcher(outside_, place);
    ExpectStatus(TryShip(A(), "1", "", B(), watcher), VrelDR::kErrUnsupported, "odd # name");
  }
  EXPECT_THAT(B().Snapshots(), IsEmpty());
  ExpectOutsideUntouched();
  Ship(A(), "1", "", B());
  ExpectSame(A(), B(), "1");
}

TEST_P(PlaceTest, AFolderWithAMountInItIsNotImported) {
  const std::string folder = A().path + "/folder";
  fs::create_directories(folder + "/mnt");
  const EngineTarget share = A().Other("imported", VrelDR::kTargetShare);
  const BindMount dir(outside_, folder + "/mnt");
  ExpectStatus(Create(share, {0, {folder}}), VrelDR::kErrBadArgument, folder + "/mnt");
  EXPECT_TRUE(share.CleanUp().IsOk());
  // What is named itself may be a mount.
  const Status status = Create(share, {0, {folder + "/mnt", A().TargetPath() + "/own"}});
  EXPECT_TRUE(status.IsOk()) << status.message;
  EXPECT_EQ(ReadFile(share.TargetPath() + "/mnt/precious"), "precious");
}

TEST_P(PlaceTest, ACopyThatMeetsAMountFailsOrHasSomethingEmptyInItsPlace) {
  using VrelDR::Local::TreeCopier;
  const BindMount dir(outside_, place_);
  const BindMount file(outside_ + "/precious", A().TargetPath() + "/own");
  const VrelDR::Fd source(open(A().TargetPath().c_str(), O_RDONLY | O_DIRECTORY));
  for (const bool leavesOut : {false, true}) {
    const std::string copy = B().path + (leavesOut ? "/left out" : "/refused");
    fs::create_directory(copy);
    const VrelDR::Fd to(open(copy.c_str(), O_RDONLY | O_DIRECTORY));
    VrelDR::Watcher watcher;
    VrelDR::Watch watch(watcher);
    TreeCopier copier(to.Get(), VrelDR::Local::Strictness::kAll, TreeCopier::FlagsOf::kTarget,
                      watch);
    if (leavesOut) copier.LeaveOutMounts();
    const Status status = copier.CopyContent(source.Get(), A().TargetPath());
    if (!leavesOut) {
      ExpectStatus(status, VrelDR::kErrUnsupported, "mounted on");
      continue;
    }
    EXPECT_TRUE(status.IsOk()) << status.message;
    EXPECT_TRUE(fs::is_empty(copy + "/" + fs::path(place_).filename().string()));
    EXPECT_EQ(ReadFile(copy + "/own"), "");
  }
}

TEST_P(NestedTest, ANestedSubvolumeIsNamedAndNeverLost) {
  Take(A(), "1");
  const std::string nested = A().TargetPath() + "/folder/nested";
  fs::create_directory(A().TargetPath() + "/folder");
  ASSERT_EQ(RunProgram({"btrfs", "subvolume", "create", nested}), 0);
  ASSERT_EQ(RunProgram({"btrfs", "subvolume", "create", nested + "/deeper"}), 0);
  WriteFile(nested + "/deeper/data", "only here");
  for (const std::string& name : {nested, nested + "/deeper"}) {
    for (const PlaceUse use : {PlaceUse::kSnapshot, PlaceUse::kReplacement, PlaceUse::kRemoval}) {
      ExpectStatus(A().CheckPlace(use), VrelDR::kErrUnsupported, name);
    }
    ExpectStatus(A().TakeSnapshot("2"), VrelDR::kErrUnsupported, name);
    ExpectStatus(A().Restore("1"), VrelDR::kErrUnsupported, name);
    ExpectStatus(A().Promote("1"), VrelDR::kErrUnsupported, name);
    ExpectStatus(A().Remove(), VrelDR::kErrUnsupported, name);
  }
  EXPECT_FALSE(fs::exists(A().SnapshotPath("2")));
  EXPECT_EQ(ReadFile(nested + "/deeper/data"), "only here");
  // What an earlier restore took out of the target.
  const std::string left = A().path + "/.vreldr/tmp/source";
  fs::create_directories(left);
  ASSERT_EQ(RunProgram({"btrfs", "subvolume", "create", left + "/restored"}), 0);
  fs::rename(nested, left + "/restored/nested");
  ExpectStatus(A().CleanUp(), VrelDR::kErrUnsupported, left + "/restored/nested");
  EXPECT_EQ(ReadFile(left + "/restored/nested/deeper/data"), "only here");
  fs::rename(left + "/restored/nested", A().path + "/kept");
  Take(A(), "2");
  const Status status = A().Restore("1");
  EXPECT_TRUE(status.IsOk()) << status.message;
  EXPECT_EQ(ReadFile(A().path + "/kept/deeper/data"), "only here");
}

TEST_P(NestedTest, ASubvolumeNestedInAPlainFolderIsNotRemovedEither) {
  const EngineTarget plain = A().Other("plain", VrelDR::kTargetShare);
  const std::string path = A().path + "/plain";
  fs::create_directories(path + "/folder");
  ASSERT_EQ(RunProgram({"btrfs", "subvolume", "create", path + "/folder/nested"}), 0);
  WriteFile(path + "/folder/nested/data", "only here");
  ExpectStatus(plain.TakeSnapshot("1"), VrelDR::kErrUnsupported, path + "/folder/nested");
  ExpectStatus(plain.Remove(), VrelDR::kErrUnsupported, path + "/folder/nested");
  EXPECT_EQ(ReadFile(path + "/folder/nested/data"), "only here");
}

TEST_P(PlaceTest, ALunIsNotMadeOfALink) {
  const std::string image = A().path + "/image";
  WriteFile(image, "image");
  fs::create_symlink("image", A().path + "/link");
  const EngineTarget lun = A().Other("lun", VrelDR::kTargetLun);
  ExpectStatus(Create(lun, {0, {A().path + "/link"}}), VrelDR::kErrBadArgument,
               "symbolic link to \"" + image + "\"");
  EXPECT_TRUE(lun.CleanUp().IsOk());
  const Status status = Create(lun, {0, {image}});
  EXPECT_TRUE(status.IsOk()) << status.message;
  EXPECT_EQ(ReadFile(lun.TargetPath()), "image");
}

TEST_P(PlaceTest, ALunWhoseImageIsNoFileOfItsOwnIsRefusedByEverything) {
  const EngineTarget lun = A().Other("lun", VrelDR::kTargetLun);
  ASSERT_TRUE(Create(lun, {4096, {}}).IsOk());
  ASSERT_TRUE(lun.TakeSnapshot("1").IsOk());
  const std::string image = lun.TargetPath();
  const auto expectRefused = [&](const std::string& part) {
    ExpectStatus(lun.TakeSnapshot("2"), VrelDR::kErrUnsupported, part);
    ExpectStatus(lun.Restore("1"), VrelDR::kErrUnsupported, part);
    ExpectStatus(lun.Promote("1"), VrelDR::kErrUnsupported, part);
    ExpectStatus(lun.Demote(), VrelDR::kErrUnsupported, part);
  };
  WriteFile(A().path + "/moved", "elsewhere");
  fs::remove(image);
  fs::create_symlink(A().path + "/moved", image);
  expectRefused("symbolic link to \"" + A().path + "/moved\"");
  fs::remove(image);
  // A restore brings back an image that is missing, and nothing else does without it.
  ExpectStatus(lun.TakeSnapshot("2"), VrelDR::kErrUnsupported, "missing");
  EXPECT_TRUE(lun.Restore("1").IsOk());
  const BindMount file(outside_ + "/precious", image);
  expectRefused("mounted on \"" + image + "\"");
  ExpectOutsideUntouched();
}

TEST_P(PlaceTest, ASnapshotOfALunWithoutItsBytesIsNotUsed) {
  // As an earlier version took them.
  const EngineTarget lun = A().Other("lun", VrelDR::kTargetLun);
  ASSERT_TRUE(Create(lun, {4096, {}}).IsOk());
  const fs::path snapshot = lun.SnapshotPath("1");
  fs::create_directories(snapshot.parent_path());
  fs::create_symlink("/elsewhere", snapshot);
  ExpectStatus(lun.Restore("1"), VrelDR::kErrUnsupported, "/elsewhere");
  ExpectStatus(lun.Clone("1", A().Other("c", VrelDR::kTargetLun)), VrelDR::kErrUnsupported,
               "/elsewhere");
  TestWatcher watcher;
  ExpectStatus(LinkOf(A(), B())->Ship(lun.place, "1", "", B().place, watcher),
               VrelDR::kErrUnsupported, "/elsewhere");
}

}  // namespace
}  // namespace host_test
