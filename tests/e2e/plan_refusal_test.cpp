#include <sys/mount.h>

#include "plan_fixture.h"

// Actions that are refused, or cannot go on: one line with the evidence, and nothing is lost.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using host_test::WriteFile;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using Words = std::vector<std::string>;

class PlanRefusalTest : public PlanTest {
 protected:
  // Expects a refusal that is one line with all `parts`, and that nothing has changed.
  void ExpectRefused(Code code, const Words& words, const std::vector<std::string>& parts) {
    const auto states = States();
    const auto before = MainContents();
    const Result result = Run(words);
    const std::string about = testing::PrintToString(words) + "\n" + result.err;
    EXPECT_EQ(result.code, code) << about;
    EXPECT_EQ(result.err.rfind("drgroupctl: ", 0), 0U) << about;
    EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << "not one line: " << about;
    for (const std::string& part : parts) EXPECT_THAT(result.err, HasSubstr(part)) << about;
    EXPECT_EQ(States(), states) << about;
    EXPECT_EQ(MainContents(), before) << about;
  }
  std::string ParamsFile(const std::string& text) const {
    WriteFile(Root() + "/params.json", text);
    return Root() + "/params.json";
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, PlanRefusalTest, testing::Values("directory", "btrfs"),
                         FileSystemsTest::NameOf);

TEST_P(PlanRefusalTest, ARestoreBeginsNothingWhenOneOfTheTargetsDoesNotWork) {
  MakeProtected();
  const std::string id = TakeSnapshot();
  RunWell({"plan", "promote", "share", "--yes"});
  RunBadly(kRefused, {"snapshot", "restore", id, "--yes"},
           {"target \"share\"", "does not work", "nothing was begun"});
}

TEST_P(PlanRefusalTest, AnEditTakesOnlyAPlanThatIsOneOfItsTargets) {
  MakeProtected();
  const auto run = [this](const std::string& target, const std::string& plan) {
    const std::string params = Root() + "/params.json";
    WriteFile(params, R"({"target_plan_map":{")" + target + R"(":")" + plan + R"("}})");
    return std::vector<std::string>{"action", "run", "edit", "g", "--params", params, "--yes"};
  };
  const Json::Value rows = RunWell({"status", "g", "--json"}).Json()["targets"];
  const std::string own = rows[0]["plan_id"].asString();
  const std::string other = rows[1]["plan_id"].asString();
  const std::string target = rows[0]["target_id"].asString();
  RunBadly(kUsage, run(target, own), {own, "the only one of target"});
  RunBadly(kUsage, run(target, other), {other, "none of target"});
  RunBadly(kUsage, run("nobody", own), {"\"nobody\"", "does not have"});
  EXPECT_EQ(RunWell({"plan", "list", "--json"}).Json()["plans"].size(), 3U);
}

TEST_P(PlanRefusalTest, AGroupWithoutPlansIsToldToBeProtectedFirst) {
  MakeGroup();
  for (const char* verb : {"sync", "stop", "switchover", "reprotect"}) {
    ExpectRefused(kNotFound, {verb, "g"},
                  {"\"g\" is refused, nothing was done", "\"lun\" has no plan", "protect",
                   "2 other targets"});
  }
  ExpectRefused(kNotFound, {"failover", "g"}, {"\"lun\" has no plan"});
  ExpectRefused(kNotFound, {"failover", "g", "--force", "--yes"}, {"\"lun\" has no plan"});
  ExpectRefused(kNotFound, {"unprotect", "g"}, {"\"g\" is not protected"});
  ExpectRefused(kNotFound, {"edit", "g", "--volume", "v2", "--yes"}, {"\"lun\" has no plan"});
  ExpectRefused(kNotFound, {"snapshot", "sync", "g"}, {"\"lun\" has no plan"});
  ExpectRefused(kNotFound, {"snapshot", "ship", TakeSnapshot()}, {"\"lun\" has no plan"});
}

TEST_P(PlanRefusalTest, AGroupHalfOfWhichIsProtectedIsRefusedWithBothHalves) {
  MakeGroup();
  RunWell({"group", "create", "half", "--target", "lun", "guest"});
  RunWell({"protect", "half", "--volume", "v2"});
  ExpectRefused(kRefused, {"protect", "g", "--volume", "v2"},
                {"\"lun\", \"guest\" has a plan already", "\"share\" has none", "--missing"});
  ExpectRefused(kNotFound, {"sync", "g"}, {"nothing was done", "\"share\" has no plan"});
  RunWell({"protect", "g", "--volume", "v2", "--missing", "--dr-group", "gd"});
  EXPECT_EQ(States(), AllProtected());
  ExpectRefused(kRefused, {"protect", "g", "--volume", "v2"}, {"\"g\" is protected already"});
  RunWell({"sync", "g"});
}

TEST_P(PlanRefusalTest, ATargetWithTwoPlansIsRefusedByBoth) {
  MakeProtected();
  const Json::Value plan = RunWell({"plan", "list", "--json"}).Json()["plans"][0];
  const std::string node =
      RunWell({"plan", "show", plan["plan_id"].asString(), "--json"}).Json()["dr_site"].asString();
  RunWell({"group", "create", "one", "--target", "lun"});
  const std::string params = ParamsFile(R"({"dst_vol": "v2", "dr_node_id": ")" + node + "\"}");
  const Json::Value filled =
      RunWell({"action", "run", "edit_prepare", "one", "--params", params, "--json"})
          .Json()["params"];
  EXPECT_EQ(filled["target_plan_map"]["lun"], plan["plan_id"]);
  for (const char* verb : {"sync", "switchover", "failover", "reprotect", "unprotect"}) {
    const Result result = Run({verb, "g"});
    EXPECT_EQ(result.code, kRefused) << result.err;
    EXPECT_THAT(result.err,
                AllOf(HasSubstr("\"lun\" has 2 plans"), HasSubstr(plan["plan_id"].asString())));
  }
  // The one that was made last goes again.
  std::string made;
  const Json::Value document = RunWell({"plan", "list", "--json"}).Json();
  for (const Json::Value& each : document["plans"]) {
    if (each["dr_target_id"] == "lun-dr2") made = each["plan_id"].asString();
  }
  RunUnasked({"plan", "delete", made, "--delete-data"}, {made},
             {"\"lun-dr2\" on volume \"v2\" goes"});
  RunWell({"plan", "delete", made, "--delete-data", "--yes"});
  EXPECT_EQ(States(), AllProtected());
  EXPECT_EQ(TargetPaths().count("lun-dr2"), 0U);
  RunWell({"sync", "g"});
}

