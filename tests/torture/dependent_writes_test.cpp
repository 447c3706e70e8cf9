#include <gmock/gmock.h>
#include <unistd.h>
#include <vreldr/target_operation.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "control_groups.h"
#include "host_fixture.h"
#include "ordered_writers.h"
#include "rig.h"
#include "tool_fixture.h"

// Programs write into all targets of a group, each write only when the one before is on disk.
// Whatever comes to the other side - by a sync the copies' snapshots, by a failover the copies that
// work - holds of these writes all that came before the last that it holds.

namespace torture {
namespace {

namespace fs = std::filesystem;
using host_test::HoldAllInOrder;
using host_test::OrderedWriters;
using testing::HasSubstr;

struct GroupKind {
  std::string file_system;
  int targets;
};
void PrintTo(const GroupKind& kind, std::ostream* out) {
  *out << kind.targets << " targets on " << kind.file_system;
}

class DependentWritesTest : public e2e::ToolTest, public testing::WithParamInterface<GroupKind> {
 public:
  static std::string NameOf(const testing::TestParamInfo<GroupKind>& parameter) {
    return parameter.param.file_system + "_" + std::to_string(parameter.param.targets);
  }

 protected:
  static constexpr int kRounds = 20;

  void SetUp() override {
    ToolTest::SetUp();
    for (const char* volume : {"v1", "v2"}) {
      std::string why;
      // On a small btrfs there is no room for so much in one transaction.
      const std::uint64_t mib = IsBtrfs() ? 2048 : 0;
      images_.push_back(std::make_unique<host_test::MountedImage>(GetParam().file_system,
                                                                  VolumePath(volume), why, mib));
      if (!images_.back()->IsMounted()) GTEST_SKIP() << why;
    }
    MakeProtected();
  }
  void TearDown() override {
    writers_.reset();
    images_.clear();
    if (!control_group_.empty()) {
      EXPECT_EQ(rmdir(control_group_.c_str()), 0) << control_group_;
    }
    ToolTest::TearDown();
  }

  bool IsBtrfs() const { return GetParam().file_system == "btrfs"; }
  // Makes a control group in which the writers are going to work, and has the group hold it.
  void HoldWriters() {
    std::string why;
    for (const char* kind : {"v2", "v1"}) {
      const std::string hierarchy = host_test::FindHierarchy(kind, Root(), why);
      if (hierarchy.empty() || access(hierarchy.c_str(), W_OK) != 0) continue;
      const std::string path = hierarchy + "/vreldr-dependent-" + std::to_string(getpid());
      ASSERT_TRUE(fs::create_directory(path));
      control_group_ = path;
      RunWell({"group", "quiesce", "g", "--control-group", control_group_});
      return;
    }
    GTEST_SKIP() << why << "; nobody can be held by a control group";
  }
  void BeginWriting() { writers_ = std::make_unique<OrderedWriters>(Dirs(""), control_group_); }
  void EndWriting() { writers_.reset(); }
  bool LetThemGoRound() const { return writers_->GoRound(); }

  // Where the targets, or with "-dr" their copies, are.
  std::vector<std::string> Dirs(const std::string& suffix) const {
    std::vector<std::string> dirs;
    const auto paths = TargetPaths();
    for (const std::string& id : ids_) dirs.push_back(paths.at(id + suffix));
    return dirs;
  }
  // Where the snapshots are that arrived last.
  static std::vector<std::string> LastArrived() {
    std::vector<std::string> dirs;
    const Json::Value status = RunWell({"status", "g", "--json"}).Json();
    for (const Json::Value& each : status["targets"]) {
      const VrelDR::TargetOperation copy(VrelDR::kTargetShare,
                                         each["target_id"].asString() + "-dr");
      dirs.push_back(copy.GetSnapshot(each["last_snap_id"].asString()).path);
    }
    return dirs;
  }

 private:
  void MakeProtected() {
    std::vector<std::string> words{"group", "create", "g", "--target"};
    for (int i = 0; i < GetParam().targets; ++i) {
      ids_.push_back("t" + std::to_string(i));
      RunWell({"target", "create", ids_.back(), "--volume", "v1", "--type", "share"});
    }
    words.insert(words.end(), ids_.begin(), ids_.end());
    RunWell(words);
    RunWell({"protect", "g", "--volume", "v2"});
  }

  std::vector<std::string> ids_;
  std::vector<std::unique_ptr<host_test::MountedImage>> images_;
  std::string control_group_;
  std::unique_ptr<OrderedWriters> writers_;
};

class HeldOrProvenTest : public DependentWritesTest {};

INSTANTIATE_TEST_SUITE_P(Groups, HeldOrProvenTest,
                         testing::Values(GroupKind{"btrfs", 2}, GroupKind{"btrfs", 8},
                                         GroupKind{"btrfs", 32}, GroupKind{"xfs", 8},
                                         GroupKind{"ext4", 8}),
                         DependentWritesTest::NameOf);

TEST_P(HeldOrProvenTest, WhatComesToTheOtherSideHoldsAllThatCameBeforeWhatItHolds) {
  if (!IsBtrfs()) HoldWriters();
  if (IsSkipped() || HasFatalFailure()) return;
  BeginWriting();
  const int rounds = std::min(AskedCount(3), kRounds);
  int whole = 0;
  for (int i = 0; i < rounds; ++i) {
    ASSERT_TRUE(LetThemGoRound());
    const Json::Value synced = RunWell({"sync", "g", "--json"}).Json();
    EXPECT_EQ(synced["cut_grade"], IsBtrfs() ? "one instant proven" : "writers were held");
    whole += HoldAllInOrder(LastArrived()) ? 1 : 0;
    RunWell({"snapshot", "prune", "g", "--yes"});
  }
  EXPECT_EQ(whole, rounds);
  std::cout << "copies of cuts that held all in order: " << whole << " of " << rounds << std::endl;
  ASSERT_TRUE(LetThemGoRound());
  EndWriting();
  RunWell({"failover", "g", "--yes"});
  EXPECT_TRUE(HoldAllInOrder(Dirs("-dr")));
}

class NobodyHeldTest : public DependentWritesTest {};

INSTANTIATE_TEST_SUITE_P(Groups, NobodyHeldTest,
                         testing::Values(GroupKind{"xfs", 8}, GroupKind{"ext4", 8}),
                         DependentWritesTest::NameOf);

// That the test above sees anything; and what is torn is not said to be of one instant.
TEST_P(NobodyHeldTest, CopiesAreTornAndSaidNotToBeOfOneInstant) {
  BeginWriting();
  bool isTorn = false;
  for (int i = 0; i < kRounds && !isTorn; ++i) {
    ASSERT_TRUE(LetThemGoRound());
    EXPECT_EQ(RunWell({"sync", "g", "--json"}).Json()["cut_grade"], "not of one instant");
    isTorn = !HoldAllInOrder(LastArrived());
  }
  EXPECT_TRUE(isTorn);
  EndWriting();
  EXPECT_THAT(Run({"failover", "g"}).out, HasSubstr("the snapshots are not of one instant"));
  RunWell({"failover", "g", "--yes"});
  EXPECT_NE(HoldAllInOrder(Dirs("-dr")), isTorn);
}

}  // namespace
}  // namespace torture
