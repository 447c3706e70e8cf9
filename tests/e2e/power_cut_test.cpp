// What has been acknowledged about groups outlives a power cut, and what was interrupted by one is
// finished by the same command. The disk with the state directory and the links is an image on a
// file system that shares blocks: a clone of the image is what a cut leaves of the disk.
#include <sys/mount.h>

#include <filesystem>

#include "file_systems_fixture.h"

namespace e2e {
namespace {

namespace fs = std::filesystem;

using host_test::RunProgram;

class PowerCutTest : public ToolTest, public testing::WithParamInterface<std::string> {
 public:
  static std::string NameOf(const testing::TestParamInfo<std::string>& parameter) {
    return parameter.param;
  }

 protected:
  void SetUp() override {
    ToolTest::SetUp();
    for (const std::string& dir : {Store(), State(), kEtc}) fs::create_directories(dir);
    fs::remove_all(kEtc + "/drgroup");
    host_test::WriteFile(Store() + ".img", "");
    fs::resize_file(Store() + ".img", 1ULL << 30);
    if (RunProgram({"/sbin/mkfs.xfs", "-q", Store() + ".img"}) != 0 ||
        RunProgram({"mount", "-o", "loop", Store() + ".img", Store()}) != 0) {
      GTEST_SKIP() << "cannot mount a loop image; this needs root and xfsprogs";
    }
    host_test::WriteFile(Disk(), "");
    fs::resize_file(Disk(), GetParam() == "xfs" ? 320 << 20 : 160 << 20);
    ASSERT_EQ(RunProgram({"/sbin/mkfs." + GetParam(), "-q", Disk()}), 0);
    ASSERT_TRUE(MountDisk());
    RunWell({"target", "create", "a", "--volume", "v1", "--type", "share"});
    // What is not looked at here is on disk; the name of the link root's directory is not.
    ASSERT_EQ(RunProgram({"sync", "-f", State()}), 0);
  }

  void TearDown() override {
    UnmountDisk();
    umount2(Store().c_str(), MNT_DETACH);
    ToolTest::TearDown();
  }

  // The power goes now, and comes back. What a clean end writes to the old disk is not in the
  // clone.
  void Cut() {
    const std::string clone = Disk() + ".cut";
    ASSERT_EQ(RunProgram({"cp", "--reflink=always", Disk(), clone}), 0);
    UnmountDisk();
    fs::rename(clone, Disk());
    ASSERT_TRUE(MountDisk());
  }

  static std::set<std::string> Groups() {
    std::set<std::string> groups;
    const Json::Value document = Run({"group", "list", "--json"}).Json();
    for (const Json::Value& each : document["groups"]) groups.insert(each["group_id"].asString());
    return groups;
  }

 private:
  std::string Store() const { return Root() + "/store"; }
  std::string State() const { return Root() + "/state"; }
  std::string Disk() const { return Store() + "/disk.img"; }

  bool MountDisk() const {
    if (RunProgram({"mount", "-o", "loop", Disk(), State()}) != 0) return false;
    std::error_code error;
    fs::create_directory(State() + "/etc", error);
    return mount((State() + "/etc").c_str(), kEtc.c_str(), nullptr, MS_BIND, nullptr) == 0;
  }

  void UnmountDisk() const {
    umount(kEtc.c_str());
    umount(State().c_str());
    // Two disks of one identity must not be known at once.
    if (GetParam() == "btrfs") RunProgram({"btrfs", "device", "scan", "--forget"});
  }