TEST_P(PlanRefusalTest, ParametersAndTasksThatAreNoneAreToldWithThoseThatAre) {
  MakeProtected();
  const auto run = [&](const std::string& task, const std::string& text) {
    return Words{"action", "run", task, "g", "--params", ParamsFile(text)};
  };
  ExpectRefused(kUsage, {"action", "run", "synch", "g"},
                {"\"synch\"", "create_partial", "tmp_del", "can_reprotect"});
  ExpectRefused(
      kUsage, run("delete", R"({"is_site_gone": true})"),
      {"params.json", "\"is_site_gone\"", "is_site_del, is_data_deleted, is_drsite_deleted"});
  ExpectRefused(kUsage, run("tmp_sync", R"({"is_encrypted": true})"),
                {"\"is_encrypted\"", "it takes none"});
  ExpectRefused(kUsage, run("sync", R"({"is_encrypted": "yes"})"),
                {"\"is_encrypted\"", "true or false"});
  ExpectRefused(kUsage, run("sync", "{\n  \"is_encrypted\": yes\n}"),
                {"params.json", "it is not JSON", "Line 2, Column"});
  ExpectRefused(kUsage, run("sync", ""), {"it is not JSON"});
  ExpectRefused(kUsage, run("sync", "[1, 2]"), {"it is not a JSON object"});
  ExpectRefused(kUsage, run("sync", std::string(100000, '[')), {"params.json"});
  ExpectRefused(kNotFound, {"action", "run", "sync", "g", "--params", Root() + "/none.json"},
                {"none.json", "no such file"});
  ExpectRefused(kUsage, {"action", "run", "failover", "g"}, {"\"gsnap_id\""});
  ExpectRefused(kNotFound, run("failover", R"({"gsnap_id": "g-gsnap-5"})"), {"\"g-gsnap-5\""});
  ExpectRefused(kRefused, {"action", "run", "tmp_del", "g"},
                {"target \"lun-dr\" on volume \"v2\" (the DR side) with 1 snapshot", "--yes"});
  RunWell(run("sync", R"({"is_encrypted": true})"));
}

