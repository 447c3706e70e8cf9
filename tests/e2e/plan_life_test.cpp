#include <fstream>

#include "plan_fixture.h"

// The life of a group with plans, with its bytes proven after every action.

namespace e2e {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Gt;
using testing::HasSubstr;
using testing::Lt;
using testing::Not;
using Words = std::vector<std::string>;

class PlanLifeTest : public PlanTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, PlanLifeTest,
                         testing::Values("directory", "ext4", "xfs", "btrfs"),
                         FileSystemsTest::NameOf);

TEST_P(PlanLifeTest, AGroupGoesOverAndComesBackWithItsBytes) {
  MakeGroup();
  EXPECT_EQ(States(), AllUnprotected());
  RunWell({"protect", "g", "--volume", "v2", "--dr-group", "gd"});
  EXPECT_EQ(States(), AllProtected());
  RunWell({"sync", "g"});
  ExpectSameSnapshots();

  // A group snapshot that is sent is at the DR side under its identifiers.
  ChangeMain();
  const auto shipped = MainContents();
  const std::string gsnap = TakeSnapshot();
  const Json::Value waiting = RunWell({"snapshot", "ship", gsnap, "--json"}).Json()["targets"];
  for (const Json::Value& each : waiting) EXPECT_TRUE(each["is_pending"].asBool());
  ChangeMain();
  const auto synced = MainContents();
  RunWell({"sync", "g"});
  ExpectSameSnapshots();
  const Json::Value recorded = RunWell({"snapshot", "sync", "gd", "--json"}).Json();
  EXPECT_THAT(recorded["gsnap_id"].asString(), HasSubstr("gd-gsnap-"));
  EXPECT_EQ(recorded["targets"].size(), 3U);
  const Json::Value shown =
      RunWell({"snapshot", "show", recorded["gsnap_id"].asString(), "--json"}).Json();
  EXPECT_EQ(shown["replicas"].size(), 3U);
  EXPECT_EQ(shown["replicas"][0]["src_target_id"], "lun-dr");
  EXPECT_EQ(shown["replicas"][0]["dst_target_id"], "lun");

  // The copies take over at the group snapshot, and what was written later stays at the main side.
  ChangeMain();
  const auto left = MainContents();
  RunWell({"failover", "g", "--snapshot", gsnap, "--yes"});
  EXPECT_EQ(States(), AllFailedOver());
  EXPECT_EQ(CopyContents(), shipped);
  EXPECT_EQ(MainContents(), left);

  ChangeCopies();
  RunWell({"reprotect", "g"});
  EXPECT_EQ(States(), AllTurned());
  const auto worked = CopyContents();
  RunWell({"sync", "g"});
  ExpectSameSnapshots();
  RunWell({"switchover", "g"});
  EXPECT_EQ(States(), AllProtected());
  EXPECT_EQ(MainContents(), worked);
  EXPECT_NE(worked, synced);

  // The copies of a group that is not protected any more hold what arrived last.
  RunWell({"unprotect", "g", "--yes"});
  EXPECT_EQ(States(), AllUnprotected());
  EXPECT_EQ(CopyContents(), worked);
  ChangeCopies();
  RunBadly(kNotFound, {"unprotect", "g"}, {"\"g\"", "not protected"});
}

TEST_P(PlanLifeTest, AFailoverToTheDrGroupsSnapshotHoldsItsBytes) {
  MakeProtected();
  const auto first = MainContents();
  const std::string gsnap =
      RunWell({"snapshot", "sync", "gd", "--json"}).Json()["gsnap_id"].asString();
  RunBadly(kRefused, {"snapshot", "sync", "gd"}, {gsnap, "nothing newer has arrived"});
  ChangeMain();
  RunWell({"sync", "g"});
  RunWell({"failover", "g", "--snapshot", gsnap, "--yes"});
  EXPECT_EQ(States(), AllFailedOver());
  EXPECT_EQ(CopyContents(), first);
}

