#include <gmock/gmock.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <latch>
#include <thread>

#include "plan_fixture.h"
#include "tree.h"
#include "vreldr/session.h"
#include "vreldr/volume.h"
#include "vreldrgroup/vreldrgroup.h"

// The library on the stand-alone host, worked with by many threads of one process at once: each has
// objects of its own, and no two change the same group or plan. docs/threads.md promises that.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::SizeIs;
using VrelDR::TargetOperation;
using namespace VrelDRGroup;

constexpr int kRounds = 5;

class ThreadsTest : public PlanTest {
 protected:
  void SetUp() override {
    PlanTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    for (const std::string& group : groups_) {
      for (const std::string& target : TargetsOf(group)) MakeTarget(target);
    }
    for (const std::string& target : protected_) {
      MakeTarget(target);
      plans_.push_back(MakePlan(target));
    }
    MakeTarget("grown");
  }

  static std::vector<std::string> TargetsOf(const std::string& group) {
    return {group + "-a", group + "-b"};
  }

  void MakeTarget(const std::string& id) const {
    MakeShare(id);
    Change(id, "at first");
  }

  // Runs all of them in threads that begin at once, and waits for their ends.
  static void RunAtOnce(const std::vector<std::function<void()>>& bodies) {
    std::latch begin(static_cast<std::ptrdiff_t>(bodies.size()));
    std::vector<std::jthread> threads;
    threads.reserve(bodies.size());
    for (const auto& each : bodies) {
      threads.emplace_back([&begin, &each] {
        begin.arrive_and_wait();
        each();
      });
    }
  }

  // Takes, lists, edits, restores and deletes snapshots of one group. Those that are to be there
  // come into `left`.
  void WorkOnGroup(const std::string& group, std::vector<std::string>& left) const {
    std::vector<VrelDR::Target> targets;
    for (const std::string& id : TargetsOf(group)) targets.emplace_back(id, VrelDR::kTargetShare);
    const TargetList list(targets, group);
    const GsnapMeta meta("taken", false, kCwCrashConsistent);
    const Json::Value noReplicas(Json::objectValue);
    for (int round = 0; round < kRounds; ++round) {
      Operation::GsnapshotCreate create(list, meta, Root() + "/catalogue/" + group, noReplicas);
      ASSERT_TRUE(create.Run()) << group << create.GetErr();
      left.push_back(create.GetGsnapshot().gsnap_id);
      std::vector<Gsnapshot> listed;
      EXPECT_TRUE(Operation::GsnapshotList(group, listed, false));
      EXPECT_THAT(listed, SizeIs(left.size()));
      EXPECT_TRUE(Operation::GsnapshotSet(
          left.back(), GsnapMeta("round " + std::to_string(round), false, kCwCrashConsistent)));
      for (const auto& each : targets) Change(each.GetId(), "round " + std::to_string(round));
      Operation::GsnapshotRestore restore(left.back());
      EXPECT_TRUE(restore.Run()) << group << restore.GetErr();
      if (round % 2 == 0) continue;
      Operation::GsnapshotDelete remove(left.front());
      EXPECT_TRUE(remove.Run()) << group << remove.GetErr();
      left.erase(left.begin());
    }
  }

  // Syncs the plan of a target in the way of the group's action.
  static void Sync(const std::string& target) {
    for (int round = 0; round < kRounds; ++round) {
      Change(target, "round " + std::to_string(round));
      ActionPolicy::ActionImpl<ActionPolicy::Sync> action;
      Json::Value params(Json::objectValue);
      ASSERT_EQ(action.PreAct({target}, params), 0);
      int err = 0;
      const auto operation = action.GenOperation(target, err);
      ASSERT_TRUE(operation);
      EXPECT_TRUE(operation->Run(false)) << target << operation->GetErr();
    }
  }

  // Makes targets of snapshots and removes them again.
  static void MakeAndRemove() {
    const TargetOperation source(VrelDR::kTargetShare, "grown");
    for (int round = 0; round < kRounds; ++round) {
      std::string snapId;
      std::string cloneId;
      ASSERT_TRUE(source.TakeSnapshot(VrelDR::Operation::SnapshotMeta(), snapId))
          << source.GetErr();
      ASSERT_TRUE(source.CloneSnapshot(snapId, "clone-" + std::to_string(round), cloneId))
          << source.GetErr();
      EXPECT_EQ(ReadFile(PathOf(cloneId) + "/changed"), "at first");
      const VrelDR::TargetManager manager;
      EXPECT_TRUE(manager.Remove(cloneId, true)) << manager.GetErr();
      EXPECT_TRUE(source.DeleteSnapshot(snapId)) << source.GetErr();
    }
  }

