#include <fcntl.h>
#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <thread>

#include "base/fd.h"
#include "contract_rig.h"
#include "engine/cut.h"
#include "engine/local/commit_window.h"
#include "engine/local/subvolume.h"
#include "engine/tables.h"
#include "tree.h"

// Cuts on btrfs: of one instant by one transaction, and only then.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using VrelDR::CutMember;
using VrelDR::CutOutcome;
using VrelDR::EngineCut;
using VrelDR::Fd;
using VrelDR::Status;
using VrelDR::Watcher;
using VrelDR::Local::CommitWindow;

class BtrfsCutTest : public ContractTest {
 protected:
  using Clock = std::chrono::steady_clock;

  void SetUp() override {
    ContractTest::SetUp();
    if (!IsSkipped() && !HasFatalFailure()) Grow(A());
  }

  std::string OwnDir() const { return A().path + "/.vreldr"; }

  static EngineTarget Make(const Side& side, const std::string& id) {
    const EngineTarget target = Prepare(side, id, VrelDR::kTargetShare);
    ExpectGood(target.Create({}));
    WriteFile(target.TargetPath() + "/file", id);
    return target;
  }
  std::vector<EngineTarget> MakeMany(int count) const {
    std::vector<EngineTarget> targets;
    for (int i = 0; i < count; ++i) targets.push_back(Make(A(), "t" + std::to_string(i)));
    return targets;
  }
  // Makes the snapshots, all of which must work.
  static CutOutcome CutAll(const std::vector<EngineTarget>& targets, const std::string& snapId) {
    std::vector<CutMember> members;
    for (const EngineTarget& each : targets) {
      members.push_back({each.engine.get(), each.place, snapId});
    }
    std::unique_ptr<EngineCut> cut;
    CutOutcome outcome;
    Watcher watcher;
    Status status = targets.front().engine->PrepareCut(members, watcher, cut);
    if (status.IsOk()) status = cut->Take(watcher, outcome);
    if (status.IsOk()) status = cut->Settle(watcher);
    ExpectGood(status);
    for (const EngineTarget& each : targets) {
      ExpectGood(each.engine->TakeUp(each.place, snapId, watcher));
    }
    return outcome;
  }
  static Fd Open(const std::string& path) {
    return Fd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }
  static std::uint64_t TransactionOf(const EngineTarget& target, const std::string& snapId) {
    std::uint64_t transaction = 0;
    const Fd dir = Open(target.SnapshotPath(snapId));
    EXPECT_EQ(VrelDR::Local::ReadSnapshotTransaction(dir.Get(), transaction), 0);
    return transaction;
  }
  static int CountThreads() {
    return static_cast<int>(std::distance(fs::directory_iterator("/proc/self/task"), {}));
  }
  static int CountDescriptors() {
    return static_cast<int>(std::distance(fs::directory_iterator("/proc/self/fd"), {}));
  }
};

INSTANTIATE_TEST_SUITE_P(Volumes, BtrfsCutTest, testing::Values("btrfs-btrfs"), EngineTest::NameOf);

TEST_P(BtrfsCutTest, ManyTargetsAreCutInOneTransactionAgainAndAgainAndNothingIsLeftOpen) {
  const std::vector<EngineTarget> targets = MakeMany(16);
  std::thread([] {}).join();  // with the first one a sanitizer starts one of its own
  const int threads = CountThreads();
  const int descriptors = CountDescriptors();
  for (int i = 0; i < 10; ++i) {
    const std::string id = "cut" + std::to_string(i);
    const CutOutcome outcome = CutAll(targets, id);
    EXPECT_TRUE(outcome.is_one_instant);
    EXPECT_EQ(outcome.method, "btrfs transaction");
    for (const EngineTarget& each : targets) {
      EXPECT_EQ(TransactionOf(each, id), TransactionOf(targets.front(), id));
      EXPECT_EQ(ReadFile(each.SnapshotPath(id) + "/file"), each.place.id);
    }
  }
  EXPECT_LE(CountThreads(), threads);
  EXPECT_EQ(CountDescriptors(), descriptors);
  for (const EngineTarget& each : targets) {
    EXPECT_EQ(std::distance(fs::directory_iterator(OwnDir() + "/snapshots/" + each.place.id), {}),
              10);
  }
}

