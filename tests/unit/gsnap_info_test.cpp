#include <vreldrgroup/db.h>
#include <vreldrgroup/snapshot/gsnap_op.h>

#include <filesystem>

#include "catalogue_test.h"

namespace unit {
namespace {

using testing::SizeIs;
using VrelDR::Target;
using VrelDRGroup::Gsnapshot;
using VrelDRGroup::GsnapshotInfo;
using VrelDRGroup::TargetReplica;
using VrelDRGroup::TargetSnapshot;
using VrelDRGroup::Operation::GsnapshotGet;
using VrelDRGroup::Operation::GsnapshotInfoGet;
using VrelDRGroup::Operation::GsnapshotInfoList;
using VrelDRGroup::Operation::TargetReplicaList;

const char kUnit[] = "snapshot/gsnap_op.cpp";
const char kId[] = "g1-gsnap-10";

MATCHER_P3(IsSnap, id, type, snap, "") {
  return arg.target == Target(id, type) && arg.tsnap_id == snap;
}
MATCHER_P2(IsReplica, source, destination, "") {
  return arg.src_target_id == source && arg.dst_target_id == destination;
}

class Reading : public CatalogueTest {
 protected:
  Reading() { MakeCatalogue(); }

  auto SelectFailure(const std::string& function) const {
    return Err(kUnit, function,
               std::string("Failed to select snapshots with gsnapId[") + kId + "]");
  }

  Gsnapshot gsnap = Gsnapshot("");
  GsnapshotInfo info = GsnapshotInfo("");
  std::vector<GsnapshotInfo> infos;
  std::vector<TargetReplica> replicas;
};

TEST_F(Reading, GivesTheWholeGroupSnapshot) {
  AddMeta("g1-gsnap-9", 9);
  Db().Exec("INSERT INTO gsnap_meta VALUES ('words', 1, 2, 'g1-gsnap-10', 'g1', 10, 1, NULL)");
  EXPECT_TRUE(GsnapshotGet(kId, gsnap));
  EXPECT_EQ(ToString(gsnap.ToJson()),
            R"({"cw_type":2,"desc":"words","gsnap_id":"g1-gsnap-10",)"
            R"("gsnap_name":"GMT-1970.01.01-00.00.10","gsnap_time":10,"gsnap_time_str":"10",)"
            R"("is_user_locked":true,"status":1,"tag":"g1"})");
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(Reading, DoesNotLookAtTheTag) {
  AddMeta(kId, 10);
  Db().Exec("UPDATE gsnap_meta SET tag = 'else'");
  EXPECT_TRUE(GsnapshotGet(kId, gsnap));
  EXPECT_EQ(gsnap.tag, "else");
}

TEST_F(Reading, NeedsAnIdentifier) {
  EXPECT_FALSE(GsnapshotGet("", gsnap));
  EXPECT_THAT(log.Entries(), ElementsAre(Err(kUnit, "GsnapshotGet", "empty gsnap id")));
}

TEST_F(Reading, NeedsAnIdentifierThatNamesItsGroup) {
  EXPECT_FALSE(GsnapshotGet("g1", gsnap));
  EXPECT_FALSE(GsnapshotGet("-gsnap-5", gsnap));
  EXPECT_FALSE(GsnapshotGet("%s%n", gsnap));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Err(kUnit, "GsnapshotGet", "Empty groupId from [g1]"),
                          Err(kUnit, "GsnapshotGet", "Empty groupId from [-gsnap-5]"),
                          Err(kUnit, "GsnapshotGet", "Empty groupId from [%s%n]")));
}

TEST_F(Reading, FailsOnAnUnknownGroupSnapshotButSetsItsIdentifier) {
  EXPECT_FALSE(GsnapshotGet("g1-gsnap-%d", gsnap));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Err(kUnit, "GsnapshotGet", "gsnap[g1-gsnap-%d] is not existed")));
  EXPECT_EQ(gsnap.gsnap_id, "g1-gsnap-%d");
}

