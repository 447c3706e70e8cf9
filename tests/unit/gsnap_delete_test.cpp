#include "gsnap_delete_fixture.h"

namespace unit {
namespace {

using VrelDR::Target;
using VrelDRGroup::TargetSnapshot;
using VrelDRGroup::Operation::GsnapshotDelete;

TEST_F(GsnapDelete, StartsWithCodeZeroAndDoesNothing) {
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_THAT(host.calls, IsEmpty());
  EXPECT_THAT(SnapRows(), testing::SizeIs(3));
}

TEST_F(GsnapDelete, RemovesTheSnapshotOfEveryTargetAndAllRows) {
  EXPECT_TRUE(operation.Run());
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_THAT(host.calls, ElementsAre("TargetOperation(t1, 1)", "IsSnapshotExisted(t1, s1)",
                                      "DeleteSnapshot(t1, s1)", "TargetOperation(t2, 3)",
                                      "IsSnapshotExisted(t2, s2)", "DeleteSnapshot(t2, s2)"));
  EXPECT_THAT(host.targets["t1"].snapshots, testing::SizeIs(1));
  EXPECT_THAT(host.targets["t2"].snapshots, IsEmpty());
  ExpectOnlyTheOther();
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(GsnapDelete, ReachesTheDatabaseThroughTheGroupsLink) {
  EXPECT_TRUE(operation.Run());
  EXPECT_THAT(core.Of({"SqliteDB"}),
              testing::Each("SqliteDB(" + linkPath + ", 20, vreldrcore_db_info)"));
  EXPECT_THAT(core.OfPlatform(), IsEmpty());
}

TEST_F(GsnapDelete, RemovesATargetsRowWithItsSnapshotAndTheOtherRowsAfterAllTargets) {
  AddSnap("t3", 2, "", "g1-gsnap-10");
  Db().Exec("UPDATE target_snap_list SET tsnap_id = 's4' WHERE target_id = 't3'");
  Db().Exec("CREATE TABLE removed (what)");
  Db().Exec(
      "CREATE TRIGGER r1 AFTER DELETE ON gsnap_meta BEGIN "
      "INSERT INTO removed VALUES ('group'); END");
  Db().Exec(
      "CREATE TRIGGER r2 AFTER DELETE ON target_snap_list BEGIN "
      "INSERT INTO removed VALUES (old.tsnap_id); END");
  Db().Exec(
      "CREATE TRIGGER r3 AFTER DELETE ON target_replica_list BEGIN "
      "INSERT INTO removed VALUES (old.dst_target_id); END");
  host.targets["t3"].exists = true;
  std::vector<std::string> rowsAtSecond;
  host.on_call = [&](const std::string& call) {
    if (call == "DeleteSnapshot(t2, s2)") rowsAtSecond = Db().Rows("SELECT what FROM removed");
  };
  EXPECT_TRUE(operation.Run());
  EXPECT_THAT(rowsAtSecond, ElementsAre("'s1'"));
  EXPECT_THAT(Db().Rows("SELECT what FROM removed ORDER BY rowid"),
              ElementsAre("'s1'", "'s2'", "'s4'", "'group'", "'r1'", "'r2'"));
}

TEST_F(GsnapDelete, RemovesTheGroupsRowThenTargetSnapshotsThenReplicas) {
  Db().Exec("DELETE FROM gsnap_meta WHERE gsnap_id = 'g1-gsnap-10'");
  Db().Exec("INSERT INTO gsnap_meta (gsnap_id, gsnap_time) VALUES ('g1-gsnap-10', 0)");
  Db().Exec("CREATE TABLE removed (what)");
  for (const char* table : {"gsnap_meta", "target_snap_list", "target_replica_list"}) {
    Db().Exec(std::string("CREATE TRIGGER r_") + table + " AFTER DELETE ON " + table +
              " BEGIN INSERT INTO removed VALUES ('" + table + "'); END");
  }
  EXPECT_TRUE(operation.Run());
  EXPECT_THAT(host.calls, IsEmpty());
  EXPECT_THAT(Db().Rows("SELECT what FROM removed ORDER BY rowid"),
              ElementsAre("'gsnap_meta'", "'target_snap_list'", "'target_snap_list'",
                          "'target_replica_list'", "'target_replica_list'"));
}

TEST_F(GsnapDelete, RemovesTheRowOfATargetSnapshotThatIsGoneAlready) {
  host.targets["t1"].snapshots.clear();
  EXPECT_TRUE(operation.Run());
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_THAT(host.calls, ElementsAre("TargetOperation(t1, 1)", "IsSnapshotExisted(t1, s1)",
                                      "TargetOperation(t2, 3)", "IsSnapshotExisted(t2, s2)",
                                      "DeleteSnapshot(t2, s2)"));
  ExpectOnlyTheOther();
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(GsnapDelete, RemovesTheRowsOfAGroupSnapshotThatCannotBeReadAndLeavesItsTargetsAlone) {
  Db().Exec("DELETE FROM gsnap_meta WHERE gsnap_id = 'g1-gsnap-10'");
  EXPECT_TRUE(operation.Run());
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_THAT(host.calls, IsEmpty());
  ExpectOnlyTheOther();
  EXPECT_THAT(log.Entries(), ElementsAre(Err("snapshot/gsnap_op.cpp", "GsnapshotGet",
                                             "gsnap[g1-gsnap-10] is not existed")));
}

TEST_F(GsnapDelete, RemovesAGroupSnapshotWithoutTargetSnapshots) {
  Db().Exec("DELETE FROM target_snap_list WHERE gsnap_id = 'g1-gsnap-10'");
  EXPECT_TRUE(operation.Run());
  EXPECT_THAT(host.calls, IsEmpty());
  ExpectOnlyTheOther();
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(GsnapDelete, RemovesEveryRowOfATargetSnapshot) {
  AddSnap("t1", 1, "s1", "g1-gsnap-20");
  EXPECT_TRUE(operation.Run());
  ExpectOnlyTheOther();
}

TEST_F(GsnapDelete, TakesIdentifiersWithQuotesAsTheyAre) {
  const std::string quoted = "g1-gsnap-1' OR '1'='1";
  AddMeta(quoted, 5);
  AddSnap("t1", 1, "x' OR 'x'='x", quoted);
  host.targets["t1"].snapshots.push_back(Snap(5, "x' OR 'x'='x"));
  GsnapshotDelete tricky(quoted);
  EXPECT_TRUE(tricky.Run());
  EXPECT_THAT(MetaRows(), testing::SizeIs(2));
  EXPECT_THAT(SnapRows(), testing::SizeIs(3));
  EXPECT_THAT(ReplicaRows(), testing::SizeIs(3));
}

TEST_F(GsnapDelete, DeletesNoTargetSnapshotsBeforeItHasReadAny) {
  EXPECT_TRUE(operation.DeleteTargetSnapshots());
  EXPECT_THAT(host.calls, IsEmpty());
}

TEST_F(GsnapDelete, DeletesOneTargetSnapshotWithItsRow) {
  EXPECT_TRUE(operation.DeleteTargetSnapshot(TargetSnapshot(Target("t2", 3), "s2")));
  EXPECT_THAT(host.calls, ElementsAre("TargetOperation(t2, 3)", "IsSnapshotExisted(t2, s2)",
                                      "DeleteSnapshot(t2, s2)"));
  EXPECT_THAT(SnapRows(), ElementsAre("'t1'|1|'s1'|'g1-gsnap-10'", "'t1'|1|'s3'|'g1-gsnap-20'"));
  EXPECT_THAT(MetaRows(), testing::SizeIs(2));
}

TEST_F(GsnapDelete, DeletesTheRowsOfOneTableAtATime) {
  EXPECT_TRUE(operation.DeleteGroupSnapRecord());
  EXPECT_THAT(MetaRows(), ElementsAre("'d'|0|0|'g1-gsnap-20'|'g1'|20|1"));
  EXPECT_THAT(SnapRows(), testing::SizeIs(3));
  EXPECT_TRUE(operation.DeleteTargetSnapshotRecords());
  EXPECT_THAT(SnapRows(), ElementsAre("'t1'|1|'s3'|'g1-gsnap-20'"));
  EXPECT_THAT(ReplicaRows(), testing::SizeIs(3));
  EXPECT_TRUE(operation.DeleteTargetReplicaRecords());
  EXPECT_THAT(ReplicaRows(), ElementsAre("'t1'|'r1'|'g1-gsnap-20'"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(GsnapDelete, HasNoRowsToDeleteWithoutAnIdentifier) {
  const GsnapshotDelete empty("");
  EXPECT_TRUE(empty.DeleteGroupSnapRecord());
  EXPECT_TRUE(empty.DeleteTargetSnapshotRecords());
  EXPECT_TRUE(empty.DeleteTargetReplicaRecords());
  EXPECT_EQ(ToString(empty.GetErr()), R"({"err_code":0})");
  EXPECT_THAT(core.Of({"SqliteDB"}), IsEmpty());
  EXPECT_THAT(log.Entries(), IsEmpty());
}

}  // namespace
}  // namespace unit
