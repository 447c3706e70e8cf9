#include "store/store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vreldr/error.h>

#include <array>
#include <cstdio>
#include <memory>

#include "behind_writer.h"
#include "foundation/records.h"
#include "host_fixture.h"

// What the records give back of what was written.

namespace host_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using VrelDR::DRPlan;
using VrelDR::JournalRow;
using VrelDR::LockRow;
using VrelDR::OPState;
using VrelDR::PlanRow;
using VrelDR::PlanStore;
using VrelDR::SnapshotRow;
using VrelDR::Store;
using VrelDR::SyncRow;
using VrelDR::TargetRow;
using VrelDR::Operation::Snapshot;

// How SQLite goes about a statement, as its own program tells.
std::string ExplainedBySqlite(const std::string& path, const std::string& sql) {
  const std::string command = "sqlite3 '" + path + "' \"EXPLAIN QUERY PLAN " + sql + "\"";
  const std::unique_ptr<FILE, int (*)(FILE*)> out(popen(command.c_str(), "r"), pclose);
  std::string text;
  std::array<char, 4096> part{};
  while (out && std::fgets(part.data(), part.size(), out.get()) != nullptr) text += part.data();
  return text;
}

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

  static TargetRow Row(const std::string& targetId) {
    TargetRow row;
    row.target = VrelDR::Target(targetId, VrelDR::kTargetShare);
    row.volume = "v1";
    return row;
  }
  static DRPlan Plan(const std::string& planId, const std::string& from, const std::string& to) {
    DRPlan plan;
    plan.SetPlanId(planId);
    plan.SetProtectedTargetId(from);
    plan.SetDRTargetId(to);
    plan.SetStatus(VrelDR::kPlanNormal);
    plan.SetDirection(VrelDR::kMainToDR);
    return plan;
  }
  // A plan "p" from "source" to "copy", which is whole.
  DRPlan AddPlan() const {
    DRPlan plan = Plan("p", "source", "copy");
    EXPECT_TRUE(store_->AddTarget(Row("copy"), &plan).IsOk());
    EXPECT_TRUE(store_->FinishTarget("copy").IsOk());
    return plan;
  }

  // What the calls find; each expects that to work.
  std::vector<std::string> Targets(bool ofAnyState) const {
    std::vector<TargetRow> rows;
    EXPECT_TRUE(
        (ofAnyState ? store_->ListTargetsOfAnyState(rows) : store_->ListTargets(rows)).IsOk());
    std::vector<std::string> ids;
    for (const TargetRow& each : rows) ids.push_back(each.target.GetId());
    return ids;
  }
  std::vector<std::string> Snapshots(const std::string& targetId, bool ofAnyState) const {
    std::vector<SnapshotRow> rows;
    EXPECT_TRUE((ofAnyState ? store_->ListSnapshotsOfAnyState(targetId, rows)
                            : store_->ListSnapshots(targetId, rows))
                    .IsOk());
    std::vector<std::string> ids;
    for (const SnapshotRow& each : rows) ids.push_back(each.snapshot.snap_id);
    return ids;
  }
  std::vector<std::string> PlansOf(const std::string& targetId, bool ofAnyState) const {
    std::vector<PlanRow> rows;
    const PlanStore plans = store_->Plans();
    EXPECT_TRUE((ofAnyState ? plans.SelectPlansOfAnyState(targetId, rows)
                            : plans.SelectPlans(targetId, rows))
                    .IsOk());
    std::vector<std::string> ids;
    for (const PlanRow& each : rows) ids.push_back(each.plan.GetPlanId());
    return ids;
  }
  std::vector<std::string> Held(const std::string& planId) const {
    std::vector<LockRow> locks;
    EXPECT_TRUE(store_->Plans().ListLocksOfPlan(planId, locks).IsOk());
    std::vector<std::string> held;
    for (const LockRow& each : locks) held.push_back(each.target_id + " " + each.snap_id);
    return held;
  }

  std::optional<Store> store_;
};

INSTANTIATE_TEST_SUITE_P(Volumes, StoreTest, testing::Values("tmpfs"), HostTest::NameOf);

