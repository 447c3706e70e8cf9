#include <filesystem>

#include "plan_fixture.h"

// Targets that come into a group, and leave it.

namespace e2e {
namespace {

using host_test::ReadFile;
using host_test::WriteFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class GroupMemberTest : public PlanTest {
 protected:
  void MakeExtra() const {
    RunWell({"target", "create", "extra", "--volume", "v1", "--type", "share"});
    WriteFile(TargetPaths().at("extra") + "/file", "of extra");
  }
  static std::vector<std::string> Members(const std::string& group) {
    std::vector<std::string> members;
    const Json::Value shown = RunWell({"group", "show", group, "--json"}).Json();
    for (const Json::Value& each : shown["targets"])
      members.push_back(each["target_id"].asString());
    return members;
  }
  static std::vector<std::string> Statuses(const std::string& group) {
    std::vector<std::string> statuses;
    const Json::Value listed = RunWell({"snapshot", "list", group, "--json"}).Json();
    for (const Json::Value& each : listed["snapshots"]) {
      statuses.push_back(each["status"].asString());
    }
    return statuses;
  }
  static std::size_t CountPlans() {
    const Json::Value listed = RunWell({"plan", "list", "--json"}).Json();
    return listed["plans"].size();
  }
};

INSTANTIATE_TEST_SUITE_P(Volumes, GroupMemberTest, testing::Values("directory"),
                         GroupMemberTest::NameOf);

TEST_P(GroupMemberTest, EarlierGroupSnapshotsAreNotIncompleteWithoutWhatWasAdded) {
  MakeGroup();
  const std::string before = TakeSnapshot();
  MakeExtra();
  const Json::Value report = RunWell({"group", "add", "g", "extra", "--json"}).Json();
  EXPECT_EQ(report["target_count"], 4);
  EXPECT_EQ(report["targets"][0]["target_id"], "extra");
  const std::string after = TakeSnapshot();
  EXPECT_THAT(Members("g"), ElementsAre("lun", "share", "guest", "extra"));
  EXPECT_THAT(Statuses("g"), ElementsAre("ready", "ready"));
  EXPECT_EQ(SnapshotPaths(after).size(), 4U);
  EXPECT_THAT(RunWell({"snapshot", "show", before, "--json"}).Json()["missing_targets"], IsEmpty());
  EXPECT_THAT(RunWell({"snapshot", "repair", "g", "--dry-run", "--json"}).Json()["incomplete"],
              IsEmpty());

  WriteFile(TargetPaths().at("lun"), "changed");
  WriteFile(TargetPaths().at("extra") + "/file", "changed");
  const Result restored = RunWell({"snapshot", "restore", before, "--no-undo", "--yes"});
  EXPECT_THAT(restored.err, HasSubstr("\"extra\" came into the group after"));
  EXPECT_EQ(ReadFile(TargetPaths().at("lun")), std::string(100000, 'L'));
  EXPECT_EQ(ReadFile(TargetPaths().at("extra") + "/file"), "changed");

  // What should have a part of it and has not is incomplete as ever.
  RunSql(DatabaseOf("g"),
         "DELETE FROM target_snap_list WHERE gsnap_id = '" + after + "' AND target_id = 'extra'");
  EXPECT_THAT(Statuses("g"), ElementsAre("ready", "incomplete"));
  RunBadly(kRefused, {"snapshot", "restore", after, "--yes"}, {"incomplete", "\"extra\""});
  RunWell({"group", "rename", "g", "h"});
  EXPECT_THAT(Statuses("h"), ElementsAre("ready", "incomplete"));
}

TEST_P(GroupMemberTest, WhatIsThereAlreadyIsAddedOnceAndBadInputChangesNothing) {
  MakeGroup();
  MakeExtra();
  RunWell({"group", "add", "g", "extra"});
  const std::string definition = ReadFile(GroupDirectory("g") + "/group.json");
  EXPECT_EQ(RunWell({"group", "add", "g", "extra", "--json"}).Json()["target_count"], 4);
  RunBadly(kNotFound, {"group", "add", "g", "nobody"}, {"\"nobody\""});
  RunBadly(kNotFound, {"group", "add", "nothing", "extra"}, {"\"nothing\""});
  RunBadly(kUsage, {"group", "add", "g", "extra", "extra"}, {"\"extra\"", "named twice"});
  RunBadly(kRefused, {"group", "add", "g", "extra", "--volume", "v2"}, {"not protected"});
  RunBadly(kNotFound, {"group", "remove", "g", "nobody"}, {"\"g\"", "\"nobody\""});
  EXPECT_EQ(ReadFile(GroupDirectory("g") + "/group.json"), definition);
  WriteFile(GroupDirectory("g") + "/group.json",
            R"({"group_id":"g","targets":[{"target_id":"lun","target_type":1,"since":"now"}]})"
            "\n");
  RunBadly(kCatalogue, {"group", "add", "g", "extra"}, {"\"since\""});
}

TEST_P(GroupMemberTest, WhatComesIntoAProtectedGroupIsProtectedAndItsCopyIsWithTheCopies) {
  MakeProtected();
  RunWell({"sync", "g", "--dr-group", "gd"});
  MakeExtra();
  RunBadly(kUsage, {"group", "add", "g", "extra"}, {"is protected", "--volume"});
  EXPECT_THAT(Members("g"), ElementsAre("lun", "share", "guest"));
  const Json::Value report =
      RunWell({"group", "add", "g", "extra", "--volume", "v2", "--json"}).Json();
  EXPECT_EQ(report["targets"][0]["dr_target_id"], "extra-dr");
  EXPECT_THAT(Members("gd"), ElementsAre("lun-dr", "share-dr", "guest-dr", "extra-dr"));
  const std::string before = ListSnapshots("gd").back();

  ChangeMain();
  RunWell({"sync", "g", "--dr-group", "gd"});
  EXPECT_EQ(ReadFile(SnapshotPaths(ListSnapshots("gd").back()).at("extra-dr") + "/file"),
            "of extra");
  EXPECT_THAT(Statuses("gd"), ElementsAre("ready", "ready"));
  EXPECT_THAT(Statuses("g"), ElementsAre("ready", "ready"));
  ExpectSameSnapshots();
  RunBadly(kRefused, {"failover", "g", "--snapshot", before, "--yes"},
           {"incomplete", "\"extra-dr\""});
  RunWell({"switchover", "g"});
  RunWell({"target", "create", "late", "--volume", "v1", "--type", "lun", "--size", "1M"});
  RunBadly(kRefused, {"group", "add", "g", "late", "--volume", "v2"}, {"main side"});
  RunBadly(kRefused, {"group", "add", "gd", "late", "--volume", "v2"}, {"DR copy"});
}

TEST_P(GroupMemberTest, AnInterruptedAdditionIsFinishedByTheSameCommand) {
  MakeProtected();
  for (const std::string step : {"add.defined", "add.protected"}) {
    const std::string name = step.substr(4);
    RunWell({"target", "create", name, "--volume", "v1", "--type", "share"});
    ASSERT_TRUE(RunKilledAt(step, {"group", "add", "g", name, "--volume", "v2"})) << step;
    RunWell({"group", "add", "g", name, "--volume", "v2"});
    EXPECT_EQ(Members("g").back(), name);
    EXPECT_EQ(Members("gd").back(), name + "-dr");
  }
  EXPECT_EQ(CountPlans(), 5U);
  RunWell({"sync", "g", "--dr-group", "gd"});
}

TEST_P(GroupMemberTest, AFailedAdditionLeavesTheGroupAsItWas) {
  MakeProtected();
  MakeExtra();
  const std::string definition = ReadFile(GroupDirectory("g") + "/group.json");
  EXPECT_NE(RunFailingAt("create@extra-dr", {"group", "add", "g", "extra", "--volume", "v2"}).code,
            kDone);
  EXPECT_EQ(ReadFile(GroupDirectory("g") + "/group.json"), definition);
  EXPECT_EQ(CountPlans(), 3U);
  EXPECT_THAT(Members("gd"), ElementsAre("lun-dr", "share-dr", "guest-dr"));
  RunWell({"group", "add", "g", "extra", "--volume", "v2"});
}

TEST_P(GroupMemberTest, WhatHasLeftStaysAsItIsWhenAnEarlierGroupSnapshotIsRestored) {
  MakeGroup();
  const std::string before = TakeSnapshot();
  EXPECT_EQ(RunWell({"group", "remove", "g", "lun", "--json"}).Json()["target_count"], 2);
  const std::string after = TakeSnapshot();
  EXPECT_EQ(SnapshotPaths(after).size(), 2U);
  EXPECT_THAT(Statuses("g"), ElementsAre("ready", "ready"));
  WriteFile(TargetPaths().at("lun"), "changed");
  WriteFile(TargetPaths().at("share") + "/one", "changed");
  EXPECT_THAT(RunWell({"snapshot", "restore", before, "--yes"}).err,
              HasSubstr("\"lun\" of group snapshot"));
  EXPECT_EQ(ReadFile(TargetPaths().at("lun")), "changed");
  EXPECT_EQ(ReadFile(TargetPaths().at("share") + "/one"), "first text");
  RunWell({"group", "remove", "g", "share"});
  RunBadly(kRefused, {"group", "remove", "g", "guest"}, {"the last one", "group delete"});
  RunWell({"group", "add", "g", "lun"});
  EXPECT_THAT(Members("g"), ElementsAre("guest", "lun"));
}

TEST_P(GroupMemberTest, WhatLeavesAProtectedGroupKeepsItsPlanOrLosesItAsIsSaid) {
  MakeProtected();
  RunBadly(kRefused, {"group", "remove", "g", "share"}, {"--keep-plan", "--delete-plan"});
  RunBadly(kUsage, {"group", "remove", "g", "share", "--keep-plan", "--delete-plan"},
           {"give one of them"});
  RunUnasked({"group", "remove", "g", "guest", "--delete-plan"}, {"--yes"}, {"\"guest-dr\""});
  EXPECT_THAT(Members("gd"), ElementsAre("lun-dr", "share-dr", "guest-dr"));
  RunWell({"group", "remove", "g", "share", "--keep-plan"});
  EXPECT_EQ(CountPlans(), 3U);
  EXPECT_THAT(Members("g"), ElementsAre("lun", "guest"));
  EXPECT_THAT(Members("gd"), ElementsAre("lun-dr", "guest-dr"));
  ChangeMain();
  RunWell({"sync", "g", "--dr-group", "gd"});

  RunWell({"switchover", "g"});
  const Json::Value report =
      RunWell({"group", "remove", "gd", "guest-dr", "--delete-plan", "--yes", "--json"}).Json();
  EXPECT_EQ(report["is_plan_deleted"], true);
  EXPECT_EQ(CountPlans(), 2U);
  EXPECT_THAT(Members("g"), ElementsAre("lun"));
  EXPECT_THAT(Members("gd"), ElementsAre("lun-dr"));
  EXPECT_TRUE(std::filesystem::exists(TargetPaths().at("guest")));
  EXPECT_TRUE(std::filesystem::exists(TargetPaths().at("guest-dr")));
}

TEST_P(GroupMemberTest, AnInterruptedRemovalIsFinishedByTheSameCommand) {
  MakeProtected();
  const std::vector<std::string> lun{"group", "remove", "g", "lun", "--delete-plan", "--yes"};
  ASSERT_TRUE(RunKilledAt("remove.copy_out", lun));
  EXPECT_THAT(Members("g"), ElementsAre("lun", "share", "guest"));
  RunWell(lun);
  const std::vector<std::string> share{"group", "remove", "g", "share", "--delete-plan", "--yes"};
  ASSERT_TRUE(RunKilledAt("remove.plan_gone", share));
  RunWell(share);
  EXPECT_THAT(Members("g"), ElementsAre("guest"));
  EXPECT_THAT(Members("gd"), ElementsAre("guest-dr"));
  EXPECT_EQ(CountPlans(), 1U);
  RunWell({"sync", "g", "--dr-group", "gd"});
}

TEST_P(GroupMemberTest, BothCopiesOfAPlanAreNeverInOneGroup) {
  MakeProtected();
  RunBadly(kRefused, {"group", "add", "g", "lun-dr", "--volume", "v1"}, {"two copies of plan"});
  RunBadly(kRefused, {"group", "create", "q", "--target", "lun", "--target", "lun-dr"},
           {"two copies of plan"});
  RunWell({"target", "create", "own", "--volume", "v1", "--type", "share"});
  RunWell({"group", "create", "q", "--target", "own"});
  RunBadly(kRefused, {"group", "add", "q", "share-dr"}, {"\"share-dr\" is a DR copy"});
  // A copy that the group of the copies has lost comes back to it as it is.
  RunWell({"group", "remove", "gd", "lun-dr", "--keep-plan"});
  EXPECT_THAT(Members("g"), ElementsAre("share", "guest"));
  RunWell({"group", "add", "gd", "lun-dr"});
  RunWell({"group", "add", "g", "lun", "--volume", "v2"});
  EXPECT_EQ(CountPlans(), 3U);
  RunWell({"sync", "g", "--dr-group", "gd"});
}

TEST_P(GroupMemberTest, AnInterruptedChangeIsFinishedBeforeAnother) {
  MakeProtected();
  MakeExtra();
  const std::vector<std::string> remove{"group", "remove", "g", "lun", "--delete-plan", "--yes"};
  for (const char* step : {"add.defined", "add.protected", "add.copied"}) {
    ASSERT_TRUE(RunKilledAt(step, {"group", "add", "g", "extra", "--volume", "v2"})) << step;
    RunBadly(kRefused, remove, {"interrupted", "group add g extra"});
    EXPECT_EQ(RunWell({"group", "show", "g", "--json"}).Json()["unfinished_change"], "add extra");
    RunWell({"group", "add", "g", "extra", "--volume", "v2"});
    RunWell({"group", "remove", "g", "extra", "--delete-plan", "--yes"});
    RunWell({"target", "remove", "extra-dr", "--with-snapshots", "--yes"});
  }
  ASSERT_TRUE(RunKilledAt("add.protected", {"group", "add", "g", "extra", "--volume", "v2"}));
  RunWell({"group", "remove", "g", "extra", "--keep-plan"});
  ASSERT_TRUE(RunKilledAt("remove.begun", remove));
  RunBadly(kRefused, {"group", "remove", "g", "share", "--keep-plan"}, {"group remove g lun"});
  RunWell(remove);
  EXPECT_THAT(Members("gd"), ElementsAre("share-dr", "guest-dr"));
  RunWell({"sync", "g", "--dr-group", "gd"});
}

TEST_P(GroupMemberTest, ARuleSparesWhatThePlanOfAFormerTargetHolds) {
  MakeProtected();
  RunWell({"sync", "g", "--dr-group", "gd"});
  const std::string held = ListSnapshots().back();
  RunWell({"group", "remove", "g", "lun", "--keep-plan"});
  ChangeMain();
  RunWell({"sync", "g", "--dr-group", "gd"});
  RunWell({"sync", "g", "--dr-group", "gd"});
  RunWell({"snapshot", "prune", "g", "--keep", "last=1", "--yes"});
  EXPECT_EQ(ListSnapshots().front(), held);
  EXPECT_EQ(SnapshotPaths(held).size(), 3U);
  EXPECT_THAT(Statuses("g"), testing::Each("ready"));
}

}  // namespace
}  // namespace e2e
