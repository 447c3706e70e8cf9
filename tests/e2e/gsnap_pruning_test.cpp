#include <vreldr/target_operation.h>

#include "plan_fixture.h"

// Group snapshots that syncs have made: which of them pruning deletes; and which group snapshots
// cannot be deleted, as plans need them.

namespace e2e {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;
using Words = std::vector<std::string>;

class GsnapPruningTest : public PlanTest {
 protected:
  // The group snapshots of "g" and of "gd" that a sync has made.
  struct Made {
    std::string main;
    std::string copy;
  };
  Made Sync(const Words& options = {}) {
    ChangeMain();
    Words words{"sync", "g", "--dr-group", "gd", "--json"};
    words.insert(words.end(), options.begin(), options.end());
    const Json::Value synced = RunWell(words).Json();
    return {synced["gsnap_id"].asString(), synced["dr_gsnap_id"].asString()};
  }
  static Json::Value Prune(const Words& options = {"--yes"}) {
    Words words{"snapshot", "prune", "g", "--json"};
    words.insert(words.end(), options.begin(), options.end());
    return RunWell(words).Json();
  }
  static std::vector<std::string> Names(const Json::Value& pruned) {
    std::vector<std::string> names;
    for (const Json::Value& each : pruned["group_snapshots"]) {
      names.push_back(each["gsnap_id"].asString());
    }
    return names;
  }
  static std::size_t CountOf(const std::string& target) {
    return VrelDR::TargetOperation(0, target).ListSnapshots().size();
  }
  static void ExpectCataloguesWhole(const Words& groups = {"g", "gd"}) {
    for (const std::string& group : groups) {
      const Json::Value found =
          RunWell({"snapshot", "repair", group, "--dry-run", "--json"}).Json();
      EXPECT_THAT(found["deleted"], SizeIs(0)) << group;
      EXPECT_THAT(found["changed"], SizeIs(0)) << group;
      EXPECT_THAT(found["incomplete"], SizeIs(0)) << group;
    }
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, GsnapPruningTest, testing::Values("directory", "btrfs"),
                         FileSystemsTest::NameOf);

TEST_P(GsnapPruningTest, WhatSyncsHaveMadeGoesFromBothCataloguesUnlessItIsNeeded) {
  MakeProtected();
  const std::string own = TakeSnapshot();
  const Made first = Sync();
  const Made locked = Sync({"--lock"});
  const Made described = Sync({"--description", "before the upgrade"});
  const Made edited = Sync();
  RunWell({"snapshot", "edit", edited.copy, "--description", "ask Anna"});
  const Made second = Sync();
  const Made last = Sync();
  const auto wanted = Names(Prune({"--dry-run"}));
  EXPECT_THAT(wanted, UnorderedElementsAre(first.main, first.copy, second.main, second.copy));
  EXPECT_THAT(ListSnapshots(), SizeIs(7));
  const Json::Value pruned = Prune();
  EXPECT_EQ(Names(pruned), wanted);
  EXPECT_EQ(pruned["deleted_gsnap_count"], 4);
  EXPECT_THAT(ListSnapshots(),
              ElementsAre(own, locked.main, described.main, edited.main, last.main));
  EXPECT_THAT(ListSnapshots("gd"),
              ElementsAre(locked.copy, described.copy, edited.copy, last.copy));
  for (const std::string target : {"lun", "share", "guest"}) {
    EXPECT_EQ(CountOf(target), 5U);
    EXPECT_EQ(CountOf(target + "-dr"), 4U);
  }
  ExpectCataloguesWhole();
  EXPECT_THAT(Names(Prune()), IsEmpty());
  RunWell({"sync", "g"});
  ExpectSameSnapshots();
}

TEST_P(GsnapPruningTest, TheNewestThatAllReplicasHaveStays) {
  MakeProtected();
  const Made common = Sync();
  ChangeMain();
  EXPECT_EQ(RunFailingAt("ship@guest-dr", {"sync", "g", "--dr-group", "gd"}).code, kStorage);
  const auto before = ListSnapshots();
  EXPECT_THAT(Names(Prune()), IsEmpty());
  EXPECT_EQ(ListSnapshots(), before);
  EXPECT_THAT(ListSnapshots("gd"), ElementsAre(common.copy));
}

TEST_P(GsnapPruningTest, WhileACopyIsOutOfReachItStaysInBothCatalogues) {
  MakeProtected();
  Sync();
  Sync();
  LoseVolume("v2");
  EXPECT_THAT(Names(Prune()), IsEmpty());
  BringVolumeBack("v2");
  EXPECT_THAT(Names(Prune()), SizeIs(2));
  ExpectCataloguesWhole();
}

TEST_P(GsnapPruningTest, WhatAGroupRecordsBesidesStays) {
  MakeProtected();
  const Made made = Sync();
  RunWell({"group", "create", "one", "--target", "share-dr"});
  const Json::Value recorded = RunWell({"snapshot", "sync", "one", "--lock", "--json"}).Json();
  Sync();
  EXPECT_THAT(Names(Prune()), IsEmpty());
  RunWell({"snapshot", "edit", recorded["gsnap_id"].asString(), "--unlock"});
  EXPECT_THAT(Names(Prune()),
              UnorderedElementsAre(made.main, made.copy, recorded["gsnap_id"].asString()));
}

TEST_P(GsnapPruningTest, OneThatIsKilledAnywhereIsFinishedByTheSameCommand) {
  MakeProtected();
  RunWell({"group", "create", "one", "--target", "share-dr"});
  Made last = Sync();
  Prune();
  // How often it is killed there until it has come through: every time it gets one step further.
  const std::vector<std::pair<std::string, int>> steps{{"prune.forgotten", 3},
                                                       {"prune.all_forgotten", 1},
                                                       {"delete.marked", 6},
                                                       {"delete.bytes_gone", 6},
                                                       {"delete.done", 6}};
  for (const auto& [step, kills] : steps) {
    SCOPED_TRACE(step);
    RunWell({"snapshot", "sync", "one"});
    last = Sync();
    int killed = 0;
    while (killed <= kills && RunKilledAt(step, {"snapshot", "prune", "g", "--yes"})) {
      ++killed;
      ExpectCataloguesWhole({"g", "gd", "one"});
    }
    EXPECT_EQ(killed, kills);
    EXPECT_THAT(ListSnapshots(), ElementsAre(last.main));
    EXPECT_THAT(ListSnapshots("gd"), ElementsAre(last.copy));
    EXPECT_THAT(ListSnapshots("one"), IsEmpty());
    for (const std::string target : {"lun", "share", "guest"}) {
      EXPECT_EQ(CountOf(target), 1U) << target;
      EXPECT_EQ(CountOf(target + "-dr"), 1U) << target;
    }
  }
  ExpectSameSnapshots();
}

// The catalogue is left whole, and nothing was deleted.
TEST_P(GsnapPruningTest, ACatalogueThatRefusesKeepsAllOfTheGroupSnapshot) {
  MakeProtected();
  Sync();
  Prune();
  for (const char* table : {"gsnap_meta", "target_snap_list", "target_replica_list"}) {
    SCOPED_TRACE(table);
    const auto before = ListSnapshots("gd");
    Sync();
    RunSql(DatabaseOf("gd"), "INSERT INTO target_replica_list VALUES ('lun', 'other', '" +
                                 before.back() + "'); CREATE TRIGGER keep BEFORE DELETE ON " +
                                 table + " BEGIN SELECT RAISE(ABORT, 'no'); END");
    RunBadly(kCatalogue, {"snapshot", "prune", "g", "--yes"},
             {before.back(), "the same command goes on"});
    EXPECT_EQ(ListSnapshots("gd").front(), before.back());
    EXPECT_EQ(CountOf("lun"), 2U);
    EXPECT_EQ(CountOf("lun-dr"), 2U);
    ExpectCataloguesWhole();
    RunSql(DatabaseOf("gd"), "DROP TRIGGER keep");
    EXPECT_THAT(Names(Prune()), ElementsAre(before.back()));
    EXPECT_EQ(CountOf("lun"), 1U);
  }
}

TEST_P(GsnapPruningTest, AfterATargetHasRefusedTheSameCommandGoesOn) {
  MakeProtected();
  Sync();
  Sync();
  const std::string records = Root() + "/state/replica.db";
  RunSql(records,
         "CREATE TRIGGER keep BEFORE UPDATE ON snapshots WHEN NEW.state = 3 AND NEW.target_id = "
         "'share' BEGIN SELECT RAISE(ABORT, 'no'); END");
  const Result failed = Run({"snapshot", "prune", "g", "--yes", "--json"});
  RunSql(records, "DROP TRIGGER keep");
  EXPECT_NE(failed.code, kDone);
  const Json::Value error = failed.Json()["error"];
  EXPECT_EQ(error["target_id"], "share");
  EXPECT_THAT(error["group_snapshots"], SizeIs(2));
  EXPECT_EQ(CountOf("share"), 3U);
  ExpectCataloguesWhole();
  Prune();
  for (const std::string target : {"lun", "share", "guest"}) {
    EXPECT_EQ(CountOf(target), 1U) << target;
    EXPECT_EQ(CountOf(target + "-dr"), 1U) << target;
  }
}

TEST_P(GsnapPruningTest, WhatAKilledSyncHasInHandStaysWholeAndTheRestGoes) {
  MakeProtected();
  const Made old = Sync();
  const Made common = Sync();
  ChangeMain();
  ASSERT_TRUE(RunKilledAt("ship.begun", {"sync", "g", "--dr-group", "gd"}));
  const std::string inHand = ListSnapshots().back();
  const auto expectWhole = [&] {
    EXPECT_THAT(ListSnapshots(), ElementsAre(common.main, inHand));
    for (const Json::Value& each :
         RunWell({"snapshot", "show", inHand, "--json"}).Json()["targets"]) {
      EXPECT_EQ(each["exists"], true) << each["target_id"];
    }
  };
  const Json::Value wanted = Prune({"--dry-run"});
  EXPECT_THAT(Names(wanted), UnorderedElementsAre(old.main, old.copy));
  const Json::Value pruned = Prune();
  EXPECT_EQ(Names(pruned), Names(wanted));
  EXPECT_EQ(pruned["deleted_gsnap_count"], 2);
  EXPECT_EQ(pruned["deleted_count"].asUInt(), wanted["snapshots"].size());
  expectWhole();
  // One part of it is not in hand any more: it stays for the others.
  const Json::Value targets = RunWell({"status", "g", "--json"}).Json()["targets"];
  const auto drop = [&](Json::ArrayIndex i) {
    const std::string plan = targets[i]["plan_id"].asString();
    EXPECT_NE(RunWell({"plan", "drop-shipment", plan, "--json"}).Json()["dropped_snap_id"], "");
  };
  drop(0);
  for (const Words& options : {Words{"--dry-run"}, Words{"--yes"}}) {
    EXPECT_THAT(Names(Prune(options)), IsEmpty());
    EXPECT_THAT(Prune(options)["snapshots"], SizeIs(0));
  }
  expectWhole();
  drop(1);
  drop(2);
  EXPECT_THAT(Names(Prune()), ElementsAre(inHand));
  EXPECT_THAT(ListSnapshots(), ElementsAre(common.main));
  EXPECT_EQ(CountOf("lun"), 1U);
  ExpectCataloguesWhole();
}

TEST_P(GsnapPruningTest, WhatAPlanHoldsIsNotDeletedNorAnyOtherPartOfIt) {
  MakeProtected();
  const Made made = Sync();
  for (const std::string& gsnap : {made.main, made.copy}) {
    for (const Words& options : {Words{"--yes"}, Words{"--yes", "--force"}}) {
      Words words{"snapshot", "delete", gsnap};
      words.insert(words.end(), options.begin(), options.end());
      RunBadly(kRefused, words, {gsnap, "was not deleted", "target \"lun", "is held by plan"});
    }
  }
  const std::string waiting = TakeSnapshot();
  RunWell({"snapshot", "ship", waiting});
  RunBadly(kRefused, {"snapshot", "delete", waiting, "--yes"},
           {"waits to be sent", "snapshot ship --undo"});
  RunWell({"snapshot", "ship", waiting, "--undo"});
  RunWell({"snapshot", "delete", waiting, "--yes"});
  EXPECT_EQ(RunFailingAt("ship@lun-dr", {"sync", "g", "--dr-group", "gd"}).code, kStorage);
  const std::string inHand = ListSnapshots().back();
  RunBadly(kRefused, {"snapshot", "delete", inHand, "--yes", "--force"},
           {"target \"lun\"", "is in hand of plan", "drgroupctl plan drop-shipment"});
  for (const auto& each : RunWell({"snapshot", "show", inHand, "--json"}).Json()["targets"]) {
    EXPECT_EQ(each["exists"], true);
  }
}

}  // namespace
}  // namespace e2e
