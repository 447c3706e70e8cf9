#include <filesystem>

#include "gsnap_create_fixture.h"
#include "record_values.h"

namespace unit {
namespace {

using VrelDR::Target;
using VrelDRGroup::Operation::GsnapshotCreate;

class GsnapCreateFailure : public GsnapCreate {
 protected:
  auto Said(const std::string& function, const std::string& message) const {
    return Err(kUnit, function, message);
  }
};

TEST_F(GsnapCreateFailure, RefusesAGroupWithoutTargets) {
  targets.clear();
  groupId = "g%s%n";
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), R"({"err_code":401})");
  EXPECT_THAT(log.Entries(),
              ElementsAre(Said("Run", "Empty targets of group [g%s%n] to take snapshot")));
  EXPECT_THAT(core.OfPlatform(), IsEmpty());
  EXPECT_FALSE(Exists(dbDir));
}

TEST_F(GsnapCreateFailure, RefusesAnEmptyDirectoryInSilenceBeforeAnyTarget) {
  dir = "";
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), R"({"err_code":401})");
  EXPECT_THAT(log.Entries(), IsEmpty());
  EXPECT_THAT(host.calls, IsEmpty());
}

TEST_F(GsnapCreateFailure, NamesOnlyTheScriptWhenTheCatalogueCannotBeMade) {
  std::filesystem::remove(kScript);
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), R"({"err_code":404})");
  EXPECT_THAT(log.Entries(),
              ElementsAre(Err("db", "RepairDRGroupDBByDBDir",
                              "[" + kScript + "] is not existed to init db [" + dbPath + "]")));
  EXPECT_THAT(host.calls, IsEmpty());
}

TEST_F(GsnapCreateFailure, OfAMissingFirstTargetTakesNoSnapshotAnywhere) {
  host.targets["t1"].exists = false;
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), R"({"err_code":634,"err_msg":)" + one + "}");
  EXPECT_THAT(host.calls, ElementsAre("TargetOperation(t1, 1)", "IsExisted(t1)"));
  EXPECT_THAT(
      log.Entries(),
      ElementsAre(Said("TakeTargetSnapshot", "Failed to take snapshot of target [" + one +
                                                 "] of group[g1] since target is not existed"),
                  TargetFailed(one, R"({"err_code":634,"err_msg":)" + one + "}"),
                  NothingToRollBack()));
  EXPECT_THAT(SnapRows(), IsEmpty());
  EXPECT_THAT(MetaRows(), IsEmpty());
}

TEST_F(GsnapCreateFailure, OfALaterTargetRemovesTheRowsButNoSnapshot) {
  host.targets["t2"].exists = false;
  replicaMap["t1"] = "r1";
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), R"({"err_code":634,"err_msg":)" + two + "}");
  EXPECT_EQ(host.calls, Join(CallsOf("t1", 1, "s1"), {"TargetOperation(t2, 3)", "IsExisted(t2)"}));
  EXPECT_THAT(
      log.Entries(),
      ElementsAre(Said("TakeTargetSnapshot", "Failed to take snapshot of target [" + two +
                                                 "] of group[g1] since target is not existed"),
                  TargetFailed(two, R"({"err_code":634,"err_msg":)" + two + "}"), NoGroupRow()));
  EXPECT_THAT(host.targets["t1"].snapshots, testing::SizeIs(1));
  EXPECT_THAT(SnapRows(), IsEmpty());
  EXPECT_THAT(ReplicaRows(), IsEmpty());
  EXPECT_THAT(MetaRows(), IsEmpty());
}

TEST_F(GsnapCreateFailure, DoesNotAttemptTheTargetsAfterTheFailingOne) {
  targets = {Target("t1", 1), Target("gone", 2), Target("t2", 3)};
  EXPECT_FALSE(Run());
  EXPECT_THAT(host.calls, testing::Not(testing::Contains("TargetOperation(t2, 3)")));
}

TEST_F(GsnapCreateFailure, OfTakingASnapshotCopiesCodeAndMessage) {
  host.targets["t1"].failures["TakeSnapshot"] = {412, Json(R"({"full": "volume %s"})")};
  host.code_texts[412] = "no room";
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), R"({"err_code":412,"err_msg":{"full":"volume %s"}})");
  EXPECT_THAT(host.calls, ElementsAre("TargetOperation(t1, 1)", "IsExisted(t1)",
                                      "ListSnapshots(t1)", Take("t1")));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Said("TakeTargetSnapshot",
                               "Failed to take snapshot of target [" + one +
                                   R"(] with err[{"err_code":412,)"
                                   R"("err_code_str":"no room","err_msg":{"full":"volume %s"}}])"),
                          TargetFailed(one, R"({"err_code":412,"err_msg":{"full":"volume %s"}})"),
                          NothingToRollBack()));
}

