#include <vreldrgroup/snapshot/gsnap_restore.h>

#include "catalogue_test.h"
#include "record_values.h"

namespace unit {
namespace {

using VrelDR::Target;
using VrelDRGroup::TargetSnapshot;
using VrelDRGroup::Operation::GsnapshotRestore;

const char kOp[] = "snapshot/gsnap_op.cpp";

// A group "g1" with one group snapshot of three targets, recorded in another order than that of
// their identifiers.
class GsnapRestore : public CatalogueTest {
 protected:
  GsnapRestore() {
    MakeCatalogue();
    AddMeta(id, 10);
    AddSnap("t2", 3, "s2", id);
    AddSnap("t1", 1, "s1", id);
    AddSnap("t3", 2, "s3", id);
    AddReplica("t1", "r1", id);
    AddSnap("t4", 1, "s4", "g1-gsnap-20");
    host.targets["t1"].snapshots = {Snap(10, "s1")};
    host.targets["t2"].snapshots = {Snap(10, "s2")};
    host.targets["t3"].snapshots = {Snap(10, "s3")};
    host.targets["t4"].snapshots = {Snap(20, "s4")};
  }

  std::string ErrText() const { return ToString(operation.GetErr()); }

  static auto Failed(const std::string& function, const std::string& message) {
    return Err("snapshot/gsnap_restore", function, message);
  }
  static auto NotRead(const std::string& gsnapId) {
    return Failed("Run", "Failed to get gsnapshot by gsnapId[" + gsnapId + "]");
  }