TEST_F(Reading, FailsOnAGroupWithoutADatabaseAndMakesNone) {
  EXPECT_FALSE(GsnapshotGet("other-gsnap-5", gsnap));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Err(kUnit, "GsnapshotGet", "gsnap[other-gsnap-5] is not existed")));
  EXPECT_FALSE(Exists(kLinkRoot + "/other"));
}

TEST_F(Reading, FailsOnALostTable) {
  Db().Exec("DROP TABLE gsnap_meta");
  EXPECT_FALSE(GsnapshotGet(kId, gsnap));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Err(kUnit, "GsnapshotGet", "gsnap[g1-gsnap-10] is not existed")));
}

TEST_F(Reading, FailsInSilenceOnATimeThatIsNotPositive) {
  for (const char* time : {"0", "4294967296", "NULL", "''"}) {
    Db().Exec(std::string("REPLACE INTO gsnap_meta (gsnap_id, tag, gsnap_time) VALUES "
                          "('g1-gsnap-10', 'g1', ") +
              time + ")");
    EXPECT_FALSE(GsnapshotGet(kId, gsnap)) << time;
  }
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(Reading, GivesAGroupSnapshotWithItsParts) {
  AddMeta(kId, 10);
  AddSnap("t2", 2, "s2", kId);
  AddSnap("t9", 1, "s9", "g1-gsnap-9");
  AddSnap("t1", 1, "s1", kId);
  AddReplica("t2", "r2", kId);
  AddReplica("t9", "r9", "g1-gsnap-9");
  AddReplica("t1", "r1", kId);
  EXPECT_TRUE(GsnapshotInfoGet(kId, info));
  EXPECT_EQ(info.gsnap_time, 10);
  EXPECT_THAT(info.target_snapshots, ElementsAre(IsSnap("t2", 2, "s2"), IsSnap("t1", 1, "s1")));
  EXPECT_THAT(info.target_replicas, ElementsAre(IsReplica("t2", "r2"), IsReplica("t1", "r1")));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(Reading, TakesAGroupSnapshotWithoutPartsForWhole) {
  AddMeta(kId, 10);
  EXPECT_TRUE(GsnapshotInfoGet(kId, info));
  EXPECT_THAT(info.target_snapshots, IsEmpty());
  EXPECT_THAT(info.target_replicas, IsEmpty());
}

TEST_F(Reading, AppendsPartsToWhatTheCallerHas) {
  AddMeta(kId, 10);
  AddSnap("t1", 1, "s1", kId);
  AddReplica("t1", "r1", kId);
  info.target_snapshots.emplace_back(Target("t0", 1), "s0");
  info.target_replicas.emplace_back("t0", "r0");
  replicas.emplace_back("t0", "r0");
  EXPECT_TRUE(GsnapshotInfoGet(kId, info));
  EXPECT_TRUE(TargetReplicaList(kId, replicas));
  EXPECT_THAT(info.target_snapshots, ElementsAre(IsSnap("t0", 1, "s0"), IsSnap("t1", 1, "s1")));
  EXPECT_THAT(info.target_replicas, ElementsAre(IsReplica("t0", "r0"), IsReplica("t1", "r1")));
  EXPECT_THAT(replicas, ElementsAre(IsReplica("t0", "r0"), IsReplica("t1", "r1")));
}

TEST_F(Reading, StillGivesThePartsOfAGroupSnapshotThatIsNotThere) {
  AddSnap("t1", 1, "s1", kId);
  AddReplica("t1", "r1", kId);
  EXPECT_FALSE(GsnapshotInfoGet(kId, info));
  EXPECT_THAT(info.target_snapshots, ElementsAre(IsSnap("t1", 1, "s1")));
  EXPECT_THAT(info.target_replicas, ElementsAre(IsReplica("t1", "r1")));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Err(kUnit, "GsnapshotGet", "gsnap[g1-gsnap-10] is not existed")));
}

