#include <vreldrgroup/snapshot/gsnap_op.h>

#include <filesystem>

#include "catalogue_test.h"
#include "record_values.h"

namespace unit {
namespace {

namespace fs = std::filesystem;

using test_support::ShortErr;
using VrelDRGroup::GsnapMeta;
using VrelDRGroup::GsnapStatus;
using VrelDRGroup::Operation::GroupSnapDBInit;
using VrelDRGroup::Operation::GroupSnapMetaClear;
using VrelDRGroup::Operation::GroupSnapStatusSet;
using VrelDRGroup::Operation::GsnapshotSet;
using VrelDRGroup::Operation::SnapLastVerGet;
using VrelDRGroup::Operation::TargetReplicaClean;
using VrelDRGroup::Operation::TargetReplicaRenew;

const char kUnit[] = "snapshot/gsnap_op.cpp";
const char kId[] = "g1-gsnap-10";

// A group "g1" with two group snapshots and the replicas of two targets.
class Updating : public CatalogueTest {
 protected:
  Updating() {
    MakeCatalogue();
    AddMeta(kId, 10);
    AddMeta("g1-gsnap-20", 20);
    AddReplica("t1", "r1", kId);
    AddReplica("t2", "r2", kId);
    AddReplica("t1", "r1", "g1-gsnap-20");
  }

  auto MetaAsItWas() const {
    return ElementsAre("'d'|0|0|'g1-gsnap-10'|'g1'|10|1", "'d'|0|0|'g1-gsnap-20'|'g1'|20|1");
  }
  auto ReplicasAsTheyWere() const {
    return ElementsAre("'t1'|'r1'|'g1-gsnap-10'", "'t2'|'r2'|'g1-gsnap-10'",
                       "'t1'|'r1'|'g1-gsnap-20'");
  }
  auto RenewFailed(const std::string& dir) const {
    return ShortErr(kUnit,
                    "Failed to update record to target_replica_list table of path [" + dir + "]");
  }

