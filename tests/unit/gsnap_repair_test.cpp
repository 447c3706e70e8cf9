#include <vreldrgroup/snapshot/gsnap_repair.h>

#include <filesystem>
#include <tuple>

#include "catalogue_test.h"
#include "record_values.h"

namespace unit {
namespace {

namespace fs = std::filesystem;

using VrelDR::Target;
using VrelDRGroup::TargetSnapshot;
using VrelDRGroup::Operation::GsnapshotRepair;
using VrelDRGroup::Operation::RepairVerdict;
using Reason = RepairVerdict::Reason;

// A group "g1" with two ready group snapshots: the first of the targets t1 and t2, the second of t1
// alone.
class GsnapRepair : public CatalogueTest {
 protected:
  GsnapRepair() {
    MakeCatalogue();
    AddMeta(first, 10);
    AddSnap("t2", 3, "s2", first);
    AddSnap("t1", 1, "s1", first);
    AddMeta(second, 20);
    AddSnap("t1", 1, "s3", second);
    host.targets["t1"].snapshots = {Snap(10, "s1"), Snap(20, "s3")};
    host.targets["t2"].snapshots = {Snap(11, "s2")};
  }

  std::string ErrText() const { return ToString(repair.GetErr()); }

  void SetStatus(const std::string& gsnapId, const std::string& status) const {
    Db().Exec("UPDATE gsnap_meta SET status = " + status + " WHERE gsnap_id = '" + gsnapId + "'");
  }
  // The recorded status of every group snapshot, by identifier.
  std::vector<std::string> Statuses() const {
    return Db().Rows("SELECT gsnap_id, status FROM gsnap_meta ORDER BY gsnap_id");
  }

  static std::vector<std::string> CallsOf(const std::string& id, int type) {
    return {"TargetOperation(" + id + ", " + std::to_string(type) + ")", "IsExisted(" + id + ")",
            "ListSnapshotIds(" + id + ")"};
  }

  static auto Failed(const std::string& function, const std::string& message) {
    return Err(kUnit, function, message);
  }
  static auto Warned(const std::string& function, const std::string& message) {
    return Warn(kUnit, function, message);
  }
  static auto RepairFailed() { return Failed("Run", "Failed to repair snapshots of group[g1]"); }
  static auto SelectFailed(const std::string& function) {
    return Failed(function, "Failed to select records of drgroup db[g1]");
  }
  static auto Changed(const std::string& gsnapId, const std::string& change) {
    return Warned("RepairGroupSnapMetaTable",
                  "Set status of gsnapId[" + gsnapId + "] as " + change);
  }
  static auto SnapshotGone(const std::string& gsnapId, const std::string& snap,
                           const std::string& target) {
    return Warned("GetGsnapStatus", "Detect BAD gsnapshot [" + gsnapId + "] since snapshot [" +
                                        snap + "] of target [" + target + "] is not existed");
  }
  static auto TargetGone(const std::string& gsnapId, const std::string& target,
                         const std::string& snap) {
    return Warned("GetGsnapStatus", "Detect BAD gsnapshot [" + gsnapId + "] since target[" +
                                        target + "] of tsnap [" + snap + "] is not existed");
  }
  static auto Orphan(const std::string& gsnapId) {
    return Warned("RepairTargetSnapshotTable",
                  "Delete group snapshot [" + gsnapId + "] since not in metadata of drgroup");
  }
  static auto NoParts(const std::string& gsnapId) {
    return Warned("RepairGroupSnapMetaTable",
                  "group snapshot [" + gsnapId + "] has no target snapshots, delete it");
  }
  static auto NoGroupRow(const std::string& gsnapId) {
    return Err("snapshot/gsnap_op.cpp", "GsnapshotGet", "gsnap[" + gsnapId + "] is not existed");
  }