  // Asks for everything that there is, again and again until nobody works any more.
  void AskUntil(const std::atomic<bool>& over) const {
    do {
      for (const std::string& group : groups_) {
        std::vector<Gsnapshot> listed;
        EXPECT_TRUE(Operation::GsnapshotList(group, listed, false));
      }
      Json::Value plans;
      EXPECT_EQ(Operation::PlanInfoGet({plans_.begin(), plans_.end()}, plans), 0);
      EXPECT_EQ(Operation::PlanSyncReportGet({plans_.begin(), plans_.end()}, plans), 0);
      std::vector<VrelDR::TargetEntry> targets;
      const VrelDR::TargetManager manager;
      EXPECT_TRUE(manager.List(targets)) << manager.GetErr();
      EXPECT_GE(targets.size(), 2 * groups_.size() + 2 * protected_.size() + 1);
      std::vector<VrelDR::VolumeInfo> volumes;
      const VrelDR::VolumeManager volumeManager;
      EXPECT_TRUE(volumeManager.List(volumes)) << volumeManager.GetErr();
    } while (!over);
  }

  void WorkOnEverything() const {
    std::vector<std::vector<std::string>> left(groups_.size());
    std::atomic<bool> over = false;
    {
      const std::jthread asking([&] { AskUntil(over); });
      std::vector<std::function<void()>> bodies{MakeAndRemove};
      for (std::size_t at = 0; at < groups_.size(); ++at) {
        bodies.emplace_back([this, at, &left] { WorkOnGroup(groups_[at], left[at]); });
      }
      for (const std::string& target : protected_) {
        bodies.emplace_back([&target] { Sync(target); });
      }
      RunAtOnce(bodies);
      over = true;
    }
    for (std::size_t at = 0; at < groups_.size(); ++at) ExpectGroup(groups_[at], left[at]);
    for (std::size_t at = 0; at < protected_.size(); ++at) {
      ExpectNormal(plans_[at], VrelDR::kMainToDR, Bytes(protected_[at]));
      EXPECT_THAT(ListIds(protected_[at]), SizeIs(kRounds));
      EXPECT_EQ(BytesOf(protected_[at] + "-dr", Last(plans_[at])), Bytes(protected_[at]));
      ExpectSameSnapshots(plans_[at]);
      ExpectNothingOnItsWay(protected_[at] + "-dr");
    }
    EXPECT_THAT(ListIds("grown"), SizeIs(0));
    VrelDR::TargetEntry clone;
    EXPECT_FALSE(VrelDR::TargetManager().Get("clone-0", clone));
    ExpectNoLeftovers();
  }

 private:
  // Expects these group snapshots, whole, with nothing else on their targets.
  static void ExpectGroup(const std::string& group, const std::vector<std::string>& gsnapIds) {
    std::vector<GsnapshotInfo> infos;
    EXPECT_TRUE(Operation::GsnapshotInfoList(group, infos));
    std::vector<std::string> listed;
    std::map<std::string, std::vector<std::string>> parts;
    for (const GsnapshotInfo& info : infos) {
      listed.push_back(info.gsnap_id);
      EXPECT_EQ(info.status, kGsnapReady);
      for (const TargetSnapshot& part : info.target_snapshots) {
        parts[part.target.GetId()].push_back(part.tsnap_id);
      }
    }
    EXPECT_EQ(listed, gsnapIds);
    EXPECT_EQ(infos.back().desc, "round " + std::to_string(kRounds - 1));
    for (const std::string& target : TargetsOf(group)) {
      EXPECT_EQ(parts[target], ListIds(target));
      EXPECT_EQ(ReadFile(PathOf(target) + "/changed"), "at first");
    }
  }

  const std::vector<std::string> groups_{"g1", "g2", "g3", "g4"};
  const std::vector<std::string> protected_{"p1", "p2"};
  std::vector<std::string> plans_;
};

INSTANTIATE_TEST_SUITE_P(FileSystems, ThreadsTest,
                         testing::ValuesIn(VolumeKinds({"tmpfs", "btrfs"})), HostTest::NameOf);

TEST_P(ThreadsTest, GroupsPlansAndTargetsAreWorkedOnByEightThreadsAtOnce) {
  WorkOnEverything();
}

TEST_P(ThreadsTest, TheSameGoesForThreadsOfASession) {
  const VrelDR::Session session;
  WorkOnEverything();
}

}  // namespace
}  // namespace host_test