  const std::string kEtc = "/var/packages/Guestora/etc";
};

TEST_P(PowerCutTest, GroupsAreMadeRenamedAndDeletedForGood) {
  for (int round = 0; round < 2; ++round) {
    RunWell({"group", "create", "g", "--target", "a"});
    Cut();
    RunWell({"group", "show", "g"});
    EXPECT_TRUE(ListSnapshots().empty());
    const std::string id = TakeSnapshot();
    Cut();
    EXPECT_THAT(ListSnapshots(), testing::ElementsAre(id));

    RunWell({"group", "rename", "g", "shop"});
    Cut();
    EXPECT_EQ(Groups(), std::set<std::string>{"shop"});
    RunWell({"group", "show", "shop"});
    EXPECT_EQ(ListSnapshots("shop").size(), 1U);

    RunWell({"group", "delete", "shop", "--yes", "--force"});
    Cut();
    EXPECT_TRUE(Groups().empty());
    EXPECT_FALSE(fs::exists(DatabaseOf("g")));
  }
}

TEST_P(PowerCutTest, TheGroupOfTheCopiesIsThereForGood) {
  RunWell({"group", "create", "g", "--target", "a"});
  RunWell({"protect", "g", "--volume", "v2", "--dr-group", "copies"});
  Cut();
  EXPECT_EQ(Groups(), (std::set<std::string>{"copies", "g"}));
  RunWell({"group", "show", "copies"});
  RunWell({"status", "g"});
}

TEST_P(PowerCutTest, ACreationThatWasCutIsFinishedByTheSameCommand) {
  for (const char* step : {"create.reserved", "create.defined", "create.linked"}) {
    for (const bool isCut : {false, true}) {
      SCOPED_TRACE(step);
      ExpectKilledAt(step, {"group", "create", "g", "--target", "a"});
      if (isCut) Cut();
      // A run that was killed after the link was made may have been done, or not.
      if (!fs::exists(fs::symlink_status(LinkDirectory("g") + "/drgroup.db"))) {
        RunWell({"group", "create", "g", "--target", "a"});
        Cut();
      }
      RunWell({"group", "show", "g"});
      EXPECT_TRUE(ListSnapshots().empty());
      RunWell({"group", "delete", "g", "--yes"});
    }
  }
}

TEST_P(PowerCutTest, ADeletionThatWasCutIsFinishedByTheSameCommand) {
  for (const char* step : {"delete.begun", "delete.cleared", "delete.unlinked"}) {
    SCOPED_TRACE(step);
    RunWell({"group", "create", "g", "--target", "a"});
    TakeSnapshot();
    ExpectKilledAt(step, {"group", "delete", "g", "--yes", "--force"});
    Cut();
    if (step != std::string("delete.unlinked")) {
      EXPECT_EQ(Groups(), std::set<std::string>{"g"});
      RunBadly(kCatalogue, {"group", "show", "g"}, {"\"g\"", "drgroupctl group delete g"});
      RunWell({"group", "delete", "g", "--yes"});
      Cut();
    }
    EXPECT_TRUE(Groups().empty());
    EXPECT_FALSE(fs::exists(DatabaseOf("g")));
  }
}

// What the second run finds done, and says so, is done for good, though it was the first one that
// did it and was killed before it could bring it to disk.
TEST_P(PowerCutTest, WhatASecondRunFindsDoneIsOnDisk) {
  RunWell({"group", "create", "g", "--target", "a"});
  ExpectKilledAt("rename.linked", {"group", "rename", "g", "shop"});
  RunBadly(kNotFound, {"group", "rename", "g", "shop"}, {"\"g\""});
  Cut();
  EXPECT_EQ(Groups(), std::set<std::string>{"shop"});
  RunWell({"group", "show", "shop"});

  ExpectKilledAt("delete.unlinked", {"group", "delete", "shop", "--yes"});
  RunBadly(kNotFound, {"group", "delete", "shop", "--yes"}, {"\"shop\""});
  Cut();
  EXPECT_TRUE(Groups().empty());

  ExpectKilledAt("create.linked", {"group", "create", "g", "--target", "a"});
  RunBadly(kRefused, {"group", "create", "g", "--target", "a"}, {"\"g\"", "exists already"});
  Cut();
  EXPECT_EQ(Groups(), std::set<std::string>{"g"});
  RunWell({"group", "show", "g"});
}

INSTANTIATE_TEST_SUITE_P(FileSystems, PowerCutTest, testing::Values("ext4", "xfs", "btrfs"),
                         PowerCutTest::NameOf);

}  // namespace
}  // namespace e2e
