#include "plan_fixture.h"

// Every action of the library by its name.

namespace e2e {
namespace {

using testing::HasSubstr;
using Words = std::vector<std::string>;

class PlanActionTest : public PlanTest {
 protected:
  std::string ParamsFile(const Json::Value& params) const {
    Json::StreamWriterBuilder builder;
    host_test::WriteFile(Root() + "/params.json", Json::writeString(builder, params));
    return Root() + "/params.json";
  }
  // Runs the task and gives its report.
  Json::Value RunTask(const std::string& task,
                      const Json::Value& params = Json::Value(Json::objectValue)) {
    return RunWell({"action", "run", task, "g", "--params", ParamsFile(params), "--yes", "--json"})
        .Json();
  }
  // Expects that it is not run without being told to.
  void RunUntold(const std::string& task, const Json::Value& params, const Words& parts) const {
    const auto before = States();
    RunBadly(kRefused, {"action", "run", task, "g", "--params", ParamsFile(params)}, parts);
    EXPECT_EQ(States(), before);
  }
  static Json::Value CreationParams() {
    Json::Value params;
    params["dst_vol"] = "v2";
    params["dr_node_id"] = NodeId();
    return params;
  }
  // This node, as a plan tells it that is made for that.
  static std::string NodeId() {
    RunWell({"target", "create", "probe", "--volume", "v1", "--type", "share"});
    RunWell({"group", "create", "probe", "--target", "probe"});
    const Json::Value made = RunWell({"protect", "probe", "--volume", "v2", "--json"}).Json();
    const Json::Value plan =
        RunWell({"plan", "show", made["targets"][0]["plan_id"].asString(), "--json"}).Json();
    RunWell({"unprotect", "probe", "--delete-data", "--yes"});
    RunWell({"group", "delete", "probe", "--yes"});
    RunWell({"target", "remove", "probe", "--yes"});
    return plan["main_site"].asString();
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, PlanActionTest, testing::Values("directory", "btrfs"),
                         FileSystemsTest::NameOf);

TEST_P(PlanActionTest, EveryActionRunsByItsName) {
  MakeGroup();
  const Json::Value creation = CreationParams();
  for (const char* task : {"create", "create_partial", "tmp_create"}) {
    const Json::Value report = RunTask(task, creation);
    EXPECT_EQ(report["task"], task);
    for (const Json::Value& each : report["targets"]) EXPECT_EQ(each["result"], "done");
    EXPECT_EQ(States(), AllProtected());
    const Json::Value again = RunTask(task, creation);
    for (const Json::Value& each : again["targets"]) {
      EXPECT_EQ(each["result"], "nothing to do");
    }
    RunTask("tmp_del");
    EXPECT_EQ(States(), AllUnprotected());
    EXPECT_EQ(TargetPaths().size(), 3U);
  }
  RunTask("create", creation);
  for (const char* task : {"sync", "tmp_sync", "stop", "tmp_sync_stop", "can_sync", "can_delete",
                           "can_switchover", "can_failover"}) {
    RunTask(task);
  }
  EXPECT_EQ(LastArrivedContents(), MainContents());
  RunTask("switchover");
  EXPECT_EQ(States(), AllTurned());
  ChangeCopies();
  RunTask("tmp_switchover");
  EXPECT_EQ(States(), AllProtected());
  const auto wanted = MainContents();
  RunTask("sync");

  Json::Value failover;
  failover["gsnap_id"] = TakeSnapshot();
  RunWell({"snapshot", "ship", failover["gsnap_id"].asString()});
  RunTask("sync");
  ChangeMain();
  RunUntold("failover", failover, {"written since", "--yes"});
  RunTask("failover", failover);
  EXPECT_EQ(States(), AllFailedOver());
  EXPECT_EQ(CopyContents(), wanted);
  Json::Value side;
  side["is_mainsite"] = false;
  RunTask("can_reprotect", side);
  RunTask("reprotect", side);
  EXPECT_EQ(States(), AllTurned());
  RunTask("switchover");
  EXPECT_EQ(MainContents(), wanted);
  failover["is_forced"] = true;
  RunUntold("failover", failover, {"written since", "--yes"});
  RunTask("failover", failover);
  RunTask("reprotect", side);
  RunTask("switchover");
  EXPECT_EQ(MainContents(), wanted);
  RunUntold("delete", Json::Value(Json::objectValue), {"end the replication", "--yes"});
  RunTask("delete");
  EXPECT_EQ(States(), AllUnprotected());
  EXPECT_EQ(CopyContents(), wanted);
}

TEST_P(PlanActionTest, TheTwoActionsOfAnEditHandOnWhatTheFirstHasFilled) {
  MakeProtected();
  const std::string filled = Root() + "/filled.json";
  RunWell({"action", "run", "edit_prepare", "g", "--params", ParamsFile(CreationParams()),
           "--params-out", filled});
  EXPECT_EQ(RunWell({"plan", "list", "--json"}).Json()["plans"].size(), 6U);
  Result file;
  file.out = host_test::ReadFile(filled);
  Json::Value edit;
  edit["target_plan_map"] = file.Json()["target_plan_map"];
  EXPECT_EQ(edit["target_plan_map"].size(), 3U);
  const Result asked = Run({"action", "run", "edit", "g", "--params", ParamsFile(edit)});
  EXPECT_EQ(asked.code, kRefused);
  EXPECT_THAT(asked.err, HasSubstr("--yes"));
  RunTask("edit", edit);
  const Json::Value plans = RunWell({"plan", "list", "--json"}).Json()["plans"];
  ASSERT_EQ(plans.size(), 3U);
  EXPECT_EQ(plans[0]["dr_target_id"], "lun-dr2");
  RunWell({"sync", "g"});
}

TEST_P(PlanActionTest, ParametersThatAreNoFileAreToldForWhatTheyAre) {
  MakeGroup();
  const Words words{"action", "run", "sync", "g", "--params"};
  const auto with = [&words](const std::string& path) {
    Words all = words;
    all.push_back(path);
    return all;
  };
  RunBadly(kUsage, with(Root()), {Root(), "it is a directory", "name a file"});
  RunBadly(kUsage, with("/dev/null"), {"/dev/null", "no regular file", "name a file"});
  RunBadly(kNotFound, with(Root() + "/none"), {Root() + "/none", "there is no such file"});
}

}  // namespace
}  // namespace e2e