TEST_P(StoreTest, ATargetIsFoundByTheLocatorThatItsEngineGave) {
  TargetRow row = Row("share");
  row.locator = "shelf/7 'b'";
  ASSERT_TRUE(store_->AddTarget(row, nullptr).IsOk());
  ASSERT_TRUE(store_->FinishTarget("share").IsOk());
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

TEST_P(StoreTest, WhatIsNotWholeIsFoundOnlyByCallsThatSaySo) {
  const DRPlan plan = Plan("p", "source", "copy");
  ASSERT_TRUE(store_->AddTarget(Row("source"), nullptr).IsOk());
  ASSERT_TRUE(store_->FinishTarget("source").IsOk());
  const auto expectCopy = [&](bool isFound) {
    const std::vector<std::string> all{"copy", "source"};
    EXPECT_EQ(Targets(true), all);
    EXPECT_EQ(Targets(false), isFound ? all : std::vector<std::string>{"source"});
    std::optional<TargetRow> row;
    EXPECT_TRUE(store_->GetTarget("copy", row).IsOk());
    EXPECT_EQ(row.has_value(), isFound);
    EXPECT_TRUE(store_->GetTargetOfAnyState("copy", row).IsOk());
    EXPECT_TRUE(row);
    for (const char* side : {"source", "copy"}) {
      EXPECT_THAT(PlansOf(side, true), ElementsAre("p"));
      EXPECT_EQ(PlansOf(side, false).size(), isFound ? 1U : 0U);
    }
    std::vector<PlanRow> plans;
    EXPECT_TRUE(store_->Plans().ListPlans(plans).IsOk());
    EXPECT_EQ(plans.size(), isFound ? 1U : 0U);
    std::optional<PlanRow> found;
    EXPECT_TRUE(store_->Plans().GetPlan("p", found).IsOk());
    EXPECT_EQ(found.has_value(), isFound);
  };
  ASSERT_TRUE(store_->AddTarget(Row("copy"), &plan).IsOk());
  expectCopy(false);
  ASSERT_TRUE(store_->FinishTarget("copy").IsOk());
  expectCopy(true);
  ASSERT_TRUE(store_->Plans().BeginRemoval("p", "copy").IsOk());
  expectCopy(false);

  Snapshot snapshot;
  snapshot.snap_id = "s1";
  ASSERT_TRUE(store_->AddSnapshot("source", snapshot, nullptr).IsOk());
  EXPECT_THAT(Snapshots("source", false), IsEmpty());
  EXPECT_THAT(Snapshots("source", true), ElementsAre("s1"));
  ASSERT_TRUE(store_->FinishSnapshot("source", snapshot, 7).IsOk());
  EXPECT_THAT(Snapshots("source", false), ElementsAre("s1"));
  ASSERT_TRUE(store_->MarkSnapshotDeleting("source", snapshot).IsOk());
  EXPECT_THAT(Snapshots("source", false), IsEmpty());
  EXPECT_THAT(Snapshots("source", true), ElementsAre("s1"));
}

TEST_P(StoreTest, OneSnapshotIsFoundByItsNameAndOnlyWholeOnesAreCounted) {
  const auto expect = [&](const char* snapId, bool isRecorded, bool isWhole) {
    SCOPED_TRACE(snapId);
    std::optional<SnapshotRow> row;
    EXPECT_TRUE(store_->GetSnapshotOfAnyState("source", snapId, row).IsOk());
    EXPECT_EQ(row.has_value(), isRecorded);
    EXPECT_TRUE(store_->GetSnapshot("source", snapId, row).IsOk());
    EXPECT_EQ(row.has_value(), isWhole);
    if (isWhole && row) {
      EXPECT_EQ(row->snapshot.snap_id, snapId);
      EXPECT_EQ(row->snapshot.meta.description, "of source");
    }
  };
  const auto expectCount = [&](const char* targetId, std::uint64_t expected) {
    std::uint64_t count = 77;
    EXPECT_TRUE(store_->CountSnapshots(targetId, count).IsOk());
    EXPECT_EQ(count, expected) << targetId;
  };
  for (const char* targetId : {"source", "source2", "sourc"}) {
    ASSERT_TRUE(store_->AddTarget(Row(targetId), nullptr).IsOk());
    for (const char* snapId : {"s1", "s2", "s3", "s4"}) {
      Snapshot snapshot;
      snapshot.snap_id = snapId;
      snapshot.meta.description = std::string("of ") + targetId;
      ASSERT_TRUE(store_->AddSnapshot(targetId, snapshot, nullptr).IsOk());
      if (snapId == std::string("s3")) continue;
      ASSERT_TRUE(store_->FinishSnapshot(targetId, snapshot, 7).IsOk());
      if (snapId == std::string("s1")) {
        ASSERT_TRUE(store_->MarkSnapshotDeleting(targetId, snapshot).IsOk());
      }
    }
  }
  expect("s1", true, false);
  expect("s2", true, true);
  expect("s3", true, false);
  expect("s4", true, true);
  expect("s5", false, false);
  expectCount("source", 2);
  expectCount("other", 0);
  std::vector<SnapshotRow> rows;
  ASSERT_TRUE(store_->ListUnfinishedSnapshots("source", rows).IsOk());
  ASSERT_THAT(rows, testing::SizeIs(2));
  EXPECT_EQ(rows[0].snapshot.snap_id, "s1");
  EXPECT_EQ(rows[0].state, VrelDR::RecordState::kDeleting);
  EXPECT_EQ(rows[0].snapshot.meta.description, "of source");
  EXPECT_EQ(rows[1].snapshot.snap_id, "s3");
  EXPECT_EQ(rows[1].state, VrelDR::RecordState::kBuilding);
  ASSERT_TRUE(store_->RemoveTarget("source").IsOk());
  expectCount("source", 0);
  expectCount("source2", 2);
}

TEST_P(StoreTest, ASequenceNumberIsNeverGivenTwice) {
  const auto add = [&](const char* targetId, const char* snapId) {
    Snapshot snapshot;
    snapshot.snap_id = snapId;
    EXPECT_TRUE(store_->AddSnapshot(targetId, snapshot, nullptr).IsOk());
    EXPECT_TRUE(store_->FinishSnapshot(targetId, snapshot, 7).IsOk());
    return snapshot;
  };
  const Snapshot first = add("b", "s1");
  const Snapshot second = add("a", "s1");
  EXPECT_GT(second.sequence, first.sequence);
  ASSERT_TRUE(store_->RemoveSnapshot("a", second).IsOk());
  EXPECT_THAT(Snapshots("b", true), ElementsAre("s1")) << "of that name, and another target's";
  Reopen();
  const Snapshot third = add("a", "s1");
  EXPECT_GT(third.sequence, second.sequence);
  ASSERT_TRUE(store_->AddTarget(Row("a"), nullptr).IsOk());
  ASSERT_TRUE(store_->RemoveTarget("a").IsOk());
  Snapshot fourth;
  fourth.snap_id = "s0";
  ASSERT_TRUE(store_->AddSnapshots({{"b", &fourth}}).IsOk());
  EXPECT_GT(fourth.sequence, third.sequence);
  EXPECT_THAT(Snapshots("b", true), ElementsAre("s1", "s0"));
  // Failures give none away that others have got.
  Snapshot twice;
  twice.snap_id = "s0";
  EXPECT_FALSE(store_->AddSnapshot("b", twice, nullptr).IsOk());
  EXPECT_GT(add("b", "s2").sequence, fourth.sequence);
}

TEST_P(StoreTest, ATargetThatGoesTakesTheRecordsOfItsCutsAloneWithIt) {
  const std::string odd = "it's \"one\"";
  for (const char* each : {"alone", "common", "others"}) {
    VrelDR::CutInfo info;
    info.id = each;
    ASSERT_TRUE(store_->AddCut(info).IsOk());
  }
  const auto add = [&](const std::string& targetId, const char* cutId) {
    Snapshot snapshot;
    snapshot.snap_id = snapshot.cut_id = cutId;
    EXPECT_TRUE(store_->AddSnapshots({{targetId, &snapshot}}).IsOk());
  };
  add(odd, "alone");
  add(odd, "common");
  add("b", "common");
  add("b", "others");
  ASSERT_TRUE(store_->RemoveTarget(odd).IsOk());
  for (const std::string each : {"alone", "common", "others"}) {
    std::optional<VrelDR::CutInfo> row;
    EXPECT_TRUE(store_->GetCut(each, row).IsOk());
    EXPECT_EQ(row.has_value(), each != "alone") << each;
  }
}

// However many a target has, what is asked about one of them goes by indexes.
TEST_P(StoreTest, NoQuestionAboutOneSnapshotReadsTheOthers) {
  for (const char* query :
       {"SELECT * FROM snapshots WHERE target_id = 'a' ORDER BY seq",
        "SELECT * FROM snapshots WHERE target_id = 'a' AND snap_id = 's'",
        "SELECT * FROM unfinished_snapshots WHERE target_id = 'a' ORDER BY seq",
        "SELECT * FROM cut_snapshots WHERE cut_id = 'c'",
        "SELECT * FROM snapshot_counts WHERE target_id = 'a'",
        "UPDATE snapshots SET state = 3 WHERE target_id = 'a' AND seq = 7",
        "DELETE FROM cuts WHERE id IN (SELECT cut_id FROM snapshots WHERE target_id = 'a') AND NOT"
        " EXISTS (SELECT 1 FROM cut_snapshots WHERE cut_id = cuts.id AND target_id <> 'a')"}) {
    SCOPED_TRACE(query);
    const std::string plan = ExplainedBySqlite(Records(), query);
    EXPECT_THAT(plan, testing::HasSubstr("SEARCH"));
    EXPECT_THAT(plan, testing::Not(testing::HasSubstr("SCAN")));
    EXPECT_THAT(plan, testing::Not(testing::HasSubstr("TEMP B-TREE")));
  }
}

TEST_P(StoreTest, ATransactionOfWhichOneStepFailsLeavesNothingAndTheNextOneWorks) {
  AddPlan();
  const DRPlan sameId = Plan("p", "source", "other");
  EXPECT_EQ(store_->AddTarget(Row("other"), &sameId).code, VrelDR::kErrStore);
  EXPECT_THAT(Targets(true), ElementsAre("copy"));
  EXPECT_THAT(PlansOf("other", true), IsEmpty());
  EXPECT_TRUE(store_->AddTarget(Row("other"), nullptr).IsOk());
  EXPECT_THAT(Targets(true), ElementsAre("copy", "other"));
}

TEST_P(StoreTest, TheSnapshotsOfACutAreAddedTogetherAndItsRecordGoesWithTheLastOfThem) {
  Snapshot first, second;
  first.snap_id = second.snap_id = "s1";
  first.cut_id = second.cut_id = "cut";
  const auto isKnown = [&] {
    std::optional<VrelDR::CutInfo> row;
    EXPECT_TRUE(store_->GetCut("cut", row).IsOk());
    return row.has_value();
  };
  // Not twice for one target.
  EXPECT_FALSE(store_->AddSnapshots({{"source", &first}, {"source", &second}}).IsOk());
  EXPECT_THAT(Snapshots("source", true), IsEmpty());
  ASSERT_TRUE(store_->AddSnapshots({{"source", &first}, {"other", &second}}).IsOk());
  EXPECT_NE(first.sequence, second.sequence);
  EXPECT_THAT(Snapshots("source", false), IsEmpty());
  VrelDR::CutInfo info;
  info.id = "cut";
  info.grade = VrelDR::CutGrade::kWritersHeld;
  info.method = "copy";
  info.skew_ms = 7;
  info.held_ms = 4294967295;
  ASSERT_TRUE(store_->AddCut(info).IsOk());
  EXPECT_FALSE(store_->AddCut(info).IsOk());
  std::optional<VrelDR::CutInfo> row;
  ASSERT_TRUE(store_->GetCut("cut", row).IsOk() && row);
  EXPECT_EQ(row->grade, VrelDR::CutGrade::kWritersHeld);
  EXPECT_EQ(row->method, "copy");
  EXPECT_EQ(row->skew_ms, 7U);
  EXPECT_EQ(row->held_ms, 4294967295U);
  first.meta.description = "said when it was taken up";
  ASSERT_TRUE(store_->FinishSnapshot("source", first, 7).IsOk());
  std::vector<SnapshotRow> rows;
  ASSERT_TRUE(store_->ListSnapshots("source", rows).IsOk());
  ASSERT_THAT(rows, testing::SizeIs(1));
  EXPECT_EQ(rows[0].snapshot.meta.description, "said when it was taken up");
  EXPECT_EQ(rows[0].snapshot.cut_id, "cut");
  ASSERT_TRUE(store_->RemoveSnapshot("source", first).IsOk());
  EXPECT_TRUE(isKnown());
  ASSERT_TRUE(store_->RemoveTarget("other").IsOk());
  EXPECT_FALSE(isKnown());
}

TEST_P(StoreTest, WhatThePlanHoldsMovesToTheNewestSnapshotThatArrives) {
  const DRPlan plan = AddPlan();
  const PlanStore plans = store_->Plans();
  const auto arrive = [&](const char* snapId, bool isNewest) {
    Snapshot snapshot;
    snapshot.snap_id = snapId;
    ASSERT_TRUE(plans.AddPending("p", snapId).IsOk());
    ASSERT_TRUE(plans.TakeInHand(plan, snapId).IsOk());
    std::optional<PlanRow> row;
    ASSERT_TRUE(plans.GetPlan("p", row).IsOk() && row);
    EXPECT_EQ(row->hand_snap_id, snapId);
    ASSERT_TRUE(store_->AddArrived(Row("copy"), snapshot, plan, isNewest).IsOk());
    ASSERT_TRUE(plans.GetPlan("p", row).IsOk() && row);
    EXPECT_EQ(row->hand_snap_id, "");
    std::vector<std::string> pending;
    EXPECT_TRUE(plans.ListPending("p", pending).IsOk());
    EXPECT_THAT(pending, IsEmpty());
  };
  arrive("s1", true);
  EXPECT_THAT(Held("p"), ElementsAre("source s1", "copy s1"));
  arrive("s2", true);
  EXPECT_THAT(Held("p"), ElementsAre("source s2", "copy s2"));
  arrive("s0", false);
  EXPECT_THAT(Held("p"), ElementsAre("source s2", "copy s2"));
  EXPECT_THAT(Snapshots("copy", false), ElementsAre("s1", "s2", "s0"));
  arrive("s1", false);
  EXPECT_THAT(Snapshots("copy", false), ElementsAre("s2", "s0", "s1")) << "recorded once";
}

TEST_P(StoreTest, ATargetThatGoesTakesItsPlanWithItAndNothingOfOthers) {
  const DRPlan plan = AddPlan();
  const DRPlan other = Plan("q", "source", "mirror");
  ASSERT_TRUE(store_->AddTarget(Row("mirror"), &other).IsOk());
  ASSERT_TRUE(store_->FinishTarget("mirror").IsOk());
  const PlanStore plans = store_->Plans();
  for (const DRPlan& each : {plan, other}) {
    Snapshot snapshot;
    snapshot.snap_id = "s1";
    ASSERT_TRUE(store_->AddArrived(Row(each.GetDRTargetId()), snapshot, each, true).IsOk());
    ASSERT_TRUE(plans.AddPending(each.GetPlanId(), "s2").IsOk());
    ASSERT_TRUE(plans.WriteSyncReport(each.GetPlanId(), SyncRow(), 7).IsOk());
  }
  ASSERT_TRUE(plans.BeginRemoval("p", "copy").IsOk());
  ASSERT_TRUE(store_->RemoveTarget("copy").IsOk());
  EXPECT_THAT(Targets(true), ElementsAre("mirror"));
  EXPECT_THAT(PlansOf("source", true), ElementsAre("q"));
  EXPECT_THAT(Snapshots("copy", true), IsEmpty());
  EXPECT_THAT(Snapshots("mirror", true), ElementsAre("s1"));
  EXPECT_THAT(Held("p"), IsEmpty());
  EXPECT_THAT(Held("q"), ElementsAre("source s1", "mirror s1"));
  for (const char* planId : {"p", "q"}) {
    SCOPED_TRACE(planId);
    const bool isLeft = planId == other.GetPlanId();
    std::vector<std::string> pending;
    EXPECT_TRUE(plans.ListPending(planId, pending).IsOk());
    EXPECT_EQ(pending.size(), isLeft ? 1U : 0U);
    std::optional<SyncRow> report;
    EXPECT_TRUE(plans.GetSyncReport(planId, report).IsOk());
    EXPECT_EQ(report.has_value(), isLeft);
    JournalRow journal;
    EXPECT_TRUE(plans.GetJournal(planId, journal).IsOk());
    EXPECT_EQ(journal.op, isLeft ? VrelDR::kOpCreate : VrelDR::kOpNone);
  }
  ASSERT_TRUE(plans.RemovePlan("q").IsOk());
  EXPECT_THAT(PlansOf("source", true), IsEmpty());
  EXPECT_THAT(Held("q"), IsEmpty());
  EXPECT_THAT(Targets(true), ElementsAre("mirror"));
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