TEST_P(BtrfsCutTest, OneTargetIsCutWithoutAnyThread) {
  const std::vector<EngineTarget> targets = MakeMany(1);
  const CutOutcome outcome = CutAll(targets, "cut1");
  EXPECT_TRUE(outcome.is_one_instant);
  EXPECT_EQ(outcome.tries, 1);
  EXPECT_THAT(targets[0].Snapshots(), ElementsAre("cut1"));
  EXPECT_FALSE(fs::exists(OwnDir() + "/cut"));
}

TEST_P(BtrfsCutTest, VolumesOfOneFileSystemAreCutTogether) {
  Side second;
  second.type = "btrfs";
  second.path = A().path + "/second volume";
  fs::create_directory(second.path);
  MakeEngine(second, "second");
  const std::vector<EngineTarget> targets = {Make(A(), "t1"), Make(second, "t2"), Make(A(), "t3")};
  Watcher watcher;
  std::string one, other, third;
  ExpectGood(A().engine->GetCutDomain(one, watcher));
  ExpectGood(second.engine->GetCutDomain(other, watcher));
  ExpectGood(B().engine->GetCutDomain(third, watcher));
  EXPECT_EQ(one, other);
  EXPECT_NE(one, third);
  EXPECT_TRUE(CutAll(targets, "cut1").is_one_instant);
  EXPECT_EQ(TransactionOf(targets[0], "cut1"), TransactionOf(targets[1], "cut1"));
}

TEST_P(BtrfsCutTest, TargetsOfTwoFileSystemsAreRefusedAsNumbersOfTransactionsSayNothingThen) {
  std::unique_ptr<EngineCut> cut;
  Watcher watcher;
  ExpectGood(B().Promote(""));
  const Status status = A().engine->PrepareCut(
      {{A().engine.get(), A().place, "cut1"}, {B().engine.get(), B().place, "cut1"}}, watcher, cut);
  ExpectStatus(status, VrelDR::kErrVolumeMissing, B().path);
  EXPECT_FALSE(cut);
}

TEST_P(BtrfsCutTest, AFolderThatIsNoSubvolumeIsCopiedAndTheCutIsNotOfOneInstant) {
  std::vector<EngineTarget> targets = MakeMany(3);
  const std::string path = targets[1].TargetPath();
  fs::rename(path, path + " old");
  fs::create_directory(path);
  WriteFile(path + "/file", targets[1].place.id);
  const CutOutcome outcome = CutAll(targets, "cut1");
  EXPECT_FALSE(outcome.is_one_instant);
  EXPECT_EQ(outcome.method, "btrfs transaction, reflink");
  for (const EngineTarget& each : targets) {
    EXPECT_EQ(ReadFile(each.SnapshotPath("cut1") + "/file"), each.place.id);
    ExpectGood(each.RemoveSnapshot("cut1"));
    EXPECT_THAT(each.Snapshots(), IsEmpty());
  }
}

TEST_P(BtrfsCutTest, OneNestedSubvolumeRefusesTheCutAndOneThatComesMeanwhileFailsIt) {
  const std::vector<EngineTarget> targets = MakeMany(2);
  const std::vector<CutMember> members = {{A().engine.get(), targets[0].place, "cut1"},
                                          {A().engine.get(), targets[1].place, "cut1"}};
  std::unique_ptr<EngineCut> cut;
  Watcher watcher;
  CutOutcome outcome;
  ExpectGood(A().engine->PrepareCut(members, watcher, cut));
  const std::string nested = targets[1].TargetPath() + "/nested";
  ASSERT_EQ(RunProgram({"btrfs", "subvolume", "create", nested}), 0);
  ExpectGood(cut->Take(watcher, outcome));
  ExpectStatus(cut->Settle(watcher), VrelDR::kErrUnsupported, nested);
  for (const EngineTarget& each : targets) ExpectGood(each.RemoveSnapshot("cut1"));
  ExpectStatus(A().engine->PrepareCut(members, watcher, cut), VrelDR::kErrUnsupported, nested);
}