TEST_P(PlanLifeTest, ASwitchoverTakesEveryByteAlong) {
  MakeProtected();
  for (int round = 0; round < 2; ++round) {
    ChangeMain();
    const auto before = MainContents();
    RunWell({"switchover", "g"});
    EXPECT_EQ(States(), AllTurned());
    EXPECT_EQ(CopyContents(), before);
    ChangeCopies();
    const auto there = CopyContents();
    RunWell({"switchover", "gd"});
    EXPECT_EQ(States(), AllProtected());
    EXPECT_EQ(MainContents(), there);
  }
  ExpectSameSnapshots();
}

TEST_P(PlanLifeTest, ASyncSendsOnlyWhatChanged) {
  MakeGroup();
  host_test::WriteFile(TargetPaths().at("lun"), std::string(8 << 20, 'x'));
  RunWell({"protect", "g", "--volume", "v2"});
  const bool isWarned = RunWell({"sync", "g"}).err.find("not of one instant") != std::string::npos;
  EXPECT_EQ(isWarned, !IsBtrfs());
  {
    std::fstream lun(TargetPaths().at("lun"), std::ios::in | std::ios::out | std::ios::binary);
    lun.seekp(4 << 20);
    lun << "some other bytes";
    ASSERT_TRUE(lun.flush());
  }
  const Json::Value targets = RunWell({"sync", "g", "--json"}).Json()["targets"];
  ASSERT_EQ(targets.size(), 3U);
  EXPECT_THAT(targets[0].getMemberNames(),
              ElementsAre("note", "result", "sent_bytes", "size_bytes", "snap_id", "target_id"));
  EXPECT_EQ(targets[0]["target_id"], "lun");
  EXPECT_THAT(targets[0]["sent_bytes"].asUInt64(), AllOf(Gt(0U), Lt(1U << 20)));
  EXPECT_THAT(targets[1]["sent_bytes"].asUInt64(), Lt(70000U));
  ExpectSameSnapshots();
}

TEST_P(PlanLifeTest, SnapshotsThatSyncsLeaveBehindArePruned) {
  MakeProtected();
  const std::string recorded =
      RunWell({"snapshot", "sync", "gd", "--json"}).Json()["gsnap_id"].asString();
  const auto wanted = MainContents();
  const std::string gsnap = TakeSnapshot();
  RunWell({"snapshot", "ship", gsnap});
  for (int i = 0; i < 3; ++i) {
    ChangeMain();
    RunWell({"sync", "g"});
  }
  RunBadly(kRefused, {"snapshot", "prune", "g"}, {"delete 12 snapshots", "--yes"});
  const Json::Value planned =
      RunWell({"snapshot", "prune", "g", "--dry-run", "--json"}).Json()["snapshots"];
  ASSERT_EQ(planned.size(), 12U);
  EXPECT_EQ(planned[0]["is_deleted"], false);
  RunSql(DatabaseOf("gd"), "ALTER TABLE target_snap_list RENAME TO lost");
  RunBadly(kCatalogue, {"snapshot", "prune", "g", "--yes"}, {"\"gd\"", "target_snap_list"});
  RunSql(DatabaseOf("gd"), "ALTER TABLE lost RENAME TO target_snap_list");
  EXPECT_EQ(RunWell({"snapshot", "prune", "g", "--yes", "--json"}).Json()["deleted_count"].asUInt(),
            12U);
  EXPECT_EQ(RunWell({"snapshot", "prune", "g", "--yes", "--json"}).Json()["deleted_count"].asUInt(),
            0U);
  EXPECT_EQ(SnapshotPaths(recorded).size(), 3U);
  EXPECT_EQ(SnapshotPaths(gsnap).size(), 3U);
  ChangeMain();
  RunWell({"sync", "g"});
  RunWell({"failover", "g", "--snapshot", gsnap, "--yes"});
  EXPECT_EQ(States(), AllFailedOver());
  EXPECT_EQ(CopyContents(), wanted);
}

