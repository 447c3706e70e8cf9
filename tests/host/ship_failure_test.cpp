#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <set>

#include "base/fail_point.h"
#include "base/kill_point.h"
#include "children.h"
#include "engine_fixture.h"
#include "tree.h"

// Shipments that are killed at every step, fail, or find their volume full or gone.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::Not;
using VrelDR::Status;

constexpr std::size_t kMiB = 1 << 20;
constexpr int kKilled = 128 + SIGKILL;

class ShipFailureTest : public EngineTest {
 protected:
  bool IsReached(std::string_view step, const std::string& base) {
    // Between volumes on btrfs nothing is told by changes.
    if (step == VrelDR::kShipPiece || step == VrelDR::kCopyFile) {
      return !AreBothBtrfs() && !base.empty();
    }
    return step != VrelDR::kShipFrozen || B().type != "btrfs";
  }

  std::set<std::string> NamesOnTheWay() const {
    std::set<std::string> names;
    std::error_code none;
    for (const auto& each : fs::directory_iterator(B().path + "/.vreldr/incoming/replica", none)) {
      names.insert(each.path().filename());
    }
    return names;
  }

  int ShipInChild(const std::string& variable, std::string_view step, const std::string& id,
                  const std::string& base) {
    return RunInChild({{variable, std::string(step)}}, [&] {
      TestWatcher watcher;
      return TryShip(A(), id, base, B(), watcher).code == 0 ? 0 : 1;
    });
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, ShipFailureTest,
                         testing::Values("tmpfs-tmpfs", "ext4-ext4", "xfs-xfs", "btrfs-btrfs",
                                         "btrfs-ext4", "ext4-btrfs", "btrfs-xfs", "xfs-ext4"),
                         EngineTest::NameOf);

class ShipWithRsyncTest : public ShipFailureTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, ShipWithRsyncTest, testing::Values("tmpfs-tmpfs"),
                         EngineTest::NameOf);

// On volumes that can be filled and unmounted.
class ShipToImageTest : public ShipFailureTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, ShipToImageTest,
                         testing::Values("ext4-ext4", "xfs-xfs", "btrfs-btrfs", "btrfs-ext4",
                                         "ext4-btrfs"),
                         EngineTest::NameOf);

TEST_P(ShipFailureTest, AKilledShipmentIsThereAsAWholeOrNotAtAllAndGoesOn) {
  MakeOddTree(A().TargetPath());
  WriteFile(A().TargetPath() + "/big", RandomBytes(kMiB));
  Take(A(), "base");
  Ship(A(), "base", "", B());
  int changes = 0;
  for (const std::string_view step :
       {VrelDR::kShipBegun, VrelDR::kCopyFile, VrelDR::kShipData, VrelDR::kShipPiece,
        VrelDR::kShipSent, VrelDR::kShipSynced, VrelDR::kShipMarked, VrelDR::kShipFrozen,
        VrelDR::kShipRenamed, VrelDR::kShipDone}) {
    for (const std::string base : {"", "base"}) {
      if (!IsReached(step, base)) continue;
      SCOPED_TRACE(std::string(step) + (base.empty() ? "" : " on a base"));
      const std::string id = "s" + std::to_string(++changes);
      WriteFile(A().TargetPath() + "/new", id);
      Overwrite(A().TargetPath() + "/big", 10'000, RandomBytes(10'000));
      Take(A(), id);
      ASSERT_EQ(ShipInChild("VRELDR_KILL_POINT", step, id, base), kKilled);
      // Nothing of it is where those clean up who change the replica meanwhile.
      const auto onItsWay = NamesOnTheWay();
      EXPECT_FALSE(fs::exists(B().path + "/.vreldr/tmp/replica"));
      EXPECT_TRUE(B().CleanUp().IsOk());
      // What had been started may still have come to something after the look.
      for (const std::string& each : onItsWay) EXPECT_EQ(NamesOnTheWay().count(each), 1U) << each;
      if (B().Snapshots().count(id) != 0) {
        EXPECT_TRUE(step == VrelDR::kShipRenamed || step == VrelDR::kShipDone);
        ExpectSame(A(), B(), id);
      }
      Ship(A(), id, base, B());
      ExpectSame(A(), B(), id);
      ExpectNothingIncoming(B());
      ASSERT_TRUE(A().RemoveSnapshot(id).IsOk());
      ASSERT_TRUE(B().RemoveSnapshot(id).IsOk());
    }
  }
  ExpectSame(A(), B(), "base");
}

TEST_P(ShipFailureTest, NoProcessOfAKilledShipmentWritesOn) {
  WriteFile(A().TargetPath() + "/big", RandomBytes(8 * kMiB));
  Take(A(), "s1");
  if (!AreBothBtrfs()) SlowDown();
  ASSERT_EQ(ShipInChild("VRELDR_KILL_POINT", VrelDR::kShipData, "s1", ""), kKilled);
  FullSpeed();
  // The next one waits for the lock that they hold.
  Ship(A(), "s1", "", B());
  ExpectSame(A(), B(), "s1");
}

