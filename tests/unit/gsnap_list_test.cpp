#include <vreldrgroup/db.h>
#include <vreldrgroup/snapshot/gsnap_op.h>

#include <filesystem>
#include <fstream>

#include "catalogue_test.h"

namespace unit {
namespace {

using testing::Pair;
using testing::SizeIs;
using testing::UnorderedElementsAre;
using VrelDR::Target;
using VrelDRGroup::Gsnapshot;
using VrelDRGroup::TargetSnapshotRelationship;
using VrelDRGroup::Operation::GsnapshotIdList;
using VrelDRGroup::Operation::GsnapshotList;
using VrelDRGroup::Operation::TargetSnapList;

const char kUnit[] = "snapshot/gsnap_op.cpp";

// Lists of a catalogue that a test fills.
class Listing : public CatalogueTest {
 protected:
  Listing() { MakeCatalogue(); }

  static std::vector<std::string> Ids(const std::vector<Gsnapshot>& gsnaps) {
    std::vector<std::string> ids;
    for (const Gsnapshot& gsnap : gsnaps) ids.push_back(gsnap.gsnap_id);
    return ids;
  }

  void AddThree() const {
    AddMeta("g1-gsnap-20", 20);
    AddMeta("g1-gsnap-30", 30);
    AddMeta("g1-gsnap-10", 10);
  }

  void BreakFile() const {
    std::filesystem::remove(dbPath);
    std::ofstream(dbPath) << "this is not a database, not at all, by far, never was one";
  }

