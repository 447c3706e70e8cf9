#include <filesystem>

#include "gsnap_create_fixture.h"
#include "record_values.h"

namespace unit {
namespace {

using VrelDR::Target;
using VrelDRGroup::Operation::GsnapshotCreate;

TEST_F(GsnapCreate, StartsWithCodeZeroAndDoesNothing) {
  group.emplace(targets, groupId);
  create.emplace(*group, meta, dir, replicaMap);
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_EQ(create->GetGsnapshot().gsnap_id, "");
  EXPECT_THAT(host.calls, IsEmpty());
  EXPECT_THAT(core.OfPlatform(), IsEmpty());
}

TEST_F(GsnapCreate, RecordsEveryTargetAndThenTheGroup) {
  EXPECT_TRUE(Run());
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_THAT(SnapRows(), ElementsAre("'t1'|1|'s1'|'g1-gsnap-1700000000'",
                                      "'t2'|3|'s2'|'g1-gsnap-1700000000'"));
  EXPECT_THAT(MetaRows(), ElementsAre("'words'|1|2|'g1-gsnap-1700000000'|'g1'|1700000000|1"));
  EXPECT_THAT(ReplicaRows(), IsEmpty());
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(GsnapCreate, AsksOneTargetAfterTheOther) {
  EXPECT_TRUE(Run());
  EXPECT_EQ(host.calls, Join(CallsOf("t1", 1, "s1"), CallsOf("t2", 3, "s2")));
}

TEST_F(GsnapCreate, ShowsTheGroupSnapshotThatItMade) {
  EXPECT_TRUE(Run());
  EXPECT_EQ(create->GetGsnapshot().gsnap_id, "g1-gsnap-1700000000");
  EXPECT_EQ(create->GetGsnapshot().gsnap_time, 1700000000);
  EXPECT_EQ(create->GetGsnapshot().status, VrelDRGroup::kGsnapReady);
}

TEST_F(GsnapCreate, MakesTheCatalogueAndRelinksIt) {
  MakeCatalogue();
  std::filesystem::remove(linkPath);
  std::filesystem::create_symlink("/var/groups/none", linkPath);
  EXPECT_TRUE(Run());
  EXPECT_EQ(std::filesystem::read_symlink(linkPath), dbPath);
}

TEST_F(GsnapCreate, WritesTheGroupsRowLast) {
  MakeCatalogue();
  replicaMap["t1"] = "r1";
  Db().Exec("CREATE TABLE written (what)");
  for (const char* table : {"gsnap_meta", "target_snap_list", "target_replica_list"}) {
    Db().Exec(std::string("CREATE TRIGGER w_") + table + " AFTER INSERT ON " + table +
              " BEGIN INSERT INTO written VALUES ('" + table + "'); END");
  }
  EXPECT_TRUE(Run());
  EXPECT_THAT(Db().Rows("SELECT what FROM written ORDER BY rowid"),
              ElementsAre("'target_snap_list'", "'target_replica_list'", "'target_snap_list'",
                          "'target_replica_list'", "'gsnap_meta'"));
}

TEST_F(GsnapCreate, RecordsATargetBeforeItGoesOnToTheNext) {
  MakeCatalogue();
  std::vector<std::string> rowsAtSecond;
  host.on_call = [&](const std::string& call) {
    if (call == "TargetOperation(t2, 3)") rowsAtSecond = SnapRows();
  };
  EXPECT_TRUE(Run());
  EXPECT_THAT(rowsAtSecond, ElementsAre("'t1'|1|'s1'|'g1-gsnap-1700000000'"));
}

TEST_F(GsnapCreate, IsNamedAfterItsFirstTargetInTheGroupsOrder) {
  targets = {Target("t2", 3), Target("t1", 1)};
  EXPECT_TRUE(Run());
  EXPECT_THAT(SnapRows(), ElementsAre("'t2'|3|'s2'|'g1-gsnap-1700000004'",
                                      "'t1'|1|'s1'|'g1-gsnap-1700000004'"));
  EXPECT_THAT(MetaRows(), ElementsAre("'words'|1|2|'g1-gsnap-1700000004'|'g1'|1700000004|1"));
}

TEST_F(GsnapCreate, WidensA32BitTime) {
  host.targets["t1"].next = {Snap(4294967295U, "s1")};
  EXPECT_TRUE(Run());
  EXPECT_THAT(MetaRows(), ElementsAre("'words'|1|2|'g1-gsnap-4294967295'|'g1'|4294967295|1"));
}

TEST_F(GsnapCreate, KeepsAConsistencyTypeThatHasNoName) {
  meta.cw_type = static_cast<VrelDRGroup::GsnapCwType>(77);
  meta.is_user_locked = false;
  meta.desc = "";
  EXPECT_TRUE(Run());
  EXPECT_THAT(MetaRows(), ElementsAre("''|0|77|'g1-gsnap-1700000000'|'g1'|1700000000|1"));
}

TEST_F(GsnapCreate, KeepsItsMetadataWhenTheCallersChanges) {
  group.emplace(targets, groupId);
  create.emplace(*group, meta, dir, replicaMap);
  meta.desc = "changed";
  dir = "/var/groups/changed";
  EXPECT_TRUE(create->Run());
  EXPECT_THAT(MetaRows(), ElementsAre("'words'|1|2|'g1-gsnap-1700000000'|'g1'|1700000000|1"));
}

TEST_F(GsnapCreate, WritesAReplicaForEveryTargetOfTheMap) {
  replicaMap["t2"] = "r2";
  replicaMap["t1"] = "r1";
  replicaMap["t3"] = "r3";
  EXPECT_TRUE(Run());
  EXPECT_THAT(ReplicaRows(),
              ElementsAre("'t1'|'r1'|'g1-gsnap-1700000000'", "'t2'|'r2'|'g1-gsnap-1700000000'"));
}

TEST_F(GsnapCreate, WritesAReplicaWithoutDestinationForATargetThatTheMapLacks) {
  replicaMap["t2"] = "r2";
  EXPECT_TRUE(Run());
  EXPECT_THAT(ReplicaRows(),
              ElementsAre("'t1'|''|'g1-gsnap-1700000000'", "'t2'|'r2'|'g1-gsnap-1700000000'"));
}

TEST_F(GsnapCreate, TakesADestinationOfTheWrongKindForNone) {
  replicaMap["t1"] = Json(R"(["r1"])");
  replicaMap["t2"] = Json(R"({"a": "r2"})");
  EXPECT_TRUE(Run());
  EXPECT_THAT(ReplicaRows(),
              ElementsAre("'t1'|''|'g1-gsnap-1700000000'", "'t2'|''|'g1-gsnap-1700000000'"));
}

TEST_F(GsnapCreate, WritesNoReplicasForNullOrAnEmptyArray) {
  replicaMap = Json("null");
  EXPECT_TRUE(Run());
  replicaMap = Json("[]");
  host.targets["t1"].next = {Snap(1700000100, "s3")};
  host.targets["t2"].next = {Snap(1700000101, "s4")};
  EXPECT_TRUE(Run());
  EXPECT_THAT(ReplicaRows(), IsEmpty());
}

TEST_F(GsnapCreate, TakesAMapThatIsNoObjectForOneWithoutTargets) {
  unsigned int time = 5;
  for (const char* map : {"[\"r1\"]", "\"r1\"", "7", "true"}) {
    replicaMap = Json(map);
    targets = {Target("t1", 1)};
    host.targets["t1"].next = {Snap(time, "s" + std::to_string(time))};
    ++time;
    EXPECT_TRUE(Run()) << map;
  }
  EXPECT_THAT(ReplicaRows(), ElementsAre("'t1'|''|'g1-gsnap-5'", "'t1'|''|'g1-gsnap-6'",
                                         "'t1'|''|'g1-gsnap-7'", "'t1'|''|'g1-gsnap-8'"));
}

class CountOfSnapshots : public GsnapCreate {
 protected:
  auto Unexpected(const std::string& counts) const {
    return Notice(kUnit, "TakeTargetSnapshot",
                  "NOT expected target snap count of target[" + one + "]: " + counts);
  }
};

TEST_F(CountOfSnapshots, IsNotedAndNoFailureWhenItGrowsByMoreThanOne) {
  host.targets["t1"].listed_counts = {3, 5};
  EXPECT_TRUE(Run());
  EXPECT_THAT(log.Entries(), ElementsAre(Unexpected("before[3]/after[5]/diff[2]")));
  EXPECT_THAT(MetaRows(), testing::SizeIs(1));
}

TEST_F(CountOfSnapshots, IsNotedWhenItDoesNotGrow) {
  host.targets["t1"].listed_counts = {3, 3};
  EXPECT_TRUE(Run());
  EXPECT_THAT(log.Entries(), ElementsAre(Unexpected("before[3]/after[3]/diff[0]")));
}

TEST_F(CountOfSnapshots, IsNotedInUnsignedNumbersWhenItShrinks) {
  host.targets["t1"].listed_counts = {3, 2};
  EXPECT_TRUE(Run());
  EXPECT_THAT(log.Entries(), ElementsAre(Unexpected("before[3]/after[2]/diff[4294967295]")));
}

TEST_F(CountOfSnapshots, IsAsExpectedWhenItGrowsByOne) {
  host.targets["t1"].listed_counts = {0, 1};
  host.targets["t2"].listed_counts = {41, 42};
  EXPECT_TRUE(Run());
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(GsnapCreate, MakesAnotherGroupSnapshotWhenItRunsAgain) {
  EXPECT_TRUE(Run());
  host.targets["t1"].next = {Snap(1700000100, "s3")};
  host.targets["t2"].next = {Snap(1700000101, "s4")};
  EXPECT_TRUE(create->Run());
  EXPECT_THAT(
      SnapRows(),
      ElementsAre("'t1'|1|'s1'|'g1-gsnap-1700000000'", "'t2'|3|'s2'|'g1-gsnap-1700000000'",
                  "'t1'|1|'s3'|'g1-gsnap-1700000100'", "'t2'|3|'s4'|'g1-gsnap-1700000100'"));
  EXPECT_THAT(MetaRows(), testing::SizeIs(2));
}

// A group that counts how often it is asked for its targets.
class CountingGroup : public VrelDRGroup::TargetList {
 public:
  using TargetList::TargetList;
  std::vector<Target> ListTargets() const override {
    ++listed;
    return TargetList::ListTargets();
  }
  mutable int listed = 0;
};

TEST_F(GsnapCreate, ListsTheTargetsOnce) {
  const CountingGroup counting(targets, "g1");
  GsnapshotCreate operation(counting, meta, dir, replicaMap);
  EXPECT_TRUE(operation.Run());
  EXPECT_EQ(counting.listed, 1);
}

TEST_F(GsnapCreate, RefusesAGroupWithoutAnIdentifierBeforeItsTargetsAreListed) {
  const CountingGroup counting(targets, "");
  GsnapshotCreate operation(counting, meta, dir, replicaMap);
  EXPECT_FALSE(operation.Run());
  EXPECT_EQ(ToString(operation.GetErr()), R"({"err_code":401})");
  EXPECT_EQ(counting.listed, 0);
  EXPECT_THAT(log.Entries(), ElementsAre(Err(kUnit, "Run", "Empty group id")));
  EXPECT_THAT(core.OfPlatform(), IsEmpty());
  EXPECT_FALSE(Exists(dbDir));
}

TEST_F(GsnapCreate, TakesIdentifiersWithQuotesAndBytesAsTheyAre) {
  const std::string id = "t'\"\n\xE2\x82\xAC%s";
  targets = {Target(id, 2)};
  groupId = "g'1 %n";
  host.targets[id].next = {Snap(5, "s'1")};
  replicaMap[id] = "r'1";
  EXPECT_TRUE(Run());
  EXPECT_THAT(SnapRows(), ElementsAre("'" + id + "'|2|'s'1'|'g'1 %n-gsnap-5'"));
  EXPECT_THAT(ReplicaRows(), ElementsAre("'" + id + "'|'r'1'|'g'1 %n-gsnap-5'"));
  EXPECT_THAT(MetaRows(), ElementsAre("'words'|1|2|'g'1 %n-gsnap-5'|'g'1 %n'|5|1"));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

}  // namespace
}  // namespace unit