TEST_P(ShipFailureTest, AShipmentWorksWhoeverIgnoresOrReapsTheChildrenOfTheProcess) {
  MakeOddTree(A().TargetPath());
  for (const Children children : kAllChildren) {
    const std::string id = "s" + std::to_string(static_cast<int>(children));
    SCOPED_TRACE(id);
    Take(A(), id);
    EXPECT_EQ(RunInChild({},
                         [&] {
                           const HowChildrenEnd how(children);
                           TestWatcher watcher;
                           return TryShip(A(), id, "", B(), watcher).IsOk() ? 0 : 1;
                         }),
              0);
    ExpectSame(A(), B(), id);
  }
  UseProgram("rsync", "echo 'it cannot be' >&2; exit 3\n");
  UseProgram("btrfs", "echo 'it cannot be' >&2; exit 3\n");
  Take(A(), "last");
  EXPECT_EQ(RunInChild({},
                       [&] {
                         const HowChildrenEnd how(Children::kReaped);
                         TestWatcher watcher;
                         const Status status = TryShip(A(), "last", "", B(), watcher);
                         return status.message.find("it cannot be") == std::string::npos ? 1 : 0;
                       }),
            0);
}

TEST_P(ShipFailureTest, AFailureInTheMiddleLeavesWhatHasArrivedForTheNextCall) {
  MakeOddTree(A().TargetPath());
  std::string base;
  for (const std::string id : {"s1", "s2"}) {
    Take(A(), id);
    setenv("VRELDR_FAIL_POINT", "ship.middle@other,ship.middle@replica", 1);
    TestWatcher watcher;
    ExpectStatus(TryShip(A(), id, base, B(), watcher), VrelDR::kErrIo,
                 "failure at ship.middle of target \"replica\" asked for");
    unsetenv("VRELDR_FAIL_POINT");
    EXPECT_THAT(B().Snapshots(), Not(Contains(id)));
    Ship(A(), id, base, B());
    ExpectSame(A(), B(), id);
    ExpectNothingIncoming(B());
    if (base.empty()) ChangeOddTree(A().TargetPath());
    base = id;
  }
}

TEST_P(ShipFailureTest, EachCallFailsForTheTargetThatIsNamed) {
  const auto expectFailure = [](std::string_view step, const std::string& id, const auto& call) {
    const std::string point = std::string(step) + "@" + id;
    setenv("VRELDR_FAIL_POINT", point.c_str(), 1);
    ExpectStatus(call(), VrelDR::kErrIo, "failure at " + std::string(step));
    setenv("VRELDR_FAIL_POINT", (std::string(step) + "@another").c_str(), 1);
    const Status status = call();
    EXPECT_TRUE(status.IsOk()) << status.message;
    unsetenv("VRELDR_FAIL_POINT");
  };
  const auto& a = A();
  const auto& b = B();
  expectFailure(VrelDR::kFailTake, "source", [&] { return a.TakeSnapshot("s1"); });
  expectFailure(VrelDR::kFailShip, "replica", [&] {
    TestWatcher watcher;
    return TryShip(a, "s1", "", b, watcher);
  });
  expectFailure(VrelDR::kFailQuiesce, "replica", [&] { return b.Demote(); });
  expectFailure(VrelDR::kFailPromote, "replica", [&] { return b.Promote("s1"); });
  expectFailure(VrelDR::kFailRemove, "replica", [&] { return b.Remove(); });
  expectFailure(VrelDR::kFailCreate, "replica", [&] { return b.Create({}); });
}

TEST_P(ShipWithRsyncTest, AProgramThatComplainsAndIsStuckIsEnded) {
  Take(A(), "s1");
  UseProgram("rsync",
             "echo 'rsync: [receiver] open \"x\" failed: Operation not permitted (1)' >&2\n"
             "sleep 1000\n");
  TestWatcher watcher;
  ExpectStatus(TryShip(A(), "s1", "", B(), watcher), VrelDR::kErrIo,
               "rsync failed: rsync: [receiver] open \"x\" failed");
  FullSpeed();
  Ship(A(), "s1", "", B());
}

