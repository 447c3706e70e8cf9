#include "gsnap_sync_fixture.h"

namespace unit {
namespace {

using VrelDR::Target;
using VrelDRGroup::Operation::GsnapshotSync;

class GsnapSyncFailure : public GsnapSync {
 protected:
  // Of t1, and of both targets, under the group snapshot's identifier.
  const std::string firstRow = "'t1'|1|'s1'|'g1-gsnap-1700000000'";
  const std::string secondRow = "'t2'|3|'s2'|'g1-gsnap-1700000000'";
};

// --- Before any target

TEST_F(GsnapSyncFailure, RefusesAGroupWithoutIdentifier) {
  groupId = "";
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), R"({"err_code":401})");
  EXPECT_THAT(log.Entries(), ElementsAre(LongSaid("Run", "Empty group id")));
  EXPECT_THAT(host.calls, IsEmpty());
  EXPECT_THAT(core.OfPlatform(), IsEmpty());
}

TEST_F(GsnapSyncFailure, RefusesAGroupWithoutTargets) {
  targets.clear();
  groupId = "g%s%n";
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), R"({"err_code":401})");
  EXPECT_THAT(log.Entries(),
              ElementsAre(LongSaid("Run", "Empty targets of group [g%s%n] to take snapshot")));
  EXPECT_THAT(core.OfPlatform(), IsEmpty());
  EXPECT_FALSE(Exists(dbDir));
}

TEST_F(GsnapSyncFailure, RefusesAnEmptyDirectoryInSilence) {
  dir = "";
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), R"({"err_code":401})");
  EXPECT_THAT(log.Entries(), IsEmpty());
  EXPECT_THAT(host.calls, IsEmpty());
}

TEST_F(GsnapSyncFailure, NamesOnlyTheScriptWhenTheCatalogueCannotBeMade) {
  WriteScript("#!/bin/sh\nexit 1\n");
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), R"({"err_code":404})");
  EXPECT_THAT(log.Entries(),
              testing::Each(testing::Field(&test_support::LogEntry::text,
                                           testing::Not(testing::HasSubstr("gsnap_sync")))));
  EXPECT_THAT(host.calls, IsEmpty());
}

// --- At a target that does not exist

TEST_F(GsnapSyncFailure, OfAMissingFirstTargetAsksNothingElse) {
  host.targets["t1"].exists = false;
  EXPECT_FALSE(Run());
  const std::string err = R"({"err_code":634,"err_msg":)" + one + "}";
  EXPECT_EQ(ErrText(), err);
  EXPECT_THAT(host.calls, ElementsAre("TargetOperation(t1, 1)", "IsExisted(t1)"));
  EXPECT_THAT(log.Entries(), ElementsAre(LongSaid("SyncTargetSnapshot",
                                                  "Failed to sync snapshot of target [" + one +
                                                      "] of group[g1] since target is not existed"),
                                         TargetFailed(one, err)));
  EXPECT_THAT(SnapRows(), IsEmpty());
}

TEST_F(GsnapSyncFailure, OfALaterTargetLeavesTheRowsOfThoseBefore) {
  host.targets["t2"].exists = false;
  replicaMap["t1"] = "r1";
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), R"({"err_code":634,"err_msg":)" + two + "}");
  EXPECT_THAT(SnapRows(), ElementsAre(firstRow));
  EXPECT_THAT(ReplicaRows(), ElementsAre("'t1'|'r1'|'g1-gsnap-1700000000'"));
  EXPECT_THAT(MetaRows(), IsEmpty());
}

TEST_F(GsnapSyncFailure, DoesNotAttemptTheTargetsAfterTheFailingOne) {
  targets = {Target("t1", 1), Target("gone", 2), Target("t2", 3)};
  EXPECT_FALSE(Run());
  EXPECT_THAT(host.calls, testing::Not(testing::Contains("TargetOperation(t2, 3)")));
}

// --- At a target for which nothing has arrived: the code stays 407