TEST_P(PlanRefusalTest, AFailoverToASnapshotThatTheDrSideHasNotIsRefusedWithThoseThatItHas) {
  MakeProtected();
  const std::string gsnap = TakeSnapshot();
  const Json::Value row = RunWell({"status", "g", "--json"}).Json()["targets"][0];
  const Words words{"failover", "g", "--snapshot", gsnap};
  const std::string snapId = fs::path(SnapshotPaths(gsnap).at("share")).filename();
  RunBadly(kNotFound, {"failover", "g", "--snapshot", "g-gsnap-5"}, {"\"g-gsnap-5\""});
  for (const Words& more : {Words{}, Words{"--dry-run"}, Words{"--force", "--yes"}}) {
    Words all = words;
    all.insert(all.end(), more.begin(), more.end());
    ExpectRefused(
        kNotFound, all,
        {"nothing was done", "\"lun-dr\"", "has no snapshot", row["last_snap_id"].asString()});
  }
  const Result result = Run({"failover", "g", "--snapshot", gsnap, "--dry-run", "--json"});
  const Json::Value checks = result.Json()["error"]["checks"];
  ASSERT_EQ(checks.size(), 6U);
  EXPECT_THAT(checks[0].getMemberNames(), ElementsAre("check", "evidence", "passed", "target_id"));
  EXPECT_EQ(checks[2]["check"], "can_failover");
  EXPECT_EQ(checks[2]["passed"], true);
  EXPECT_EQ(checks[3]["check"], "failover");
  EXPECT_EQ(checks[3]["passed"], false);
  EXPECT_THAT(checks[3]["evidence"].asString(), HasSubstr(snapId));
}

TEST_P(PlanRefusalTest, AnActionThatTheStateDoesNotAllowIsRefused) {
  MakeProtected();
  ExpectRefused(kRefused, {"reprotect", "g"}, {"nothing was done", "\"lun\""});
  RunWell({"failover", "g", "--yes"});
  for (const char* verb : {"sync", "switchover"}) {
    const Result result = Run({verb, "g"});
    EXPECT_EQ(result.code, kRefused) << result.err;
    EXPECT_THAT(result.err, AllOf(HasSubstr("nothing was done"), HasSubstr("failed over")));
  }
  EXPECT_EQ(Run({"failover", "g", "--yes"}).code, kRefused);
  EXPECT_EQ(Run({"unprotect", "g", "--delete-data", "--yes"}).code, kRefused);
  EXPECT_EQ(States(), AllFailedOver());
  // A replica takes no snapshot of its own, and a target of a plan is not removed under it.
  EXPECT_NE(Run({"target", "remove", "lun-dr", "--with-snapshots", "--yes"}).code, kDone);
  EXPECT_NE(Run({"target", "remove", "lun", "--with-snapshots", "--yes"}).code, kDone);
}

TEST_P(PlanRefusalTest, WithDryRunNothingIsDone) {
  MakeProtected();
  const auto before = Tree(VolumePath("v2"));
  for (const Words& words : {Words{"sync", "g"},
                             {"switchover", "g"},
                             {"failover", "g"},
                             {"failover", "g", "--force"},
                             {"unprotect", "g", "--delete-data"}}) {
    Words all = words;
    all.insert(all.end(), {"--dry-run", "--json"});
    const Json::Value document = RunWell(all).Json();
    EXPECT_GE(document["checks"].size(), 3U);
    for (const Json::Value& each : document["checks"]) EXPECT_EQ(each["passed"], true) << each;
  }
  EXPECT_EQ(States(), AllProtected());
  EXPECT_EQ(Tree(VolumePath("v2")), before);
  const Result table = RunWell({"switchover", "g", "--dry-run"});
  EXPECT_THAT(table.out, AllOf(HasSubstr("TARGET  CHECK           PASSED  EVIDENCE\n"),
                               HasSubstr("\nlun     can_switchover  yes     -\n")));
}

TEST_P(PlanRefusalTest, ARemotePlanEndsWithTheHostsReason) {
  MakeGroup();
  ExpectRefused(kRefused,
                {"protect", "g", "--volume", "v2", "--node", "other", "--dst-ip", "192.0.2.1",
                 "--src-ip", "192.0.2.2", "--src-cred", "a", "--dst-cred", "b"},
                {"nothing was done", "\"other\"", "do not span nodes"});
  ExpectRefused(kNotFound, {"protect", "g", "--volume", "v9"}, {"\"v9\""});
  ExpectRefused(kUsage, {"protect", "g"}, {"--volume is missing"});
  EXPECT_EQ(TargetPaths().size(), 3U);
}

TEST_P(PlanRefusalTest, ADrGroupThatCannotBeMadeLeavesNoPlans) {
  MakeGroup();
  ExpectRefused(kRefused, {"protect", "g", "--volume", "v2", "--dr-group", "g"},
                {"\"g\" exists already"});
  WriteFile(Root() + "/state/groups/gd", "in the way");
  ExpectRefused(kStorage, {"protect", "g", "--volume", "v2", "--dr-group", "gd"},
                {"\"g\" was not protected", "groups/gd"});
  EXPECT_EQ(States(), AllUnprotected());
  EXPECT_EQ(TargetPaths().size(), 3U);
  fs::remove(Root() + "/state/groups/gd");
  RunWell({"protect", "g", "--volume", "v2", "--dr-group", "gd"});
}