TEST_F(GsnapCreateFailure, OfTakingASnapshotWithoutTextAndMessageGivesTheCodeAlone) {
  host.targets["t2"].failures["TakeSnapshot"] = {-5, Json::Value()};
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), R"({"err_code":-5})");
  EXPECT_THAT(log.Entries(),
              ElementsAre(Said("TakeTargetSnapshot", "Failed to take snapshot of target [" + two +
                                                         R"(] with err[{"err_code":-5}])"),
                          TargetFailed(two, R"({"err_code":-5})"), NoGroupRow()));
  EXPECT_THAT(SnapRows(), IsEmpty());
  EXPECT_THAT(host.targets["t1"].snapshots, testing::SizeIs(1));
}

TEST_F(GsnapCreateFailure, OfATargetsRecordDeletesThatTargetsSnapshot) {
  MakeCatalogue();
  host.on_call = [&](const std::string& call) {
    if (call == "GetSnapshot(t2, s2)") Refuse("INSERT", "target_snap_list");
  };
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), R"({"err_code":404})");
  EXPECT_EQ(host.calls,
            Join(Join(CallsOf("t1", 1, "s1"), CallsOf("t2", 3, "s2")), {"DeleteSnapshot(t2, s2)"}));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Said("TakeTargetSnapshot",
                               "Failed to set snapshot record of target[" + two + "]/snap[s2]"),
                          TargetFailed(two, R"({"err_code":404})"), NoGroupRow()));
  EXPECT_THAT(host.targets["t1"].snapshots, testing::SizeIs(1));
  EXPECT_THAT(host.targets["t2"].snapshots, IsEmpty());
  EXPECT_THAT(SnapRows(), IsEmpty());
}

TEST_F(GsnapCreateFailure, IgnoresThatTheSnapshotOfAFailedRecordCannotBeDeleted) {
  MakeCatalogue();
  Refuse("INSERT", "target_snap_list");
  host.targets["t1"].failures["DeleteSnapshot"] = {414, Json("\"broken\"")};
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), R"({"err_code":404})");
  EXPECT_THAT(log.Entries(),
              ElementsAre(Said("TakeTargetSnapshot",
                               "Failed to set snapshot record of target[" + one + "]/snap[s1]"),
                          TargetFailed(one, R"({"err_code":404})"), NoGroupRow()));
}

TEST_F(GsnapCreateFailure, OfAReplicasRecordDeletesThatTargetsSnapshotAndRow) {
  MakeCatalogue();
  replicaMap["t1"] = "r1";
  targets = {Target("t1", 1)};
  Refuse("INSERT", "target_replica_list");
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), R"({"err_code":404})");
  EXPECT_EQ(host.calls, Join(CallsOf("t1", 1, "s1"), {"DeleteSnapshot(t1, s1)"}));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Said("TakeTargetSnapshot", "Failed to set replica record of target [t1]"),
                          TargetFailed(one, R"({"err_code":404})"), NoGroupRow()));
  EXPECT_THAT(SnapRows(), IsEmpty());
  EXPECT_THAT(MetaRows(), IsEmpty());
}

TEST_F(GsnapCreateFailure, LeavesARowForTheRollbackWhenTheReplicaIsRefused) {
  MakeCatalogue();
  replicaMap["t1"] = "r1";
  Refuse("INSERT", "target_replica_list");
  std::vector<std::string> rowsAtUndo;
  host.on_call = [&](const std::string& call) {
    if (call == "DeleteSnapshot(t1, s1)") rowsAtUndo = SnapRows();
  };
  EXPECT_FALSE(Run());
  EXPECT_THAT(rowsAtUndo, ElementsAre("'t1'|1|'s1'|'g1-gsnap-1700000000'"));
}

TEST_F(GsnapCreateFailure, OfTheGroupsRowRemovesAllRowsButNoSnapshot) {
  MakeCatalogue();
  replicaMap["t1"] = "r1";
  Refuse("INSERT", "gsnap_meta");
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), R"({"err_code":404})");
  EXPECT_EQ(host.calls, Join(CallsOf("t1", 1, "s1"), CallsOf("t2", 3, "s2")));
  EXPECT_THAT(log.Entries(), ElementsAre(Said("DoCreateSnapshot",
                                              "Failed to set snapshot record of "
                                              "group[g1]/gsnapId[g1-gsnap-1700000000]"),
                                         NoGroupRow()));
  EXPECT_THAT(SnapRows(), IsEmpty());
  EXPECT_THAT(ReplicaRows(), IsEmpty());
  EXPECT_THAT(host.targets["t1"].snapshots, testing::SizeIs(1));
}