TEST_P(ShipWithRsyncTest, WhatWentToAnotherVolumeThatTookThePlaceHasNotArrived) {
  Take(A(), "s0");
  Ship(A(), "s0", "", B());
  WriteFile(A().TargetPath() + "/new", "new");
  Take(A(), "s1");
  // Without them the program is asked for.
  fs::remove_all(A().path + "/.vreldr/digests");
  // All of the volume is there too, and what has arrived so far.
  const std::string other = B().path + ".other";
  UseProgram("rsync", "cp -a '" + B().path + "' '" + other + "' && mount --bind '" + other + "' '" +
                          B().path + "' && exec /usr/bin/rsync \"$@\"\n");
  TestWatcher watcher;
  const Status status = TryShip(A(), "s1", "s0", B(), watcher);
  ASSERT_EQ(umount2(B().path.c_str(), MNT_DETACH), 0) << "the other volume was not mounted";
  ExpectStatus(status, VrelDR::kErrVolumeMissing, "is not what it was when the call began");
  EXPECT_THAT(B().Snapshots(), Not(Contains("s1")));
  FullSpeed();
  Ship(A(), "s1", "s0", B());
  ExpectSame(A(), B(), "s1");
}

TEST_P(ShipFailureTest, WhatIsMissingIsNamed) {
  TestWatcher watcher;
  ExpectStatus(TryShip(A(), "none", "", B(), watcher), VrelDR::kErrSnapshotMissing,
               A().path + "/.vreldr/snapshots/source/none");
  Take(A(), "s1");
  B().image.reset();
  fs::rename(B().path, B().path + " elsewhere");
  ExpectStatus(TryShip(A(), "s1", "", B(), watcher), VrelDR::kErrVolumeMissing, B().path);
}

TEST_P(ShipToImageTest, AVolumeThatIsNotMountedIsMissing) {
  Take(A(), "s1");
  B().image.reset();
  TestWatcher watcher;
  ExpectStatus(TryShip(A(), "s1", "", B(), watcher), VrelDR::kErrVolumeMissing, "mount it");
}

TEST_P(ShipToImageTest, AFullVolumeIsSaidSoAndTheShipmentGoesOnOnceThereIsRoom) {
  WriteFile(A().TargetPath() + "/small", "x");
  Take(A(), "s1");
  Ship(A(), "s1", "", B());
  WriteFile(A().TargetPath() + "/big", RandomBytes(12 * kMiB));
  Take(A(), "s2");
  // All but a few megabytes.
  const std::string filler = B().path + "/filler";
  const fs::space_info room = fs::space(B().path);
  const int fd = open(filler.c_str(), O_WRONLY | O_CREAT, 0600);
  off_t size = static_cast<off_t>(room.available) - static_cast<off_t>(4 * kMiB);
  while (size > 0 && posix_fallocate(fd, 0, size) != 0) size -= static_cast<off_t>(kMiB);
  close(fd);
  sync();
  ASSERT_LT(fs::space(B().path).available, 11 * kMiB);
  TestWatcher watcher;
  ExpectStatus(TryShip(A(), "s2", "s1", B(), watcher), VrelDR::kErrNoSpace,
               B().path + "\": no space left on device; free space and run it again");
  EXPECT_THAT(B().Snapshots(), Not(Contains("s2")));
  ExpectSame(A(), B(), "s1");
  fs::remove(filler);
  sync();
  Ship(A(), "s2", "s1", B());
  ExpectSame(A(), B(), "s2");
  ExpectNothingIncoming(B());
}

TEST_P(ShipToImageTest, AProgramThatIsNotInstalledIsNamedWithItsPackage) {
  Take(A(), "s1");
  // Nobody can run what is no program; the mount is seen by this test program alone.
  const char* program = AreBothBtrfs() ? "/usr/bin/btrfs" : "/usr/bin/rsync";
  ASSERT_EQ(mount("/dev/null", program, nullptr, MS_BIND, nullptr), 0);
  TestWatcher watcher;
  ExpectStatus(
      TryShip(A(), "s1", "", B(), watcher), VrelDR::kErrUnsupported,
      AreBothBtrfs() ? "install the package \"btrfs-progs\"" : "install the package \"rsync\"");
  ASSERT_EQ(umount2(program, MNT_DETACH), 0);
  Ship(A(), "s1", "", B());
}

// On btrfs a snapshot takes no time.
class StoppedSnapshotTest : public EngineTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, StoppedSnapshotTest,
                         testing::Values("tmpfs-tmpfs", "ext4-tmpfs", "xfs-tmpfs"),
                         EngineTest::NameOf);

TEST_P(StoppedSnapshotTest, ASnapshotThatIsBeingTakenCanBeStopped) {
  WriteFile(A().TargetPath() + "/big", RandomBytes(kMiB));
  TestWatcher watcher;
  watcher.StopAfter(0);
  ExpectStatus(A().engine->TakeSnapshot(A().place, "s1", watcher), VrelDR::kErrStopped, "stopped");
  EXPECT_THAT(A().Snapshots(), testing::IsEmpty());
  EXPECT_TRUE(A().CleanUp().IsOk());
  ExpectNothingIncoming(A());
  Take(A(), "s1");
}

}  // namespace
}  // namespace host_test
