#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "base/kill_point.h"
#include "engine/cut.h"
#include "engine_fixture.h"
#include "tree.h"

// The power goes between the steps of a shipment: what is then on the replica's disk is what
// counts.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::Not;
using VrelDR::Status;

constexpr std::size_t kMiB = 1 << 20;
constexpr int kKilled = 128 + SIGKILL;

// The images of both volumes are on a file system that can share blocks.
class PowerCutTest : public EngineTest {
 protected:
  void TearDown() override {
    EngineTest::TearDown();
    A().image.reset();
    B().image.reset();
  }

  std::string MakeRoot() override {
    std::string root = EngineTest::MakeRoot() + "/disks";
    fs::create_directory(root);
    std::string why;
    below_ = std::make_unique<MountedImage>("xfs", root, why);
    if (!below_->IsMounted()) [&] { GTEST_SKIP() << why; }();
    return root;
  }

  int ShipUntil(std::string_view step, const std::string& id, const std::string& base) {
    return RunInChild({{"VRELDR_KILL_POINT", std::string(step)}}, [&] {
      TestWatcher watcher;
      return TryShip(A(), id, base, B(), watcher).IsOk() ? 0 : 1;
    });
  }

  fs::path Incoming() { return B().path + "/.vreldr/incoming/replica"; }

 private:
  std::unique_ptr<MountedImage> below_;
};

INSTANTIATE_TEST_SUITE_P(FileSystems, PowerCutTest,
                         testing::Values("ext4-ext4", "xfs-xfs", "btrfs-btrfs", "ext4-btrfs",
                                         "btrfs-ext4"),
                         EngineTest::NameOf);

// Damages on the disk, not in memory, what the system has just written there.
class LostWriteTest : public PowerCutTest {
 protected:
  // Overwrites all places of the replica's image that hold these bytes.
  void Lose(const std::string& bytes) {
    std::fstream image(B().image->GetImage(), std::ios::in | std::ios::out | std::ios::binary);
    std::string all(fs::file_size(B().image->GetImage()), '\0');
    image.read(all.data(), static_cast<std::streamsize>(all.size()));
    int found = 0;
    for (std::size_t at = 0; (at = all.find(bytes, at)) != std::string::npos; ++found) {
      image.clear();
      image.seekp(static_cast<std::streamoff>(at));
      image << std::string(bytes.size(), '\0');
      at += bytes.size();
    }
    EXPECT_GE(found, 1);
  }
};

// btrfs would tell by its checksums.
INSTANTIATE_TEST_SUITE_P(FileSystems, LostWriteTest, testing::Values("ext4-ext4", "xfs-xfs"),
                         EngineTest::NameOf);

TEST_P(PowerCutTest, ASnapshotOfACutIsWholeOnDiskOnceSettledAndAmongTheOthersOnceTakenUp) {
  VrelDR::Watcher watcher;
  const auto cutA = [&](const std::string& id) {
    WriteFile(A().TargetPath() + "/big", RandomBytes(4 * kMiB));  // which nobody brings to disk
    std::unique_ptr<VrelDR::EngineCut> cut;
    VrelDR::CutOutcome outcome;
    Status status = A().engine->PrepareCut({{A().engine.get(), A().place, id}}, watcher, cut);
    if (status.IsOk()) status = cut->Take(watcher, outcome);
    if (status.IsOk()) status = cut->Settle(watcher);
    return status;
  };
  ASSERT_TRUE(cutA("s1").IsOk());
  auto bytes = DescribeTree(A().TargetPath());
  ASSERT_TRUE(A().image->MountAgain(true));
  EXPECT_THAT(A().Snapshots(), Not(Contains("s1")));
  ASSERT_TRUE(A().engine->TakeUp(A().place, "s1", watcher).IsOk());
  ExpectTree(A().SnapshotPath("s1"), bytes);
  ASSERT_TRUE(A().image->MountAgain(true));
  EXPECT_THAT(A().Snapshots(), Contains("s1"));
  ExpectTree(A().SnapshotPath("s1"), bytes);

  ASSERT_TRUE(cutA("s2").IsOk());
  bytes = DescribeTree(A().TargetPath());
  ASSERT_TRUE(A().engine->TakeUp(A().place, "s2", watcher).IsOk());
  ASSERT_TRUE(A().image->MountAgain(true));
  EXPECT_THAT(A().Snapshots(), Contains("s2"));
  ExpectTree(A().SnapshotPath("s2"), bytes);

  ASSERT_TRUE(cutA("s3").IsOk());
  ASSERT_TRUE(A().RemoveSnapshot("s3").IsOk());
  ASSERT_TRUE(A().CleanUp().IsOk());
  ASSERT_TRUE(A().image->MountAgain(true));
  EXPECT_FALSE(A().engine->TakeUp(A().place, "s3", watcher).IsOk());
}

