#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <functional>

#include "engine_fixture.h"
#include "tree.h"

// Syncs that fail. An error of the disk is told once; a call whose sync was told it must fail,
// whatever the syncs after it say.

namespace {

// Which of the next calls fails; 0 stands for none.
std::atomic<int> g_syncfs_to_failure, g_fsync_to_failure;

bool Fails(std::atomic<int>& toFailure) {
  int left = toFailure;
  while (left > 0 && !toFailure.compare_exchange_weak(left, left - 1)) {
  }
  return left == 1;
}

int SyncOr(std::atomic<int>& toFailure, long number, int fd) {
  const long result = syscall(number, fd);
  if (!Fails(toFailure)) return static_cast<int>(result);
  errno = EIO;
  return -1;
}

}  // namespace

// In the place of the system's own, for the whole program.
extern "C" int syncfs(int fd) noexcept {
  return SyncOr(g_syncfs_to_failure, SYS_syncfs, fd);
}

extern "C" int fsync(int fd) {
  return SyncOr(g_fsync_to_failure, SYS_fsync, fd);
}

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::Not;
using VrelDR::Status;

constexpr std::size_t kMiB = 1 << 20;

class WriteBackTest : public EngineTest {
 protected:
  void TearDown() override {
    g_syncfs_to_failure = 0;
    g_fsync_to_failure = 0;
    EngineTest::TearDown();
  }

  // Lets the k-th sync of the call fail, for each k until the call makes fewer. The call then fails
  // too, and works when it is made again after `recover`. How many syncs it makes.
  static int ExpectEachSyncCounts(std::atomic<int>& toFailure, const std::function<Status()>& call,
                                  const std::function<void(bool done)>& recover) {
    for (int k = 1;; ++k) {
      SCOPED_TRACE("sync " + std::to_string(k));
      toFailure = k;
      const Status status = call();
      const bool wasMade = toFailure.exchange(0) == 0;
      if (!wasMade) {
        EXPECT_TRUE(status.IsOk()) << status.message;
        return k - 1;
      }
      ExpectStatus(status, VrelDR::kErrIo, "nput/output error");
      recover(false);
      const Status again = call();
      EXPECT_TRUE(again.IsOk()) << again.message;
      recover(true);
    }
  }

