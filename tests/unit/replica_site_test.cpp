#include <vreldrgroup/replication/replica_op.h>

#include "plan_test.h"

namespace unit {
namespace {

using VrelDRGroup::Operation::DrSnapRollback;
using VrelDRGroup::Operation::GsnapToPendingSnapOp;
using VrelDRGroup::Operation::PendingSnapOp;
using VrelDRGroup::Operation::PlanSitePromote;

class ReplicaSite : public PlanTest {
 protected:
  static auto Said(const std::string& message) {
    return ShortErr("replication/replica_op", message);
  }
};

// --- Promoting a site

class SitePromotion : public ReplicaSite {
 protected:
  const std::string ran = "SitePromote(p2).Run(false)";
};

TEST_F(SitePromotion, RunsOnTheWholePlan) {
  EXPECT_EQ(PlanSitePromote("t2"), 0);
  EXPECT_THAT(host.calls,
              ElementsAre(Select("t2"), "SitePromote(" + PlanText("p2", "t2") + ")", ran));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(SitePromotion, SaysWhyItFailed) {
  host.failures[ran] = {442, Json(R"({"why": "%s"})")};
  host.code_texts[442] = "not now";
  EXPECT_EQ(PlanSitePromote("t2"), -1);
  EXPECT_THAT(log.Entries(),
              ElementsAre(Said("Failed to promote, Err [{\"err_code\":442,\"err_code_str\":"
                               "\"not now\",\"err_msg\":{\"why\":\"%s\"}}]")));
}

TEST_F(SitePromotion, SaysTheCodeAloneWhenThereIsNothingElse) {
  host.failures[ran] = {442, {}};
  EXPECT_EQ(PlanSitePromote("t2"), -1);
  EXPECT_THAT(log.Entries(), ElementsAre(Said("Failed to promote, Err [{\"err_code\":442}]")));
}

TEST_F(SitePromotion, NeedsExactlyOnePlan) {
  host.plans.erase("t1");
  GiveSecondPlan("t2");
  EXPECT_EQ(PlanSitePromote("t1"), -1);
  EXPECT_EQ(PlanSitePromote("t2"), -1);
  EXPECT_THAT(log.Entries(), ElementsAre(Said("Failed to get DRPlan of target [t1]"),
                                         Said("Failed to get DRPlan of target [t2]")));
  EXPECT_THAT(host.calls, ElementsAre(Select("t1"), Select("t2")));
}

TEST_F(SitePromotion, NeedsALookUpThatSucceeds) {
  RefuseSelection("t2");
  EXPECT_EQ(PlanSitePromote("t2"), -1);
  EXPECT_THAT(log.Entries(),
              ElementsAre(LookUpFailed(), Said("Failed to get DRPlan of target [t2]")));
}

// --- Dropping the last snapshot that was replicated

class SnapshotRollback : public ReplicaSite {
 protected:
  SnapshotRollback() {
    host.reports[{"p2", VrelDR::kReportRetentionLock}] = Json(R"({"snapshots": ["s1", "s2"]})");
  }

  // The calls up to and with the release of the lock on a snapshot.
  static std::vector<std::string> Released(const std::string& snapshot) {
    return {Select("t2"), "CreateTarget(1, t2)", "RetentionLockReporter(p2, 2).ReadReport()",
            "GetRetentionLocker(p2)", Release(snapshot)};
  }
  static std::string Release(const std::string& snapshot) {
    return "ReleaseRetentionLock(t2, " + snapshot + ", plan p2)";
  }

  // The calls must be `first` and then `rest`.
  void ExpectCalls(std::vector<std::string> first, const std::vector<std::string>& rest) const {
    first.insert(first.end(), rest.begin(), rest.end());
    EXPECT_EQ(host.calls, first);
  }
};

TEST_F(SnapshotRollback, ReleasesTheLockOfTheLastSnapshotAndDeletesIt) {
  EXPECT_EQ(DrSnapRollback("t2"), 0);
  ExpectCalls(Released("s2"), {"ProtectedTarget.DeleteSnapshot(t2, s2)", "~ProtectedTarget(t2)"});
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(SnapshotRollback, DeletesNothingThatCannotBeReleased) {
  host.failures[Release("s2")] = {418, {}};
  EXPECT_EQ(DrSnapRollback("t2"), -1);
  ExpectCalls(Released("s2"), {"~ProtectedTarget(t2)"});
  EXPECT_THAT(log.Entries(), ElementsAre(Said("Failed to unlock retention lock of snapshot [s2], "
                                              "locker [plan p2]")));
}

TEST_F(SnapshotRollback, SaysWhichSnapshotCannotBeDeleted) {
  host.failures["ProtectedTarget.DeleteSnapshot(t2, s2)"] = {418, {}};
  EXPECT_EQ(DrSnapRollback("t2"), -1);
  ExpectCalls(Released("s2"), {"ProtectedTarget.DeleteSnapshot(t2, s2)", "~ProtectedTarget(t2)"});
  EXPECT_THAT(log.Entries(), ElementsAre(Said("Failed to delete snapshot [s2] of target [t2]")));
}

TEST_F(SnapshotRollback, GoesOnWithAnEmptySnapshotWhenThePlanTellsNone) {
  host.reports.clear();
  host.failures[Release("\"\"")] = {418, {}};
  EXPECT_EQ(DrSnapRollback("t2"), -1);
  ExpectCalls(Released("\"\""), {"~ProtectedTarget(t2)"});
  EXPECT_THAT(log.Entries(), ElementsAre(Said("Failed to unlock retention lock of snapshot [], "
                                              "locker [plan p2]")));
}

TEST_F(SnapshotRollback, FailsWhenTheHostHasNoObjectForTheTarget) {
  host.failures["CreateTarget(1, t2)"] = {};
  EXPECT_EQ(DrSnapRollback("t2"), -1);
  EXPECT_THAT(host.calls, testing::Not(testing::Contains(testing::HasSubstr("DeleteSnapshot"))));
  EXPECT_THAT(log.Entries(), ElementsAre(Said("Failed to unlock retention lock of snapshot [s2], "
                                              "locker [plan p2]")));
}

TEST_F(SnapshotRollback, NeedsExactlyOnePlan) {
  host.plans.erase("t1");
  GiveSecondPlan("t2");
  EXPECT_EQ(DrSnapRollback("t1"), -1);
  EXPECT_EQ(DrSnapRollback("t2"), -1);
  EXPECT_THAT(log.Entries(), ElementsAre(Said("Failed to select plans of target [t1]"),
                                         Said("Failed to select plans of target [t2]")));
  EXPECT_THAT(host.calls, ElementsAre(Select("t1"), Select("t2")));
}

TEST_F(SnapshotRollback, NeedsALookUpThatSucceeds) {
  RefuseSelection("t2");
  EXPECT_EQ(DrSnapRollback("t2"), -1);
  EXPECT_THAT(log.Entries(),
              ElementsAre(LookUpFailed(), Said("Failed to select plans of target [t2]")));
}

// --- The snapshots that are still to be sent

// A group snapshot of t2, whose type is 3, and of t1.
class PendingSnapshots : public ReplicaSite {
 protected:
  PendingSnapshots() {
    MakeCatalogue();
    AddMeta(id, 10);
    AddSnap("t2", 3, "s2", id);
    AddSnap("t1", 1, "s1", id);
    host.targets["t1"].snapshots = {Snap(11, "s1")};
    host.targets["t2"].snapshots = {Snap(12, "s2")};
  }

  static auto NotDone(int op, const std::string& snapshot) {
    return Said("Failed to do the operation [" + std::to_string(op) + "] for the taken snapshot [" +
                snapshot + "] to pending list.");
  }

  const std::string id = "g1-gsnap-10";
};

TEST_F(PendingSnapshots, AreAddedInTheOrderOfTheRows) {
  EXPECT_EQ(GsnapToPendingSnapOp(id, PendingSnapOp::kAdd), 0);
  EXPECT_THAT(host.calls, ElementsAre("TargetOperation(t2, 3)", "GetSnapshot(t2, s2)", Select("t2"),
                                      "PendingSnapReporter(p2).Add(s2 of 12)",
                                      "TargetOperation(t1, 1)", "GetSnapshot(t1, s1)", Select("t1"),
                                      "PendingSnapReporter(p1).Add(s1 of 11)"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(PendingSnapshots, AreRemovedInTheOrderOfTheRows) {
  EXPECT_EQ(GsnapToPendingSnapOp(id, PendingSnapOp::kRemove), 0);
  EXPECT_THAT(host.calls, ElementsAre("TargetOperation(t2, 3)", "GetSnapshot(t2, s2)", Select("t2"),
                                      "PendingSnapReporter(p2).Remove(s2 of 12)",
                                      "TargetOperation(t1, 1)", "GetSnapshot(t1, s1)", Select("t1"),
                                      "PendingSnapReporter(p1).Remove(s1 of 11)"));
}

TEST_F(PendingSnapshots, HaveTheNumbersThatCallersStore) {
  EXPECT_EQ(static_cast<int>(PendingSnapOp::kAdd), 0);
  EXPECT_EQ(static_cast<int>(PendingSnapOp::kRemove), 1);
}

TEST_F(PendingSnapshots, KnowNoOtherOperationAndThenReadNoCatalogue) {
  for (const int number : {2, -1}) {
    core.Clear();
    log.Clear();
    EXPECT_EQ(GsnapToPendingSnapOp(id, static_cast<PendingSnapOp>(number)), -1);
    EXPECT_THAT(log.Entries(), ElementsAre(Said("Bad PendingSnapOp, " + std::to_string(number))));
    EXPECT_THAT(core.Of({"SqliteDB"}), IsEmpty());
    EXPECT_THAT(host.calls, IsEmpty());
  }
}

TEST_F(PendingSnapshots, NeedAGroupSnapshot) {
  EXPECT_EQ(GsnapToPendingSnapOp("g1-gsnap-11", PendingSnapOp::kAdd), -1);
  EXPECT_THAT(log.Entries(), ElementsAre(Err("snapshot/gsnap_op.cpp", "GsnapshotGet",
                                             "gsnap[g1-gsnap-11] is not existed"),
                                         Said("Failed to get info of gsnap [g1-gsnap-11]")));
  EXPECT_THAT(host.calls, IsEmpty());
}

TEST_F(PendingSnapshots, OfAGroupSnapshotWithoutTargetsAreNone) {
  AddMeta("g1-gsnap-11", 11);
  EXPECT_EQ(GsnapToPendingSnapOp("g1-gsnap-11", PendingSnapOp::kAdd), 0);
  EXPECT_THAT(host.calls, IsEmpty());
}

TEST_F(PendingSnapshots, BeforeTheOneThatFailsStayAsTheyAre) {
  for (const PendingSnapOp op : {PendingSnapOp::kAdd, PendingSnapOp::kRemove}) {
    const std::string name = op == PendingSnapOp::kAdd ? "Add" : "Remove";
    host.calls.clear();
    log.Clear();
    host.failures["PendingSnapReporter(p1)." + name + "(s1 of 11)"] = {404, {}};
    EXPECT_EQ(GsnapToPendingSnapOp(id, op), -1);
    EXPECT_THAT(log.Entries(), ElementsAre(NotDone(static_cast<int>(op), "s1")));
    EXPECT_THAT(host.calls,
                testing::Contains("PendingSnapReporter(p2)." + name + "(s2 of 12)").Times(1));
    EXPECT_THAT(host.calls, testing::SizeIs(8));
  }
}

TEST_F(PendingSnapshots, EndAtTheFirstThatFails) {
  host.failures["PendingSnapReporter(p2).Add(s2 of 12)"] = {404, {}};
  EXPECT_EQ(GsnapToPendingSnapOp(id, PendingSnapOp::kAdd), -1);
  EXPECT_THAT(log.Entries(), ElementsAre(NotDone(0, "s2")));
  EXPECT_THAT(host.calls, testing::SizeIs(4));
}

TEST_F(PendingSnapshots, EndAtATargetWithoutOnePlan) {
  GiveSecondPlan("t2");
  EXPECT_EQ(GsnapToPendingSnapOp(id, PendingSnapOp::kAdd), -1);
  EXPECT_THAT(log.Entries(), ElementsAre(Said("Failed to select a plan on target [t2]")));
  EXPECT_THAT(host.calls,
              ElementsAre("TargetOperation(t2, 3)", "GetSnapshot(t2, s2)", Select("t2")));
}

TEST_F(PendingSnapshots, EndAtATargetWhosePlansCannotBeLookedUp) {
  RefuseSelection("t1");
  EXPECT_EQ(GsnapToPendingSnapOp(id, PendingSnapOp::kRemove), -1);
  EXPECT_THAT(log.Entries(),
              ElementsAre(LookUpFailed(), Said("Failed to select a plan on target [t1]")));
  EXPECT_THAT(host.calls, testing::Contains("PendingSnapReporter(p2).Remove(s2 of 12)"));
}

TEST_F(PendingSnapshots, AreHandedOnEmptyWhenTheTargetDoesNotHaveThem) {
  host.targets["t2"].snapshots.clear();
  host.failures["PendingSnapReporter(p2).Add( of 0)"] = {622, {}};
  EXPECT_EQ(GsnapToPendingSnapOp(id, PendingSnapOp::kAdd), -1);
  EXPECT_THAT(log.Entries(), ElementsAre(NotDone(0, "s2")));
}

}  // namespace
}  // namespace unit
