#include "gsnap_sync_fixture.h"

namespace unit {
namespace {

using VrelDR::Target;

TEST_F(GsnapSync, StartsWithCodeZeroAndAnEmptyGroupSnapshot) {
  group.emplace(targets, groupId);
  sync.emplace(*group, meta, dir, replicaMap);
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_EQ(sync->GetGsnapshot().gsnap_id, "");
  EXPECT_THAT(host.calls, IsEmpty());
  EXPECT_THAT(core.OfPlatform(), IsEmpty());
}

TEST_F(GsnapSync, RecordsTheLastSnapshotThatHasArrivedForEveryTarget) {
  EXPECT_TRUE(Run());
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_THAT(log.Entries(), IsEmpty());
  EXPECT_THAT(SnapRows(), ElementsAre("'t1'|1|'s1'|'g1-gsnap-1700000000'",
                                      "'t2'|3|'s2'|'g1-gsnap-1700000000'"));
  EXPECT_THAT(ReplicaRows(), IsEmpty());
  EXPECT_THAT(MetaRows(), ElementsAre("'words'|1|2|'g1-gsnap-1700000000'|'g1'|1700000000|1"));
}

TEST_F(GsnapSync, AsksTheTargetsInOrderAndLooksOnlyAtTheSnapshotOfTheFirst) {
  EXPECT_TRUE(Run());
  EXPECT_EQ(host.calls, Join(CallsOfFirst(), CallsOf("2", 3)));
}

TEST_F(GsnapSync, TakesAndDeletesNoSnapshot) {
  EXPECT_TRUE(Run());
  EXPECT_THAT(host.targets["t1"].snapshots, testing::SizeIs(2));
  EXPECT_THAT(host.targets["t2"].snapshots, testing::SizeIs(1));
}

TEST_F(GsnapSync, IsNamedAfterTheFirstTargetOfTheList) {
  targets = {Target("t2", 3), Target("t1", 1)};
  EXPECT_TRUE(Run());
  EXPECT_EQ(sync->GetGsnapshot().gsnap_id, "g1-gsnap-1700000004");
  EXPECT_EQ(sync->GetGsnapshot().gsnap_time, 1700000004);
  EXPECT_THAT(SnapRows(), ElementsAre("'t2'|3|'s2'|'g1-gsnap-1700000004'",
                                      "'t1'|1|'s1'|'g1-gsnap-1700000004'"));
}

TEST_F(GsnapSync, WidensTheTimeOfTheSnapshot) {
  targets = {Target("t1", 1)};
  host.targets["t1"].snapshots = {Snap(4294967295U, "s1")};
  EXPECT_TRUE(Run());
  EXPECT_EQ(sync->GetGsnapshot().gsnap_id, "g1-gsnap-4294967295");
}

TEST_F(GsnapSync, RecordsAReplicaOfEveryTargetWhenThereIsAMap) {
  replicaMap["t1"] = "r1";
  replicaMap["t2"] = "r2";
  replicaMap["other"] = "r9";
  EXPECT_TRUE(Run());
  EXPECT_THAT(ReplicaRows(),
              ElementsAre("'t1'|'r1'|'g1-gsnap-1700000000'", "'t2'|'r2'|'g1-gsnap-1700000000'"));
  EXPECT_THAT(MetaRows(), testing::SizeIs(1));
}

TEST_F(GsnapSync, RecordsNoReplicasWithoutAMap) {
  for (const char* none : {"null", "{}", "[]"}) {
    MakeCatalogue();
    Db().Exec("DELETE FROM target_snap_list");
    Db().Exec("DELETE FROM gsnap_meta");
    replicaMap = Json(none);
    EXPECT_TRUE(Run()) << none;
    EXPECT_THAT(ReplicaRows(), IsEmpty());
  }
}

TEST_F(GsnapSync, RecordsAnEmptyDestinationForOneThatIsNoText) {
  MakeCatalogue();
  targets = {Target("t1", 1)};
  for (const char* wrong : {"\"\"", "7", "null", "[\"r1\"]", "{\"dst_target_id\": \"r1\"}"}) {
    Db().Exec("DELETE FROM target_replica_list");
    Db().Exec("DELETE FROM gsnap_meta");
    replicaMap["t1"] = Json(wrong);
    EXPECT_TRUE(Run());
    EXPECT_THAT(ReplicaRows(), ElementsAre("'t1'|''|'g1-gsnap-1700000000'")) << wrong;
  }
}

TEST_F(GsnapSync, MakesTheCatalogueAndItsLink) {
  EXPECT_TRUE(Run());
  EXPECT_TRUE(Exists(dbPath));
  EXPECT_TRUE(Exists(linkPath));
}

TEST_F(GsnapSync, HasCode407WhileItRuns) {
  std::vector<std::string> errs;
  host.on_call = [&](const std::string&) { errs.push_back(ErrText()); };
  EXPECT_TRUE(Run());
  EXPECT_THAT(errs, testing::Each(kNotCompleted));
  EXPECT_THAT(errs, testing::SizeIs(9));
}

TEST_F(GsnapSync, StartsOverWhenItRunsAgain) {
  Arrived("p2", "[]");
  EXPECT_FALSE(Run());
  Arrived("p1", R"(["s0"])");
  Arrived("p2", R"(["s2"])");
  EXPECT_TRUE(sync->Run());
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_THAT(SnapRows(),
              ElementsAre("'t1'|1|'s1'|'g1-gsnap-1700000000'", "'t1'|1|'s0'|'g1-gsnap-1600000000'",
                          "'t2'|3|'s2'|'g1-gsnap-1600000000'"));
}

TEST_F(GsnapSync, KeepsItsOwnCopyOfMetaAndDirectory) {
  group.emplace(targets, groupId);
  sync.emplace(*group, meta, dir, replicaMap);
  meta.desc = "changed";
  dir = "/var/groups/other";
  EXPECT_TRUE(sync->Run());
  EXPECT_THAT(MetaRows(), ElementsAre(testing::StartsWith("'words'|")));
}

TEST_F(GsnapSync, TakesTheFirstPlanOfATargetThatHasTwo) {
  GiveSecondPlan("t1");
  EXPECT_TRUE(Run());
  EXPECT_EQ(host.calls, Join(CallsOfFirst(), CallsOf("2", 3)));
}

}  // namespace
}  // namespace unit
