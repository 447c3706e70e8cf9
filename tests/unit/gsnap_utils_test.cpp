#include <vreldrgroup/snapshot/gsnap_op.h>
#include <vreldrgroup/snapshot/gsnap_utils.h>

#include <filesystem>
#include <limits>

#include "catalogue_test.h"

namespace unit {
namespace {

namespace Utils = VrelDRGroup::Utils;

using namespace std::string_literals;
using VrelDR::Target;
using VrelDRGroup::GsnapMeta;
using VrelDRGroup::Gsnapshot;
using VrelDRGroup::TargetReplica;
using VrelDRGroup::TargetSnapshot;

const char kUnit[] = "snapshot/gsnap_utils";

// Bytes that a careless hand loses: quotes, line breaks, UTF-8, a zero byte, formats.
const std::string kAnyText = "it's \"q\" ;--\n\r\t \xE2\x82\xAC %s%n \\ \0 end"s;

TEST(ToGsnapId, JoinsGroupAndTime) {
  EXPECT_EQ(Utils::ToGsnapId("g1", 1700000000), "g1-gsnap-1700000000");
  EXPECT_EQ(Utils::ToGsnapId("g1", 1), "g1-gsnap-1");
  EXPECT_EQ(Utils::ToGsnapId("g1", 4294967297), "g1-gsnap-4294967297");
}

TEST(ToGsnapId, IsEmptyWithoutAGroupOrATime) {
  EXPECT_EQ(Utils::ToGsnapId("", 5), "");
  EXPECT_EQ(Utils::ToGsnapId("g1", 0), "");
  EXPECT_EQ(Utils::ToGsnapId("", 0), "");
}

TEST(ToGsnapId, WritesANegativeTimeWithItsSign) {
  EXPECT_EQ(Utils::ToGsnapId("g1", -5), "g1-gsnap--5");
  EXPECT_EQ(Utils::ToGsnapId("g1", std::numeric_limits<long>::min()),
            "g1-gsnap--9223372036854775808");
}

TEST(ParseGroupId, GivesWhatStandsBeforeTheLastSeparator) {
  EXPECT_EQ(Utils::ParseGroupId("g1-gsnap-5"), "g1");
  EXPECT_EQ(Utils::ParseGroupId("a-gsnap-b-gsnap-5"), "a-gsnap-b");
  EXPECT_EQ(Utils::ParseGroupId("g1-gsnap-"), "g1");
  EXPECT_EQ(Utils::ParseGroupId("-gsnap-5"), "");
  EXPECT_EQ(Utils::ParseGroupId("a-gsnap-gsnap-5"), "a-gsnap");
}

TEST(ParseGroupId, IsEmptyWithoutASeparator) {
  EXPECT_EQ(Utils::ParseGroupId("g1"), "");
  EXPECT_EQ(Utils::ParseGroupId(""), "");
  EXPECT_EQ(Utils::ParseGroupId("g1-GSNAP-5"), "");
  EXPECT_EQ(Utils::ParseGroupId("g1-gsnap"), "");
}

TEST(ParseSnapshotTime, GivesTheNumberAfterTheLastSeparator) {
  EXPECT_EQ(Utils::ParseSnapshotTime("g1-gsnap-1700000000"), 1700000000);
  EXPECT_EQ(Utils::ParseSnapshotTime("g-gsnap-1-gsnap-2"), 2);
  EXPECT_EQ(Utils::ParseSnapshotTime("g1-gsnap--5"), -5);
}

TEST(ParseSnapshotTime, UsesTheLeadingDigits) {
  EXPECT_EQ(Utils::ParseSnapshotTime("g1-gsnap-12ab"), 12);
  EXPECT_EQ(Utils::ParseSnapshotTime("g1-gsnap-0x10"), 0);
  EXPECT_EQ(Utils::ParseSnapshotTime("g1-gsnap-010"), 10);
  EXPECT_EQ(Utils::ParseSnapshotTime("g1-gsnap-ab"), 0);
  EXPECT_EQ(Utils::ParseSnapshotTime("g1-gsnap-"), 0);
}

TEST(ParseSnapshotTime, IsZeroWithoutASeparator) {
  EXPECT_EQ(Utils::ParseSnapshotTime("1700000012"), 0);
  EXPECT_EQ(Utils::ParseSnapshotTime(""), 0);
}

TEST(ParseSnapshotTime, WrapsAt32Bits) {
  EXPECT_EQ(Utils::ParseSnapshotTime("g1-gsnap-2147483647"), 2147483647);
  EXPECT_EQ(Utils::ParseSnapshotTime("g1-gsnap-2147483648"), -2147483648L);
  EXPECT_EQ(Utils::ParseSnapshotTime("g1-gsnap-4294967295"), -1);
  EXPECT_EQ(Utils::ParseSnapshotTime("g1-gsnap-4294967297"), 1);
}

class InitDRGroupDB : public CatalogueTest {
 protected:
  int err = -77;
};

TEST_F(InitDRGroupDB, RefusesAnEmptyDirectoryWith401) {
  EXPECT_FALSE(Utils::InitDRGroupDB("", "g1", err, true));
  EXPECT_EQ(err, 401);
  EXPECT_THAT(core.OfPlatform(), IsEmpty());
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(InitDRGroupDB, GivesAnEmptyGroup404) {
  EXPECT_FALSE(Utils::InitDRGroupDB(dbDir, "", err, true));
  EXPECT_EQ(err, 404);
  EXPECT_FALSE(Exists(dbDir));
}

TEST_F(InitDRGroupDB, GivesAFailed404) {
  std::filesystem::remove(kScript);
  EXPECT_FALSE(Utils::InitDRGroupDB(dbDir, "g1", err, true));
  EXPECT_EQ(err, 404);
}

TEST_F(InitDRGroupDB, LeavesTheCodeAloneOnSuccess) {
  EXPECT_TRUE(Utils::InitDRGroupDB(dbDir, "g1", err, true));
  EXPECT_EQ(err, -77);
  EXPECT_TRUE(Exists(dbPath));
  EXPECT_TRUE(Exists(linkPath));
}

TEST_F(InitDRGroupDB, RelinksOnlyWhenTold) {
  MakeCatalogue();
  std::filesystem::remove(linkPath);
  std::filesystem::create_symlink("/var/groups/none", linkPath);
  EXPECT_FALSE(Utils::InitDRGroupDB(dbDir, "g1", err, false));
  EXPECT_EQ(err, 404);
  EXPECT_TRUE(Utils::InitDRGroupDB(dbDir, "g1", err, true));
}

TEST(InitGroupSnapshot, TakesTagAndMetadataAndIsReadyWithoutAnIdentifier) {
  Gsnapshot gsnap("old-gsnap-3");
  gsnap.gsnap_time = 3;
  gsnap.status = VrelDRGroup::kGsnapBad;
  Utils::InitGroupSnapshot(gsnap, "g1", GsnapMeta("words", true, VrelDRGroup::kCwCrashConsistent));
  EXPECT_EQ(gsnap.gsnap_id, "");
  EXPECT_EQ(gsnap.tag, "g1");
  EXPECT_EQ(gsnap.desc, "words");
  EXPECT_TRUE(gsnap.is_user_locked);
  EXPECT_EQ(gsnap.cw_type, VrelDRGroup::kCwCrashConsistent);
  EXPECT_EQ(gsnap.status, VrelDRGroup::kGsnapReady);
  EXPECT_EQ(gsnap.gsnap_time, 3);
}

class SetRecord : public CatalogueTest {
 protected:
  SetRecord() { MakeCatalogue(); }

  static Gsnapshot At(const std::string& id, long time) {
    Gsnapshot gsnap(id);
    gsnap.tag = "g1";
    gsnap.gsnap_time = time;
    return gsnap;
  }

  int err = -77;
};

TEST_F(SetRecord, WritesTheFullRowOfAGroupSnapshot) {
  Gsnapshot gsnap = At("g1-gsnap-1", 1);
  gsnap.desc = "words";
  gsnap.is_user_locked = true;
  gsnap.cw_type = static_cast<VrelDRGroup::GsnapCwType>(42);
  gsnap.status = VrelDRGroup::kGsnapReady;
  EXPECT_TRUE(Utils::SetGroupSnapRecord(gsnap, dbDir, err));
  EXPECT_EQ(err, -77);
  EXPECT_THAT(MetaRows(), ElementsAre("'words'|1|42|'g1-gsnap-1'|'g1'|1|1"));
  EXPECT_THAT(Db().Rows("SELECT minor_id FROM gsnap_meta"), ElementsAre("NULL"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(SetRecord, WritesATimeOfMoreThan32BitsWhole) {
  EXPECT_TRUE(Utils::SetGroupSnapRecord(At("g1-gsnap-1", 4294967296), dbDir, err));
  EXPECT_THAT(MetaRows(), ElementsAre("''|0|0|'g1-gsnap-1'|'g1'|4294967296|0"));
}

TEST_F(SetRecord, RefusesAGroupSnapshotWithoutAnIdentifier) {
  EXPECT_FALSE(Utils::SetGroupSnapRecord(At("", 5), dbDir, err));
  EXPECT_EQ(err, 401);
  EXPECT_THAT(
      log.Entries(),
      ElementsAre(Err(kUnit, "SetGroupSnapRecord",
                      R"(Invalid gsnapshot [{"cw_type":0,"desc":"","gsnap_id":"",)"
                      R"("gsnap_name":"GMT-1970.01.01-00.00.05","gsnap_time":5,)"
                      R"("gsnap_time_str":"5","is_user_locked":false,"status":0,"tag":"g1"}])")));
  EXPECT_THAT(MetaRows(), IsEmpty());
}

TEST_F(SetRecord, RefusesAGroupSnapshotWithATimeBelowOne) {
  for (const long time : {0L, -1L, std::numeric_limits<long>::min()}) {
    err = -77;
    log.Clear();
    const Gsnapshot gsnap = At("%s%n-gsnap-0", time);
    EXPECT_FALSE(Utils::SetGroupSnapRecord(gsnap, dbDir, err));
    EXPECT_EQ(err, 401);
    EXPECT_THAT(log.Entries(),
                ElementsAre(Err(kUnit, "SetGroupSnapRecord",
                                "Invalid gsnapshot [" + ToString(gsnap.ToJson()) + "]")));
  }
  EXPECT_THAT(MetaRows(), IsEmpty());
  EXPECT_THAT(core.Of({"SqliteDB"}), IsEmpty());
}

TEST_F(SetRecord, WritesIntoTheRealFileWithoutItsLink) {
  std::filesystem::remove_all(kLinkRoot);
  EXPECT_TRUE(Utils::SetGroupSnapRecord(At("g1-gsnap-1", 1), dbDir, err));
  EXPECT_TRUE(Utils::SetTargetSnapshotRecord(TargetSnapshot(Target("t", 1), "s"), "g", dbDir));
  EXPECT_TRUE(Utils::SetTargetReplicaRecord(TargetReplica("a", "b"), "g", dbDir));
  EXPECT_THAT(core.Of({"SqliteDB"}),
              testing::Each("SqliteDB(" + dbPath + ", 20, vreldrcore_db_info)"));
}

TEST_F(SetRecord, GivesARefusedGroupSnapshot404InSilence) {
  Refuse("INSERT", "gsnap_meta");
  EXPECT_FALSE(Utils::SetGroupSnapRecord(At("g1-gsnap-1", 1), dbDir, err));
  EXPECT_EQ(err, 404);
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(SetRecord, RefusesASecondGroupSnapshotOfTheSameName) {
  EXPECT_TRUE(Utils::SetGroupSnapRecord(At("g1-gsnap-1", 1), dbDir, err));
  EXPECT_FALSE(Utils::SetGroupSnapRecord(At("g1-gsnap-1", 1), dbDir, err));
  EXPECT_EQ(err, 404);
  EXPECT_THAT(MetaRows(), testing::SizeIs(1));
}

TEST_F(SetRecord, FailsWithoutADatabaseAndMakesNone) {
  const std::string none = "/var/groups/none";
  std::filesystem::create_directories(none);
  EXPECT_FALSE(Utils::SetGroupSnapRecord(At("g1-gsnap-1", 1), none, err));
  EXPECT_EQ(err, 404);
  EXPECT_FALSE(Utils::SetTargetSnapshotRecord(TargetSnapshot(Target("t", 1), "s"), "g", none));
  EXPECT_FALSE(Utils::SetTargetReplicaRecord(TargetReplica("a", "b"), "g", none));
  EXPECT_FALSE(Utils::SetTargetSnapshotRecord(TargetSnapshot(Target("t", 1), "s"), "g", ""));
  EXPECT_TRUE(std::filesystem::is_empty(none));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(SetRecord, WritesTheFullRowOfATargetSnapshot) {
  EXPECT_TRUE(
      Utils::SetTargetSnapshotRecord(TargetSnapshot(Target("t1", 2), "s1"), "g1-gsnap-1", dbDir));
  EXPECT_THAT(SnapRows(), ElementsAre("'t1'|2|'s1'|'g1-gsnap-1'"));
}

TEST_F(SetRecord, WritesTheFullRowOfATargetReplica) {
  EXPECT_TRUE(Utils::SetTargetReplicaRecord(TargetReplica("t1", "r1"), "g1-gsnap-1", dbDir));
  EXPECT_THAT(ReplicaRows(), ElementsAre("'t1'|'r1'|'g1-gsnap-1'"));
}

TEST_F(SetRecord, DoesNotValidateTargetRecords) {
  EXPECT_TRUE(Utils::SetTargetSnapshotRecord(TargetSnapshot(Target("", 9), ""), "", dbDir));
  EXPECT_TRUE(Utils::SetTargetReplicaRecord(TargetReplica("t1", ""), "", dbDir));
  EXPECT_THAT(SnapRows(), ElementsAre("''|9|''|''"));
  EXPECT_THAT(ReplicaRows(), ElementsAre("'t1'|''|''"));
}

TEST_F(SetRecord, AddsASecondRowWhenATargetRecordIsWrittenTwice) {
  for (int time = 0; time < 2; ++time) {
    EXPECT_TRUE(Utils::SetTargetSnapshotRecord(TargetSnapshot(Target("t", 1), "s"), "g", dbDir));
    EXPECT_TRUE(Utils::SetTargetReplicaRecord(TargetReplica("a", "b"), "g", dbDir));
  }
  EXPECT_THAT(SnapRows(), ElementsAre("'t'|1|'s'|'g'", "'t'|1|'s'|'g'"));
  EXPECT_THAT(ReplicaRows(), ElementsAre("'a'|'b'|'g'", "'a'|'b'|'g'"));
}

TEST_F(SetRecord, ReportsARefusedTargetRecordInSilence) {
  Refuse("INSERT", "target_snap_list");
  Refuse("INSERT", "target_replica_list");
  EXPECT_FALSE(Utils::SetTargetSnapshotRecord(TargetSnapshot(Target("t", 1), "s"), "g", dbDir));
  EXPECT_FALSE(Utils::SetTargetReplicaRecord(TargetReplica("a", "b"), "g", dbDir));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(SetRecord, KeepsEveryByteOfATextOnTheWayInAndOut) {
  const std::string gsnapId = "g1-gsnap-7";
  Gsnapshot gsnap = At(gsnapId, 7);
  gsnap.desc = kAnyText;
  EXPECT_TRUE(Utils::SetGroupSnapRecord(gsnap, dbDir, err));
  EXPECT_TRUE(Utils::SetTargetSnapshotRecord(TargetSnapshot(Target(kAnyText, 1), kAnyText + "s"),
                                             gsnapId, dbDir));
  EXPECT_TRUE(
      Utils::SetTargetReplicaRecord(TargetReplica(kAnyText + "a", kAnyText + "b"), gsnapId, dbDir));
  EXPECT_THAT(MetaRows(), ElementsAre("'" + kAnyText + "'|0|0|'g1-gsnap-7'|'g1'|7|0"));

  VrelDRGroup::GsnapshotInfo info("");
  EXPECT_TRUE(VrelDRGroup::Operation::GsnapshotInfoGet(gsnapId, info));
  EXPECT_EQ(info.desc, kAnyText);
  ASSERT_EQ(info.target_snapshots.size(), 1U);
  EXPECT_EQ(info.target_snapshots[0].target, Target(kAnyText, 1));
  EXPECT_EQ(info.target_snapshots[0].tsnap_id, kAnyText + "s");
  ASSERT_EQ(info.target_replicas.size(), 1U);
  EXPECT_EQ(info.target_replicas[0].src_target_id, kAnyText + "a");
  EXPECT_EQ(info.target_replicas[0].dst_target_id, kAnyText + "b");
}

}  // namespace
}  // namespace unit