  Status ShipS1() {
    TestWatcher watcher;
    return TryShip(A(), "s1", "", B(), watcher);
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, WriteBackTest,
                         testing::Values("tmpfs-tmpfs", "ext4-ext4", "xfs-xfs", "btrfs-btrfs"),
                         EngineTest::NameOf);

TEST_P(WriteBackTest, ASnapshotWhoseSyncFailedIsNotTaken) {
  MakeSampleTree(A().TargetPath());
  const int syncs = ExpectEachSyncCounts(
      g_syncfs_to_failure, [&] { return A().TakeSnapshot("s1"); },
      [&](bool) {
        EXPECT_TRUE(A().RemoveSnapshot("s1").IsOk());
        EXPECT_TRUE(A().CleanUp().IsOk());
      });
  EXPECT_GE(syncs, 1);
}

TEST_P(WriteBackTest, ANewTargetWhoseSyncFailedIsNotMade) {
  MakeSampleTree(A().TargetPath());
  Take(A(), "s1");
  const EngineTarget made = A().Other("made", VrelDR::kTargetShare);
  const auto remove = [&](bool) { EXPECT_TRUE(made.Remove().IsOk()); };
  for (std::atomic<int>* each : {&g_syncfs_to_failure, &g_fsync_to_failure}) {
    const int creation = ExpectEachSyncCounts(
        *each, [&] { return made.Create({}); }, remove);
    EXPECT_GE(creation, 1);
    remove(true);
    const int clone = ExpectEachSyncCounts(
        *each, [&] { return A().Clone("s1", made); }, remove);
    EXPECT_GE(clone, 1);
    remove(true);
  }
}

TEST_P(WriteBackTest, ARestoreWhoseSyncFailedLeavesTheTargetAsItWas) {
  MakeSampleTree(A().TargetPath());
  Take(A(), "s1");
  WriteFile(A().TargetPath() + "/later", "later");
  const auto before = DescribeTree(A().TargetPath());
  const int syncs = ExpectEachSyncCounts(
      g_syncfs_to_failure, [&] { return A().Restore("s1"); },
      [&](bool done) {
        if (!done) {
          EXPECT_EQ(DescribeTree(A().TargetPath()), before);
        }
        WriteFile(A().TargetPath() + "/later", "later");
        fs::last_write_time(A().TargetPath(), fs::file_time_type::clock::now());
      });
  EXPECT_GE(syncs, 1);
}

TEST_P(WriteBackTest, ARoleWhoseSyncFailedIsNotChanged) {
  const auto nothing = [](bool) {};
  const int demotion = ExpectEachSyncCounts(
      g_syncfs_to_failure, [&] { return A().Demote(); }, nothing);
  const int promotion = ExpectEachSyncCounts(
      g_syncfs_to_failure, [&] { return A().Promote(""); }, nothing);
  EXPECT_GE(demotion, 1);
  EXPECT_GE(promotion, 1);
}

TEST_P(WriteBackTest, AShipmentWhoseSyncFailedHasNotArrived) {
  MakeSampleTree(A().TargetPath());
  Take(A(), "s1");
  for (std::atomic<int>* each : {&g_syncfs_to_failure, &g_fsync_to_failure}) {
    const int syncs = ExpectEachSyncCounts(
        *each, [&] { return ShipS1(); },
        [&](bool done) {
          if (!done) return;
          ExpectSame(A(), B(), "s1");
          ExpectNothingIncoming(B());
          EXPECT_TRUE(B().RemoveSnapshot("s1").IsOk());
        });
    EXPECT_GE(syncs, 2);
    EXPECT_TRUE(B().RemoveSnapshot("s1").IsOk());
  }
}

TEST_P(WriteBackTest, AnErrorThatIsToldWhileBytesMoveEndsTheShipmentSoon) {
  WriteFile(A().TargetPath() + "/big", RandomBytes(16 * kMiB));
  Take(A(), "s1");
  SlowDown();
  const auto begun = std::chrono::steady_clock::now();
  g_syncfs_to_failure = 1;  // that of the first second
  const Status status = ShipS1();
  EXPECT_EQ(g_syncfs_to_failure, 0);
  FullSpeed();
  ExpectStatus(status, VrelDR::kErrIo,
               "something that was written to \"" + B().path + "\": input/output error; look at");
  EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(3));
  EXPECT_THAT(B().Snapshots(), Not(Contains("s1")));
  Ship(A(), "s1", "", B());
  ExpectSame(A(), B(), "s1");
}

TEST_P(WriteBackTest, ARemovalIsNotDoneBeforeItIsOnDisk) {
  MakeSampleTree(A().TargetPath());
  Take(A(), "s1");
  const auto incoming = B().path + "/.vreldr/incoming/replica";
  const auto again = [&](bool) {
    fs::create_directories(incoming + "/s1/folder");
    WriteFile(incoming + "/.whole.s1", "");
    fs::create_directories(B().path + "/.vreldr/tmp/replica/s1");
    fs::create_directories(B().path + "/.vreldr/snapshots/replica/s1");
    fs::create_directories(B().path + "/replica");
  };
  again(true);
  const auto count = [&](const std::function<Status()>& call) {
    return ExpectEachSyncCounts(g_fsync_to_failure, call, again);
  };
  EXPECT_GE(count([&] { return B().RemoveSnapshot("s1"); }), 1);
  EXPECT_GE(count([&] { return B().CleanUp(); }), 1);
  EXPECT_GE(count([&] { return B().Drop(""); }), 2);
  again(true);
  EXPECT_GE(count([&] { return B().Remove(); }), 6);
}

}  // namespace
}  // namespace host_test