TEST_P(BtrfsCutTest, ATargetWhoseTopIsImmutableIsCutAndTakenUpLikeAnyOther) {
  const std::vector<EngineTarget> targets = MakeMany(2);
  ASSERT_EQ(RunProgram({"chattr", "+i", targets[0].TargetPath()}), 0);
  EXPECT_TRUE(CutAll(targets, "cut1").is_one_instant);
  for (const EngineTarget& each : targets) {
    EXPECT_THAT(each.Snapshots(), ElementsAre("cut1"));
    EXPECT_EQ(DescribeTree(each.SnapshotPath("cut1")), DescribeTree(each.TargetPath()));
    EXPECT_FALSE(fs::exists(OwnDir() + "/snapshots/" + each.place.id + "/.cut.cut1"));
    ExpectGood(each.RemoveSnapshot("cut1"));
    EXPECT_THAT(each.Snapshots(), IsEmpty());
  }
  ASSERT_EQ(RunProgram({"chattr", "-i", targets[0].TargetPath()}), 0);
}

TEST_P(BtrfsCutTest, SeveralCutsOfOneFileSystemAtATimeAllComeOutRight) {
  constexpr int kGroups = 3;
  std::vector<std::vector<EngineTarget>> groups(kGroups);
  for (int g = 0; g < kGroups; ++g) {
    for (int i = 0; i < 4; ++i) {
      groups[g].push_back(Make(A(), "g" + std::to_string(g) + "-" + std::to_string(i)));
    }
  }
  std::vector<std::jthread> threads;
  for (const std::vector<EngineTarget>& group : groups) {
    threads.emplace_back([&group] {
      for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(CutAll(group, "cut" + std::to_string(i)).is_one_instant);
      }
    });
  }
  threads.clear();
  for (const std::vector<EngineTarget>& group : groups) {
    for (const EngineTarget& each : group) EXPECT_EQ(each.Snapshots().size(), 5U);
  }
}

TEST_P(BtrfsCutTest, WhatItChangesMayBeRemovedByAnybodyAtAnyTime) {
  const std::vector<EngineTarget> targets = MakeMany(4);
  EXPECT_TRUE(CutAll(targets, "cut1").is_one_instant);
  ASSERT_TRUE(fs::exists(OwnDir() + "/cut/0"));
  fs::remove_all(OwnDir() + "/cut");
  EXPECT_TRUE(CutAll(targets, "cut2").is_one_instant);
  std::vector<CutMember> members;
  for (const EngineTarget& each : targets) members.push_back({each.engine.get(), each.place, "x"});
  std::unique_ptr<EngineCut> cut;
  CutOutcome outcome;
  Watcher watcher;
  ExpectGood(A().engine->PrepareCut(members, watcher, cut));
  fs::remove_all(OwnDir() + "/cut");
  ExpectGood(cut->Take(watcher, outcome));
  EXPECT_TRUE(outcome.is_one_instant);
}

TEST_P(BtrfsCutTest, AWindowThatTheSystemWouldLetStandIsPushedOpen) {
  const Fd own = Open(OwnDir());
  ASSERT_TRUE(own);
  CommitWindow window(own.Get());
  ASSERT_EQ(window.Prepare(8), 0);
  // What a window that was killed while it pushed leaves is in nobody's way.
  ASSERT_EQ(RunProgram({"btrfs", "subvolume", "create", OwnDir() + "/cut/pushed"}), 0);
  const auto last = Clock::now() + std::chrono::seconds(30);
  while (fs::exists(OwnDir() + "/cut/pushed")) {
    if (Clock::now() > last) GTEST_SKIP() << "the system has let none stand";
    // Of two in a row the second is often called while the first still ends.
    const auto begun = Clock::now();
    ASSERT_EQ(window.Open(8), 0);
    ASSERT_EQ(window.Open(8), 0);
    ASSERT_LT(Clock::now() - begun, std::chrono::seconds(10));
  }
}

TEST_P(BtrfsCutTest, OneThatIsKilledAtAnyMomentLeavesWhatItsNamesLeadTo) {
  const std::vector<EngineTarget> targets = MakeMany(8);
  for (int i = 0; i < 10; ++i) {
    const pid_t pid = StartChild({}, [&] {
      (void)CutAll(targets, "cut1");
      return 0;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(3 * i));  // the moment is what is tried
    kill(pid, SIGKILL);
    ASSERT_NE(WaitFor(pid), -1);
    for (const EngineTarget& each : targets) {
      ExpectGood(each.RemoveSnapshot("cut1"));
      const std::string dir = OwnDir() + "/snapshots/" + each.place.id;
      if (fs::exists(dir)) {
        EXPECT_TRUE(fs::is_empty(dir));
      }
    }
  }
  EXPECT_TRUE(CutAll(targets, "cut1").is_one_instant);
}

}  // namespace
}  // namespace host_test
