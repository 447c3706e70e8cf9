#include <vreldr/cut.h>
#include <vreldr/target_operation.h>

#include "plan_fixture.h"

// Syncs that are group snapshots on both sides, and those that go on with what an interrupted one
// has left.

namespace e2e {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using Words = std::vector<std::string>;

class SyncDrGroupTest : public PlanTest {
 protected:
  static Json::Value Sync(const Words& options = {"--dr-group", "gd"}) {
    Words words{"sync", "g", "--json"};
    words.insert(words.end(), options.begin(), options.end());
    return RunWell(words).Json();
  }
  static Json::Value Show(const std::string& gsnapId) {
    return RunWell({"snapshot", "show", gsnapId, "--json"}).Json();
  }
  static std::string LastOf(const std::string& group) {
    const auto ids = ListSnapshots(group);
    return ids.empty() ? "" : ids.back();
  }
  // The cut of the last snapshot that has arrived for each target; one when they are of one.
  static std::set<std::string> ArrivedCuts() {
    std::set<std::string> cuts;
    const Json::Value document = RunWell({"status", "g", "--json"}).Json();
    for (const Json::Value& each : document["targets"]) {
      const VrelDR::TargetOperation copy(0, each["replica_target_id"].asString());
      cuts.insert(copy.GetSnapshot(each["last_snap_id"].asString()).cut_id);
    }
    return cuts;
  }
  // Both catalogues have a group snapshot of the cut, with the bytes.
  static void ExpectOnBothSides(const std::string& source, const std::string& replica,
                                const std::string& cutId) {
    const Json::Value made = Show(source);
    const Json::Value recorded = Show(replica);
    for (const char* key : {"name", "consistency", "description", "is_locked", "cut_id"}) {
      EXPECT_EQ(made[key], recorded[key]) << key;
    }
    EXPECT_EQ(made["cut_id"], cutId);
    EXPECT_EQ(recorded["status"], "ready");
    ASSERT_THAT(recorded["targets"], SizeIs(made["targets"].size()));
    for (Json::ArrayIndex i = 0; i < made["targets"].size(); ++i) {
      EXPECT_EQ(made["targets"][i]["tsnap_id"], recorded["targets"][i]["tsnap_id"]);
      EXPECT_EQ(recorded["targets"][i]["exists"], true);
    }
    EXPECT_EQ(ReadContents({{"t", made["targets"][1]["path"].asString()}}),
              ReadContents({{"t", recorded["targets"][1]["path"].asString()}}));
  }
  static void ExpectCatalogueWhole(const std::string& group) {
    EXPECT_EQ(RunWell({"snapshot", "repair", group, "--dry-run", "--json"}).Json()["deleted"],
              Json::Value(Json::arrayValue));
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, SyncDrGroupTest,
                         testing::ValuesIn(LongSuiteOn({"directory", "btrfs"})),
                         FileSystemsTest::NameOf);

TEST_P(SyncDrGroupTest, TheCutIsAGroupSnapshotOnBothSides) {
  MakeProtected();
  ChangeMain();
  const auto wanted = MainContents();
  const Json::Value synced = Sync({"--dr-group", "gd", "--description", "nightly", "--lock"});
  EXPECT_EQ(synced["gsnap_id"], LastOf("g"));
  EXPECT_EQ(synced["dr_gsnap_id"], LastOf("gd"));
  EXPECT_EQ(synced["finished_cut_id"], "");
  const std::string made = synced["gsnap_id"].asString();
  ExpectOnBothSides(made, synced["dr_gsnap_id"].asString(), synced["cut_id"].asString());
  EXPECT_EQ(Show(made)["description"], "nightly");
  EXPECT_EQ(Show(made)["is_locked"], true);
  EXPECT_EQ(Show(made)["consistency"], IsBtrfs() ? "crash" : "unspecified");
  EXPECT_EQ(ReadContents(SnapshotPaths(made)), wanted);
  EXPECT_EQ(LastArrivedContents(), wanted);
  // No snapshot besides.
  for (const Json::Value& each : Show(made)["targets"]) {
    EXPECT_THAT(VrelDR::TargetOperation(0, each["target_id"].asString()).ListSnapshots(),
                SizeIs(2));
  }
  VrelDR::CutInfo info;
  ASSERT_TRUE(VrelDR::CutReporter().Find(synced["cut_id"].asString(), info));
  EXPECT_TRUE(info.is_made_by_sync);
  // What was recorded is what "snapshot sync" is asked for.
  const Result again = RunWell({"snapshot", "sync", "gd"});
  EXPECT_THAT(again.out, HasSubstr("recorded by the sync already"));
  EXPECT_THAT(ListSnapshots("gd"), SizeIs(1));
}

TEST_P(SyncDrGroupTest, AGroupSnapshotThatWasShippedIsRecordedAsItself) {
  MakeProtected();
  const auto create = [](const std::string& description) {
    const Words words{"snapshot", "create", "g", "--description", description, "--json", "--lock"};
    return RunWell(words).Json()["gsnap_id"].asString();
  };
  const std::string shipped = create("before");
  ChangeMain();
  const std::string other = create("stays here");
  RunWell({"snapshot", "ship", shipped});
  ChangeMain();
  const Json::Value synced = Sync();
  ASSERT_THAT(synced["shipped_gsnaps"], SizeIs(1));
  const std::string recorded = synced["shipped_gsnaps"][0]["gsnap_id"].asString();
  EXPECT_THAT(ListSnapshots("gd"), ElementsAre(recorded, synced["dr_gsnap_id"].asString()));
  ExpectOnBothSides(shipped, recorded, Show(shipped)["cut_id"].asString());
  EXPECT_EQ(Show(recorded)["description"], "before");
  EXPECT_THAT(Sync()["shipped_gsnaps"], IsEmpty());
  EXPECT_THAT(ListSnapshots("gd"), SizeIs(3));
  ExpectCatalogueWhole("gd");
}

TEST_P(SyncDrGroupTest, ItTurnsWithASwitchover) {
  MakeProtected();
  RunWell({"switchover", "g"});
  ChangeCopies();
  const Json::Value synced = Sync();
  EXPECT_EQ(synced["gsnap_id"], LastOf("gd"));
  EXPECT_EQ(synced["dr_gsnap_id"], LastOf("g"));
  ExpectOnBothSides(LastOf("gd"), LastOf("g"), synced["cut_id"].asString());
  // From the other group it is the same.
  const Json::Value other = RunWell({"sync", "gd", "--dr-group", "g", "--json"}).Json();
  EXPECT_EQ(other["gsnap_id"], LastOf("gd"));
  EXPECT_EQ(other["dr_gsnap_id"], LastOf("g"));
  EXPECT_THAT(ListSnapshots("g"), SizeIs(2));
}

TEST_P(SyncDrGroupTest, AGroupThatIsNotThatOfTheCopiesIsRefused) {
  MakeProtected();
  RunWell({"target", "create", "more", "--volume", "v1", "--type", "share"});
  RunWell({"group", "create", "other", "--target", "lun-dr", "share-dr", "more"});
  RunBadly(kRefused, {"sync", "g", "--dr-group", "other"},
           {"\"other\"", "has not \"guest-dr\"", "besides is \"more\""});
  RunBadly(kRefused, {"sync", "g", "--dr-group", "g", "--dry-run"}, {"has not \"guest-dr\""});
  RunBadly(kNotFound, {"sync", "g", "--dr-group", "nog"}, {"\"nog\""});
  RunBadly(kUsage, {"sync", "g", "--lock"}, {"--lock", "--dr-group"});
  RunBadly(kUsage, {"sync", "g", "--description", "x"}, {"--description", "--dr-group"});
  EXPECT_THAT(ListSnapshots(), IsEmpty());
}

TEST_P(SyncDrGroupTest, ACatalogueThatCannotTakeItIsNoticedBeforeAnythingIsDone) {
  MakeProtected();
  for (const char* group : {"g", "gd"}) {
    const std::string database = DatabaseOf(group);
    std::filesystem::rename(database, database + "-away");
    host_test::WriteFile(database, std::string(4096, 'x'));
    const Result result = Run({"sync", "g", "--dr-group", "gd"});
    EXPECT_EQ(result.code, kCatalogue) << result.err;
    std::filesystem::rename(database + "-away", database);
    EXPECT_THAT(VrelDR::TargetOperation(0, "lun").ListSnapshots(), SizeIs(1)) << group;
  }
  EXPECT_THAT(ListSnapshots(), IsEmpty());
  EXPECT_THAT(ListSnapshots("gd"), IsEmpty());
}

TEST_P(SyncDrGroupTest, LessThanWhatIsRequiredSendsNothing) {
  MakeProtected();
  for (const Words& words : {Words{"sync", "g", "--require", "app"},
                             Words{"sync", "g", "--dr-group", "gd", "--require", "app"}}) {
    RunBadly(kRefused, words, {"\"g\"", "nothing was sent", "group quiesce g"});
  }
  EXPECT_THAT(ListSnapshots(), IsEmpty());
  EXPECT_THAT(VrelDR::TargetOperation(0, "lun").ListSnapshots(), SizeIs(1));
}

TEST_P(SyncDrGroupTest, OneThatFailsHalfWayIsFinishedAndRecordedByTheSameCommand) {
  MakeProtected();
  ChangeMain();
  const auto first = MainContents();
  const Result failed = RunFailingAt("ship@share-dr", {"sync", "g", "--dr-group", "gd", "--json",
                                                       "--description", "first", "--lock"});
  EXPECT_EQ(failed.code, kStorage);
  EXPECT_THAT(failed.err, HasSubstr("drgroupctl sync g --dr-group gd"));
  const std::string made = failed.Json()["error"]["gsnap_id"].asString();
  EXPECT_EQ(made, LastOf("g"));
  EXPECT_THAT(failed.err, HasSubstr(made));
  EXPECT_THAT(ListSnapshots("gd"), IsEmpty());
  ChangeMain();
  const Json::Value synced = Sync();
  const std::string cut = synced["finished_cut_id"].asString();
  EXPECT_NE(cut, "");
  EXPECT_NE(cut, synced["cut_id"].asString());
  const std::string recorded = synced["finished_dr_gsnap_id"].asString();
  ExpectOnBothSides(made, recorded, cut);
  EXPECT_EQ(Show(recorded)["description"], "first");
  EXPECT_EQ(ReadContents(SnapshotPaths(made)), first);
  EXPECT_THAT(ListSnapshots("gd"), ElementsAre(recorded, synced["dr_gsnap_id"].asString()));
  ExpectOnBothSides(LastOf("g"), LastOf("gd"), synced["cut_id"].asString());
  EXPECT_EQ(LastArrivedContents(), MainContents());
}

TEST_P(SyncDrGroupTest, DeletingAGroupIsRefusedBeforeAnythingOfItGoes) {
  MakeProtected();
  Sync();
  Sync();
  for (const char* group : {"g", "gd"}) {
    RunBadly(kRefused, {"group", "delete", group, "--force", "--yes"},
             {LastOf(group), "is held by plan", "drgroupctl unprotect"});
    EXPECT_THAT(ListSnapshots(group), SizeIs(2));
  }
  RunWell({"unprotect", "g", "--yes"});
  RunWell({"group", "delete", "gd", "--force", "--yes"});
  RunWell({"group", "delete", "g", "--force", "--yes"});
}

TEST_P(SyncDrGroupTest, WhatWasGivenUpOfAnInterruptedSyncIsTold) {
  MakeProtected();
  ChangeMain();
  EXPECT_EQ(RunFailingAt("ship@share-dr", {"sync", "g", "--jobs", "1"}).code, kStorage);
  const Json::Value status = RunWell({"status", "g", "--json"}).Json();
  RunWell({"plan", "drop-shipment", status["targets"][1]["plan_id"].asString()});
  const Result synced = RunWell({"sync", "g"});
  EXPECT_THAT(synced.err, HasSubstr("is not whole: its snapshot has not come to share-dr"));
  EXPECT_THAT(ArrivedCuts(), SizeIs(1));
}

TEST_P(SyncDrGroupTest, ACutWhoseNameIsTakenIsSaidNotToBeRecorded) {
  MakeProtected();
  ChangeMain();
  EXPECT_EQ(RunFailingAt("ship@share-dr", {"sync", "g", "--dr-group", "gd", "--jobs", "1"}).code,
            kStorage);
  RunWell({"snapshot", "sync", "gd", "--mixed"});
  const Result synced = RunWell({"sync", "g", "--dr-group", "gd"});
  EXPECT_THAT(synced.err, HasSubstr("is not recorded: group snapshot \"" +
                                    ListSnapshots("gd").front() + "\" has its name"));
}

TEST_P(SyncDrGroupTest, AnInterruptedSyncIsFinishedWithTheSameCutBeforeThereIsAnother) {
  MakeProtected();
  ChangeMain();
  EXPECT_EQ(RunFailingAt("ship@share-dr", {"sync", "g"}).code, kStorage);
  EXPECT_THAT(ArrivedCuts(), SizeIs(2));
  ChangeMain();
  // The new one fails at once: the replicas have all of the interrupted one by then.
  RunWell({"group", "quiesce", "g", "--freeze-command", "/bin/false", "--thaw-command", "/bin/true",
           "--application"});
  RunBadly(kRefused, {"sync", "g"},
           {"what an interrupted sync had left was sent, and nothing new"});
  EXPECT_THAT(ArrivedCuts(), SizeIs(1));
  RunWell({"group", "quiesce", "g", "--none"});
  EXPECT_EQ(RunFailingAt("ship@lun-dr", {"sync", "g"}).code, kStorage);
  const Result synced = RunWell({"sync", "g"});
  EXPECT_THAT(synced.out, HasSubstr("Finished the sync of group \"g\" that was interrupted"));
  EXPECT_THAT(ArrivedCuts(), SizeIs(1));
  EXPECT_EQ(LastArrivedContents(), MainContents());
}

TEST_P(SyncDrGroupTest, WhatIsOfDifferentCutsIsRecordedOnlyWhereThatIsAskedFor) {
  MakeProtected();
  EXPECT_EQ(RunFailingAt("ship@share-dr", {"sync", "g"}).code, kStorage);
  RunBadly(kRefused, {"snapshot", "sync", "gd"},
           {"\"gd\"", "not taken together", "\"lun-dr\"", "\"share-dr\"", "--mixed"});
  const Json::Value mixed = RunWell({"snapshot", "sync", "gd", "--mixed", "--json"}).Json();
  EXPECT_EQ(mixed["consistency"], "unspecified");
  RunWell({"action", "run", "sync", "g"});  // its snapshots are of no cut
  RunWell({"action", "run", "sync", "g"});
  RunBadly(kRefused, {"snapshot", "sync", "gd"}, {"of no cut", "--mixed"});
  RunWell({"group", "create", "one", "--target", "share-dr"});
  RunWell({"snapshot", "sync", "one"});
}

TEST_P(SyncDrGroupTest, OneThatIsKilledAtAnyStepIsFinishedByTheSameCommand) {
  MakeProtected();
  const Words words{"sync", "g", "--dr-group", "gd"};
  for (const std::string step :
       {"cut.recorded", "cut.settled", "take_up.renamed", "sync.gsnap_made", "hand.taken_up",
        "hand.recorded", "sync.recorded", "ship.begun", "ship.done", "sync.arrived",
        "sync.reported", "sync.all_arrived", "sync.gsnap_recorded"}) {
    SCOPED_TRACE(step);
    RunWell({"snapshot", "repair", "g", "--yes"});
    const auto before = ListSnapshots("gd").size();
    ChangeMain();
    const auto interrupted = MainContents();
    EXPECT_TRUE(RunKilledAt(step, words));
    const bool isInHand = ListSnapshots("gd").size() > before || ArrivedCuts().size() > 1 ||
                          step == "hand.recorded" || step == "sync.recorded" ||
                          step == "ship.begun" || step == "ship.done" || step == "sync.all_arrived";
    const std::string cutBefore = LastOf("g");
    ChangeMain();
    const Json::Value synced = Sync();
    EXPECT_THAT(ArrivedCuts(), ElementsAre(synced["cut_id"].asString()));
    EXPECT_EQ(LastArrivedContents(), MainContents());
    ExpectOnBothSides(LastOf("g"), LastOf("gd"), synced["cut_id"].asString());
    const auto recorded = ListSnapshots("gd");
    ASSERT_THAT(recorded, SizeIs(before + (isInHand ? 2 : 1)));
    if (isInHand) {
      const std::string& other = recorded[recorded.size() - 2];
      ExpectOnBothSides(cutBefore, other, Show(cutBefore)["cut_id"].asString());
      EXPECT_EQ(ReadContents(SnapshotPaths(cutBefore)), interrupted);
    }
    ExpectSameSnapshots();
    ExpectCatalogueWhole("gd");
    if (HasFailure()) return;
  }
}

}  // namespace
}  // namespace e2e