TEST_F(GsnapCreateFailure, KeepsItsOwnErrorWhenTheRollbackFailsToo) {
  MakeCatalogue();
  host.targets["t2"].failures["TakeSnapshot"] = {414, Json("\"io\"")};
  host.on_call = [&](const std::string& call) {
    if (call == Take("t2")) Db().Exec("DROP TABLE target_replica_list");
  };
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), R"({"err_code":414,"err_msg":"io"})");
  const std::string id = "g1-gsnap-1700000000";
  EXPECT_THAT(
      log.Entries(),
      ElementsAre(
          Said("TakeTargetSnapshot", "Failed to take snapshot of target [" + two +
                                         R"(] with err[{"err_code":414,"err_msg":"io"}])"),
          TargetFailed(two, R"({"err_code":414,"err_msg":"io"})"), NoGroupRow(),
          Err("snapshot/gsnap_op.cpp", "GetTargetReplicas",
              "Failed to select snapshots with gsnapId[" + id + "]"),
          Err("snapshot/gsnap_delete", "DeleteTargetReplicaRecords",
              "Failed to delete target snapshots with gsnapId [" + id + "]"),
          Warn("snapshot/gsnap_delete", "Run", "Failed to delete target replica records.")));
  EXPECT_THAT(SnapRows(), IsEmpty());
}

TEST_F(GsnapCreateFailure, OfASnapshotWithoutATimeIsFoundAtTheGroupsRow) {
  targets = {Target("t1", 1)};
  host.targets["t1"].next = {Snap(0, "s1")};
  EXPECT_FALSE(Run());
  EXPECT_EQ(ErrText(), R"({"err_code":401})");
  EXPECT_THAT(
      log.Entries(),
      ElementsAre(Err("snapshot/gsnap_utils", "SetGroupSnapRecord",
                      "Invalid gsnapshot [" + ToString(create->GetGsnapshot().ToJson()) + "]"),
                  Said("DoCreateSnapshot", "Failed to set snapshot record of group[g1]/gsnapId[]"),
                  NothingToRollBack()));
  EXPECT_THAT(MetaRows(), IsEmpty());
}

TEST_F(GsnapCreateFailure, DoesNotTestWhetherTheNewSnapshotCanBeRead) {
  targets = {Target("t1", 1), Target("t2", 3)};
  host.targets["t2"].failures["GetSnapshot"] = {414, Json::Value()};
  EXPECT_TRUE(Run());
  EXPECT_THAT(SnapRows(), testing::SizeIs(2));
}

TEST_F(GsnapCreateFailure, StartsOverWhenItRunsAgain) {
  host.targets["t2"].exists = false;
  EXPECT_FALSE(Run());
  host.targets["t2"].exists = true;
  host.targets["t1"].next = {Snap(1700000100, "s3")};
  EXPECT_TRUE(create->Run());
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_THAT(SnapRows(), ElementsAre("'t1'|1|'s3'|'g1-gsnap-1700000100'",
                                      "'t2'|3|'s2'|'g1-gsnap-1700000100'"));
}

TEST_F(GsnapCreateFailure, LogsIdentifiersWithFormatsAsTheyAre) {
  targets = {Target("%s%n%d", 1)};
  groupId = "%n";
  EXPECT_FALSE(Run());
  const std::string target = R"({"target_id":"%s%n%d","target_type":1})";
  const std::string err = R"({"err_code":634,"err_msg":)" + target + "}";
  EXPECT_THAT(
      log.Entries(),
      ElementsAre(Said("TakeTargetSnapshot", "Failed to take snapshot of target [" + target +
                                                 "] of group[%n] since target is not existed"),
                  Said("DoCreateSnapshot", "Failed to create target snapshot [" + target +
                                               "] of group [%n]since err[" + err + "]"),
                  NothingToRollBack()));
}

// Whoever derives from the operation may tell the error in words of its own.
class WithOwnError : public GsnapshotCreate {
 public:
  using GsnapshotCreate::GsnapshotCreate;
  Json::Value GetErr() const override { return Json(R"({"own": 1})"); }
};

TEST_F(GsnapCreateFailure, IsLoggedInTheWordsOfTheOperationsOwnGetErr) {
  const VrelDRGroup::TargetList gone({Target("gone", 1)}, "g1");
  WithOwnError operation(gone, meta, dir, replicaMap);
  EXPECT_FALSE(operation.Run());
  EXPECT_THAT(log.Entries(), testing::Contains(TargetFailed(
                                 R"({"target_id":"gone","target_type":1})", R"({"own":1})")));
}

TEST_F(GsnapCreateFailure, HasCode407WhileItRuns) {
  int code = -1;
  host.on_call = [&](const std::string&) { code = create->GetErrCode(); };
  EXPECT_TRUE(Run());
  EXPECT_EQ(code, 407);
}

}  // namespace
}  // namespace unit