  static constexpr char kUnit[] = "snapshot/gsnap_repair.cpp";
  const std::string first = "g1-gsnap-10";
  const std::string second = "g1-gsnap-20";
  const std::string one = R"({"target_id":"t1","target_type":1})";
  const std::string two = R"({"target_id":"t2","target_type":3})";
  const std::string secondReady = "'g1-gsnap-20'|1";
  GsnapshotRepair repair{"g1"};
};

TEST_F(GsnapRepair, StartsWithCodeZeroAndDoesNothing) {
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_THAT(host.calls, IsEmpty());
  EXPECT_THAT(core.Of({"SqliteDB"}), IsEmpty());
}

TEST_F(GsnapRepair, OfACatalogueInOrderWritesNothing) {
  for (const char* table : {"gsnap_meta", "target_snap_list", "target_replica_list"}) {
    for (const char* change : {"INSERT", "UPDATE", "DELETE"}) Refuse(change, table);
  }
  EXPECT_TRUE(repair.Run(""));
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_THAT(log.Entries(), IsEmpty());
  EXPECT_THAT(Statuses(), ElementsAre("'g1-gsnap-10'|1", secondReady));
}

TEST_F(GsnapRepair, AsksAboutEveryTargetOnceInTheOrderOfTheRows) {
  EXPECT_TRUE(repair.Run(""));
  std::vector<std::string> expected = CallsOf("t2", 3);
  for (const std::string& call : CallsOf("t1", 1)) expected.push_back(call);
  EXPECT_EQ(host.calls, expected);
}

TEST_F(GsnapRepair, TakesTargetsOfOneNameAndTwoKindsForTwo) {
  AddSnap("t1", 2, "s3", second);
  EXPECT_TRUE(repair.Run(""));
  EXPECT_THAT(host.calls, testing::SizeIs(9));
  EXPECT_EQ(host.calls[6], "TargetOperation(t1, 2)");
}

TEST_F(GsnapRepair, WithoutADirectoryTakesTheDatabaseThatIsLinked) {
  EXPECT_TRUE(repair.Run(""));
  EXPECT_THAT(core.OfPlatform(), IsEmpty());
  EXPECT_THAT(core.Of({"SqliteDB"}),
              testing::Each("SqliteDB(" + linkPath + ", 20, vreldrcore_db_info)"));
}

TEST_F(GsnapRepair, WithADirectoryInitialisesTheDatabaseFirst) {
  fs::remove_all(kLinkRoot);
  std::vector<std::string> before;
  host.on_call = [&](const std::string&) {
    if (before.empty()) before = core.Of({"VLIBCExec"});
  };
  EXPECT_TRUE(repair.Run(dbDir));
  EXPECT_EQ(fs::read_symlink(linkPath), dbPath);
  EXPECT_THAT(before, ElementsAre("VLIBCExec(" + kScript + ", repair_db, " + linkDir + ")"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(GsnapRepair, WithADirectoryReplacesALinkToAnotherDatabase) {
  fs::remove(linkPath);
  fs::create_symlink("/var/groups/two/drgroup.db", linkPath);
  EXPECT_TRUE(repair.Run(dbDir));
  EXPECT_EQ(fs::read_symlink(linkPath), dbPath);
}

TEST_F(GsnapRepair, WithADirectoryMakesAnEmptyCatalogueWhereThereIsNone) {
  GsnapshotRepair other("g2");
  EXPECT_TRUE(other.Run("/var/groups/two"));
  EXPECT_EQ(ToString(other.GetErr()), R"({"err_code":0})");
  EXPECT_TRUE(Exists("/var/groups/two/drgroup.db"));
  EXPECT_THAT(host.calls, IsEmpty());
}

TEST_F(GsnapRepair, FailsInTheWordsOfTheDatabaseWhenItCannotBeInitialised) {
  fs::remove(kScript);
  SetStatus(first, "0");
  EXPECT_FALSE(repair.Run(dbDir));
  EXPECT_EQ(ErrText(), R"({"err_code":407})");
  EXPECT_THAT(log.Entries(),
              ElementsAre(Err("db", "RepairDRGroupDBByDBDir",
                              "[" + kScript + "] is not existed to init db [" + linkPath + "]")));
  EXPECT_THAT(host.calls, IsEmpty());
  EXPECT_THAT(Statuses(), ElementsAre("'g1-gsnap-10'|0", secondReady));
}

TEST_F(GsnapRepair, RefusesAnEmptyGroupAndTouchesNothing) {
  for (const std::string& dir : {std::string(), dbDir}) {
    log.Clear();
    GsnapshotRepair empty("");
    EXPECT_FALSE(empty.Run(dir));
    EXPECT_EQ(ToString(empty.GetErr()), R"({"err_code":401})");
    EXPECT_THAT(log.Entries(), ElementsAre(Failed("Run", "empty groupId")));
  }
  EXPECT_THAT(host.calls, IsEmpty());
  EXPECT_THAT(core.OfPlatform(), IsEmpty());
  EXPECT_THAT(core.Of({"SqliteDB"}), IsEmpty());
}

TEST_F(GsnapRepair, HasStepsThatRefuseAnEmptyGroup) {
  GsnapshotRepair empty("");
  EXPECT_FALSE(empty.InitGroupSnapDict());
  EXPECT_FALSE(empty.InitTargetSnapDict());
  EXPECT_FALSE(empty.DoRepair());
  EXPECT_EQ(ToString(empty.GetErr()), R"({"err_code":0})");
  EXPECT_THAT(log.Entries(), ElementsAre(Failed("InitGroupSnapDict", "Empty groupId"),
                                         Failed("InitTargetSnapDict", "Empty groupId"),
                                         Failed("InitGroupSnapDict", "Empty groupId")));
}

TEST_F(GsnapRepair, FailsOnAGroupWithoutADatabaseAndMakesNone) {
  GsnapshotRepair other("g%s");
  EXPECT_FALSE(other.Run(""));
  EXPECT_EQ(ToString(other.GetErr()), R"({"err_code":407})");
  EXPECT_THAT(
      log.Entries(),
      ElementsAre(Failed("InitGroupSnapDict", "Failed to select records of drgroup db[g%s]"),
                  Failed("Run", "Failed to repair snapshots of group[g%s]")));
  EXPECT_FALSE(Exists(kLinkRoot + "/g%s"));
}

TEST_F(GsnapRepair, FailsOnALostTableOfGroupSnapshots) {
  Db().Exec("DROP TABLE gsnap_meta");
  EXPECT_FALSE(repair.Run(""));
  EXPECT_EQ(ErrText(), R"({"err_code":407})");
  EXPECT_THAT(log.Entries(), ElementsAre(SelectFailed("InitGroupSnapDict"), RepairFailed()));
  EXPECT_THAT(SnapRows(), testing::SizeIs(3));
}

TEST_F(GsnapRepair, FailsOnALostTableOfTargetSnapshotsAndDeletesNothing) {
  Db().Exec("DROP TABLE target_snap_list");
  EXPECT_FALSE(repair.Run(""));
  EXPECT_EQ(ErrText(), R"({"err_code":407})");
  EXPECT_THAT(log.Entries(), ElementsAre(SelectFailed("InitTargetSnapDict"), RepairFailed()));
  EXPECT_THAT(MetaRows(), testing::SizeIs(2));
}

TEST_F(GsnapRepair, PassesOverAGroupSnapshotWithoutAnIdentifier) {
  Db().Exec("INSERT INTO gsnap_meta (tag, gsnap_time, status) VALUES ('g1', 5, 1)");
  EXPECT_TRUE(repair.Run(""));
  EXPECT_THAT(log.Entries(), IsEmpty());
  EXPECT_THAT(MetaRows(), testing::SizeIs(3));
}

TEST_F(GsnapRepair, FailsOnATargetSnapshotWithoutAGroupSnapshotAndDeletesNothing) {
  AddMeta("g1-gsnap-30", 30);
  AddSnap("t1", 1, "s9", "g1-gsnap-9");
  Db().Exec(
      "INSERT INTO target_snap_list (target_id, target_type, tsnap_id) VALUES ('t1', 1, 's')");
  EXPECT_FALSE(repair.Run(""));
  EXPECT_EQ(ErrText(), R"({"err_code":407})");
  EXPECT_THAT(log.Entries(), ElementsAre(RepairFailed()));
  EXPECT_THAT(host.calls, IsEmpty());
  EXPECT_THAT(MetaRows(), testing::SizeIs(3));
  EXPECT_THAT(SnapRows(), testing::SizeIs(5));
}

TEST_F(GsnapRepair, FailsOnARowThatSaysNothingOfATargetSnapshot) {
  Db().Exec("INSERT INTO target_snap_list (gsnap_id) VALUES ('g1-gsnap-9')");
  EXPECT_FALSE(repair.Run(""));
  EXPECT_EQ(ErrText(), R"({"err_code":407})");
  EXPECT_THAT(log.Entries(), ElementsAre(RepairFailed()));
  EXPECT_THAT(SnapRows(), testing::SizeIs(4));
}

TEST_F(GsnapRepair, KeepsTheRowsBeforeOneThatCannotBeRead) {
  AddSnap("t9", 1, "s9", "g1-gsnap-9");
  Db().Exec("INSERT INTO target_snap_list (gsnap_id) VALUES ('g1-gsnap-8')");
  EXPECT_TRUE(repair.InitGroupSnapDict());
  EXPECT_FALSE(repair.InitTargetSnapDict());
  repair.RepairTargetSnapshotTable();
  EXPECT_THAT(log.Entries(), ElementsAre(Orphan("g1-gsnap-9"), NoGroupRow("g1-gsnap-9")));
}

TEST_F(GsnapRepair, AsksAboutATargetSnapshotOfNoKindAsItStands) {
  Db().Exec("UPDATE target_snap_list SET target_type = NULL WHERE tsnap_id = 's2'");
  EXPECT_TRUE(repair.Run(""));
  EXPECT_EQ(host.calls.front(), "TargetOperation(t2, 0)");
}

TEST_F(GsnapRepair, DeletesTargetSnapshotsThatHaveNoGroupSnapshot) {
  AddSnap("t1", 1, "s9", "g1-gsnap-9");
  AddSnap("t2", 3, "s9", "g1-gsnap-9");
  AddReplica("t1", "r1", "g1-gsnap-9");
  AddReplica("t1", "r1", first);
  AddSnap("t1", 1, "s8", "g1-gsnap-8%s");
  host.targets["t1"].snapshots.push_back(Snap(9, "s9"));
  EXPECT_TRUE(repair.Run(""));
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_THAT(log.Entries(), ElementsAre(Orphan("g1-gsnap-8%s"), NoGroupRow("g1-gsnap-8%s"),
                                         Orphan("g1-gsnap-9"), NoGroupRow("g1-gsnap-9")));
  EXPECT_THAT(SnapRows(), ElementsAre("'t2'|3|'s2'|'g1-gsnap-10'", "'t1'|1|'s1'|'g1-gsnap-10'",
                                      "'t1'|1|'s3'|'g1-gsnap-20'"));
  EXPECT_THAT(ReplicaRows(), ElementsAre("'t1'|'r1'|'g1-gsnap-10'"));
  EXPECT_THAT(Statuses(), ElementsAre("'g1-gsnap-10'|1", secondReady));
}

TEST_F(GsnapRepair, DeletesGroupSnapshotsThatHaveNoTargetSnapshots) {
  AddMeta("g1-gsnap-30", 30);
  AddMeta("g1-gsnap-05", 5);
  SetStatus("g1-gsnap-05", "2");
  AddReplica("t1", "r1", "g1-gsnap-30");
  EXPECT_TRUE(repair.Run(""));
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_THAT(log.Entries(), ElementsAre(NoParts("g1-gsnap-05"), NoParts("g1-gsnap-30")));
  EXPECT_THAT(Statuses(), ElementsAre("'g1-gsnap-10'|1", secondReady));
  EXPECT_THAT(ReplicaRows(), IsEmpty());
}

TEST_F(GsnapRepair, DeletesTargetSnapshotsBeforeGroupSnapshotsBeforeItSetsLaterStatuses) {
  AddMeta("g1-gsnap-11", 11);
  AddSnap("t1", 1, "s9", "g1-gsnap-99");
  SetStatus(first, "0");
  SetStatus(second, "0");
  EXPECT_TRUE(repair.Run(""));
  EXPECT_THAT(log.Entries(), ElementsAre(Orphan("g1-gsnap-99"), NoGroupRow("g1-gsnap-99"),
                                         Changed(first, "[0] -> [1]"), NoParts("g1-gsnap-11"),
                                         Changed(second, "[0] -> [1]")));
}

TEST_F(GsnapRepair, GoesOnAfterADeletionThatFails) {
  AddMeta("g1-gsnap-30", 30);
  AddMeta("g1-gsnap-40", 40);
  SetStatus(second, "0");
  AddSnap("t1", 1, "s9", "g1-gsnap-8");
  AddSnap("t1", 1, "s9", "g1-gsnap-9");
  Refuse("DELETE", "gsnap_meta");
  Refuse("DELETE", "target_snap_list");
  EXPECT_TRUE(repair.Run(""));
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_THAT(log.Entries(), testing::IsSupersetOf({Orphan("g1-gsnap-8"), Orphan("g1-gsnap-9"),
                                                    NoParts("g1-gsnap-30"), NoParts("g1-gsnap-40"),
                                                    Changed(second, "[0] -> [1]")}));
  EXPECT_THAT(SnapRows(), testing::SizeIs(5));
  EXPECT_THAT(Statuses(),
              ElementsAre("'g1-gsnap-10'|1", secondReady, "'g1-gsnap-30'|1", "'g1-gsnap-40'|1"));
}

TEST_F(GsnapRepair, TurnsAReadyGroupSnapshotBadWhenATargetSnapshotIsGone) {
  host.targets["t1"].snapshots = {Snap(20, "s3")};
  EXPECT_TRUE(repair.Run(""));
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_THAT(log.Entries(),
              ElementsAre(SnapshotGone(first, "s1", one), Changed(first, "[1] -> [2]")));
  EXPECT_THAT(Statuses(), ElementsAre("'g1-gsnap-10'|2", secondReady));
}

TEST_F(GsnapRepair, LeavesABadGroupSnapshotBadWithoutALineOrAQuestion) {
  host.targets["t2"].snapshots.clear();
  EXPECT_TRUE(repair.Run(""));
  host.targets["t2"].snapshots = {Snap(11, "s2")};
  log.Clear();
  host.calls.clear();
  GsnapshotRepair again("g1");
  EXPECT_TRUE(again.Run(""));
  EXPECT_THAT(log.Entries(), IsEmpty());
  EXPECT_EQ(host.calls, CallsOf("t1", 1));
  EXPECT_THAT(Statuses(), ElementsAre("'g1-gsnap-10'|2", secondReady));
}

TEST_F(GsnapRepair, TurnsEveryGroupSnapshotOfAMissingTargetBadAndAsksAboutItOnce) {
  host.targets["t1"].exists = false;
  EXPECT_TRUE(repair.Run(""));
  EXPECT_THAT(log.Entries(),
              ElementsAre(TargetGone(first, one, "s1"), Changed(first, "[1] -> [2]"),
                          TargetGone(second, one, "s3"), Changed(second, "[1] -> [2]")));
  std::vector<std::string> expected = CallsOf("t2", 3);
  expected.insert(expected.end(), {"TargetOperation(t1, 1)", "IsExisted(t1)"});
  EXPECT_EQ(host.calls, expected);
  EXPECT_THAT(Statuses(), ElementsAre("'g1-gsnap-10'|2", "'g1-gsnap-20'|2"));
}

TEST_F(GsnapRepair, AsksAboutNoTargetBehindOneThatIsBad) {
  host.targets["t2"].exists = false;
  Db().Exec("DELETE FROM target_snap_list WHERE gsnap_id = 'g1-gsnap-20'");
  EXPECT_TRUE(repair.Run(""));
  EXPECT_THAT(host.calls, ElementsAre("TargetOperation(t2, 3)", "IsExisted(t2)"));
}

TEST_F(GsnapRepair, TurnsUnknownIntoReadyWhenEverythingIsFoundAgain) {
  SetStatus(first, "0");
  SetStatus(second, "NULL");
  EXPECT_TRUE(repair.Run(""));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Changed(first, "[0] -> [1]"), Changed(second, "[0] -> [1]")));
  EXPECT_THAT(Statuses(), ElementsAre("'g1-gsnap-10'|1", secondReady));
}

TEST_F(GsnapRepair, TurnsUnknownIntoBadWhenATargetSnapshotIsGone) {
  SetStatus(first, "0");
  host.targets["t2"].snapshots.clear();
  EXPECT_TRUE(repair.Run(""));
  EXPECT_THAT(log.Entries(),
              ElementsAre(SnapshotGone(first, "s2", two), Changed(first, "[0] -> [2]")));
}

TEST_F(GsnapRepair, SetsAStatusOutsideTheKnownOnes) {
  SetStatus(first, "7");
  EXPECT_TRUE(repair.Run(""));
  EXPECT_THAT(log.Entries(), ElementsAre(Changed(first, "[7] -> [1]")));
}

TEST_F(GsnapRepair, TurnsReadyIntoUnknownWhenATargetCannotBeAsked) {
  host.targets["t2"].failures["IsExisted"] = {411, Json("\"outage\"")};
  EXPECT_TRUE(repair.Run(""));
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_THAT(log.Entries(),
              ElementsAre(Failed("SetTarget", "Failed to get target info [" + two + "]"),
                          Changed(first, "[1] -> [0]")));
  EXPECT_THAT(Statuses(), ElementsAre("'g1-gsnap-10'|0", secondReady));
  std::vector<std::string> expected = {"TargetOperation(t2, 3)", "IsExisted(t2)"};
  for (const std::string& call : CallsOf("t1", 1)) expected.push_back(call);
  EXPECT_EQ(host.calls, expected);
}

TEST_F(GsnapRepair, TurnsReadyIntoUnknownWhenASnapshotListCannotBeRead) {
  host.targets["t2"].failures["ListSnapshotIds"] = {414, {}};
  EXPECT_TRUE(repair.Run(""));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Failed("SetTarget", "Failed to list snapshotIds of target[" + two + "]"),
                          Changed(first, "[1] -> [0]")));
  EXPECT_THAT(Statuses(), ElementsAre("'g1-gsnap-10'|0", secondReady));
}

TEST_F(GsnapRepair, LeavesUnknownUnknownWithoutAChange) {
  SetStatus(first, "0");
  host.targets["t2"].failures["IsExisted"] = {411, {}};
  EXPECT_TRUE(repair.Run(""));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Failed("SetTarget", "Failed to get target info [" + two + "]")));
}