  std::vector<Gsnapshot> gsnaps;
  std::vector<std::string> ids;
  std::set<std::string> idSet = {"before"};
  std::map<Target, std::vector<TargetSnapshotRelationship>> byTarget;
};

TEST_F(Listing, OfAGroupWithoutAnIdentifierFailsInSilence) {
  EXPECT_FALSE(GsnapshotList("", gsnaps, false));
  EXPECT_FALSE(GsnapshotList("", gsnaps, true));
  EXPECT_FALSE(GsnapshotIdList("", ids));
  EXPECT_FALSE(GsnapshotIdList("", idSet));
  EXPECT_THAT(log.Entries(), IsEmpty());
  EXPECT_THAT(idSet, ElementsAre("before"));
}

TEST_F(Listing, OfAGroupWithoutADatabaseSucceedsAndAddsNothing) {
  gsnaps.emplace_back("before");
  ids.emplace_back("before");
  EXPECT_TRUE(GsnapshotList("other", gsnaps, false));
  EXPECT_TRUE(GsnapshotList("other", gsnaps, true));
  EXPECT_TRUE(GsnapshotIdList("other", ids));
  EXPECT_THAT(Ids(gsnaps), ElementsAre("before"));
  EXPECT_THAT(ids, ElementsAre("before"));
  EXPECT_THAT(log.Entries(), IsEmpty());
  EXPECT_FALSE(Exists(kLinkRoot + "/other"));
}

TEST_F(Listing, OfAGroupWithoutADatabaseEmptiesASet) {
  EXPECT_TRUE(GsnapshotIdList("other", idSet));
  EXPECT_THAT(idSet, IsEmpty());
}

TEST_F(Listing, OfAGroupWhoseLinkDanglesIsEmpty) {
  std::filesystem::remove(dbPath);
  EXPECT_TRUE(GsnapshotList("g1", gsnaps, false));
  EXPECT_TRUE(GsnapshotIdList("g1", ids));
  EXPECT_THAT(gsnaps, IsEmpty());
  EXPECT_FALSE(Exists(dbPath));
}

TEST_F(Listing, GivesGroupSnapshotsInTheOrderOfTheDatabase) {
  AddThree();
  EXPECT_TRUE(GsnapshotList("g1", gsnaps, false));
  EXPECT_THAT(Ids(gsnaps), ElementsAre("g1-gsnap-20", "g1-gsnap-30", "g1-gsnap-10"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(Listing, GivesWholeGroupSnapshots) {
  Db().Exec(
      "INSERT INTO gsnap_meta VALUES ('it''s', 1, 2, 'g1-gsnap-1700000000', 'g1', "
      "1700000000, 2, NULL)");
  EXPECT_TRUE(GsnapshotList("g1", gsnaps, false));
  ASSERT_THAT(gsnaps, SizeIs(1));
  EXPECT_EQ(ToString(gsnaps[0].ToJson()),
            R"({"cw_type":2,"desc":"it's","gsnap_id":"g1-gsnap-1700000000",)"
            R"("gsnap_name":"GMT-2023.11.14-22.13.20","gsnap_time":1700000000,)"
            R"("gsnap_time_str":"1700000000","is_user_locked":true,"status":2,"tag":"g1"})");
}

TEST_F(Listing, GivesOnlyGroupSnapshotsWithTheGroupsTag) {
  AddThree();
  Db().Exec("UPDATE gsnap_meta SET tag = 'g2' WHERE gsnap_id = 'g1-gsnap-30'");
  Db().Exec("UPDATE gsnap_meta SET tag = NULL WHERE gsnap_id = 'g1-gsnap-10'");
  EXPECT_TRUE(GsnapshotList("g1", gsnaps, false));
  EXPECT_THAT(Ids(gsnaps), ElementsAre("g1-gsnap-20"));
}

TEST_F(Listing, GivesTheNewestGroupSnapshotAloneWhenAskedTo) {
  AddThree();
  EXPECT_TRUE(GsnapshotList("g1", gsnaps, true));
  EXPECT_THAT(Ids(gsnaps), ElementsAre("g1-gsnap-30"));
}

TEST_F(Listing, LooksForTheNewestAmongTheGroupsOwn) {
  AddThree();
  Db().Exec("UPDATE gsnap_meta SET tag = 'g2' WHERE gsnap_id = 'g1-gsnap-30'");
  EXPECT_TRUE(GsnapshotList("g1", gsnaps, true));
  EXPECT_THAT(Ids(gsnaps), ElementsAre("g1-gsnap-20"));
}

TEST_F(Listing, ComparesTimesAsNumbers) {
  AddMeta("g1-gsnap-9", 9);
  AddMeta("g1-gsnap-10", 10);
  EXPECT_TRUE(GsnapshotList("g1", gsnaps, true));
  EXPECT_THAT(Ids(gsnaps), ElementsAre("g1-gsnap-10"));
}

TEST_F(Listing, GivesGroupSnapshotsThatAreNotValidToo) {
  AddMeta("", 0);
  EXPECT_TRUE(GsnapshotList("g1", gsnaps, false));
  EXPECT_THAT(Ids(gsnaps), ElementsAre(""));
}

TEST_F(Listing, AppendsToWhatTheCallerHas) {
  AddMeta("g1-gsnap-10", 10);
  gsnaps.emplace_back("before");
  ids.emplace_back("before");
  EXPECT_TRUE(GsnapshotList("g1", gsnaps, false));
  EXPECT_TRUE(GsnapshotIdList("g1", ids));
  EXPECT_THAT(Ids(gsnaps), ElementsAre("before", "g1-gsnap-10"));
  EXPECT_THAT(ids, ElementsAre("before", "g1-gsnap-10"));
}

TEST_F(Listing, FailsOnALostTable) {
  Db().Exec("DROP TABLE gsnap_meta");
  EXPECT_FALSE(GsnapshotList("g1", gsnaps, false));
  EXPECT_FALSE(GsnapshotList("g1", gsnaps, true));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Err(kUnit, "GsnapRecordList", "Failed to list group snapshot of [g1]"),
                          Err(kUnit, "GsnapRecordList", "Failed to list group snapshot of [g1]")));
}

TEST_F(Listing, FailsOnAFileThatIsNoDatabase) {
  BreakFile();
  EXPECT_FALSE(GsnapshotList("g1", gsnaps, false));
  EXPECT_FALSE(GsnapshotIdList("g1", ids));
  EXPECT_THAT(
      log.Entries(),
      ElementsAre(Err(kUnit, "GsnapRecordList", "Failed to list group snapshot of [g1]"),
                  Err(kUnit, "GsnapshotIdList", "Failed to list group snapshot id of [g1]")));
}

TEST_F(Listing, LogsAGroupWithAFormatAsItIs) {
  const std::string group = "%s%n%d";
  ASSERT_TRUE(VrelDRGroup::DRGroupDB::Init("/var/groups/two", group, true));
  RawDb("/var/groups/two/drgroup.db").Exec("DROP TABLE gsnap_meta");
  EXPECT_FALSE(GsnapshotList(group, gsnaps, false));
  EXPECT_FALSE(GsnapshotIdList(group, ids));
  EXPECT_THAT(
      log.Entries(),
      ElementsAre(Err(kUnit, "GsnapRecordList", "Failed to list group snapshot of [%s%n%d]"),
                  Err(kUnit, "GsnapshotIdList", "Failed to list group snapshot id of [%s%n%d]")));
}

TEST_F(Listing, GivesTheIdentifiersOfAllRows) {
  AddThree();
  Db().Exec("UPDATE gsnap_meta SET tag = 'g2' WHERE gsnap_id = 'g1-gsnap-30'");
  EXPECT_TRUE(GsnapshotIdList("g1", ids));
  EXPECT_THAT(ids, UnorderedElementsAre("g1-gsnap-20", "g1-gsnap-30", "g1-gsnap-10"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(Listing, GoesOnAfterAnIdentifierThatIsMissing) {
  AddMeta("g1-gsnap-20", 20);
  Db().Exec("INSERT INTO gsnap_meta (tag) VALUES ('g1')");
  AddMeta("g1-gsnap-30", 30);
  EXPECT_FALSE(GsnapshotIdList("g1", ids));
  EXPECT_THAT(ids, UnorderedElementsAre("g1-gsnap-20", "g1-gsnap-30"));
  EXPECT_THAT(log.Entries(), ElementsAre(Err(kUnit, "GsnapshotIdList",
                                             "Failed to list group snapshot id of [g1]")));
}

TEST_F(Listing, FailsToGiveIdentifiersOfALostTable) {
  Db().Exec("DROP TABLE gsnap_meta");
  EXPECT_FALSE(GsnapshotIdList("g1", ids));
  EXPECT_THAT(log.Entries(), ElementsAre(Err(kUnit, "GsnapshotIdList",
                                             "Failed to list group snapshot id of [g1]")));
}

TEST_F(Listing, ReplacesASetWithTheIdentifiers) {
  AddThree();
  EXPECT_TRUE(GsnapshotIdList("g1", idSet));
  EXPECT_THAT(idSet, ElementsAre("g1-gsnap-10", "g1-gsnap-20", "g1-gsnap-30"));
}

TEST_F(Listing, LeavesASetAloneOnAFailure) {
  AddThree();
  Db().Exec("INSERT INTO gsnap_meta (tag) VALUES ('g1')");
  EXPECT_FALSE(GsnapshotIdList("g1", idSet));
  EXPECT_THAT(idSet, ElementsAre("before"));
  EXPECT_THAT(log.Entries(), ElementsAre(Err(kUnit, "GsnapshotIdList",
                                             "Failed to list group snapshot id of [g1]")));
}

MATCHER_P(HasSnap, id, "") {
  return arg.tsnap_id == id;
}

TEST_F(Listing, GroupsTargetSnapshotsByTarget) {
  AddSnap("t2", 1, "s3", "g1-gsnap-10");
  AddSnap("t1", 2, "s9", "g1-gsnap-10");
  AddSnap("t1", 2, "s1", "g1-gsnap-20");
  AddSnap("t1", 1, "s5", "g1-gsnap-20");
  EXPECT_TRUE(TargetSnapList("g1", byTarget));
  EXPECT_THAT(byTarget,
              ElementsAre(Pair(Target("t1", 1), ElementsAre(HasSnap("s5"))),
                          Pair(Target("t1", 2), ElementsAre(HasSnap("s9"), HasSnap("s1"))),
                          Pair(Target("t2", 1), ElementsAre(HasSnap("s3")))));
  EXPECT_EQ(byTarget[Target("t1", 2)][1].gsnap_id, "g1-gsnap-20");
  EXPECT_EQ(byTarget[Target("t1", 2)][1].target, Target("t1", 2));
}

TEST_F(Listing, AddsTargetSnapshotsToWhatTheCallerHas) {
  AddSnap("t1", 1, "s1", "g1-gsnap-10");
  byTarget[Target("t1", 1)].emplace_back();
  byTarget[Target("t0", 1)].emplace_back();
  EXPECT_TRUE(TargetSnapList("g1", byTarget));
  EXPECT_THAT(byTarget,
              ElementsAre(Pair(Target("t0", 1), SizeIs(1)),
                          Pair(Target("t1", 1), ElementsAre(HasSnap(""), HasSnap("s1")))));
}

TEST_F(Listing, OfNoTargetSnapshotsSucceeds) {
  EXPECT_TRUE(TargetSnapList("g1", byTarget));
  EXPECT_THAT(byTarget, IsEmpty());
}

TEST_F(Listing, OfTargetSnapshotsNeedsAGroup) {
  EXPECT_FALSE(TargetSnapList("", byTarget));
  EXPECT_THAT(log.Entries(), ElementsAre(Err(kUnit, "TargetSnapList", "Empty group Id")));
}

TEST_F(Listing, AddsNoTargetSnapshotWhenOneRowCannotBeRead) {
  AddSnap("t1", 1, "s1", "g1-gsnap-10");
  Db().Exec("INSERT INTO target_snap_list DEFAULT VALUES");
  AddSnap("t2", 1, "s2", "g1-gsnap-10");
  EXPECT_FALSE(TargetSnapList("g1", byTarget));
  EXPECT_THAT(byTarget, IsEmpty());
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(Listing, FailsInSilenceWhenTargetSnapshotsCannotBeSelected) {
  EXPECT_FALSE(TargetSnapList("other", byTarget));
  Db().Exec("DROP TABLE target_snap_list");
  EXPECT_FALSE(TargetSnapList("g1", byTarget));
  EXPECT_THAT(byTarget, IsEmpty());
  EXPECT_THAT(log.Entries(), IsEmpty());
  EXPECT_FALSE(Exists(kLinkRoot + "/other"));
}

}  // namespace
}  // namespace unit