TEST_P(PlanLifeTest, AForcedFailoverNeedsNothingOfTheMainSide) {
  MakeProtected();
  const auto synced = MainContents();
  ChangeMain();
  LoseVolume("v1");
  const Result plain = Run({"failover", "g"});
  EXPECT_NE(plain.code, kDone);
  EXPECT_THAT(plain.err, AllOf(HasSubstr("nothing was done"), HasSubstr("\"lun\"")));
  const Result asked = Run({"failover", "g", "--force"});
  EXPECT_EQ(asked.code, kRefused);
  EXPECT_THAT(asked.err, HasSubstr("--yes"));
  EXPECT_THAT(asked.out, AllOf(HasSubstr("target \"lun\": \"lun-dr\" takes over with snapshot"),
                               HasSubstr("target \"guest\": \"guest-dr\" takes over"),
                               HasSubstr("everything written since 20")));
  const Json::Value losses = Run({"failover", "g", "--force", "--json"}).Json()["error"]["losses"];
  ASSERT_GE(losses.size(), 3U);
  EXPECT_THAT(losses[1].asString(), HasSubstr("\"share-dr\" takes over"));

  const Result checked = RunWell({"failover", "g", "--force", "--dry-run", "--json"});
  const Json::Value takeover = checked.Json()["takeover"];
  ASSERT_EQ(takeover.size(), 3U);
  EXPECT_FALSE(takeover[0]["is_source_alive"].asBool());
  EXPECT_TRUE(takeover[0]["age_seconds"].isUInt64());
  EXPECT_THAT(takeover[0]["lost"].asString(),
              AllOf(HasSubstr("everything written since 20"), HasSubstr("cannot be told")));
  EXPECT_EQ(States(), AllProtected());

  const Result done = RunWell({"failover", "g", "--force", "--yes"});
  EXPECT_THAT(done.err, AllOf(HasSubstr("target \"guest\": \"guest-dr\" takes over with snapshot"),
                              HasSubstr("everything written since 20"), HasSubstr(" ago)")));
  EXPECT_EQ(States(), AllFailedOver());
  EXPECT_EQ(CopyContents(), synced);
  ChangeCopies();
}

TEST_P(PlanLifeTest, AForcedFailoverAfterAReprotectionSaysThatItTakesThatBack) {
  MakeProtected();
  RunWell({"failover", "g", "--yes"});
  ChangeCopies();
  const auto wanted = CopyContents();
  RunWell({"reprotect", "g"});
  const std::string gsnap =
      RunWell({"snapshot", "create", "gd", "--json"}).Json()["gsnap_id"].asString();
  for (const std::vector<std::string>& more : {std::vector<std::string>{}, {"--snapshot", gsnap}}) {
    std::vector<std::string> words{"failover", "g", "--force"};
    words.insert(words.end(), more.begin(), more.end());
    words.emplace_back("--json");
    // Nobody is asked, as there is nothing to lose.
    const Json::Value done = RunWell(words).Json();
    EXPECT_THAT(done["takeover"][0]["lost"].asString(), HasSubstr("nothing"));
    EXPECT_EQ(done["takeover"][1]["working_target_id"], "share-dr");
    EXPECT_EQ(done["takeover"][1]["is_going_back"], true);
    EXPECT_EQ(done["targets"][1]["state"], "failed over, share-dr works");
    EXPECT_EQ(States(), AllFailedOver());
    EXPECT_EQ(CopyContents(), wanted);
    RunWell({"reprotect", "g"});
  }
  RunWell({"plan", "promote", "lun"});
  EXPECT_EQ(States(), (Words{"failed over lun-dr", "protected share-dr", "protected guest-dr"}));
  RunWell({"reprotect", "g"});
  // Without --force, and once something was sent, the replicas take over.
  EXPECT_EQ(
      RunWell({"failover", "g", "--dry-run", "--json"}).Json()["takeover"][1]["is_going_back"],
      false);
  RunWell({"sync", "g"});
  RunUnasked({"failover", "g", "--force"}, {"give up"}, {"target \"lun\": \"lun\" takes over"});
}