  const std::string id = "g1-gsnap-10";
  const std::string one = R"({"target":{"target_id":"t1","target_type":1},"tsnap_id":"s1"})";
  GsnapshotRestore operation{id};
};

TEST_F(GsnapRestore, StartsWithCodeZeroAndDoesNothing) {
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_THAT(host.calls, IsEmpty());
  EXPECT_THAT(core.Of({"SqliteDB"}), IsEmpty());
}

TEST_F(GsnapRestore, RollsBackEveryTargetInTheOrderOfTheRows) {
  EXPECT_TRUE(operation.Run());
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_THAT(host.calls, ElementsAre("TargetOperation(t2, 3)", "RestoreSnapshot(t2, s2)",
                                      "TargetOperation(t1, 1)", "RestoreSnapshot(t1, s1)",
                                      "TargetOperation(t3, 2)", "RestoreSnapshot(t3, s3)"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(GsnapRestore, WritesNothingToTheCatalogue) {
  for (const char* table : {"gsnap_meta", "target_snap_list", "target_replica_list"}) {
    for (const char* change : {"INSERT", "UPDATE", "DELETE"}) Refuse(change, table);
  }
  const std::vector<std::string> rows = SnapRows();
  EXPECT_TRUE(operation.Run());
  EXPECT_THAT(MetaRows(), ElementsAre("'d'|0|0|'g1-gsnap-10'|'g1'|10|1"));
  EXPECT_EQ(SnapRows(), rows);
  EXPECT_THAT(ReplicaRows(), ElementsAre("'t1'|'r1'|'g1-gsnap-10'"));
}

TEST_F(GsnapRestore, ReachesTheDatabaseThroughTheGroupsLink) {
  EXPECT_TRUE(operation.Run());
  EXPECT_THAT(core.Of({"SqliteDB"}),
              testing::Each("SqliteDB(" + linkPath + ", 20, vreldrcore_db_info)"));
  EXPECT_THAT(core.OfPlatform(), IsEmpty());
}

TEST_F(GsnapRestore, DoesNotLookAtTheStatus) {
  for (const char* status : {"0", "2", "7", "NULL"}) {
    Db().Exec(std::string("UPDATE gsnap_meta SET status = ") + status);
    GsnapshotRestore restore(id);
    host.calls.clear();
    EXPECT_TRUE(restore.Run()) << status;
    EXPECT_EQ(host.calls.size(), 6U) << status;
  }
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(GsnapRestore, OfAGroupSnapshotWithoutTargetSnapshotsSucceedsAndRestoresNothing) {
  AddMeta("g1-gsnap-30", 30);
  GsnapshotRestore empty("g1-gsnap-30");
  EXPECT_TRUE(empty.Run());
  EXPECT_EQ(ToString(empty.GetErr()), R"({"err_code":0})");
  EXPECT_THAT(host.calls, IsEmpty());
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(GsnapRestore, OfAnEmptyListSucceedsAndLeavesTheErrorAsItWas) {
  const GsnapshotRestore restore(id);
  restore.SetErr(416);
  EXPECT_TRUE(restore.RestoreTargetSnapshots({}));
  EXPECT_EQ(restore.GetErrCode(), 416);
  EXPECT_THAT(host.calls, IsEmpty());
}

TEST_F(GsnapRestore, RefusesAnEmptyIdentifierAndTouchesNothing) {
  GsnapshotRestore empty("");
  EXPECT_FALSE(empty.Run());
  EXPECT_EQ(ToString(empty.GetErr()), R"({"err_code":401})");
  EXPECT_THAT(log.Entries(), ElementsAre(Failed("Run", "Empty gsnapId to restore")));
  EXPECT_THAT(host.calls, IsEmpty());
  EXPECT_THAT(core.Of({"SqliteDB"}), IsEmpty());
}

TEST_F(GsnapRestore, RefusesAnUnknownGroupSnapshot) {
  const std::string unknown = "g1-gsnap-%s%n";
  GsnapshotRestore restore(unknown);
  EXPECT_FALSE(restore.Run());
  EXPECT_EQ(ToString(restore.GetErr()), R"({"err_code":622})");
  EXPECT_THAT(log.Entries(),
              ElementsAre(Err(kOp, "GsnapshotGet", "gsnap[" + unknown + "] is not existed"),
                          NotRead(unknown)));
  EXPECT_THAT(host.calls, IsEmpty());
}

TEST_F(GsnapRestore, RefusesAnUnknownGroupSnapshotThatHasTargetSnapshots) {
  GsnapshotRestore restore("g1-gsnap-20");
  EXPECT_FALSE(restore.Run());
  EXPECT_EQ(ToString(restore.GetErr()), R"({"err_code":622})");
  EXPECT_THAT(host.calls, IsEmpty());
}

TEST_F(GsnapRestore, RefusesATimeThatIsNotPositiveInOneLine) {
  for (const char* time : {"0", "4294967296", "NULL"}) {
    Db().Exec(std::string("UPDATE gsnap_meta SET gsnap_time = ") + time);
    log.Clear();
    GsnapshotRestore restore(id);
    EXPECT_FALSE(restore.Run()) << time;
    EXPECT_EQ(ToString(restore.GetErr()), R"({"err_code":622})") << time;
    EXPECT_THAT(log.Entries(), ElementsAre(NotRead(id))) << time;
  }
  EXPECT_THAT(host.calls, IsEmpty());
}

TEST_F(GsnapRestore, RefusesAGroupSnapshotWhoseTargetSnapshotsCannotBeRead) {
  Db().Exec("DROP TABLE target_snap_list");
  EXPECT_FALSE(operation.Run());
  EXPECT_EQ(ErrText(), R"({"err_code":622})");
  EXPECT_THAT(log.Entries(), ElementsAre(Err(kOp, "GetTargetSnapshots",
                                             "Failed to select snapshots with gsnapId[" + id + "]"),
                                         NotRead(id)));
  EXPECT_THAT(host.calls, IsEmpty());
}

TEST_F(GsnapRestore, RefusesAGroupSnapshotWhoseReplicasCannotBeReadAndRestoresNoTarget) {
  Db().Exec("DROP TABLE target_replica_list");
  EXPECT_FALSE(operation.Run());
  EXPECT_EQ(ErrText(), R"({"err_code":622})");
  EXPECT_THAT(log.Entries(), ElementsAre(Err(kOp, "GetTargetReplicas",
                                             "Failed to select snapshots with gsnapId[" + id + "]"),
                                         NotRead(id)));
  EXPECT_THAT(host.calls, IsEmpty());
}

TEST_F(GsnapRestore, RefusesAGroupWithoutADatabaseAndMakesNone) {
  GsnapshotRestore restore("other-gsnap-10");
  EXPECT_FALSE(restore.Run());
  EXPECT_EQ(ToString(restore.GetErr()), R"({"err_code":622})");
  EXPECT_FALSE(Exists(kLinkRoot + "/other"));
}

TEST_F(GsnapRestore, StopsAtATargetSnapshotOfNoKind) {
  Db().Exec("UPDATE target_snap_list SET target_type = 0 WHERE tsnap_id = 's1'");
  EXPECT_FALSE(operation.Run());
  const std::string json = R"({"target":{"target_id":"t1","target_type":0},"tsnap_id":"s1"})";
  EXPECT_EQ(ErrText(), R"({"err_code":621,"err_msg":)" + json + "}");
  EXPECT_THAT(log.Entries(),
              ElementsAre(Failed("RestoreTargetSnapshots",
                                 "Invalid target snapshot [" + json + "] to restore")));
  EXPECT_THAT(host.calls, ElementsAre("TargetOperation(t2, 3)", "RestoreSnapshot(t2, s2)"));
}

TEST_F(GsnapRestore, RefusesEveryTargetSnapshotThatIsNotValid) {
  for (const TargetSnapshot& wrong :
       {TargetSnapshot(Target("", 1), "s1"), TargetSnapshot(Target("t1", 0), "s1"),
        TargetSnapshot(Target("t1", 4), "s1"), TargetSnapshot(Target("t1", -1), "s1"),
        TargetSnapshot(Target("t%s", 1), "")}) {
    log.Clear();
    const GsnapshotRestore restore(id);
    EXPECT_FALSE(restore.RestoreTargetSnapshots({wrong}));
    const std::string json = ToString(wrong.ToJson());
    EXPECT_EQ(ToString(restore.GetErr()), R"({"err_code":621,"err_msg":)" + json + "}");
    EXPECT_THAT(log.Entries(),
                ElementsAre(Failed("RestoreTargetSnapshots",
                                   "Invalid target snapshot [" + json + "] to restore")));
  }
  EXPECT_THAT(host.calls, IsEmpty());
}

TEST_F(GsnapRestore, ThatFailsOnTheSecondTargetLeavesTheThirdUntouched) {
  host.targets["t1"].failures["RestoreSnapshot"] = {414, Json(R"({"why":"%s"})")};
  host.code_texts[414] = "i/o %n";
  EXPECT_FALSE(operation.Run());
  EXPECT_EQ(ErrText(), R"({"err_code":414,"err_msg":{"why":"%s"}})");
  EXPECT_THAT(host.calls, ElementsAre("TargetOperation(t2, 3)", "RestoreSnapshot(t2, s2)",
                                      "TargetOperation(t1, 1)", "RestoreSnapshot(t1, s1)"));
  EXPECT_THAT(
      log.Entries(),
      ElementsAre(Failed(
          "RestoreTargetSnapshots",
          "Failed to restore target snapshot[" + one +
              R"(] with err[{"err_code":414,"err_code_str":"i/o %n","err_msg":{"why":"%s"}}])")));
}

TEST_F(GsnapRestore, NamesOnlyTheCodeOfAFailureWithoutTextAndMessage) {
  host.targets["t1"].snapshots.clear();
  EXPECT_FALSE(operation.Run());
  EXPECT_EQ(ErrText(), R"({"err_code":622})");
  EXPECT_THAT(log.Entries(), ElementsAre(Failed("RestoreTargetSnapshots",
                                                "Failed to restore target snapshot[" + one +
                                                    R"(] with err[{"err_code":622}])")));
}

TEST_F(GsnapRestore, CanBeRunAgainByANewObjectAfterAFailure) {
  host.targets["t3"].failures["RestoreSnapshot"] = {416, {}};
  EXPECT_FALSE(operation.Run());
  EXPECT_EQ(ErrText(), R"({"err_code":416})");
  host.targets["t3"].failures.clear();
  host.calls.clear();
  GsnapshotRestore again(id);
  EXPECT_TRUE(again.Run());
  EXPECT_EQ(host.calls.size(), 6U);
}

TEST_F(GsnapRestore, HasCode407WhileItRuns) {
  std::vector<std::string> errs;
  operation.SetErr(1, Json("\"old\""));
  host.on_call = [&](const std::string&) { errs.push_back(ErrText()); };
  EXPECT_TRUE(operation.Run());
  EXPECT_THAT(errs, testing::SizeIs(6));
  EXPECT_THAT(errs, testing::Each(R"({"err_code":407})"));
}

}  // namespace
}  // namespace unit