TEST_P(PlanRefusalTest, PlansAreListedShownAndOffered) {
  MakeProtected();
  const Json::Value plans = RunWell({"plan", "list", "--json"}).Json()["plans"];
  ASSERT_EQ(plans.size(), 3U);
  EXPECT_THAT(plans[0].getMemberNames(),
              ElementsAre("direction", "dr_target_id", "dr_volume", "plan_id", "state", "target_id",
                          "working_target_id"));
  EXPECT_EQ(plans[0]["direction"], "main to DR");
  const std::string id = plans[1]["plan_id"].asString();
  const Json::Value shown = RunWell({"plan", "show", id, "--json"}).Json();
  EXPECT_EQ(shown["sync_state"], "done");
  EXPECT_EQ(shown["snapshots"].size(), 2U);
  for (const Json::Value& each : shown["snapshots"]) EXPECT_EQ(each["is_held"], true);
  RunBadly(kNotFound, {"plan", "show", "none"}, {"\"none\"", "plan list"});
  RunBadly(kUsage, {"plan", "show", "a/b"}, {"\"a/b\""});
  const Json::Value status = RunWell({"status", "--json"}).Json()["targets"];
  ASSERT_EQ(status.size(), 6U);
  EXPECT_EQ(status[0]["group_id"], "g");
  EXPECT_EQ(status[3]["target_id"], "lun-dr");
}

TEST_P(PlanRefusalTest, OneTargetCanBePromotedOrItsLastSnapshotDropped) {
  MakeProtected();
  ChangeMain();
  RunWell({"sync", "g"});
  RunBadly(kRefused, {"plan", "drop-arrived", "lun"}, {"drop snapshot", "\"lun-dr\"", "--yes"});
  RunBadly(kUsage, {"plan", "rollback", "lun", "--yes"}, {"\"plan drop-arrived\""});
  const Json::Value rolled = RunWell({"plan", "drop-arrived", "lun", "--yes", "--json"}).Json();
  EXPECT_NE(rolled["last_snap_id"], rolled["dropped_snap_id"]);
  EXPECT_NE(rolled["last_snap_id"], "");
  RunWell({"sync", "g"});
  RunUnasked({"plan", "promote", "share"}, {"\"share-dr\" take over"},
             {"everything written since"});
  RunWell({"plan", "promote", "share", "--yes"});
  EXPECT_EQ(States()[1], "failed over share-dr");
  EXPECT_EQ(CopyContents().at("share"), MainContents().at("share"));
}

// A DR volume that is small and in memory.
class FullDrVolumeTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    ASSERT_EQ(mount("tmpfs", VolumePath("v2").c_str(), "tmpfs", 0, "size=2m"), 0);
  }
  void TearDown() override {
    umount2(VolumePath("v2").c_str(), MNT_DETACH);
    ToolTest::TearDown();
  }
};

TEST_F(FullDrVolumeTest, ADrVolumeThatIsFullInTheMiddleOfASyncLosesNothing) {
  MakeGroup();
  RunWell({"protect", "g", "--volume", "v2"});
  RunWell({"sync", "g"});
  const auto before = ReadContents(TargetPaths());
  std::string bytes(3 << 20, 'x');
  for (std::size_t i = 0; i < bytes.size(); i += 16) bytes[i] = static_cast<char>(i >> 4);
  WriteFile(TargetPaths().at("share") + "/big", bytes);
  const auto wanted = ReadContents({{"share", TargetPaths().at("share")}});
  const Result result = Run({"sync", "g", "--json"});
  EXPECT_EQ(result.code, kStorage) << result.err;
  EXPECT_THAT(result.err, AllOf(HasSubstr("\"share"), HasSubstr("\"v2\""), HasSubstr("space")));
  const Json::Value targets = result.Json()["error"]["targets"];
  EXPECT_EQ(targets[0]["result"], "done");
  EXPECT_EQ(targets[1]["result"], "failed");
  EXPECT_EQ(targets[2]["result"], "not started");

  ASSERT_EQ(mount(nullptr, VolumePath("v2").c_str(), nullptr, MS_REMOUNT, "size=32m"), 0);
  RunWell({"sync", "g"});
  RunWell({"failover", "g", "--yes"});
  EXPECT_EQ(ReadContents({{"share", TargetPaths().at("share-dr")}}), wanted);
  EXPECT_EQ(ReadContents(TargetPaths()).at("lun"), before.at("lun"));
}

}  // namespace
}  // namespace e2e