TEST_F(Reading, StillGivesThePartsOfAGroupSnapshotThatIsNotValid) {
  AddMeta(kId, 0);
  AddSnap("t1", 1, "s1", kId);
  EXPECT_FALSE(GsnapshotInfoGet(kId, info));
  EXPECT_THAT(info.target_snapshots, ElementsAre(IsSnap("t1", 1, "s1")));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(Reading, LogsEachStepOfAnEmptyIdentifier) {
  EXPECT_FALSE(GsnapshotInfoGet("", info));
  EXPECT_THAT(log.Entries(), ElementsAre(Err(kUnit, "GsnapshotGet", "empty gsnap id"),
                                         Err(kUnit, "GetTargetSnapshots", "Empty gsnapId"),
                                         Err(kUnit, "GetTargetReplicas", "Empty gsnapId")));
}

TEST_F(Reading, PassesOverATargetSnapshotThatCannotBeReadAndFails) {
  AddMeta(kId, 10);
  AddSnap("t1", 1, "s1", kId);
  Db().Exec("INSERT INTO target_snap_list (gsnap_id) VALUES ('g1-gsnap-10')");
  AddSnap("t2", 1, "s2", kId);
  AddReplica("t1", "r1", kId);
  EXPECT_FALSE(GsnapshotInfoGet(kId, info));
  EXPECT_THAT(info.target_snapshots, ElementsAre(IsSnap("t1", 1, "s1"), IsSnap("t2", 1, "s2")));
  EXPECT_THAT(info.target_replicas, SizeIs(1));
  EXPECT_THAT(log.Entries(), ElementsAre(SelectFailure("GetTargetSnapshots")));
}

TEST_F(Reading, PassesOverAReplicaThatCannotBeReadAndFails) {
  AddMeta(kId, 10);
  AddReplica("t1", "r1", kId);
  Db().Exec("INSERT INTO target_replica_list (gsnap_id) VALUES ('g1-gsnap-10')");
  AddReplica("t2", "r2", kId);
  EXPECT_FALSE(GsnapshotInfoGet(kId, info));
  EXPECT_THAT(info.target_replicas, ElementsAre(IsReplica("t1", "r1"), IsReplica("t2", "r2")));
  EXPECT_THAT(log.Entries(), ElementsAre(SelectFailure("GetTargetReplicas")));
}

TEST_F(Reading, GoesOnToTheReplicasAfterALostTableOfTargetSnapshots) {
  AddMeta(kId, 10);
  AddReplica("t1", "r1", kId);
  Db().Exec("DROP TABLE target_snap_list");
  EXPECT_FALSE(GsnapshotInfoGet(kId, info));
  EXPECT_THAT(info.target_replicas, SizeIs(1));
  EXPECT_THAT(log.Entries(), ElementsAre(SelectFailure("GetTargetSnapshots")));
}

TEST_F(Reading, FailsOnALostTableOfReplicas) {
  AddMeta(kId, 10);
  Db().Exec("DROP TABLE target_replica_list");
  EXPECT_FALSE(GsnapshotInfoGet(kId, info));
  EXPECT_THAT(log.Entries(), ElementsAre(SelectFailure("GetTargetReplicas")));
}

TEST_F(Reading, LogsEveryStepOnAGroupWithoutADatabase) {
  EXPECT_FALSE(GsnapshotInfoGet("other-gsnap-%s", info));
  const std::string failed = "Failed to select snapshots with gsnapId[other-gsnap-%s]";
  EXPECT_THAT(log.Entries(),
              ElementsAre(Err(kUnit, "GsnapshotGet", "gsnap[other-gsnap-%s] is not existed"),
                          Err(kUnit, "GetTargetSnapshots", failed),
                          Err(kUnit, "GetTargetReplicas", failed)));
}

TEST_F(Reading, GivesTheReplicasOfAGroupSnapshot) {
  AddReplica("t1", "r1", kId);
  AddReplica("t1", "r2", "g1-gsnap-11");
  AddReplica("t0", "", kId);
  EXPECT_TRUE(TargetReplicaList(kId, replicas));
  EXPECT_THAT(replicas, ElementsAre(IsReplica("t1", "r1"), IsReplica("t0", "")));
}

TEST_F(Reading, FailsToGiveReplicasWithoutAnIdentifierOrATable) {
  EXPECT_FALSE(TargetReplicaList("", replicas));
  Db().Exec("DROP TABLE target_replica_list");
  EXPECT_FALSE(TargetReplicaList(kId, replicas));
  EXPECT_THAT(log.Entries(), ElementsAre(Err(kUnit, "GetTargetReplicas", "Empty gsnapId"),
                                         SelectFailure("GetTargetReplicas")));
}

class InfoListing : public Reading {
 protected:
  auto Failed(const std::string& function, const std::string& message) const {
    return Err(kUnit, function, message);
  }
};

TEST_F(InfoListing, GivesEveryGroupSnapshotWithItsTargetSnapshotsAndNoReplicas) {
  AddMeta("g1-gsnap-20", 20);
  AddMeta(kId, 10);
  AddSnap("t2", 2, "s2", kId);
  AddSnap("t3", 3, "s3", "g1-gsnap-20");
  AddSnap("t1", 1, "s1", kId);
  AddSnap("t4", 1, "s4", "g1-gsnap-gone");
  AddReplica("t1", "r1", kId);
  EXPECT_TRUE(GsnapshotInfoList("g1", infos));
  ASSERT_THAT(infos, SizeIs(2));
  EXPECT_EQ(infos[0].gsnap_id, "g1-gsnap-20");
  EXPECT_EQ(infos[0].gsnap_time, 20);
  EXPECT_THAT(infos[0].target_snapshots, ElementsAre(IsSnap("t3", 3, "s3")));
  EXPECT_EQ(infos[1].gsnap_id, kId);
  EXPECT_THAT(infos[1].target_snapshots, ElementsAre(IsSnap("t2", 2, "s2"), IsSnap("t1", 1, "s1")));
  EXPECT_THAT(infos[0].target_replicas, IsEmpty());
  EXPECT_THAT(infos[1].target_replicas, IsEmpty());
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(InfoListing, OfAnEmptyCatalogueIsEmpty) {
  EXPECT_TRUE(GsnapshotInfoList("g1", infos));
  EXPECT_THAT(infos, IsEmpty());
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(InfoListing, NeedsAGroup) {
  EXPECT_FALSE(GsnapshotInfoList("", infos));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Failed("GsnapshotInfoList", "Failed to list snapshots of group[]")));
}

TEST_F(InfoListing, FailsOnALostTableOfGroupSnapshots) {
  Db().Exec("DROP TABLE gsnap_meta");
  EXPECT_FALSE(GsnapshotInfoList("g1", infos));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Failed("GsnapRecordList", "Failed to list group snapshot of [g1]"),
                          Failed("GsnapshotInfoList", "Failed to list snapshots of group[g1]")));
}