TEST_F(GsnapSyncFailure, OfATargetWithoutPlanHasCode407) {
  host.plans.erase("t2");
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), kNotCompleted);
  EXPECT_EQ(host.calls,
            Join(CallsOfFirst(), {"TargetOperation(t2, 3)", "IsExisted(t2)", Select("t2")}));
  EXPECT_THAT(log.Entries(), ElementsAre(NothingArrived("t2"), TargetFailed(two, kNotCompleted)));
  EXPECT_THAT(SnapRows(), ElementsAre(firstRow));
  EXPECT_THAT(MetaRows(), IsEmpty());
}

TEST_F(GsnapSyncFailure, OfAPlanThatCannotBeLookedUpHasCode407) {
  RefuseSelection("t1");
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), kNotCompleted);
  EXPECT_THAT(log.Entries(),
              ElementsAre(LookUpFailed(), NothingArrived("t1"), TargetFailed(one, kNotCompleted)));
  EXPECT_THAT(SnapRows(), IsEmpty());
}

TEST_F(GsnapSyncFailure, OfAPlanThatHasBroughtNothingOverHasCode407) {
  Arrived("p1", "[]");
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), kNotCompleted);
  EXPECT_EQ(host.calls, CallsOf("1", 1));
  EXPECT_THAT(log.Entries(), ElementsAre(NothingArrived("t1"), TargetFailed(one, kNotCompleted)));
  EXPECT_THAT(SnapRows(), IsEmpty());
}

TEST_F(GsnapSyncFailure, OfAPlanThatTellsNothingHasCode407) {
  host.reports.erase({"p2", VrelDR::kReportRetentionLock});
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), kNotCompleted);
  EXPECT_THAT(log.Entries(), ElementsAre(NothingArrived("t2"), TargetFailed(two, kNotCompleted)));
  EXPECT_THAT(SnapRows(), ElementsAre(firstRow));
}

TEST_F(GsnapSyncFailure, LeavesTheErrorOfATargetThatIsTriedAlone) {
  group.emplace(targets, groupId);
  sync.emplace(*group, meta, dir, replicaMap);
  sync->SetErr(5, Json("\"before\""));
  Arrived("p1", "[]");
  EXPECT_FALSE(sync->SyncTargetSnapshot(Target("t1", 1)));
  EXPECT_EQ(ErrText(), R"({"err_code":5,"err_msg":"before"})");
}

// --- At a catalogue that refuses

TEST_F(GsnapSyncFailure, OfATargetsRecordHasCode404AndDeletesNothing) {
  MakeCatalogue();
  host.on_call = [&](const std::string& call) {
    if (call == "IsExisted(t2)") Refuse("INSERT", "target_snap_list");
  };
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), R"({"err_code":404})");
  EXPECT_EQ(host.calls, Join(CallsOfFirst(), CallsOf("2", 3)));
  EXPECT_THAT(log.Entries(),
              ElementsAre(LongSaid("SyncTargetSnapshot",
                                   "Failed to set snapshot record of target[" + two + "]/snap[s2]"),
                          TargetFailed(two, R"({"err_code":404})")));
  EXPECT_THAT(SnapRows(), ElementsAre(firstRow));
  EXPECT_THAT(MetaRows(), IsEmpty());
}

TEST_F(GsnapSyncFailure, OfAReplicasRecordLeavesThatTargetsRow) {
  MakeCatalogue();
  replicaMap["t1"] = "r1";
  Refuse("INSERT", "target_replica_list");
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), R"({"err_code":404})");
  EXPECT_EQ(host.calls, CallsOfFirst());
  EXPECT_THAT(log.Entries(), ElementsAre(LongSaid("SyncTargetSnapshot",
                                                  "Failed to set replica record of target [t1]"),
                                         TargetFailed(one, R"({"err_code":404})")));
  EXPECT_THAT(SnapRows(), ElementsAre(firstRow));
  EXPECT_THAT(MetaRows(), IsEmpty());
}

TEST_F(GsnapSyncFailure, OfTheGroupsRowLeavesAllOthers) {
  MakeCatalogue();
  replicaMap["t1"] = "r1";
  replicaMap["t2"] = "r2";
  Refuse("INSERT", "gsnap_meta");
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), R"({"err_code":404})");
  EXPECT_THAT(log.Entries(), ElementsAre(LongSaid("DoSyncSnapshot",
                                                  "Failed to set snapshot record of "
                                                  "group[g1]/gsnapId[g1-gsnap-1700000000]")));
  EXPECT_THAT(SnapRows(), ElementsAre(firstRow, secondRow));
  EXPECT_THAT(ReplicaRows(), testing::SizeIs(2));
  EXPECT_THAT(MetaRows(), IsEmpty());
}