TEST_F(GsnapRepair, AsksAgainAboutATargetThatCouldNotBeAsked) {
  int asked = 0;
  host.targets["t1"].failures["IsExisted"] = {411, {}};
  host.on_call = [&](const std::string& call) {
    if (call == "IsExisted(t1)" && ++asked == 2) host.targets["t1"].failures.clear();
  };
  EXPECT_TRUE(repair.Run(""));
  EXPECT_EQ(asked, 2);
  EXPECT_THAT(Statuses(), ElementsAre("'g1-gsnap-10'|0", secondReady));
}

TEST_F(GsnapRepair, IgnoresAStatusThatCannotBeWrittenAndGoesOn) {
  host.targets["t1"].snapshots.clear();
  Refuse("UPDATE", "gsnap_meta");
  EXPECT_TRUE(repair.Run(""));
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_THAT(log.Entries(),
              ElementsAre(SnapshotGone(first, "s1", one), Changed(first, "[1] -> [2]"),
                          SnapshotGone(second, "s3", one), Changed(second, "[1] -> [2]")));
  EXPECT_THAT(Statuses(), ElementsAre("'g1-gsnap-10'|1", secondReady));
}

TEST_F(GsnapRepair, TakesIdentifiersAsTheyAre) {
  const std::string tricky = "g1-gsnap-%s' OR '1'='1";
  AddMeta(tricky, 5);
  AddSnap("t1", 1, "s%n", tricky);
  EXPECT_TRUE(repair.Run(""));
  EXPECT_THAT(log.Entries(),
              ElementsAre(SnapshotGone(tricky, "s%n", one), Changed(tricky, "[1] -> [2]")));
  EXPECT_THAT(Statuses(), ElementsAre("'" + tricky + "'|2", "'g1-gsnap-10'|1", secondReady));
}