TEST_P(PlanLifeTest, AFailoverAsksBeforeAnythingIsLost) {
  MakeProtected();
  const std::string gsnap = TakeSnapshot();
  RunWell({"snapshot", "ship", gsnap});
  RunWell({"sync", "g"});
  for (const Words& more : {Words{}, {"--snapshot", gsnap}, {"--force"}, {"--mixed"}}) {
    Words words{"failover", "g"};
    words.insert(words.end(), more.begin(), more.end());
    RunUnasked(words, {"fail group \"g\" over and give up what was written"},
               {"target \"lun\": \"lun-dr\" takes over", "everything written since 20"});
    EXPECT_EQ(States(), AllProtected());
  }
  // Those that are done already lose nothing more.
  ASSERT_TRUE(RunKilledAt("failover.turned", {"failover", "g", "--yes"}));
  const Json::Value losses = Run({"failover", "g", "--json"}).Json()["error"]["losses"];
  ASSERT_GE(losses.size(), 2U);
  EXPECT_THAT(losses[0].asString(), HasSubstr("target \"share\""));
  EXPECT_THAT(losses[1].asString(), HasSubstr("target \"guest\""));
}

TEST_P(PlanLifeTest, AnEndOfProtectionAsksAndSaysWhatTheOtherCopyMayHave) {
  MakeProtected();
  RunUnasked({"unprotect", "g"}, {"end the replication of group \"g\""},
             {"target \"lun\": \"lun\" works on, and plan ",
              "replicates it no more; target \"lun-dr\" on volume \"v2\" becomes an ordinary"});
  const std::string plan =
      RunWell({"status", "g", "--json"}).Json()["targets"][1]["plan_id"].asString();
  RunUnasked({"plan", "delete", plan}, {plan}, {"\"share-dr\" on volume \"v2\" becomes"});
  RunWell({"failover", "g", "--yes"});
  RunUnasked(
      {"unprotect", "g"}, {"\"g\""},
      {"target \"lun\" on volume \"v1\", which may hold what was written before the failover "
       "and never sent, becomes"});
  RunWell({"reprotect", "g"});
  RunUnasked({"unprotect", "g", "--delete-data", "--force"}, {"remove target \"lun\""},
             {"which may hold what was written before the reprotection and never sent, goes"});
  EXPECT_EQ(States(), AllTurned());
  RunWell({"unprotect", "g", "--yes"});
  EXPECT_EQ(States(), AllUnprotected());
}

TEST_P(PlanLifeTest, TheDrCopiesMoveToAnotherVolume) {
  WriteConfiguration({"v1", "v2", "v3"});
  std::filesystem::create_directory(VolumePath("v3"));
  MakeProtected();
  ChangeMain();
  RunBadly(kRefused, {"edit", "g", "--volume", "v3"}, {"DR copies of 3 targets", "--yes"});
  EXPECT_EQ(States(), AllProtected());
  const Json::Value targets =
      RunWell({"edit", "g", "--volume", "v3", "--yes", "--json"}).Json()["targets"];
  ASSERT_EQ(targets.size(), 3U);
  for (const Json::Value& each : targets) {
    EXPECT_EQ(each["dr_volume"], "v3");
    EXPECT_EQ(each["old_dr_target_id"], each["target_id"].asString() + "-dr");
    EXPECT_EQ(each["result"], "done");
  }
  EXPECT_EQ(States(), AllProtected());
  EXPECT_EQ(TargetPaths().count("lun-dr"), 0U);
  const auto before = MainContents();
  RunWell({"switchover", "g"});
  TargetContents there;
  for (const Json::Value& each : targets) {
    const std::string id = each["target_id"].asString();
    there[id] = ReadContents({{id, TargetPaths().at(each["dr_target_id"].asString())}}).at(id);
  }
  EXPECT_EQ(there, before);
  RunWell({"switchover", "g"});
  RunWell({"unprotect", "g", "--delete-data", "--yes"});
  EXPECT_EQ(TargetPaths().size(), 3U);
  EXPECT_EQ(MainContents(), before);
}

}  // namespace
}  // namespace e2e
