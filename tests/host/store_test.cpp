#include "store/store.h"

#include <gtest/gtest.h>

#include "behind_writer.h"
#include "foundation/records.h"
#include "host_fixture.h"

// What the records give back of what was written.

namespace host_test {
namespace {

using VrelDR::DRPlan;
using VrelDR::JournalRow;
using VrelDR::OPState;
using VrelDR::PlanRow;
using VrelDR::Store;
using VrelDR::SyncRow;
using VrelDR::TargetRow;

class StoreTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    ASSERT_TRUE(VrelHost::MakeRecords(Records()).IsOk());
    Reopen();
  }
  std::string Records() const { return Root() + "/replica.db"; }
  void Reopen() {
    store_.reset();
    ASSERT_TRUE(Store::Open(Root(), store_).IsOk());
  }

  // A plan "p" from "source" to "copy", which is whole.
  DRPlan AddPlan() const {
    TargetRow copy;
    copy.target = VrelDR::Target("copy", VrelDR::kTargetShare);
    copy.volume = "v2";
    DRPlan plan;
    plan.SetPlanId("p");
    plan.SetProtectedTargetId("source");
    plan.SetDRTargetId("copy");
    plan.SetStatus(VrelDR::kPlanNormal);
    plan.SetDirection(VrelDR::kMainToDR);
    EXPECT_TRUE(store_->AddTarget(copy, &plan).IsOk());
    EXPECT_TRUE(store_->FinishTarget("copy").IsOk());
    return plan;
  }

  std::optional<Store> store_;
};

INSTANTIATE_TEST_SUITE_P(Volumes, StoreTest, testing::Values("tmpfs"), HostTest::NameOf);

TEST_P(StoreTest, ATargetIsFoundByTheLocatorThatItsEngineGave) {
  TargetRow row;
  row.target = VrelDR::Target("share", VrelDR::kTargetShare);
  row.volume = "v1";
  row.locator = "shelf/7 'b'";
  ASSERT_TRUE(store_->AddTarget(row, nullptr).IsOk());
  Reopen();
  std::optional<TargetRow> found;
  ASSERT_TRUE(store_->GetTarget("share", found).IsOk());
  ASSERT_TRUE(found);
  EXPECT_EQ(found->locator, row.locator);
  EXPECT_EQ(found->volume, row.volume);
  std::vector<TargetRow> rows;
  ASSERT_TRUE(store_->ListTargets(rows).IsOk());
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows.front().locator, row.locator);
}

TEST_P(StoreTest, AJournalThatIsWrittenAnewEndsAReportThatStillRunsAndNoOther) {
  AddPlan();
  for (const OPState state : {OPState::kRunning, OPState::kDone, OPState::kFailed}) {
    SyncRow report;
    report.state = state;
    report.snap_id = "s1";
    report.record.sync_size_byte = 7;
    ASSERT_TRUE(store_->Plans().WriteSyncReport("p", report, 7).IsOk());
    ASSERT_TRUE(store_->Plans().WriteJournal("p", JournalRow()).IsOk());
    std::optional<SyncRow> found;
    ASSERT_TRUE(store_->Plans().GetSyncReport("p", found).IsOk());
    ASSERT_TRUE(found);
    EXPECT_EQ(found->state, state == OPState::kRunning ? OPState::kInterrupted : state);
    EXPECT_EQ(found->snap_id, "s1");
    EXPECT_EQ(found->record.sync_size_byte, 7U);
  }
}

TEST_P(StoreTest, AReportThatEndsWhileAJournalIsWrittenKeepsHowItEnded) {
  AddPlan();
  ASSERT_TRUE(store_->Plans().WriteSyncReport("p", SyncRow(), 7).IsOk());
  store_.reset();
  const std::string last = "UPDATE sync_reports SET snap_id = 's2', state = " +
                           std::to_string(static_cast<int>(OPState::kDone));
  RunBehindAWriter(Records(), last, 1, [this] {
    return Store::Open(Root(), store_).IsOk() &&
           store_->Plans().WriteJournal("p", JournalRow()).IsOk();
  });
  Reopen();
  std::optional<SyncRow> found;
  ASSERT_TRUE(store_->Plans().GetSyncReport("p", found).IsOk());
  ASSERT_TRUE(found);
  EXPECT_EQ(found->state, OPState::kDone);
  EXPECT_EQ(found->snap_id, "s2");
}

TEST_P(StoreTest, EveryShipmentThatFoundNoRoomIsCountedAlsoOfTwoAtOnce) {
  AddPlan();
  store_.reset();
  RunBehindAWriter(Records(), "UPDATE plans SET hand_failures = 5", 2, [this] {
    return Store::Open(Root(), store_).IsOk() && store_->Plans().CountHandFailure("p").IsOk();
  });
  Reopen();
  std::optional<PlanRow> found;
  ASSERT_TRUE(store_->Plans().GetPlan("p", found).IsOk());
  ASSERT_TRUE(found);
  EXPECT_EQ(found->hand_failures, 7);
}

}  // namespace
}  // namespace host_test