TEST_P(PowerCutTest, AShipmentIsWholeOnDiskWhereverItIsCalledWhole) {
  WriteFile(A().TargetPath() + "/big", RandomBytes(4 * kMiB));
  Take(A(), "base");
  Ship(A(), "base", "", B());
  int changes = 0;
  for (const std::string_view step :
       {VrelDR::kShipBegun, VrelDR::kShipData, VrelDR::kShipPiece, VrelDR::kShipSent,
        VrelDR::kShipSynced, VrelDR::kShipMarked, VrelDR::kShipFrozen, VrelDR::kShipRenamed,
        VrelDR::kShipDone}) {
    if (step == VrelDR::kShipFrozen && B().type == "btrfs") continue;
    for (const std::string base : {"", "base"}) {
      if (step == VrelDR::kShipPiece && (base.empty() || AreBothBtrfs())) {
        continue;
      }
      SCOPED_TRACE(std::string(step) + (base.empty() ? "" : " on a base"));
      const std::string id = "s" + std::to_string(++changes);
      WriteFile(A().TargetPath() + "/new", RandomBytes(kMiB));
      Overwrite(A().TargetPath() + "/big", 10'000, RandomBytes(10'000));
      Take(A(), id);
      ASSERT_EQ(ShipUntil(step, id, base), kKilled);
      ASSERT_TRUE(B().image->MountAgain(true));
      if (B().Snapshots().count(id) != 0) ExpectSame(A(), B(), id);
      Ship(A(), id, base, B());
      ASSERT_TRUE(B().image->MountAgain(true));
      ExpectSame(A(), B(), id);
      // A cut may bring back the directory itself.
      EXPECT_TRUE(!fs::exists(Incoming()) || fs::is_empty(Incoming()));
      ASSERT_TRUE(A().RemoveSnapshot(id).IsOk());
      ASSERT_TRUE(B().RemoveSnapshot(id).IsOk());
      ASSERT_TRUE(B().image->MountAgain(true));
      EXPECT_THAT(B().Snapshots(), Not(Contains(id)));
    }
  }
  ExpectSame(A(), B(), "base");
}

TEST_P(PowerCutTest, WhatIsSaidToBeWholeIsNotSentAgainAndWhatWasIsNotTakenForIt) {
  WriteFile(A().TargetPath() + "/big", RandomBytes(kMiB));
  Take(A(), "s1");
  ASSERT_EQ(ShipUntil(VrelDR::kShipMarked, "s1", ""), kKilled);
  EXPECT_TRUE(fs::exists(Incoming() / ".whole.s1"));
  ASSERT_TRUE(B().image->MountAgain(true));
  // No program is needed any more.
  for (const char* program : {"rsync", "btrfs"}) UseProgram(program, "exit 1\n");
  TestWatcher watcher;
  const Status status = TryShip(A(), "s1", "", B(), watcher);
  FullSpeed();
  EXPECT_TRUE(status.IsOk()) << status.message;
  EXPECT_EQ(watcher.GetSent(), 0U);
  ExpectSame(A(), B(), "s1");

  // The mark of one that is gone says nothing of the next one of that name.
  ASSERT_TRUE(B().RemoveSnapshot("s1").IsOk());
  fs::create_directories(Incoming());
  WriteFile((Incoming() / ".whole.s1").string(), "");
  ASSERT_EQ(ShipUntil(VrelDR::kShipData, "s1", ""), kKilled);
  EXPECT_FALSE(fs::exists(Incoming() / ".whole.s1"));
  Ship(A(), "s1", "", B());
  ExpectSame(A(), B(), "s1");
  ExpectNothingIncoming(B());
}

TEST_P(PowerCutTest, ADroppedShipmentIsNotSaidToBeWholeAnyMore) {
  WriteFile(A().TargetPath() + "/big", RandomBytes(kMiB));
  for (const std::string id : {"s1", "s2"}) {
    Take(A(), id);
    ASSERT_EQ(ShipUntil(VrelDR::kShipMarked, id, ""), kKilled);
  }
  ASSERT_TRUE(B().Drop("s1").IsOk());
  ASSERT_TRUE(B().image->MountAgain(true));
  EXPECT_TRUE(fs::exists(Incoming() / ".whole.s1"));
  EXPECT_TRUE(fs::exists(Incoming() / "s1"));
  EXPECT_FALSE(fs::exists(Incoming() / ".whole.s2"));
  EXPECT_FALSE(fs::exists(Incoming() / "s2"));
  ASSERT_TRUE(B().Drop("").IsOk());
  ASSERT_TRUE(B().image->MountAgain(true));
  EXPECT_TRUE(fs::is_empty(Incoming()));
}

TEST_P(LostWriteTest, WhatAnInterruptedShipmentWroteIsComparedOnTheDiskAndNotInMemory) {
  const std::string lost = RandomBytes(4096);
  WriteFile(A().TargetPath() + "/big", RandomBytes(kMiB) + lost + RandomBytes(kMiB));
  Take(A(), "s1");
  ASSERT_EQ(ShipUntil(VrelDR::kShipSent, "s1", ""), kKilled);
  sync();
  Lose(lost);
  Ship(A(), "s1", "", B());
  ASSERT_TRUE(B().image->MountAgain(false));
  ExpectSame(A(), B(), "s1");
}

}  // namespace
}  // namespace host_test
