#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <set>
#include <utility>

#include "bind_mount.h"
#include "engine/local/tree_copy.h"
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
using VrelDR::Target;

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
  Status Create(const Target& target, const VrelDR::TargetContent& content) {
    Status status = A().engine->PreparePlace(target);
    return status.IsOk() ? A().engine->CreateTarget(target, content) : status;
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
    EXPECT_TRUE(A().engine->FindMounts(A().target, mounts).IsOk());
    EXPECT_THAT(mounts, ElementsAre(place_, A().TargetPath() + "/own"));
    EXPECT_TRUE(A().engine->CheckPlace(A().target, PlaceUse::kSnapshot).IsOk());
    Take(A(), "1");
    ExpectOutsideUntouched();
  }
  ExpectTree(A().SnapshotPath("1"), tree);
  Ship(A(), "1", "", B());
  ExpectSame(A(), B(), "1");
}

TEST_P(PlaceTest, WhatIsMountedOnTheTargetItselfIsNotTakenForIt) {
  const BindMount dir(outside_, A().TargetPath());
  ExpectStatus(A().engine->TakeSnapshot(A().target, "1", nullptr), VrelDR::kErrUnsupported,
               A().TargetPath());
  ExpectStatus(A().engine->Demote(A().target), VrelDR::kErrUnsupported, A().TargetPath());
  ExpectStatus(A().engine->RemoveTarget(A().target), VrelDR::kErrUnsupported, A().TargetPath());
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
        ExpectStatus(A().engine->CheckPlace(A().target, use), VrelDR::kErrUnsupported, "unmount");
      }
      ExpectStatus(A().engine->RestoreSnapshot(A().target, "1"), VrelDR::kErrUnsupported,
                   "mounted on");
      ExpectStatus(A().engine->Promote(A().target, "1"), VrelDR::kErrUnsupported, "mounted on");
      ExpectStatus(A().engine->RemoveTarget(A().target), VrelDR::kErrUnsupported, "mounted on");
      ExpectOutsideUntouched();
    }
    ExpectTree(A().TargetPath(), tree);
    ExpectNothingIncoming(A());
    EXPECT_TRUE(fs::exists(A().SnapshotPath("1")));
  }
  const Status status = A().engine->RestoreSnapshot(A().target, "1");
  EXPECT_TRUE(status.IsOk()) << status.message;
  EXPECT_EQ(ReadFile(A().TargetPath() + "/own"), "own");
}

TEST_P(PlaceTest, ADemotionLeavesWhatIsMountedAsItIs) {
  const BindMount dir(outside_, place_);
  const BindMount file(outside_ + "/precious", A().TargetPath() + "/own");
  for (int i = 0; i < 2; ++i) {
    EXPECT_TRUE(A().engine->Demote(A().target).IsOk());
    ExpectOutsideUntouched();
  }
  EXPECT_TRUE(A().engine->Promote(A().target, "").IsOk());
  ExpectOutsideUntouched();
}

TEST_P(PlaceTest, ASnapshotWithAMountInItIsNotUsedAndNotRemoved) {
  Take(A(), "1");
  const auto tree = DescribeTree(A().SnapshotPath("1"));
  {
    const BindMount dir(outside_,
                        A().SnapshotPath("1") + "/" + fs::path(place_).filename().string());
    ExpectStatus(A().engine->RestoreSnapshot(A().target, "1"), VrelDR::kErrUnsupported, "mounted");
    ExpectStatus(A().engine->CloneSnapshot(A().target, "1", Target("c", VrelDR::kTargetShare)),
                 VrelDR::kErrUnsupported, "mounted");
    TestWatcher watcher;
    ExpectStatus(TryShip(A(), "1", "", B(), watcher), VrelDR::kErrUnsupported, "mounted");
    ExpectStatus(A().engine->RemoveSnapshot(A().target, "1"), VrelDR::kErrUnsupported, "mounted");
    ExpectStatus(A().engine->RemoveTarget(A().target), VrelDR::kErrUnsupported, "mounted");
    ExpectOutsideUntouched();
  }
  ExpectTree(A().SnapshotPath("1"), tree);
}