TEST_F(InfoListing, FailsOnALostTableOfTargetSnapshotsAndKeepsWhatItRead) {
  AddMeta(kId, 10);
  Db().Exec("DROP TABLE target_snap_list");
  EXPECT_FALSE(GsnapshotInfoList("g1", infos));
  EXPECT_THAT(infos, SizeIs(1));
  EXPECT_THAT(log.Entries(), ElementsAre(Failed("GsnapshotInfoList",
                                                "Failed to list target snapshots of group[g1]")));
}

TEST_F(InfoListing, FailsAtTheTargetSnapshotsOfAGroupWithoutADatabase) {
  EXPECT_FALSE(GsnapshotInfoList("%s%n", infos));
  EXPECT_THAT(infos, IsEmpty());
  EXPECT_THAT(log.Entries(), ElementsAre(Failed("GsnapshotInfoList",
                                                "Failed to list target snapshots of group[%s%n]")));
  EXPECT_FALSE(Exists(kLinkRoot + "/%s%n"));
}

TEST_F(InfoListing, FailsAtAGroupSnapshotWithoutTargetSnapshots) {
  AddMeta("g1-gsnap-20", 20);
  AddMeta(kId, 10);
  AddMeta("g1-gsnap-30", 30);
  AddSnap("t3", 3, "s3", "g1-gsnap-20");
  AddSnap("t5", 3, "s5", "g1-gsnap-30");
  EXPECT_FALSE(GsnapshotInfoList("g1", infos));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Failed("GsnapshotInfoList",
                                 "Failed to find target snapshots of group[g1-gsnap-10]")));
  ASSERT_THAT(infos, SizeIs(3));
  EXPECT_THAT(infos[0].target_snapshots, SizeIs(1));
  EXPECT_THAT(infos[1].target_snapshots, IsEmpty());
  EXPECT_THAT(infos[2].target_snapshots, IsEmpty());
}

