#include <gmock/gmock.h>
#include <vreldr/switchover_cut.h>

#include "plan_fixture.h"

// The last snapshots of the switchovers of several plans as one cut.

namespace host_test {
namespace {

using VrelDR::CutGrade;
using VrelDR::CutInfo;
using VrelDR::CutReporter;
using VrelDR::SwitchoverCut;
using VrelDR::TargetOperation;
using VrelDR::Operation::PlanSwitchover;
using VrelDR::Operation::Snapshot;

class SwitchoverCutTest : public PlanTest {
 protected:
  void SetUp() override {
    PlanTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    for (const std::string id : {"a", "b"}) {
      MakeShare(id);
      Change(id, "first");
      plans_[id] = MakePlan(id);
      ExpectSync(plans_[id]);
      Change(id, "last");
    }
  }
  void SwitchOver(const std::string& id) const {
    ExpectRun(PlanSwitchover(plans_.at(id), {}, Stopping()));
  }
  static Snapshot LastOf(const std::string& targetId) {
    const auto snapshots = TargetOperation(VrelDR::kTargetShare, targetId).ListSnapshots();
    return snapshots.empty() ? Snapshot() : snapshots.back();
  }
  static CutInfo Recorded(const std::string& cutId) {
    CutInfo info;
    EXPECT_TRUE(CutReporter().Find(cutId, info)) << cutId;
    return info;
  }

 private:
  std::map<std::string, std::string> plans_;
};

INSTANTIATE_TEST_SUITE_P(FileSystems, SwitchoverCutTest,
                         testing::ValuesIn(VolumeKinds({"ext4", "xfs", "btrfs"})),
                         HostTest::NameOf);

TEST_P(SwitchoverCutTest, BothSidesHaveTheLastSnapshotsAsOfOneCut) {
  {
    const SwitchoverCut cut(2);
    SwitchOver("a");
    EXPECT_EQ(Recorded(LastOf("a").cut_id).skew_ms, 0U);
    SwitchOver("b");
  }
  const std::string cutId = LastOf("a").cut_id;
  for (const char* id : {"a", "b", "a-dr", "b-dr"}) EXPECT_EQ(LastOf(id).cut_id, cutId) << id;
  const CutInfo info = Recorded(cutId);
  EXPECT_EQ(info.members, 2);
  EXPECT_EQ(info.grade, CanRefuseWriting() ? CutGrade::kWritersHeld : CutGrade::kNone);
  EXPECT_GT(info.skew_ms, 0U);
  EXPECT_FALSE(info.is_app_consistent);
  // The end of the cut: what follows is of none.
  SwitchOver("a");
  EXPECT_EQ(LastOf("a").cut_id, "");
}

TEST_P(SwitchoverCutTest, OnTheWayBackNothingIsOfIt) {
  const SwitchoverCut cut(2);
  SwitchOver("a");
  const std::string cutId = LastOf("a").cut_id;
  SwitchOver("a");
  EXPECT_EQ(LastOf("a").cut_id, "");
  SwitchOver("b");
  EXPECT_EQ(LastOf("b").cut_id, cutId);
}

TEST_P(SwitchoverCutTest, OneThatGoesOnWithAnEarlierCutMakesItOfNoInstant) {
  Snapshot begun;
  {
    const SwitchoverCut cut(2);
    SwitchOver("a");
    begun = LastOf("a");
  }
  ASSERT_NE(begun.cut_id, "");
  begun.create_time -= 5;
  {
    const SwitchoverCut cut(2, begun);
    SwitchOver("b");
  }
  EXPECT_EQ(LastOf("b").cut_id, begun.cut_id);
  EXPECT_EQ(Recorded(begun.cut_id).grade, CutGrade::kNone);
  EXPECT_GE(Recorded(begun.cut_id).skew_ms, 4000U);
}

TEST_P(SwitchoverCutTest, ACutOfAnotherKindIsNotGoneOnWith) {
  Snapshot other = LastOf("b");
  other.cut_id = "of a sync";
  const SwitchoverCut cut(2, other);
  SwitchOver("a");
  EXPECT_NE(LastOf("a").cut_id, other.cut_id);
  EXPECT_NE(LastOf("a").cut_id, "");
}

}  // namespace
}  // namespace host_test
