#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "base/kill_point.h"
#include "digest_fixture.h"

// Shipments that digests help: what changed is found by those that the source keeps, and nothing
// arrives that does not agree with them.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using VrelDR::Status;

constexpr std::size_t kMiB = 1 << 20;

class DigestShipTest : public KeptDigestsTest {
 protected:
  // Both have "s1", and the source "s2": of 8 MiB some bytes at 1 MiB and at 5 MiB are others.
  void MakeChanged() {
    WriteFile(A().TargetPath() + "/disk", RandomBytes(8 * kMiB));
    Take(A(), "s1");
    Ship(A(), "s1", "", B());
    Overwrite(A().TargetPath() + "/disk", kMiB, "changed");
    Overwrite(A().TargetPath() + "/disk", 5 * kMiB, "changed, too");
    WriteFile(A().TargetPath() + "/new", "new");
    Take(A(), "s2");
  }

  // Writes over a file of a snapshot as root can.
  static void Spoil(const std::string& path, std::size_t at) {
    ASSERT_EQ(RunProgram({"chattr", "-i", path}), 0);
    Overwrite(path, at, "spoilt");
    ASSERT_EQ(RunProgram({"chattr", "+i", path}), 0);
  }
  Status TryShipChanges() {
    TestWatcher watcher;
    return TryShip(A(), "s2", "s1", B(), watcher);
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, DigestShipTest,
                         testing::Values("ext4-ext4", "ext4-xfs", "xfs-ext4", "ext4-btrfs",
                                         "btrfs-ext4"),
                         EngineTest::NameOf);

TEST_P(DigestShipTest, WhatArrivesByChangesHasTheDigestsOfItsFiles) {
  MakeChanged();
  EXPECT_LE(Ship(A(), "s2", "s1", B()), 3 * kMiB / 2);
  ExpectSame(A(), B(), "s2");
  EXPECT_EQ(HasDigests(B(), "s2"), Keeps(B()));
  if (Keeps(B())) ExpectRight(B(), "s2");
  // Programs move what comes first.
  EXPECT_FALSE(HasDigests(B(), "s1"));
  ExpectNothingIncoming(B());
}

TEST_P(DigestShipTest, TheyServeInTheOtherDirection) {
  MakeChanged();
  Ship(A(), "s2", "s1", B());
  ExpectGood(B().Promote("s2"));
  Overwrite(B().TargetPath() + "/disk", 3 * kMiB, "there");
  Take(B(), "s3");
  EXPECT_LE(Ship(B(), "s3", "s2", A()), kMiB);
  ExpectSame(A(), B(), "s3");
  EXPECT_EQ(HasDigests(A(), "s3"), Keeps(A()));
  if (Keeps(A())) ExpectRight(A(), "s3");
}

TEST_P(DigestShipTest, OneThatIsKilledHasTheRightOnesOrNoneAndNoneAreLeftOfOneThatIsDropped) {
  MakeChanged();
  for (const std::string_view step : {VrelDR::kCopyFile, VrelDR::kShipSent, VrelDR::kShipMarked,
                                      VrelDR::kShipDigestsPlaced, VrelDR::kShipRenamed}) {
    for (const bool isDropped : {true, false}) {
      SCOPED_TRACE(std::string(step) + (isDropped ? ", dropped" : ", gone on with"));
      if (!IsKilledAt(step, [&] { return TryShipChanges(); })) {
        EXPECT_EQ(B().type, "btrfs");  // there is no such step
      } else if (isDropped) {
        ExpectGood(B().Drop(""));
        if (B().Snapshots().count("s2") == 0) {
          EXPECT_THAT(DigestsOn(B()), IsEmpty());
        }
      }
      ExpectGood(TryShipChanges());
      ExpectSame(A(), B(), "s2");
      EXPECT_EQ(HasDigests(B(), "s2"), Keeps(B()));
      if (Keeps(B())) ExpectRight(B(), "s2");
      ExpectGood(B().RemoveSnapshot("s2"));
      EXPECT_THAT(DigestsOn(B()), IsEmpty());
    }
  }
}

// Where the source keeps digests.
class DigestSourceTest : public DigestShipTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, DigestSourceTest,
                         testing::Values("ext4-ext4", "ext4-xfs", "ext4-btrfs"),
                         EngineTest::NameOf);

TEST_P(DigestSourceTest, WhatWasTakenArrivesAlthoughSomebodyHasChangedWhatIsNotSent) {
  MakeChanged();
  const auto taken = BytesOf(A(), "s2");
  Spoil(A().SnapshotPath("s2") + "/disk", 3 * kMiB);
  ExpectGood(TryShipChanges());
  const std::string arrived = B().SnapshotPath("s2") + "/disk";
  EXPECT_EQ(ReadFile(arrived), ReadFile(A().TargetPath() + "/disk"));
}

TEST_P(DigestSourceTest, WhatSomebodyHasChangedIsNotSent) {
  MakeChanged();
  Spoil(A().SnapshotPath("s2") + "/disk", 5 * kMiB + 100);
  for (int i = 0; i < 2; ++i) {
    const Status status = TryShipChanges();
    EXPECT_EQ(status.code, VrelDR::kErrIo);
    EXPECT_THAT(status.message, HasSubstr(A().SnapshotPath("s2") + "/disk"));
    EXPECT_THAT(status.message, HasSubstr("byte " + std::to_string(5 * kMiB) + " on"));
    EXPECT_THAT(B().Snapshots(), Not(Contains("s2")));
  }
  Take(A(), "s3");
  Ship(A(), "s3", "s1", B());
  ExpectSame(A(), B(), "s3");
}

TEST_P(DigestSourceTest, OnesThatAreTornAreNotBelievedAndTheBytesComeAllTheSame) {
  for (const char* id : {"s1", "s2"}) {
    SCOPED_TRACE(id);
    MakeChanged();
    fs::resize_file(AreaOf(A()) + "/" + id, fs::file_size(AreaOf(A()) + "/" + id) - 1);
    ExpectGood(TryShipChanges());
    ExpectSame(A(), B(), "s2");
    EXPECT_FALSE(HasDigests(B(), "s2"));
    for (const char* each : {"s1", "s2"}) {
      ExpectGood(A().RemoveSnapshot(each));
      ExpectGood(B().RemoveSnapshot(each));
    }
  }
}

// Where both ends have digests.
class DigestPairTest : public DigestShipTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, DigestPairTest, testing::Values("ext4-ext4"),
                         EngineTest::NameOf);

TEST_P(DigestPairTest, WhatArrivesOnABaseThatIsNotWhatItWasIsNotTakenAndComesAnewWithTheNext) {
  MakeChanged();
  Spoil(B().SnapshotPath("s1") + "/disk", 3 * kMiB + 5);
  const Status status = TryShipChanges();
  EXPECT_EQ(status.code, VrelDR::kErrIo);
  for (const std::string& part : {std::string("\"replica\""), std::string("\"disk\""),
                                  "byte " + std::to_string(3 * kMiB) + " on"}) {
    EXPECT_THAT(status.message, HasSubstr(part));
  }
  EXPECT_THAT(B().Snapshots(), Not(Contains("s2")));
  EXPECT_FALSE(fs::exists(B().path + "/.vreldr/incoming/replica/s2/disk"));
  EXPECT_GE(Ship(A(), "s2", "s1", B()), 8 * kMiB);
  ExpectSame(A(), B(), "s2");
  ExpectNothingIncoming(B());
}

}  // namespace
}  // namespace host_test
