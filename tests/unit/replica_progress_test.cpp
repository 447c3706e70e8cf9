#include <vreldrgroup/replication/replica_op.h>

#include <cstdint>
#include <limits>

#include "plan_test.h"

namespace unit {
namespace {

using VrelDRGroup::Operation::ReplicaProgressAppr;

constexpr std::uint64_t kHighest = std::numeric_limits<std::uint64_t>::max();

class ReplicaProgress : public PlanTest {
 protected:
  // What the sync of a plan has done of what it has to do.
  void Synced(const std::string& plan, std::uint64_t done, std::uint64_t total) {
    Json::Value& record = host.reports[{plan, VrelDR::kReportSync}]["record"];
    record["sync_size_byte"] = Json::Value::UInt64{done};
    record["total_size_byte"] = Json::Value::UInt64{total};
  }

  // What a plan does and how far it is.
  void Does(const std::string& plan, int operation, int percent) {
    Json::Value& journal = host.reports[{plan, VrelDR::kReportJournal}];
    journal["op_status"] = operation;
    journal["progress"] = percent;
  }

  // The progress of a task over the targets, from `before`.
  static int Of(const std::string& task, const std::set<std::string>& targets, int before = 0) {
    int progress = before;
    ReplicaProgressAppr(targets, task, progress);
    return progress;
  }
};

// --- Of a sync

TEST_F(ReplicaProgress, OfASyncIsWhatIsDoneOfAllThatIsToDo) {
  Synced("p1", 50, 200);
  Synced("p2", 150, 200);
  EXPECT_EQ(Of("sync", {"t1", "t2"}), 50);
  EXPECT_THAT(host.calls,
              ElementsAre(Select("t1"), Select("t2"), "PlanReporter(p1, 3).ReadReport()",
                          "PlanReporter(p2, 3).ReadReport()"));
  EXPECT_EQ(Of("tmp_sync", {"t1", "t2"}), 50);
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(ReplicaProgress, OfASyncNeverFalls) {
  Synced("p1", 50, 200);
  EXPECT_EQ(Of("sync", {"t1"}, 70), 70);
  EXPECT_EQ(Of("sync", {"t1"}, 25), 25);
  EXPECT_EQ(Of("sync", {"t1"}, 24), 25);
  EXPECT_EQ(Of("sync", {"t1"}, -5), 25);
}

TEST_F(ReplicaProgress, OfASyncIsCutOffNotRounded) {
  Synced("p1", 2, 3);
  EXPECT_EQ(Of("sync", {"t1"}), 66);
  Synced("p1", 999, 1000);
  EXPECT_EQ(Of("sync", {"t1"}), 99);
  Synced("p1", 1, 101);
  EXPECT_EQ(Of("sync", {"t1"}), 0);
}

TEST_F(ReplicaProgress, OfASyncReachesAHundred) {
  Synced("p1", 7, 7);
  EXPECT_EQ(Of("sync", {"t1"}), 100);
}

TEST_F(ReplicaProgress, OfASyncWithMoreDoneThanToDoStays) {
  Synced("p1", 8, 7);
  EXPECT_EQ(Of("sync", {"t1"}, 3), 3);
}

TEST_F(ReplicaProgress, OfASyncWithNothingToDoStays) {
  Synced("p1", 0, 0);
  EXPECT_EQ(Of("sync", {"t1"}, 3), 3);
}

TEST_F(ReplicaProgress, OfASyncCountsWithAllBitsOfItsSums) {
  Synced("p1", std::uint64_t{3} << 40, std::uint64_t{1} << 42);
  Synced("p2", std::uint64_t{1} << 40, std::uint64_t{1} << 42);
  EXPECT_EQ(Of("sync", {"t1", "t2"}), 50);
  Synced("p1", kHighest / 2, kHighest);
  EXPECT_EQ(Of("sync", {"t1"}), 50);
  Synced("p1", kHighest, kHighest);
  EXPECT_EQ(Of("sync", {"t1"}), 100);
}

TEST_F(ReplicaProgress, OfASyncWhoseSumOverflowsWrapsAround) {
  Synced("p1", 10, kHighest);
  Synced("p2", 5, 21);
  EXPECT_EQ(Of("sync", {"t1", "t2"}), 75);
}

TEST_F(ReplicaProgress, OfASyncCountsAReportWithoutRecordAsNothing) {
  Synced("p1", 50, 100);
  host.reports[{"p2", VrelDR::kReportSync}] = Json(R"({"state": "running"})");
  EXPECT_EQ(Of("sync", {"t1", "t2"}), 50);
}

TEST_F(ReplicaProgress, OfASyncStaysWhenAnyReportCannotBeRead) {
  Synced("p1", 50, 100);
  Synced("p3", 50, 100);
  EXPECT_EQ(Of("sync", {"t1", "t2", "t3"}, 3), 3);
  EXPECT_THAT(host.calls, testing::Not(testing::Contains("PlanReporter(p3, 3).ReadReport()")));
}

TEST_F(ReplicaProgress, OfASyncStaysWhenATargetHasNoPlan) {
  Synced("p1", 50, 100);
  EXPECT_EQ(Of("sync", {"t1", "unknown"}, 3), 3);
  EXPECT_THAT(host.calls, ElementsAre(Select("t1"), Select("unknown")));
}

TEST_F(ReplicaProgress, OfASyncWithoutTargetsStays) {
  EXPECT_EQ(Of("sync", {}, 3), 3);
  EXPECT_EQ(Of("sync", {}, -3), -3);
  EXPECT_THAT(host.calls, IsEmpty());
}

// --- Of another action

TEST_F(ReplicaProgress, OfAnActionIsTheMeanOfItsTargets) {
  host.plans["t4"] = {MakePlan("p4", "t4")};
  Does("p1", VrelDR::kOpSwitchover, 100);
  Does("p2", VrelDR::kOpFailover, 100);
  Does("p3", VrelDR::kOpSwitchover, 100);
  Does("p4", VrelDR::kOpNone, 100);
  EXPECT_EQ(Of("switchover", {"t1", "t2", "t3", "t4"}), 50);
  EXPECT_THAT(host.calls, ElementsAre(Select("t1"), Select("t2"), Select("t3"), Select("t4"),
                                      "SiteOPJournalReporter(p1, 4).ReadReport()",
                                      "SiteOPJournalReporter(p2, 4).ReadReport()",
                                      "SiteOPJournalReporter(p3, 4).ReadReport()",
                                      "SiteOPJournalReporter(p4, 4).ReadReport()"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(ReplicaProgress, OfAnActionDividesWithoutFractions) {
  Does("p1", VrelDR::kOpFailover, 100);
  Does("p2", VrelDR::kOpFailover, 100);
  Does("p3", VrelDR::kOpFailover, 99);
  EXPECT_EQ(Of("failover", {"t1", "t2", "t3"}), 99);
}

TEST_F(ReplicaProgress, OfAnActionNeverFalls) {
  Does("p1", VrelDR::kOpFailover, 40);
  EXPECT_EQ(Of("failover", {"t1"}, 70), 70);
  EXPECT_EQ(Of("failover", {"t1"}, 39), 40);
  EXPECT_EQ(Of("reprotect", {"t1"}, -1), 0);
}

TEST_F(ReplicaProgress, OfAnActionDividesByTargetsAndNotByPlans) {
  host.plans["t2"] = host.plans["t1"];
  Does("p1", VrelDR::kOpFailover, 100);
  EXPECT_EQ(Of("failover", {"t1", "t2"}), 50);
}

TEST_F(ReplicaProgress, OfAnActionStaysWhenAnyJournalCannotBeRead) {
  Does("p1", VrelDR::kOpFailover, 100);
  Does("p3", VrelDR::kOpFailover, 100);
  EXPECT_EQ(Of("failover", {"t1", "t2", "t3"}, 3), 3);
}

TEST_F(ReplicaProgress, OfAnActionStaysWhenATargetHasNoPlan) {
  Does("p1", VrelDR::kOpFailover, 100);
  EXPECT_EQ(Of("failover", {"t1", "unknown"}, 3), 3);
}

TEST_F(ReplicaProgress, OfAnActionWithoutTargetsStays) {
  EXPECT_EQ(Of("failover", {}, 3), 3);
  EXPECT_EQ(Of("failover", {}, 0), 0);
}

TEST_F(ReplicaProgress, OfAnActionTakesJournalsOfAbsurdNumbers) {
  const int highest = std::numeric_limits<int>::max();
  Does("p1", VrelDR::kOpFailover, highest);
  Does("p2", VrelDR::kOpFailover, highest);
  EXPECT_EQ(Of("failover", {"t1", "t2"}), highest);
}

// The journal of each action, by the name of its task.
TEST_F(ReplicaProgress, KnowsTheJournalsOfActionsByTheirNames) {
  const std::pair<const char*, int> names[] = {
      {"create", VrelDR::kOpCreate},         {"stop", VrelDR::kOpStop},
      {"delete", VrelDR::kOpDelete},         {"edit", VrelDR::kOpEdit},
      {"switchover", VrelDR::kOpSwitchover}, {"failover", VrelDR::kOpFailover},
      {"reprotect", VrelDR::kOpReprotect},
  };
  for (const auto& [task, operation] : names) {
    Does("p1", operation, 30);
    for (const auto& [other, number] : names) {
      EXPECT_EQ(Of(other, {"t1"}), number == operation ? 30 : 0) << task << " " << other;
    }
  }
}

}  // namespace
}  // namespace unit