TEST_P(PlaceTest, WhatAnInterruptedCallLeftIsNotRemovedWhileSomethingIsMountedInIt) {
  const std::string left = A().path + "/.vreldr/tmp/source/restored";
  fs::create_directories(left + "/mnt");
  {
    const BindMount dir(outside_, left + "/mnt");
    ExpectStatus(A().engine->CleanUp(A().target), VrelDR::kErrUnsupported, left + "/mnt");
    ExpectOutsideUntouched();
  }
  EXPECT_TRUE(A().engine->CleanUp(A().target).IsOk());
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
    ExpectStatus(B().engine->DropShipments(B().target, ""), VrelDR::kErrUnsupported, incoming);
    ExpectOutsideUntouched();
  }
  EXPECT_TRUE(B().engine->DropShipments(B().target, "").IsOk());
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
    ExpectStatus(Create(Target("new", 2), {}), refused, tmp);
    ExpectStatus(A().engine->RestoreSnapshot(A().target, "1"), refused, tmp);
    ExpectStatus(A().engine->RemoveTarget(A().target), refused, tmp);
    ExpectStatus(A().engine->CleanUp(A().target), refused, tmp);
    ExpectStatus(TryShip(A(), "1", "", B(), watcher), refused, incoming);
    ExpectStatus(B().engine->DropShipments(B().target, ""), refused, incoming);
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
  std::set<std::string> arrived;
  EXPECT_TRUE(B().engine->ListSnapshots(B().target, arrived).IsOk());
  EXPECT_THAT(arrived, IsEmpty());
  ExpectOutsideUntouched();
  Ship(A(), "1", "", B());
  ExpectSame(A(), B(), "1");
}

TEST_P(PlaceTest, AFolderWithAMountInItIsNotImported) {
  const std::string folder = A().path + "/folder";
  fs::create_directories(folder + "/mnt");
  const Target share("imported", VrelDR::kTargetShare);
  const BindMount dir(outside_, folder + "/mnt");
  ExpectStatus(Create(share, {0, {folder}}), VrelDR::kErrBadArgument, folder + "/mnt");
  EXPECT_TRUE(A().engine->CleanUp(share).IsOk());
  // What is named itself may be a mount.
  const Status status = Create(share, {0, {folder + "/mnt", A().TargetPath() + "/own"}});
  EXPECT_TRUE(status.IsOk()) << status.message;
  EXPECT_EQ(ReadFile(A().engine->GetTargetPath(share) + "/mnt/precious"), "precious");
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
    TreeCopier copier(to.Get(), VrelDR::Local::Strictness::kAll, TreeCopier::FlagsOf::kTarget);
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
      ExpectStatus(A().engine->CheckPlace(A().target, use), VrelDR::kErrUnsupported, name);
    }
    ExpectStatus(A().engine->TakeSnapshot(A().target, "2", nullptr), VrelDR::kErrUnsupported, name);
    ExpectStatus(A().engine->RestoreSnapshot(A().target, "1"), VrelDR::kErrUnsupported, name);
    ExpectStatus(A().engine->Promote(A().target, "1"), VrelDR::kErrUnsupported, name);
    ExpectStatus(A().engine->RemoveTarget(A().target), VrelDR::kErrUnsupported, name);
  }
  EXPECT_FALSE(fs::exists(A().SnapshotPath("2")));
  EXPECT_EQ(ReadFile(nested + "/deeper/data"), "only here");
  // What an earlier restore took out of the target.
  const std::string left = A().path + "/.vreldr/tmp/source";
  fs::create_directories(left);
  ASSERT_EQ(RunProgram({"btrfs", "subvolume", "create", left + "/restored"}), 0);
  fs::rename(nested, left + "/restored/nested");
  ExpectStatus(A().engine->CleanUp(A().target), VrelDR::kErrUnsupported, left + "/restored/nested");
  EXPECT_EQ(ReadFile(left + "/restored/nested/deeper/data"), "only here");
  fs::rename(left + "/restored/nested", A().path + "/kept");
  Take(A(), "2");
  const Status status = A().engine->RestoreSnapshot(A().target, "1");
  EXPECT_TRUE(status.IsOk()) << status.message;
  EXPECT_EQ(ReadFile(A().path + "/kept/deeper/data"), "only here");
}

