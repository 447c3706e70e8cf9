#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>

#include "base/kill_point.h"
#include "holder.h"
#include "opening.h"
#include "plan_fixture.h"
#include "tree.h"
#include "vreldr/arrived.h"
#include "vreldr/cut.h"
#include "vreldrcore/sqlite_db.h"

// What others do to both copies of a plan while a sync stands still in the middle of sending.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::Not;
using VrelDR::TargetOperation;
using namespace VrelDR::Operation;  // the operations by their names

constexpr int kKilled = 128 + SIGKILL;

class PlanBesideTest : public PlanTest {
 protected:
  void SetUp() override {
    PlanTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    for (const std::string& each : {Reached(), Go()}) {
      ASSERT_EQ(mkfifo(each.c_str(), 0600), 0);
    }
    // The first program that has sent a part says so, waits until it is told to go on, and sends
    // the rest.
    const std::string wait = "if rm '" + Stand() + "' 2>/dev/null; then echo $$ >'" + Reached() +
                             "'; read go <'" + Go() + "'; fi; ";
    fs::create_directory(Root() + "/bin");
    WriteFile(Root() + "/bin/rsync",
              "#!/bin/sh\n/usr/bin/rsync \"$@\" --max-size=100K >/dev/null\n" + wait +
                  "exec /usr/bin/rsync \"$@\"\n");
    WriteFile(
        Root() + "/bin/btrfs",
        "#!/bin/sh\ncase \"$*\" in *--no-data*|*receive*) exec /usr/bin/btrfs \"$@\" ;; esac\n"
        "/usr/bin/btrfs \"$@\" | { head -c 1000000; " +
            wait + "cat; }\n");
    for (const char* each : {"rsync", "btrfs"}) {
      fs::permissions(Root() + "/bin/" + each, fs::perms::owner_all);
    }
  }

  // A share with a plan, which one sync has brought over and which has changed since.
  std::string MakeSynced() const {
    MakeShare("a");
    MakeSampleTree(PathOf("a"));
    std::string planId = MakePlan("a");
    ExpectSync(planId);
    WriteFile(PathOf("a") + "/big", RandomText(4 << 20));
    return planId;
  }