TEST_F(InfoListing, LogsAGroupSnapshotWithoutAnIdentifierAndGoesOn) {
  AddMeta("", 5);
  AddMeta(kId, 10);
  AddSnap("t0", 1, "s0", "");
  AddSnap("t1", 1, "s1", kId);
  EXPECT_TRUE(GsnapshotInfoList("g1", infos));
  ASSERT_THAT(infos, SizeIs(2));
  EXPECT_THAT(infos[0].target_snapshots, IsEmpty());
  EXPECT_THAT(infos[1].target_snapshots, ElementsAre(IsSnap("t1", 1, "s1")));
  EXPECT_THAT(log.Entries(), ElementsAre(Failed("GsnapshotInfoList", "Empty gsnapId")));
}

TEST_F(InfoListing, FailsAtATargetSnapshotWithoutAGroupSnapshot) {
  AddMeta(kId, 10);
  AddSnap("t1", 1, "s1", kId);
  Db().Exec("INSERT INTO target_snap_list (target_id, target_type, tsnap_id) VALUES ('t', 1, 's')");
  AddSnap("t2", 1, "s2", kId);
  EXPECT_FALSE(GsnapshotInfoList("g1", infos));
  EXPECT_THAT(log.Entries(), ElementsAre(Failed("GsnapshotInfoList",
                                                "Failed to list target snapshots of group[g1]")));
}

TEST_F(InfoListing, FailsAtATargetSnapshotThatCannotBeRead) {
  AddMeta(kId, 10);
  AddSnap("t1", 1, "s1", kId);
  Db().Exec("INSERT INTO target_snap_list (gsnap_id) VALUES ('g1-gsnap-10')");
  AddSnap("t2", 1, "s2", kId);
  EXPECT_FALSE(GsnapshotInfoList("g1", infos));
  EXPECT_THAT(log.Entries(), ElementsAre(Failed("GsnapshotInfoList",
                                                "Failed to list target snapshots of group[g1]")));
}

TEST_F(InfoListing, FailsAtARowThatCannotBeReadOfAGroupSnapshotThatIsNotListed) {
  AddMeta(kId, 10);
  AddSnap("t1", 1, "s1", kId);
  Db().Exec("INSERT INTO target_snap_list (gsnap_id) VALUES ('g1-gsnap-gone')");
  AddSnap("t2", 1, "s2", kId);
  EXPECT_FALSE(GsnapshotInfoList("g1", infos));
  EXPECT_THAT(log.Entries(), ElementsAre(Failed("GsnapshotInfoList",
                                                "Failed to list target snapshots of group[g1]")));
}

TEST_F(InfoListing, AppendsToWhatTheCallerHas) {
  AddMeta(kId, 10);
  AddSnap("t1", 1, "s1", kId);
  infos.emplace_back(kId);
  EXPECT_TRUE(GsnapshotInfoList("g1", infos));
  ASSERT_THAT(infos, SizeIs(2));
  EXPECT_THAT(infos[0].target_snapshots, ElementsAre(IsSnap("t1", 1, "s1")));
  EXPECT_THAT(infos[1].target_snapshots, ElementsAre(IsSnap("t1", 1, "s1")));
}

}  // namespace
}  // namespace unit