TEST_F(GsnapSyncFailure, OfASnapshotThatTheTargetDoesNotHaveIsFoundAtTheGroupsRow) {
  targets = {Target("t1", 1)};
  host.targets["t1"].snapshots.clear();
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), R"({"err_code":401})");
  EXPECT_THAT(log.Entries(),
              testing::Contains(LongSaid("DoSyncSnapshot",
                                         "Failed to set snapshot record of group[g1]/gsnapId[]")));
  EXPECT_THAT(MetaRows(), IsEmpty());
}

TEST_F(GsnapSyncFailure, OfWhatIsRecordedAlreadyIsFoundAtTheGroupsRow) {
  EXPECT_TRUE(Run());
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), R"({"err_code":404})");
  EXPECT_THAT(log.Entries(), ElementsAre(LongSaid("DoSyncSnapshot",
                                                  "Failed to set snapshot record of "
                                                  "group[g1]/gsnapId[g1-gsnap-1700000000]")));
  EXPECT_THAT(SnapRows(), ElementsAre(firstRow, secondRow, firstRow, secondRow));
  EXPECT_THAT(MetaRows(), testing::SizeIs(1));
}

// --- At a map that does not name the target

TEST_F(GsnapSyncFailure, OfATargetThatTheMapHasNotHasCode407AndKeepsItsRow) {
  replicaMap["t1"] = "r1";
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), kNotCompleted);
  EXPECT_THAT(log.Entries(), ElementsAre(LongSaid("SyncTargetSnapshot",
                                                  "Failed to get dst_target_id of target [t2]"),
                                         TargetFailed(two, kNotCompleted)));
  EXPECT_THAT(SnapRows(), ElementsAre(firstRow, secondRow));
  EXPECT_THAT(ReplicaRows(), ElementsAre("'t1'|'r1'|'g1-gsnap-1700000000'"));
  EXPECT_THAT(MetaRows(), IsEmpty());
}

TEST_F(GsnapSyncFailure, OfAMapThatIsNoObjectHasCode407) {
  for (const char* wrong : {"7", "\"t1\"", "[\"t1\"]", "true"}) {
    log.Clear();
    replicaMap = Json(wrong);
    EXPECT_FALSE(Run());
    EXPECT_EQ(ErrText(), kNotCompleted) << wrong;
    EXPECT_THAT(log.Entries(), ElementsAre(LongSaid("SyncTargetSnapshot",
                                                    "Failed to get dst_target_id of target [t1]"),
                                           TargetFailed(one, kNotCompleted)));
  }
}

// --- In the log

TEST_F(GsnapSyncFailure, LogsIdentifiersWithFormatsAsTheyAre) {
  targets = {Target("%s%n%d", 1)};
  host.targets["%s%n%d"].exists = true;
  EXPECT_FALSE(Run());
  EXPECT_THAT(log.Entries(), ElementsAre(NothingArrived("%s%n%d"),
                                         TargetFailed(R"({"target_id":"%s%n%d","target_type":1})",
                                                      kNotCompleted)));
}

// Whoever derives from the operation may tell the error in words of its own.
class WithOwnError : public GsnapshotSync {
 public:
  using GsnapshotSync::GsnapshotSync;
  Json::Value GetErr() const override { return Json(R"({"own": 1})"); }
};

TEST_F(GsnapSyncFailure, IsLoggedInTheWordsOfTheOperationsOwnGetErr) {
  const VrelDRGroup::TargetList gone({Target("gone", 1)}, "g1");
  WithOwnError operation(gone, meta, dir, replicaMap);
  EXPECT_FALSE(operation.Run());
  EXPECT_THAT(log.Entries(), testing::Contains(TargetFailed(
                                 R"({"target_id":"gone","target_type":1})", R"({"own":1})")));
}

}  // namespace
}  // namespace unit
