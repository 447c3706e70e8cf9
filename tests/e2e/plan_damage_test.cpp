#include <vreldr/target_operation.h>

#include <filesystem>
#include <fstream>

#include "plan_fixture.h"

// Copies that are removed, half removed, or not as new as the records say, and what is told of it.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using Words = std::vector<std::string>;

class PlanDamageTest : public PlanTest {
 protected:
  static std::string LastOf(Json::ArrayIndex index) {
    return RunWell({"status", "g", "--json"}).Json()["targets"][index]["last_snap_id"].asString();
  }
  // Takes the bytes of a snapshot of a DR copy away behind the host's back.
  void LoseBytes(const std::string& copy, const std::string& snapId) const {
    const std::string dir = VolumePath("v2") + "/.vreldr/snapshots/" + copy + "/" + snapId;
    ASSERT_TRUE(fs::exists(dir)) << dir;
    if (IsBtrfs()) {
      EXPECT_EQ(host_test::RunProgram({"btrfs", "subvolume", "delete", dir}), 0);
    } else {
      host_test::RunProgram({"chattr", "-R", "-i", dir});
      fs::remove_all(dir);
    }
    ASSERT_FALSE(fs::exists(dir));
  }
  static Json::Value StatusOf(const std::string& target) {
    const Json::Value document = RunWell({"status", "g", "--json"}).Json();
    for (const Json::Value& each : document["targets"]) {
      if (each["target_id"] == target) return each;
    }
    ADD_FAILURE() << "no target " << target;
    return {};
  }
  static Json::Value EntryOf(const std::string& target) {
    const Json::Value document = RunWell({"target", "list", "--json"}).Json();
    for (const Json::Value& each : document["targets"]) {
      if (each["target_id"] == target) return each;
    }
    return {};
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, PlanDamageTest,
                         testing::ValuesIn(LongSuiteOn({"ext4", "btrfs"})),
                         FileSystemsTest::NameOf);

TEST_P(PlanDamageTest, ACopyThatIsHalfRemovedIsNamedAndTheSameCommandFinishesIt) {
  MakeProtected();
  const Words words{"unprotect", "g", "--delete-data", "--yes"};
  const Result failed = RunFailingAt("remove@share-dr", words);
  EXPECT_EQ(failed.code, kStorage);
  EXPECT_THAT(failed.err, AllOf(HasSubstr("\"share-dr\""), HasSubstr("not whole any more"),
                                HasSubstr("the plan is gone")));
  EXPECT_THAT(RunWell({"target", "list"}).out,
              AllOf(HasSubstr("PROBLEM"), HasSubstr("\"share-dr\" on volume \"v2\" is being "
                                                    "removed")));
  EXPECT_EQ(EntryOf("share-dr")["is_being_removed"], true);
  EXPECT_EQ(EntryOf("share-dr")["exists"], false);
  EXPECT_EQ(EntryOf("lun")["is_being_removed"], false);
  EXPECT_EQ(StatusOf("share")["state"], "unprotected");
  EXPECT_THAT(StatusOf("share")["problem"].asString(), HasSubstr("target remove share-dr"));
  const Result failover = Run({"failover", "g", "--force", "--yes"});
  EXPECT_EQ(failover.code, kNotFound) << failover.err;

  // What cannot be finished yet is an error, however often it is tried.
  const Result again = RunFailingAt("remove@share-dr", words);
  EXPECT_EQ(again.code, kStorage) << again.err;
  EXPECT_EQ(EntryOf("share-dr")["is_being_removed"], true);
  RunBadly(kNotFound, {"unprotect", "g"}, {"\"share-dr\"", "--delete-data"});
  const Result done = RunWell(words);
  EXPECT_THAT(done.out, HasSubstr("what is left of target \"share-dr\" on volume \"v2\""));
  EXPECT_EQ(TargetPaths().size(), 3U);
  EXPECT_FALSE(fs::exists(VolumePath("v2") + "/share-dr"));
  EXPECT_EQ(StatusOf("share")["problem"], "");
}

TEST_P(PlanDamageTest, WhatIsLeftOfACopyGoesWithTargetRemoveToo) {
  MakeProtected();
  const std::string plan = StatusOf("lun")["plan_id"].asString();
  const Words words{"plan", "delete", plan, "--delete-data", "--yes"};
  EXPECT_EQ(RunFailingAt("remove@lun-dr", words).code, kStorage);
  RunBadly(kNotFound, {"plan", "show", plan}, {plan, "\"lun-dr\"", "is being removed"});
  RunWell({"target", "remove", "lun-dr"});
  EXPECT_TRUE(EntryOf("lun-dr").isNull());
  const std::string other = StatusOf("share")["plan_id"].asString();
  EXPECT_EQ(
      RunFailingAt("remove@share-dr", {"plan", "delete", other, "--delete-data", "--yes"}).code,
      kStorage);
  RunWell({"plan", "delete", other, "--delete-data", "--yes"});
  EXPECT_TRUE(EntryOf("share-dr").isNull());
}

TEST_P(PlanDamageTest, WhatGoesIsNamedExactlyAndTheOriginalsAreCalledWhatTheyAre) {
  MakeProtected();
  const Json::Value planned =
      RunWell({"unprotect", "g", "--delete-data", "--dry-run", "--json"}).Json()["removed"];
  ASSERT_EQ(planned.size(), 3U);
  EXPECT_EQ(planned[0]["target_id"], "lun-dr");
  EXPECT_EQ(planned[0]["volume"], "v2");
  EXPECT_EQ(planned[0]["side"], "the DR side");
  EXPECT_EQ(planned[0]["snapshot_count"].asUInt(), 1U);
  EXPECT_EQ(planned[0]["claims"].size(), 0U);
  RunWell({"switchover", "g"});
  RunUnasked({"unprotect", "g", "--delete-data"},
             {"target \"lun\" on volume \"v1\" (the main side) with 2 snapshots",
              "target \"guest\" on volume \"v1\" (the main side)", "end the replication"},
             {"\"lun-dr\" works on", "target \"lun\" on volume \"v1\" goes with its snapshots"});
  RunBadly(kRefused, {"action", "run", "tmp_del", "g"},
           {"target \"share\" on volume \"v1\" (the main side) with 2 snapshots", "--yes"});
  const Result done = RunWell({"unprotect", "g", "--delete-data", "--yes"});
  EXPECT_THAT(done.out, AllOf(HasSubstr("Removed target \"lun\" on volume \"v1\" (the main side)"),
                              Not(HasSubstr("DR copies"))));
  EXPECT_TRUE(EntryOf("lun").isNull());
  EXPECT_FALSE(EntryOf("lun-dr").isNull());
}

TEST_P(PlanDamageTest, SnapshotsThatACatalogueRecordsKeepTheCopyUnlessForced) {
  MakeProtected();
  const std::string gsnap = TakeSnapshot({"--lock"});
  RunWell({"switchover", "g"});
  const auto before = MainContents();
  for (const Words& words :
       {Words{"unprotect", "g", "--delete-data", "--yes"},
        Words{"unprotect", "g", "--delete-data", "--dry-run"},
        Words{"action", "run", "tmp_del", "g", "--yes"},
        Words{"plan", "delete", StatusOf("lun")["plan_id"].asString(), "--delete-data", "--yes"}}) {
    const Result result = Run(words);
    EXPECT_EQ(result.code, kRefused) << result.err;
    EXPECT_THAT(result.err,
                AllOf(HasSubstr("nothing was done"), HasSubstr("\"" + gsnap + "\""),
                      HasSubstr("which is locked"), HasSubstr("of target \"lun\""),
                      HasSubstr("on volume \"v1\" (the main side)"), HasSubstr("--force")));
  }
  EXPECT_EQ(MainContents(), before);
  const Json::Value error =
      Run({"unprotect", "g", "--delete-data", "--dry-run", "--json"}).Json()["error"];
  ASSERT_EQ(error["removed"].size(), 3U);
  EXPECT_EQ(error["removed"][0]["claims"].size(), 1U);
  EXPECT_EQ(error["claims"].size(), 3U);
  const Json::Value forced =
      RunWell({"unprotect", "g", "--delete-data", "--dry-run", "--force", "--json"}).Json();
  EXPECT_EQ(forced["removed"][0]["claim_count"].asUInt(), 1U);
  RunWell({"unprotect", "g", "--delete-data", "--force", "--yes"});
  EXPECT_TRUE(EntryOf("lun").isNull());
}

TEST_P(PlanDamageTest, ACatalogueThatCannotBeReadMayRecordEverything) {
  MakeProtected();
  RunSql(DatabaseOf("gd"), "ALTER TABLE target_snap_list RENAME TO lost");
  const Words words{"unprotect", "g", "--delete-data", "--yes"};
  const Result result = Run(words);
  EXPECT_EQ(result.code, kRefused) << result.err;
  EXPECT_THAT(result.err, AllOf(HasSubstr("group \"gd\" records cannot be told"),
                                HasSubstr("target_snap_list"), HasSubstr("--force")));
  EXPECT_EQ(States(), AllProtected());
  RunSql(DatabaseOf("gd"), "ALTER TABLE lost RENAME TO target_snap_list");
  RunWell(words);
}

TEST_P(PlanDamageTest, AnEditDoesNotLoseWhatIsRecorded) {
  WriteConfiguration({"v1", "v2", "v3"});
  fs::create_directory(VolumePath("v3"));
  MakeProtected();
  const std::string gsnap =
      RunWell({"snapshot", "sync", "gd", "--json"}).Json()["gsnap_id"].asString();
  const Result refused = Run({"edit", "g", "--volume", "v3", "--yes"});
  EXPECT_EQ(refused.code, kRefused);
  EXPECT_THAT(refused.err, AllOf(HasSubstr("edit of group \"g\" is refused, nothing was done"),
                                 HasSubstr(gsnap), HasSubstr("\"lun-dr\" on volume \"v2\"")));
  EXPECT_EQ(TargetPaths().size(), 6U);
  const Json::Value done =
      RunWell({"edit", "g", "--volume", "v3", "--yes", "--force", "--json"}).Json();
  EXPECT_EQ(done["removed"].size(), 3U);
  EXPECT_EQ(TargetPaths().count("lun-dr"), 0U);
}

TEST_P(PlanDamageTest, ALastSnapshotThatIsGoneIsToldAndTheNewestThatIsThereTakesOver) {
  MakeProtected();
  const auto first = MainContents();
  const std::string kept = LastOf(1);
  ChangeMain();
  RunWell({"sync", "g"});
  std::vector<std::string> gone;
  const Words names{"lun", "share", "guest"};
  for (Json::ArrayIndex i = 0; i < 3; ++i) {
    gone.push_back(LastOf(i));
    EXPECT_EQ(StatusOf(names[i])["last_snap_state"], "present");
  }
  for (std::size_t i = 0; i < 3; ++i) LoseBytes(names[i] + "-dr", gone[i]);

  const Json::Value row = StatusOf("share");
  EXPECT_EQ(row["last_snap_state"], "gone");
  EXPECT_EQ(row["gone_snap_id"], gone[1]);
  EXPECT_EQ(row["last_snap_id"], kept);
  EXPECT_THAT(
      row["problem"].asString(),
      AllOf(HasSubstr(gone[1]), HasSubstr("is gone from target \"share-dr\""), HasSubstr(kept)));
  const Json::Value shown = RunWell({"plan", "show", row["plan_id"].asString(), "--json"}).Json();
  EXPECT_EQ(shown["last_snap_state"], "gone");

  // Also without --force it wants to be confirmed.
  for (const Words& more : {Words{}, Words{"--force"}}) {
    Words words{"failover", "g"};
    words.insert(words.end(), more.begin(), more.end());
    const Result asked = Run(words);
    EXPECT_EQ(asked.code, kRefused) << asked.err;
    EXPECT_THAT(asked.err, AllOf(HasSubstr("are gone"), HasSubstr("--yes")));
    words.insert(words.end(), {"--dry-run", "--json"});
    const Json::Value takeover = RunWell(words).Json()["takeover"];
    EXPECT_EQ(takeover[1]["snap_id"], kept);
    EXPECT_EQ(takeover[1]["gone_snap_id"], gone[1]);
    EXPECT_THAT(takeover[1]["lost"].asString(), HasSubstr("is gone from target \"share-dr\""));
  }
  EXPECT_EQ(States(), AllProtected());
  // It is spared although no plan holds it.
  RunWell({"snapshot", "prune", "g", "--yes"});
  EXPECT_EQ(StatusOf("share")["last_snap_id"], kept);
  LoseVolume("v1");
  RunUnasked({"plan", "promote", "share"}, {"is gone", kept},
             {"is gone from target \"share-dr\"", "everything written since"});
  const Result done = RunWell({"failover", "g", "--force", "--yes"});
  EXPECT_THAT(done.err, HasSubstr("is gone from target \"guest-dr\""));
  EXPECT_EQ(States(), AllFailedOver());
  EXPECT_EQ(CopyContents(), first);
  BringVolumeBack("v1");
}

TEST_P(PlanDamageTest, APromotionAndASyncGoOnWithoutTheSnapshotThatIsGone) {
  MakeProtected();
  const auto first = MainContents();
  ChangeMain();
  RunWell({"sync", "g"});
  LoseBytes("share-dr", LastOf(1));
  ChangeMain();
  const auto wanted = MainContents();
  RunWell({"sync", "g"});
  EXPECT_EQ(StatusOf("share")["last_snap_state"], "present");
  EXPECT_EQ(StatusOf("share")["problem"], "");
  EXPECT_EQ(LastArrivedContents(), wanted);
  ExpectSameSnapshots();
  LoseBytes("share-dr", LastOf(1));
  const Result done = RunWell({"plan", "promote", "share", "--yes", "--json"});
  EXPECT_THAT(done.err, HasSubstr("is gone from target \"share-dr\""));
  EXPECT_EQ(CopyContents().at("share"), first.at("share"));
}

TEST_P(PlanDamageTest, OfAReplicaOutOfReachItIsSaidThatItCannotBeTold) {
  MakeProtected();
  const std::string last = LastOf(1);
  LoseVolume("v2");
  const Json::Value row = StatusOf("share");
  EXPECT_EQ(row["last_snap_state"], "unknown");
  EXPECT_EQ(row["last_snap_id"], last);
  EXPECT_EQ(row["gone_snap_id"], "");
  EXPECT_THAT(row["problem"].asString(),
              AllOf(HasSubstr("cannot be told"), Not(HasSubstr("is gone"))));
  const Result failover = Run({"failover", "g", "--force", "--yes"});
  EXPECT_EQ(failover.code, kStorage) << failover.err;
  EXPECT_THAT(failover.err, Not(HasSubstr("is gone from")));
  BringVolumeBack("v2");
}

TEST_P(PlanDamageTest, AnArrivedSnapshotThatIsRecordedIsNotDroppedUnlessForced) {
  MakeProtected();
  RunWell({"sync", "g"});
  RunWell({"snapshot", "sync", "gd", "--lock"});
  const std::string last = LastOf(1);
  RunBadly(kRefused, {"plan", "drop-arrived", "share", "--yes"},
           {"recorded in group snapshot", "locked", "--force"});
  EXPECT_EQ(LastOf(1), last);
  RunWell({"plan", "drop-arrived", "share", "--yes", "--force"});
  EXPECT_NE(LastOf(1), last);
}

// What was written to the old source and never sent is nowhere else.
TEST_P(PlanDamageTest, WhatAReprotectionKeepsDoesNotGoBeforeTheNextSyncUnlessForced) {
  MakeProtected();
  RunWell({"sync", "g"});
  ChangeMain();
  const auto only = MainContents();
  RunWell({"failover", "g", "--yes"});
  RunWell({"reprotect", "g"});
  const Result result = Run({"unprotect", "g", "--delete-data", "--yes"});
  EXPECT_EQ(result.code, kRefused);
  EXPECT_THAT(result.err, AllOf(HasSubstr("before the reprotection"), HasSubstr("--force")));
  EXPECT_EQ(MainContents(), only);
  RunWell({"sync", "g"});
  RunWell({"unprotect", "g", "--delete-data", "--yes"});
}

TEST_P(PlanDamageTest, ASnapshotThatIsGoneCanBeDropped) {
  MakeProtected();
  const std::string first = LastOf(1);
  RunWell({"sync", "g"});
  LoseBytes("share-dr", LastOf(1));
  const Result result = RunWell({"plan", "drop-arrived", "share", "--yes", "--json"});
  EXPECT_EQ(result.Json()["last_snap_id"], first);
  EXPECT_EQ(StatusOf("share")["last_snap_state"], "present");
}

TEST_P(PlanDamageTest, ATimeAheadOfTheClockIsSaidToBe) {
  MakeProtected();
  RunSql(Root() + "/state/replica.db", "UPDATE snapshots SET create_time = create_time + 866000");
  const Json::Value row = StatusOf("share");
  EXPECT_LT(row["age_seconds"].asInt64(), -860000);
  EXPECT_EQ(row["is_time_ahead"], true);
  EXPECT_THAT(RunWell({"status", "g"}).out, HasSubstr("ahead by 10d"));
  const Result takeover = RunWell({"failover", "g", "--dry-run"});
  EXPECT_THAT(takeover.out, HasSubstr("ahead by 10d"));
  RunSql(Root() + "/state/replica.db", "UPDATE snapshots SET create_time = create_time - 866000");
  EXPECT_GE(StatusOf("share")["age_seconds"].asInt64(), 0);
  EXPECT_EQ(StatusOf("share")["is_time_ahead"], false);
}

TEST_P(PlanDamageTest, ThatASwitchoverWouldLoseNothingIsSaidWhereThereIsAChoice) {
  MakeProtected();
  EXPECT_THAT(RunWell({"failover", "g", "--dry-run"}).err, HasSubstr("would lose nothing"));
  EXPECT_THAT(Run({"failover", "g", "--force"}).err, HasSubstr("would lose nothing"));
  EXPECT_THAT(RunWell({"failover", "g", "--yes"}).err, Not(HasSubstr("would lose nothing")));
}

TEST_P(PlanDamageTest, AShipmentThatFindsNoRoomIsDroppedAndSaidToBe) {
  MakeProtected();
  const std::string big = TargetPaths().at("share") + "/big";
  std::string text(8 << 20, ' ');
  std::uint32_t number = 1;
  for (char& each : text) each = static_cast<char>((number = number * 1103515245 + 12345) >> 16);
  const std::string filler = VolumePath("v2") + "/filler";
  const auto fill = [&] {
    host_test::WriteFile(big, text);
    // In steps: btrfs gives its room to data little by little.
    host_test::RunProgram({"sh", "-c", "dd if=/dev/urandom of=" + filler + " bs=1M || :"});
    fs::resize_file(filler, fs::file_size(filler) - (4 << 20));
    host_test::RunProgram({"sync", "-f", filler});
  };
  fill();
  EXPECT_EQ(Run({"sync", "g"}).code, kStorage);
  const Result second = Run({"sync", "g"});
  EXPECT_EQ(second.code, kStorage);
  EXPECT_THAT(second.err, HasSubstr("the next sync drops"));
  fs::remove(big);
  const Json::Value targets = RunWell({"sync", "g", "--json"}).Json()["targets"];
  // Whose turn comes first drops it: it would keep the room from the others.
  const std::string note = targets[0]["note"].asString() + targets[1]["note"].asString();
  EXPECT_THAT(note, AllOf(HasSubstr("to target \"share-dr\" was dropped"), HasSubstr("no room")));
  EXPECT_EQ(LastArrivedContents(), MainContents());
  fs::remove(filler);

  // At once, by the operator.
  const std::string plan = StatusOf("share")["plan_id"].asString();
  EXPECT_EQ(RunWell({"plan", "drop-shipment", plan, "--json"}).Json()["dropped_snap_id"], "");
  RunBadly(kNotFound, {"plan", "drop-shipment", "none"}, {"\"none\""});
  fill();
  EXPECT_EQ(Run({"sync", "g"}).code, kStorage);
  fs::remove(big);
  const Json::Value dropped = RunWell({"plan", "drop-shipment", plan, "--json"}).Json();
  EXPECT_NE(dropped["dropped_snap_id"], "");
  RunWell({"sync", "g"});
  EXPECT_EQ(LastArrivedContents(), MainContents());
  fs::remove(filler);
  // What was dropped goes when snapshots are pruned.
  RunWell({"snapshot", "prune", "g", "--yes"});
  ExpectSameSnapshots();
  EXPECT_THAT(VrelDR::TargetOperation(0, "share").ListSnapshots(), SizeIs(1));
}

TEST_P(PlanDamageTest, AHalfSwitchedGroupWhoseMainVolumeIsGoneIsToldHowTheOthersTakeOver) {
  MakeProtected();
  ASSERT_TRUE(RunKilledAt("switchover.turned", {"switchover", "g"}));
  const auto wanted = LastArrivedContents();
  LoseVolume("v1");
  const Words words{"failover", "g", "--force", "--yes"};
  const Result refused = Run(words);
  EXPECT_NE(refused.code, kDone);
  EXPECT_THAT(
      refused.err,
      AllOf(HasSubstr("\"lun-dr\" works already"), HasSubstr("\"drgroupctl plan promote share\""),
            HasSubstr("\"drgroupctl plan promote guest\""), Not(HasSubstr("plan promote lun"))));
  for (const char* target : {"share", "guest"}) {
    RunWell({"plan", "promote", target, "--yes"});
  }
  EXPECT_EQ(StatusOf("lun")["working_target_id"], "lun-dr");
  EXPECT_EQ(StatusOf("share")["working_target_id"], "share-dr");
  EXPECT_EQ(StatusOf("guest")["working_target_id"], "guest-dr");
  EXPECT_EQ(CopyContents(), wanted);
  BringVolumeBack("v1");
}

// Without a half that is done there is nothing to advise: the others are no better off.
TEST_P(PlanDamageTest, AGroupThatCannotFailOverAtAllIsToldNoWayAroundIt) {
  MakeProtected();
  LoseVolume("v2");
  const Result refused = Run({"failover", "g", "--force", "--yes"});
  EXPECT_EQ(refused.code, kStorage);
  EXPECT_THAT(refused.err, Not(HasSubstr("plan promote")));
  BringVolumeBack("v2");
}

TEST_P(PlanDamageTest, StatusSaysThatWhatWorksMayBeUnwritableAfterAKill) {
  MakeProtected();
  const std::string inside = TargetPaths().at("share") + "/new";
  const auto canWrite = [&inside] {
    std::ofstream(inside) << "text";
    return fs::exists(inside);
  };
  const auto expectTold = [&](const std::string& operation) {
    const std::string problem = StatusOf("share")["problem"].asString();
    EXPECT_THAT(problem, HasSubstr(operation + " was interrupted"));
    EXPECT_THAT(problem, HasSubstr("target \"share\", which works, may be unwritable"));
    EXPECT_EQ(StatusOf("guest")["problem"], "");
    EXPECT_FALSE(canWrite());
    RunWell({"sync", "g"});
    EXPECT_EQ(StatusOf("share")["problem"], "");
    EXPECT_TRUE(canWrite());
    fs::remove(inside);
  };
  // The group's targets are taken one after the other, and "share" is not the first.
  RunWell({"group", "create", "s", "--target", "share"});
  ASSERT_TRUE(RunKilledAt("switchover.demoted", {"switchover", "s"}));
  expectTold("switchover");
  ASSERT_TRUE(RunKilledAt("failover.demoted", {"failover", "s", "--yes"}));
  expectTold("failover");
  ASSERT_TRUE(RunKilledAt("sync.recorded", {"sync", "s"}));
  EXPECT_THAT(StatusOf("share")["problem"].asString(),
              AllOf(HasSubstr("sync was interrupted"), Not(HasSubstr("unwritable"))));
  EXPECT_TRUE(canWrite());
}

}  // namespace
}  // namespace e2e
