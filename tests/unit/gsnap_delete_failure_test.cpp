#include "gsnap_delete_fixture.h"
#include "record_values.h"

namespace unit {
namespace {

using VrelDR::Target;
using VrelDRGroup::TargetSnapshot;
using VrelDRGroup::Operation::GsnapshotDelete;

class GsnapDeleteFailure : public GsnapDelete {};

TEST_F(GsnapDeleteFailure, RefusesAnEmptyIdentifierAndTouchesNothing) {
  GsnapshotDelete empty("");
  EXPECT_FALSE(empty.Run());
  EXPECT_EQ(ToString(empty.GetErr()), R"({"err_code":401})");
  EXPECT_THAT(log.Entries(), ElementsAre(Failed("Run", "Empty gsnapId")));
  EXPECT_THAT(host.calls, IsEmpty());
  EXPECT_THAT(core.Of({"SqliteDB"}), IsEmpty());
  EXPECT_THAT(SnapRows(), testing::SizeIs(3));
}

TEST_F(GsnapDeleteFailure, OfTheFirstTargetStillAttemptsTheSecondAndKeepsTheGroupListed) {
  host.targets["t1"].failures["DeleteSnapshot"] = {414, Json(R"({"why": "%s"})")};
  host.code_texts[414] = "io";
  EXPECT_FALSE(operation.Run());
  EXPECT_EQ(ErrText(), R"({"err_code":414,"err_msg":{"why":"%s"}})");
  EXPECT_THAT(host.calls, ElementsAre("TargetOperation(t1, 1)", "IsSnapshotExisted(t1, s1)",
                                      "DeleteSnapshot(t1, s1)", "TargetOperation(t2, 3)",
                                      "IsSnapshotExisted(t2, s2)", "DeleteSnapshot(t2, s2)"));
  EXPECT_THAT(log.Entries(), ElementsAre(Failed("DeleteTargetSnapshot",
                                                "Failed to delete target snapshot [" + one + "]"),
                                         Warned("Run", "Failed to delete target snapshots.")));
  EXPECT_THAT(MetaRows(), testing::SizeIs(2));
  EXPECT_THAT(SnapRows(), ElementsAre("'t1'|1|'s1'|'g1-gsnap-10'", "'t1'|1|'s3'|'g1-gsnap-20'"));
  EXPECT_THAT(ReplicaRows(), testing::SizeIs(3));
}

TEST_F(GsnapDeleteFailure, OfEveryTargetLeavesTheLastTargetsError) {
  host.targets["t1"].failures["DeleteSnapshot"] = {414, Json("\"first\"")};
  host.targets["t2"].failures["DeleteSnapshot"] = {416, Json::Value()};
  EXPECT_FALSE(operation.Run());
  EXPECT_EQ(ErrText(), R"({"err_code":416})");
  EXPECT_THAT(
      log.Entries(),
      ElementsAre(Failed("DeleteTargetSnapshot", "Failed to delete target snapshot [" + one + "]"),
                  Failed("DeleteTargetSnapshot", "Failed to delete target snapshot [" + two + "]"),
                  Warned("Run", "Failed to delete target snapshots.")));
  EXPECT_THAT(SnapRows(), testing::SizeIs(3));
}

TEST_F(GsnapDeleteFailure, IsGoneWhenAnotherRunSucceeds) {
  host.targets["t1"].failures["DeleteSnapshot"] = {414, Json::Value()};
  EXPECT_FALSE(operation.Run());
  host.targets["t1"].failures.clear();
  GsnapshotDelete again(id);
  EXPECT_TRUE(again.Run());
  ExpectOnlyTheOther();
}

TEST_F(GsnapDeleteFailure, OfARecordThatIsNotValidIsSilentAndKeepsTheGroupListed) {
  Db().Exec("UPDATE target_snap_list SET target_type = 4 WHERE tsnap_id = 's1'");
  EXPECT_FALSE(operation.Run());
  EXPECT_EQ(ErrText(), R"({"err_code":401})");
  EXPECT_THAT(host.calls, ElementsAre("TargetOperation(t2, 3)", "IsSnapshotExisted(t2, s2)",
                                      "DeleteSnapshot(t2, s2)"));
  EXPECT_THAT(log.Entries(), ElementsAre(Warned("Run", "Failed to delete target snapshots.")));
  EXPECT_THAT(MetaRows(), testing::SizeIs(2));
}

TEST_F(GsnapDeleteFailure, RefusesEveryTargetSnapshotThatIsNotValid) {
  for (const TargetSnapshot& wrong :
       {TargetSnapshot(Target("", 1), "s1"), TargetSnapshot(Target("t1", 0), "s1"),
        TargetSnapshot(Target("t1", 4), "s1"), TargetSnapshot(Target("t1", 1), "")}) {
    const GsnapshotDelete one_of(id);
    EXPECT_FALSE(one_of.DeleteTargetSnapshot(wrong));
    EXPECT_EQ(ToString(one_of.GetErr()), R"({"err_code":401})");
  }
  EXPECT_THAT(host.calls, IsEmpty());
  EXPECT_THAT(log.Entries(), IsEmpty());
  EXPECT_THAT(SnapRows(), testing::SizeIs(3));
}

TEST_F(GsnapDeleteFailure, OfATargetSnapshotsRowIsOnlyAWarning) {
  Refuse("DELETE", "target_snap_list");
  EXPECT_TRUE(operation.Run());
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_THAT(log.Entries(),
              ElementsAre(Warned("DeleteTargetSnapshot",
                                 "Failed to delete target snapshot records with tsnapId[s1]"),
                          Warned("DeleteTargetSnapshot",
                                 "Failed to delete target snapshot records with tsnapId[s2]"),
                          Failed("DeleteTargetSnapshotRecords",
                                 "Failed to delete target snapshots with gsnapId [g1-gsnap-10]"),
                          Warned("Run", "Failed to delete target snap records.")));
  EXPECT_THAT(host.targets["t2"].snapshots, IsEmpty());
  EXPECT_THAT(MetaRows(), testing::SizeIs(1));
  EXPECT_THAT(SnapRows(), testing::SizeIs(3));
  EXPECT_THAT(ReplicaRows(), testing::SizeIs(1));
}

TEST_F(GsnapDeleteFailure, OfTheGroupsRowIsOnlyAWarning) {
  Refuse("DELETE", "gsnap_meta");
  EXPECT_TRUE(operation.Run());
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_THAT(log.Entries(), ElementsAre(Warned("Run", "Failed to delete gsnapshot records.")));
  EXPECT_THAT(SnapRows(), testing::SizeIs(1));
  EXPECT_THAT(ReplicaRows(), testing::SizeIs(1));
}

TEST_F(GsnapDeleteFailure, OfTheReplicasRowsIsLoggedInTheWordsOfTargetSnapshots) {
  Refuse("DELETE", "target_replica_list");
  EXPECT_TRUE(operation.Run());
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_THAT(log.Entries(),
              ElementsAre(Failed("DeleteTargetReplicaRecords",
                                 "Failed to delete target snapshots with gsnapId [g1-gsnap-10]"),
                          Warned("Run", "Failed to delete target replica records.")));
  EXPECT_THAT(SnapRows(), testing::SizeIs(1));
}

TEST_F(GsnapDeleteFailure, OfALostTableOfReplicasLeavesTheTargetsAlone) {
  Db().Exec("DROP TABLE target_replica_list");
  EXPECT_TRUE(operation.Run());
  EXPECT_THAT(host.calls, IsEmpty());
  EXPECT_THAT(log.Entries(),
              ElementsAre(Err("snapshot/gsnap_op.cpp", "GetTargetReplicas",
                              "Failed to select snapshots with gsnapId[g1-gsnap-10]"),
                          Failed("DeleteTargetReplicaRecords",
                                 "Failed to delete target snapshots with gsnapId [g1-gsnap-10]"),
                          Warned("Run", "Failed to delete target replica records.")));
}

TEST_F(GsnapDeleteFailure, OfEveryTableStillSucceedsOnAGroupWithoutADatabase) {
  const std::string none = "other-gsnap-%s";
  GsnapshotDelete missing(none);
  EXPECT_TRUE(missing.Run());
  EXPECT_EQ(ToString(missing.GetErr()), R"({"err_code":0})");
  const char op[] = "snapshot/gsnap_op.cpp";
  const std::string select = "Failed to select snapshots with gsnapId[" + none + "]";
  const std::string remove = "Failed to delete target snapshots with gsnapId [" + none + "]";
  EXPECT_THAT(
      log.Entries(),
      ElementsAre(Err(op, "GsnapshotGet", "gsnap[" + none + "] is not existed"),
                  Err(op, "GetTargetSnapshots", select), Err(op, "GetTargetReplicas", select),
                  Warned("Run", "Failed to delete gsnapshot records."),
                  Failed("DeleteTargetSnapshotRecords", remove),
                  Warned("Run", "Failed to delete target snap records."),
                  Failed("DeleteTargetReplicaRecords", remove),
                  Warned("Run", "Failed to delete target replica records.")));
  EXPECT_FALSE(Exists(kLinkRoot + "/other"));
}

TEST_F(GsnapDeleteFailure, GivesARefusedRowDeletion404) {
  for (const char* table : {"gsnap_meta", "target_snap_list", "target_replica_list"}) {
    Refuse("DELETE", table);
  }
  const GsnapshotDelete group(id);
  EXPECT_FALSE(group.DeleteGroupSnapRecord());
  EXPECT_EQ(ToString(group.GetErr()), R"({"err_code":404})");
  EXPECT_THAT(log.Entries(), IsEmpty());

  const GsnapshotDelete snaps(id);
  EXPECT_FALSE(snaps.DeleteTargetSnapshotRecords());
  EXPECT_EQ(ToString(snaps.GetErr()), R"({"err_code":404})");
  const GsnapshotDelete replicas(id);
  EXPECT_FALSE(replicas.DeleteTargetReplicaRecords());
  EXPECT_EQ(ToString(replicas.GetErr()), R"({"err_code":404})");
  const std::string words = "Failed to delete target snapshots with gsnapId [g1-gsnap-10]";
  EXPECT_THAT(log.Entries(), ElementsAre(Failed("DeleteTargetSnapshotRecords", words),
                                         Failed("DeleteTargetReplicaRecords", words)));
}

TEST_F(GsnapDeleteFailure, HasCode407WhileItRuns) {
  int code = -1;
  host.on_call = [&](const std::string&) { code = operation.GetErrCode(); };
  EXPECT_TRUE(operation.Run());
  EXPECT_EQ(code, 407);
}

}  // namespace
}  // namespace unit