TEST_P(NestedTest, ASubvolumeNestedInAPlainFolderIsNotRemovedEither) {
  const Target plain("plain", VrelDR::kTargetShare);
  const std::string path = A().path + "/plain";
  fs::create_directories(path + "/folder");
  ASSERT_EQ(RunProgram({"btrfs", "subvolume", "create", path + "/folder/nested"}), 0);
  WriteFile(path + "/folder/nested/data", "only here");
  ExpectStatus(A().engine->TakeSnapshot(plain, "1", nullptr), VrelDR::kErrUnsupported,
               path + "/folder/nested");
  ExpectStatus(A().engine->RemoveTarget(plain), VrelDR::kErrUnsupported, path + "/folder/nested");
  EXPECT_EQ(ReadFile(path + "/folder/nested/data"), "only here");
}

TEST_P(PlaceTest, ALunIsNotMadeOfALink) {
  const std::string image = A().path + "/image";
  WriteFile(image, "image");
  fs::create_symlink("image", A().path + "/link");
  const Target lun("lun", VrelDR::kTargetLun);
  ExpectStatus(Create(lun, {0, {A().path + "/link"}}), VrelDR::kErrBadArgument,
               "symbolic link to \"" + image + "\"");
  EXPECT_TRUE(A().engine->CleanUp(lun).IsOk());
  const Status status = Create(lun, {0, {image}});
  EXPECT_TRUE(status.IsOk()) << status.message;
  EXPECT_EQ(ReadFile(A().engine->GetTargetPath(lun)), "image");
}

TEST_P(PlaceTest, ALunWhoseImageIsNoFileOfItsOwnIsRefusedByEverything) {
  const Target lun("lun", VrelDR::kTargetLun);
  ASSERT_TRUE(Create(lun, {4096, {}}).IsOk());
  ASSERT_TRUE(A().engine->TakeSnapshot(lun, "1", nullptr).IsOk());
  const std::string image = A().engine->GetTargetPath(lun);
  const auto expectRefused = [&](const std::string& part) {
    ExpectStatus(A().engine->TakeSnapshot(lun, "2", nullptr), VrelDR::kErrUnsupported, part);
    ExpectStatus(A().engine->RestoreSnapshot(lun, "1"), VrelDR::kErrUnsupported, part);
    ExpectStatus(A().engine->Promote(lun, "1"), VrelDR::kErrUnsupported, part);
    ExpectStatus(A().engine->Demote(lun), VrelDR::kErrUnsupported, part);
  };
  WriteFile(A().path + "/moved", "elsewhere");
  fs::remove(image);
  fs::create_symlink(A().path + "/moved", image);
  expectRefused("symbolic link to \"" + A().path + "/moved\"");
  fs::remove(image);
  // A restore brings back an image that is missing, and nothing else does without it.
  ExpectStatus(A().engine->TakeSnapshot(lun, "2", nullptr), VrelDR::kErrUnsupported, "missing");
  EXPECT_TRUE(A().engine->RestoreSnapshot(lun, "1").IsOk());
  const BindMount file(outside_ + "/precious", image);
  expectRefused("mounted on \"" + image + "\"");
  ExpectOutsideUntouched();
}

TEST_P(PlaceTest, ASnapshotOfALunWithoutItsBytesIsNotUsed) {
  // As an earlier version took them.
  const Target lun("lun", VrelDR::kTargetLun);
  ASSERT_TRUE(Create(lun, {4096, {}}).IsOk());
  const fs::path snapshot = A().engine->GetSnapshotPath(lun, "1");
  fs::create_directories(snapshot.parent_path());
  fs::create_symlink("/elsewhere", snapshot);
  ExpectStatus(A().engine->RestoreSnapshot(lun, "1"), VrelDR::kErrUnsupported, "/elsewhere");
  ExpectStatus(A().engine->CloneSnapshot(lun, "1", Target("c", VrelDR::kTargetLun)),
               VrelDR::kErrUnsupported, "/elsewhere");
  TestWatcher watcher;
  ExpectStatus(A().engine->Ship(lun, "1", "", *B().engine, B().target, watcher),
               VrelDR::kErrUnsupported, "/elsewhere");
}

}  // namespace
}  // namespace host_test