  // Starts a sync in another process, and returns when it stands still with a part sent.
  pid_t StartStanding(const std::string& planId) {
    WriteFile(Stand(), "");
    const std::string path = Root() + "/bin:" + std::getenv("PATH");
    VrelDR::DataSyncParam param;
    param.with_pending = true;
    const pid_t pid = StartChild({{"PATH", path}, {"VRELDR_FAIL_POINT", "ship.by_changes@*"}}, [&] {
      PlanSync sync(planId, param);
      return sync.Run(false) ? 0 : sync.GetErrCode() - 400;
    });
    std::ifstream(Reached()) >> program_;
    EXPECT_NE(program_, 0);
    return pid;
  }
  // Kills it, and all that works for it.
  void Kill(pid_t sync) const {
    kill(sync, SIGKILL);
    EXPECT_EQ(WaitFor(sync), kKilled);
    if (program_ > 0) kill(-program_, SIGKILL);
  }
  // Lets it go on.
  void LetGo() const {
    const int fd = open(Go().c_str(), O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(write(fd, "\n", 1), 1);
    close(fd);
  }

  static std::string RandomText(std::size_t size) {
    std::string text(size, '\0');
    std::uint32_t value = 1;
    for (char& each : text) each = static_cast<char>((value = value * 1664525 + 1013904223) >> 24);
    return text;
  }

  // What the sync has just taken to send it.
  static std::string InHand() { return ListIds("a").back(); }

  static void ExpectDeleted(const std::string& targetId, const std::string& snapId) {
    const TargetOperation operation(2, targetId);
    EXPECT_TRUE(operation.DeleteSnapshot(snapId)) << operation.GetErr();
    EXPECT_THAT(ListIds(targetId), Not(Contains(snapId)));
  }
  static void ExpectHeld(const std::string& targetId, const std::string& snapId,
                         const std::string& planId) {
    const TargetOperation operation(2, targetId);
    EXPECT_FALSE(operation.DeleteSnapshot(snapId)) << targetId;
    ExpectError(operation, VrelDR::kErrLocked,
                {snapId, targetId, "held by", planId, "a sync lets go of it"});
    EXPECT_THAT(ListIds(targetId), Contains(snapId));
  }

 private:
  std::string Reached() const { return Root() + "/reached"; }
  std::string Go() const { return Root() + "/go"; }
  std::string Stand() const { return Root() + "/stand"; }

  pid_t program_ = 0;  // which stands still, and leads a group of processes
};

INSTANTIATE_TEST_SUITE_P(FileSystems, PlanBesideTest, testing::Values("ext4", "xfs", "btrfs"),
                         HostTest::NameOf);

TEST_P(PlanBesideTest, SnapshotsOfBothCopiesComeAndGoAndAllThatIsSentIsRight) {
  const std::string planId = MakeSynced();
  const std::string old = Last(planId);
  ExpectSync(planId);
  const std::string base = Last(planId);
  WriteFile(PathOf("a") + "/big", RandomText(3 << 20));
  const Tree wanted = Bytes("a");
  const pid_t sync = StartStanding(planId);
  const std::string hand = InHand();

  Change("a", "meanwhile");
  const Tree later = Bytes("a");
  const auto taken = Take("a");
  {
    VrelDR::Cut cut;
    ASSERT_TRUE(cut.Prepare({VrelDR::Target("a", 2)})) << cut.GetErr();
    ExpectDeleted("a", Take("a").snap_id);
  }
  for (const char* each : {"a", "a-dr"}) {
    ExpectHeld(each, base, planId);
    ExpectDeleted(each, old);
  }
  ExpectHeld("a", hand, planId);
  EXPECT_THAT(ListIds("a-dr"), Not(Contains(hand)));
  std::string clone;
  EXPECT_TRUE(TargetOperation(2, "a-dr").CloneSnapshot(base, "clone", clone));
  EXPECT_EQ(Bytes("clone"), BytesOf("a", base));
  EXPECT_FALSE(VrelDR::TargetManager().Remove("a-dr", true));
  EXPECT_FALSE(TargetOperation(2, "a-dr").RestoreSnapshot(base));

  LetGo();
  EXPECT_EQ(WaitFor(sync), 0);
  EXPECT_EQ(Last(planId), hand);
  EXPECT_EQ(BytesOf("a-dr", hand), wanted);
  EXPECT_EQ(BytesOf("a", taken.snap_id), later);
  ExpectSameSnapshots(planId);
  ExpectNothingOnItsWay("a");
  ExpectNothingOnItsWay("a-dr");
  ExpectDeleted("a", base);
  ExpectDeleted("a-dr", base);
}

TEST_P(PlanBesideTest, ATargetWhoseSnapshotsAreBeingTakenOrDeletedIsNotWaitedForWhenAllHasArrived) {
  const std::string planId = MakeSynced();
  const Tree wanted = Bytes("a");
  const pid_t sync = StartStanding(planId);
  const std::string hand = InHand();
  // Another process is in the middle of something on both sides, and does not come to its end.
  std::vector<std::unique_ptr<Holder>> others;
  for (const char* target : {"a", "a-dr"}) {
    others.push_back(std::make_unique<Holder>([&] {
      const std::string lock = StateDir() + "/locks/" + target;
      return flock(open(lock.c_str(), O_RDWR), LOCK_EX | LOCK_NB) == 0;
    }));
  }
  LetGo();
  EXPECT_EQ(WaitFor(sync), 0);
  EXPECT_EQ(Last(planId), hand);
  EXPECT_EQ(BytesOf("a-dr", hand), wanted);
}

TEST_P(PlanBesideTest, ASyncThatWaitsForItsReplicaCanBeStoppedAndRunAgain) {
  const std::string planId = MakeSynced();
  const Tree wanted = Bytes("a");
  const std::string lock = StateDir() + "/locks/a-dr";
  {
    const Holder other([&] { return flock(open(lock.c_str(), O_RDWR), LOCK_EX | LOCK_NB) == 0; });
    const Opening tried(lock);
    const pid_t sync = StartChild({}, [&] {
      PlanSync operation(planId, {});
      return operation.Run(false) ? 0 : operation.GetErrCode() - 400;
    });
    tried.Wait();
    ExpectRun(PlanStop(planId));
    EXPECT_EQ(WaitFor(sync), VrelDR::kErrStopped - 400);
  }
  ExpectSync(planId);
  EXPECT_EQ(BytesOf("a-dr", Last(planId)), wanted);
  EXPECT_EQ(ListIds("a-dr"), ListIds("a"));
}

// A base that the plan does not hold by itself: the last snapshot that arrived has gone.
TEST_P(PlanBesideTest, ABaseThatIsNotTheLastThatArrivedIsHeldWhileItIsUsed) {
  const std::string planId = MakeSynced();
  const std::string base = Last(planId);
  ExpectSync(planId);
  const std::string gone = Last(planId);
  {
    const VrelDRCore::SqliteDB records(StateDir() + "/replica.db", 20, "vreldrcore_db_info");
    ASSERT_TRUE(records.Exec("DELETE FROM snapshots WHERE target_id = 'a-dr' AND snap_id = '" +
                             gone + "'"));
  }
  WriteFile(PathOf("a") + "/big", RandomText(3 << 20));
  const Tree wanted = Bytes("a");
  const pid_t sync = StartStanding(planId);
  for (const char* each : {"a", "a-dr"}) ExpectHeld(each, base, planId);
  Kill(sync);
  // The next sync may go on from it.
  for (const char* each : {"a", "a-dr"}) ExpectHeld(each, base, planId);
  VrelDR::ArrivedSnapshots arrived;
  EXPECT_TRUE(VrelDR::ArrivedReporter(planId).Read(arrived));
  EXPECT_EQ(arrived.recorded_id, gone);
  EXPECT_TRUE(arrived.is_gone);

  ExpectSync(planId);
  EXPECT_EQ(BytesOf("a-dr", Last(planId)), wanted);
  for (const char* each : {"a", "a-dr"}) ExpectDeleted(each, base);
}

TEST_P(PlanBesideTest, WhatHasArrivedAgainIsNobodysBeforeItIsRecorded) {
  const std::string planId = MakeSynced();
  const auto lost = TargetOperation(2, "a").GetSnapshot(Last(planId));
  const Tree wanted = BytesOf("a", lost.snap_id);
  ExpectSync(planId);
  LoseBytes("a-dr", lost.snap_id);
  ASSERT_TRUE(VrelDR::PendingSnapReporter(planId).Add(lost));
  VrelDR::DataSyncParam param;
  param.with_pending = true;
  const auto sync = [&] { return PlanSync(planId, param).Run(false) ? 0 : 1; };
  const std::string shipped(VrelDR::kSyncShipped);
  ASSERT_EQ(RunInChild({{"VRELDR_KILL_POINT", shipped}}, sync), kKilled);
  ASSERT_TRUE(fs::exists(SnapshotDir("a-dr", lost.snap_id)));

  const TargetOperation replica(2, "a-dr");
  EXPECT_THAT(ListIds("a-dr"), Not(Contains(lost.snap_id)));
  EXPECT_FALSE(replica.DeleteSnapshot(lost.snap_id));
  EXPECT_EQ(replica.GetErrCode(), VrelDR::kErrSnapshotMissing);
  ExpectSync(planId);
  EXPECT_EQ(BytesOf("a-dr", lost.snap_id), wanted);
  ExpectDeleted("a-dr", lost.snap_id);
}

TEST_P(PlanBesideTest, ASyncThatIsKilledWhileOthersWorkIsFinishedByTheNext) {
  const std::string planId = MakeSynced();
  const std::string base = Last(planId);
  const Tree wanted = Bytes("a");
  const pid_t sync = StartStanding(planId);
  const std::string hand = InHand();
  const auto taken = Take("a");
  Kill(sync);
  // What others clean up after it leaves what has arrived, and what is needed to go on.
  ExpectDeleted("a", taken.snap_id);
  ExpectHeld("a", hand, planId);
  ExpectHeld("a-dr", base, planId);

  const pid_t next = StartStanding(planId);
  Change("a", "meanwhile");
  const Tree later = Bytes("a");
  LetGo();
  EXPECT_EQ(WaitFor(next), 0);
  EXPECT_EQ(BytesOf("a-dr", hand), wanted);
  EXPECT_EQ(BytesOf("a-dr", Last(planId)), later);
  ExpectSameSnapshots(planId);
  ExpectNothingOnItsWay("a-dr");
}

}  // namespace
}  // namespace host_test