TEST_F(GsnapRepair, GivesNoIdentifierTheStatusUnknown) {
  EXPECT_EQ(repair.GetGsnapStatus("", {TargetSnapshot(Target("t1", 1), "s1")}),
            VrelDRGroup::kGsnapUnknown);
  EXPECT_THAT(log.Entries(), ElementsAre(Failed("GetGsnapStatus", "Empty gsnapId")));
  EXPECT_THAT(host.calls, IsEmpty());
}

TEST_F(GsnapRepair, GivesNoTargetSnapshotsTheStatusBad) {
  EXPECT_EQ(repair.GetGsnapStatus("%s", {}), VrelDRGroup::kGsnapBad);
  EXPECT_THAT(log.Entries(),
              ElementsAre(Failed("GetGsnapStatus", "Empty target snapshots of gsnapId[%s]")));
}

TEST_F(GsnapRepair, GivesTargetSnapshotsThatAllExistTheStatusReady) {
  EXPECT_EQ(repair.GetGsnapStatus(first, {TargetSnapshot(Target("t1", 1), "s1"),
                                          TargetSnapshot(Target("t2", 3), "s2"),
                                          TargetSnapshot(Target("t1", 1), "s3")}),
            VrelDRGroup::kGsnapReady);
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(GsnapRepair, RemembersATargetAlsoWhenItIsMissing) {
  EXPECT_TRUE(repair.SetTarget(Target("nowhere", 1)));
  EXPECT_TRUE(repair.SetTarget(Target("nowhere", 1)));
  EXPECT_THAT(host.calls, ElementsAre("TargetOperation(nowhere, 1)", "IsExisted(nowhere)"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(GsnapRepair, DoesNotRememberATargetWhoseSnapshotListCannotBeRead) {
  host.targets["t1"].failures["ListSnapshotIds"] = {414, {}};
  EXPECT_FALSE(repair.SetTarget(Target("t1", 1)));
  EXPECT_FALSE(repair.SetTarget(Target("t1", 1)));
  EXPECT_THAT(host.calls, testing::SizeIs(6));
  host.targets["t1"].failures.clear();
  EXPECT_TRUE(repair.SetTarget(Target("t1", 1)));
}

// A caller shows the verdicts before the repair carries them out.
TEST_F(GsnapRepair, JudgesByTheCatalogueAloneWhatNoTargetDecides) {
  const std::string orphan = "g1-gsnap-30";
  const std::string bare = "g1-gsnap-40";
  AddSnap("t1", 1, "s9", orphan);
  AddMeta(bare, 40);
  SetStatus(first, "2");
  ASSERT_TRUE(repair.InitGroupSnapDict() && repair.InitTargetSnapDict());
  EXPECT_EQ(repair.GetStatuses().size(), 3U);
  EXPECT_EQ(repair.GetParts().size(), 3U);
  EXPECT_EQ(repair.Judge(orphan).reason, Reason::kNoMetadata);
  EXPECT_TRUE(repair.Judge(orphan).IsDeleted());
  EXPECT_EQ(repair.Judge(bare).reason, Reason::kNoParts);
  EXPECT_TRUE(repair.Judge(bare).IsDeleted());
  EXPECT_EQ(repair.Judge(first).reason, Reason::kStaysBad);
  EXPECT_EQ(repair.Judge(first).status, VrelDRGroup::kGsnapBad);
  EXPECT_FALSE(repair.Judge(first).IsDeleted());
  EXPECT_THAT(host.calls, IsEmpty());
}

TEST_F(GsnapRepair, JudgesByTheTargetsAndWritesNothing) {
  const auto judge = [this](const std::string& gsnapId) {
    GsnapshotRepair looking("g1");
    EXPECT_TRUE(looking.InitGroupSnapDict() && looking.InitTargetSnapDict());
    const RepairVerdict verdict = looking.Judge(gsnapId);
    return std::make_tuple(verdict.reason, verdict.status,
                           verdict.part == nullptr ? "" : verdict.part->tsnap_id);
  };
  const std::vector<std::string> before = Statuses();
  EXPECT_EQ(judge(first), std::make_tuple(Reason::kAllThere, VrelDRGroup::kGsnapReady, ""));
  host.targets["t1"].snapshots.clear();
  EXPECT_EQ(judge(first), std::make_tuple(Reason::kSnapshotGone, VrelDRGroup::kGsnapBad, "s1"));
  host.targets["t2"].exists = false;
  EXPECT_EQ(judge(first), std::make_tuple(Reason::kTargetGone, VrelDRGroup::kGsnapBad, "s2"));
  EXPECT_THAT(log.Entries(), IsEmpty());
  host.targets["t2"].failures["IsExisted"] = {411, {}};
  EXPECT_EQ(judge(first),
            std::make_tuple(Reason::kTargetUnknown, VrelDRGroup::kGsnapUnknown, "s2"));
  EXPECT_EQ(Statuses(), before);
}

TEST_F(GsnapRepair, HasCode407WhileItRuns) {
  std::vector<std::string> errs;
  repair.SetErr(1, Json("\"old\""));
  host.on_call = [&](const std::string&) { errs.push_back(ErrText()); };
  EXPECT_TRUE(repair.Run(""));
  EXPECT_THAT(errs, testing::SizeIs(6));
  EXPECT_THAT(errs, testing::Each(R"({"err_code":407})"));
}

}  // namespace
}  // namespace unit