  const GsnapMeta meta{"it's %s", true, VrelDRGroup::kCwApplicationConsistent};
};

TEST_F(Updating, MakesTheDatabaseOfAGroupAndLinksIt) {
  const std::string two = "/var/groups/two";
  EXPECT_TRUE(GroupSnapDBInit("g2", two));
  EXPECT_EQ(fs::read_symlink(kLinkRoot + "/g2/drgroup.db"), two + "/drgroup.db");
  EXPECT_THAT(core.Of({"VLIBCExec"}),
              ElementsAre("VLIBCExec(" + kScript + ", repair_db, " + two + ")"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(Updating, AlwaysReplacesALinkToAnotherDatabase) {
  EXPECT_TRUE(GroupSnapDBInit("g1", "/var/groups/two"));
  EXPECT_EQ(fs::read_symlink(linkPath), "/var/groups/two/drgroup.db");
  EXPECT_THAT(core.Of({"VLIBCFileLStat"}), ElementsAre("VLIBCFileLStat(" + linkPath + ", 15)"));
  EXPECT_THAT(MetaRows(), MetaAsItWas());
}

TEST_F(Updating, MakesNoDatabaseWithoutAGroupOrADirectory) {
  EXPECT_FALSE(GroupSnapDBInit("g%s", ""));
  EXPECT_FALSE(GroupSnapDBInit("", "/var/groups/%n"));
  EXPECT_FALSE(GroupSnapDBInit("", ""));
  EXPECT_THAT(
      log.Entries(),
      ElementsAre(
          Err(kUnit, "GroupSnapDBInit", "empty group id [g%s] or snap meta dir []."),
          Err(kUnit, "GroupSnapDBInit", "empty group id [] or snap meta dir [/var/groups/%n]."),
          Err(kUnit, "GroupSnapDBInit", "empty group id [] or snap meta dir [].")));
  EXPECT_THAT(core.OfPlatform(), IsEmpty());
}

TEST_F(Updating, FailsToMakeADatabaseInTheWordsOfTheDatabase) {
  fs::remove(kScript);
  EXPECT_FALSE(GroupSnapDBInit("g1", dbDir));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Err("db", "RepairDRGroupDBByDBDir",
                              "[" + kScript + "] is not existed to init db [" + linkPath + "]")));
}

TEST_F(Updating, ClearsTheDirectoryFirstAndTheGroupSecond) {
  GroupSnapMetaClear(dbDir, "g1");
  EXPECT_FALSE(Exists(dbPath));
  EXPECT_FALSE(Exists(linkDir));
  EXPECT_TRUE(Exists(dbDir));
  EXPECT_THAT(core.Of({"RemoveDir"}), ElementsAre("RemoveDir(" + linkDir + ")"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(Updating, ClearsOnlyOneHalfWhenTheOtherIsEmpty) {
  GroupSnapMetaClear("", "g1");
  EXPECT_TRUE(Exists(dbPath));
  EXPECT_FALSE(Exists(linkDir));
  GroupSnapMetaClear(dbDir, "");
  EXPECT_FALSE(Exists(dbPath));
  EXPECT_TRUE(Exists(kLinkRoot));
  GroupSnapMetaClear("", "");
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(Updating, GivesTheNewestSnapshotOfATarget) {
  host.targets["t1"].snapshots = {Snap(10, "s1"), Snap(30, "s3"), Snap(20, "s2")};
  std::string snapId = "before";
  EXPECT_EQ(SnapLastVerGet("t1", snapId), 0);
  EXPECT_EQ(snapId, "s3");
  EXPECT_THAT(host.calls, ElementsAre("TargetOperation(t1, 1)", "ListSnapshots(t1)"));
  EXPECT_THAT(core.Of({"SqliteDB"}), IsEmpty());
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(Updating, GivesTheLaterTakenOfSnapshotsOfOneTimeAndTheEarlierListedOfEqualOnes) {
  auto& snapshots = host.targets["t1"].snapshots;
  snapshots = {Snap(10, "a"), Snap(10, "b"), Snap(10, "c"), Snap(9, "d")};
  snapshots[1].sequence = 8;
  snapshots[2].sequence = 8;
  snapshots[3].sequence = 9;
  std::string snapId;
  EXPECT_EQ(SnapLastVerGet("t1", snapId), 0);
  EXPECT_EQ(snapId, "b");
}

TEST_F(Updating, GivesTheOnlySnapshotOfATarget) {
  host.targets["t1"].snapshots = {Snap(0, "s0")};
  std::string snapId;
  EXPECT_EQ(SnapLastVerGet("t1", snapId), 0);
  EXPECT_EQ(snapId, "s0");
}

TEST_F(Updating, GivesNoSnapshotOfATargetWithoutAnyAndLeavesTheOutputAsItWas) {
  host.targets["t1"].exists = true;
  host.targets["t2"].snapshots = {Snap(10, "s1")};
  host.targets["t2"].failures["ListSnapshots"] = {414, {}};
  std::string snapId = "before";
  for (const char* target : {"t1", "t2", "nowhere", ""}) {
    EXPECT_EQ(SnapLastVerGet(target, snapId), -1) << target;
    EXPECT_EQ(snapId, "before") << target;
  }
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(Updating, ReplacesTheThreeValuesThatAUserMayEdit) {
  EXPECT_TRUE(GsnapshotSet(kId, meta));
  EXPECT_THAT(MetaRows(), ElementsAre("'it's %s'|1|2|'g1-gsnap-10'|'g1'|10|1",
                                      "'d'|0|0|'g1-gsnap-20'|'g1'|20|1"));
  EXPECT_THAT(core.Of({"SqliteDB"}),
              testing::Each("SqliteDB(" + linkPath + ", 20, vreldrcore_db_info)"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(Updating, ReplacesNothingElseWhenItIsHandedAWholeGroupSnapshot) {
  VrelDRGroup::GsnapshotInfo whole("g1-gsnap-99");
  whole.desc = "new";
  whole.is_user_locked = true;
  whole.tag = "other";
  whole.gsnap_time = 99;
  whole.status = VrelDRGroup::kGsnapBad;
  EXPECT_TRUE(GsnapshotSet(kId, whole));
  EXPECT_TRUE(GsnapshotSet("g1-gsnap-20", static_cast<const VrelDRGroup::Gsnapshot&>(whole)));
  EXPECT_THAT(MetaRows(), ElementsAre("'new'|1|0|'g1-gsnap-10'|'g1'|10|1",
                                      "'new'|1|0|'g1-gsnap-20'|'g1'|20|1"));
}

TEST_F(Updating, EditsABadGroupSnapshotAndKeepsItBad) {
  Db().Exec("UPDATE gsnap_meta SET status = 2");
  EXPECT_TRUE(GsnapshotSet(kId, GsnapMeta("", false, VrelDRGroup::GsnapCwType(0))));
  EXPECT_EQ(MetaRows().front(), "''|0|0|'g1-gsnap-10'|'g1'|10|2");
}

TEST_F(Updating, NeedsAnIdentifierToEdit) {
  EXPECT_FALSE(GsnapshotSet("", meta));
  EXPECT_THAT(log.Entries(), ElementsAre(Err(kUnit, "GsnapshotSet", "Empty gnapshotId to edit")));
  EXPECT_THAT(core.Of({"SqliteDB"}), IsEmpty());
}

TEST_F(Updating, NeedsAnIdentifierThatNamesItsGroupToEdit) {
  EXPECT_FALSE(GsnapshotSet("%s%n", meta));
  EXPECT_FALSE(GsnapshotSet("-gsnap-10", meta));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Err(kUnit, "GsnapshotSet", "Empty groupId from [%s%n]"),
                          Err(kUnit, "GsnapshotSet", "Empty groupId from [-gsnap-10]")));
  EXPECT_THAT(core.Of({"SqliteDB"}), IsEmpty());
}

TEST_F(Updating, EditsNoGroupSnapshotThatIsMissing) {
  EXPECT_FALSE(GsnapshotSet("g1-gsnap-30", meta));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Err(kUnit, "GsnapshotGet", "gsnap[g1-gsnap-30] is not existed")));
  EXPECT_THAT(MetaRows(), MetaAsItWas());
}

TEST_F(Updating, EditsNoGroupSnapshotWithoutATime) {
  Db().Exec("UPDATE gsnap_meta SET gsnap_time = 0 WHERE gsnap_id = 'g1-gsnap-10'");
  EXPECT_FALSE(GsnapshotSet(kId, meta));
  EXPECT_THAT(log.Entries(), IsEmpty());
  EXPECT_EQ(MetaRows().front(), "'d'|0|0|'g1-gsnap-10'|'g1'|0|1");
}

TEST_F(Updating, FailsToEditInSilenceWhenTheDatabaseRefuses) {
  Refuse("UPDATE", "gsnap_meta");
  EXPECT_FALSE(GsnapshotSet(kId, meta));
  EXPECT_THAT(log.Entries(), IsEmpty());
  EXPECT_THAT(MetaRows(), MetaAsItWas());
}

TEST_F(Updating, SetsTheStatusOfOneGroupSnapshot) {
  for (const GsnapStatus status :
       {VrelDRGroup::kGsnapBad, VrelDRGroup::kGsnapUnknown, VrelDRGroup::kGsnapReady}) {
    EXPECT_TRUE(GroupSnapStatusSet("g1", "g1-gsnap-20", status));
    EXPECT_THAT(MetaRows(), ElementsAre("'d'|0|0|'g1-gsnap-10'|'g1'|10|1",
                                        "'d'|0|0|'g1-gsnap-20'|'g1'|20|" + std::to_string(status)));
  }
  EXPECT_THAT(core.Of({"SqliteDB"}),
              testing::Each("SqliteDB(" + linkPath + ", 20, vreldrcore_db_info)"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(Updating, SetsTheStatusInTheGroupThatTheCallerNames) {
  Db().Exec("UPDATE gsnap_meta SET gsnap_id = 'else' WHERE gsnap_time = 10");
  EXPECT_TRUE(GroupSnapStatusSet("g1", "else", VrelDRGroup::kGsnapBad));
  EXPECT_EQ(MetaRows().front(), "'d'|0|0|'else'|'g1'|10|2");
}

TEST_F(Updating, SetsTheStatusOfAnUnknownGroupSnapshotWithoutAnyChange) {
  EXPECT_TRUE(GroupSnapStatusSet("g1", "g1-gsnap-30", VrelDRGroup::kGsnapBad));
  EXPECT_TRUE(GroupSnapStatusSet("g1", "x' OR '1'='1", VrelDRGroup::kGsnapBad));
  EXPECT_THAT(MetaRows(), MetaAsItWas());
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(Updating, NeedsAGroupAndAGroupSnapshotToSetAStatus) {
  EXPECT_FALSE(GroupSnapStatusSet("", "%s", VrelDRGroup::kGsnapBad));
  EXPECT_FALSE(GroupSnapStatusSet("%n", "", VrelDRGroup::kGsnapBad));
  EXPECT_FALSE(GroupSnapStatusSet("", "", VrelDRGroup::kGsnapBad));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Err(kUnit, "GroupSnapStatusSet", "empty groupId[] / gsnapId[%s]"),
                          Err(kUnit, "GroupSnapStatusSet", "empty groupId[%n] / gsnapId[]"),
                          Err(kUnit, "GroupSnapStatusSet", "empty groupId[] / gsnapId[]")));
  EXPECT_THAT(core.Of({"SqliteDB"}), IsEmpty());
}

TEST_F(Updating, SetsNoStatusInAGroupWithoutADatabaseAndMakesNone) {
  EXPECT_FALSE(GroupSnapStatusSet("g%s", kId, VrelDRGroup::kGsnapBad));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Err(kUnit, "GroupSnapStatusSet", "group db [g%s] is not existed")));
  EXPECT_FALSE(Exists(kLinkRoot + "/g%s"));
}

TEST_F(Updating, FailsToSetAStatusInSilenceWhenTheDatabaseRefuses) {
  Refuse("UPDATE", "gsnap_meta");
  EXPECT_FALSE(GroupSnapStatusSet("g1", kId, VrelDRGroup::kGsnapBad));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(Updating, RenewsTheDestinationOfEveryReplicaOfANamedSource) {
  EXPECT_TRUE(TargetReplicaRenew(dbDir, Json(R"({"t1": {"dst_target_id": "it's", "more": 1},
                                                 "t9": {"dst_target_id": "r9"}})")));
  EXPECT_THAT(ReplicaRows(), ElementsAre("'t1'|'it's'|'g1-gsnap-10'", "'t2'|'r2'|'g1-gsnap-10'",
                                         "'t1'|'it's'|'g1-gsnap-20'"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(Updating, RenewsInTheRealDatabaseWithOneObjectForEverySource) {
  fs::remove_all(kLinkRoot);
  EXPECT_TRUE(TargetReplicaRenew(dbDir, Json(R"({"t2": {"dst_target_id": "b"},
                                                 "t1": {"dst_target_id": "a"}})")));
  const std::string database = "SqliteDB(" + dbPath + ", 20, vreldrcore_db_info)";
  EXPECT_THAT(core.Of({"SqliteDB"}), ElementsAre(database, database));
  EXPECT_THAT(ReplicaRows(), ElementsAre("'t1'|'a'|'g1-gsnap-10'", "'t2'|'b'|'g1-gsnap-10'",
                                         "'t1'|'a'|'g1-gsnap-20'"));
}

TEST_F(Updating, RenewsNothingWithoutSourcesAndOpensNoDatabase) {
  EXPECT_TRUE(TargetReplicaRenew(dbDir, Json("{}")));
  EXPECT_TRUE(TargetReplicaRenew("", Json("{}")));
  for (const Json::Value& other : NotObjects()) EXPECT_TRUE(TargetReplicaRenew(dbDir, other));
  EXPECT_THAT(core.Of({"SqliteDB"}), IsEmpty());
  EXPECT_THAT(ReplicaRows(), ReplicasAsTheyWere());
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(Updating, RenewsWithTheEmptyTextWhereTheDestinationIsNoText) {
  EXPECT_TRUE(TargetReplicaRenew(dbDir, Json(R"({"t1": {"dst_target_id": 7}, "t2": "text"})")));
  EXPECT_THAT(ReplicaRows(), ElementsAre("'t1'|''|'g1-gsnap-10'", "'t2'|''|'g1-gsnap-10'",
                                         "'t1'|''|'g1-gsnap-20'"));
}

TEST_F(Updating, GoesOnToRenewAfterASourceThatFails) {
  Db().Exec(
      "CREATE TRIGGER refuse BEFORE UPDATE ON target_replica_list WHEN old.src_target_id = 't1' "
      "BEGIN SELECT RAISE(ABORT, 'refused'); END");
  EXPECT_FALSE(TargetReplicaRenew(dbDir, Json(R"({"t1": {"dst_target_id": "a"},
                                                  "t2": {"dst_target_id": "b"}})")));
  EXPECT_THAT(ReplicaRows(), ElementsAre("'t1'|'r1'|'g1-gsnap-10'", "'t2'|'b'|'g1-gsnap-10'",
                                         "'t1'|'r1'|'g1-gsnap-20'"));
  EXPECT_THAT(log.Entries(), ElementsAre(RenewFailed(dbDir)));
}

TEST_F(Updating, KeepsWhatWasRenewedBeforeASourceThatFails) {
  Db().Exec(
      "CREATE TRIGGER refuse BEFORE UPDATE ON target_replica_list WHEN old.src_target_id = 't2' "
      "BEGIN SELECT RAISE(ABORT, 'refused'); END");
  EXPECT_FALSE(TargetReplicaRenew(dbDir, Json(R"({"t1": {"dst_target_id": "a"},
                                                  "t2": {"dst_target_id": "b"}})")));
  EXPECT_THAT(ReplicaRows(), ElementsAre("'t1'|'a'|'g1-gsnap-10'", "'t2'|'r2'|'g1-gsnap-10'",
                                         "'t1'|'a'|'g1-gsnap-20'"));
}

TEST_F(Updating, FailsToRenewOncePerSourceInADirectoryWithoutADatabase) {
  const std::string nowhere = "/var/groups/%s";
  EXPECT_FALSE(TargetReplicaRenew(nowhere, Json(R"({"t1": {}, "t2": {}})")));
  EXPECT_THAT(log.Entries(), ElementsAre(RenewFailed(nowhere), RenewFailed(nowhere)));
  EXPECT_FALSE(Exists(nowhere));
}

TEST_F(Updating, CleansAllReplicasOutOfTheRealDatabase) {
  fs::remove_all(kLinkRoot);
  EXPECT_TRUE(TargetReplicaClean(dbDir));
  EXPECT_THAT(core.Of({"SqliteDB"}),
              ElementsAre("SqliteDB(" + dbPath + ", 20, vreldrcore_db_info)"));
  EXPECT_THAT(ReplicaRows(), IsEmpty());
  EXPECT_THAT(MetaRows(), MetaAsItWas());
  EXPECT_TRUE(TargetReplicaClean(dbDir));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(Updating, FailsToCleanWhenTheDatabaseRefusesOrIsMissing) {
  Refuse("DELETE", "target_replica_list");
  EXPECT_FALSE(TargetReplicaClean(dbDir));
  EXPECT_FALSE(TargetReplicaClean("/var/groups/%s"));
  EXPECT_FALSE(TargetReplicaClean(""));
  const std::string words = "Failed to delete all records in target_replica_list table of path [";
  EXPECT_THAT(log.Entries(), ElementsAre(ShortErr(kUnit, words + dbDir + "]"),
                                         ShortErr(kUnit, words + "/var/groups/%s]"),
                                         ShortErr(kUnit, words + "]")));
  EXPECT_THAT(ReplicaRows(), ReplicasAsTheyWere());
  EXPECT_FALSE(Exists("/var/groups/%s"));
}

}  // namespace
}  // namespace unit
