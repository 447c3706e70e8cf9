#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "plan_fixture.h"

// Who is told when something fails.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using host_test::ReadFile;
using host_test::WriteFile;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

class HookTest : public PlanTest {
 protected:
  std::string TracePath() const { return Root() + "/trace"; }
  std::string Trace() const { return fs::exists(TracePath()) ? ReadFile(TracePath()) : ""; }
  // A hook that notes what it is told, and does `more`.
  void SetHook(const std::string& more = "") const {
    const std::string path = Root() + "/the hook";
    WriteFile(path,
              "#!/bin/sh\necho \"$* $DRGROUP_GROUP $DRGROUP_KIND $DRGROUP_RESULT "
              "$DRGROUP_EXIT_CODE $DRGROUP_MESSAGE\" >> " +
                  TracePath() + "\n" + more + "\n");
    ASSERT_EQ(chmod(path.c_str(), 0755), 0);
    RunWell({"group", "hook", "g", "--command", "'" + path + "' own"});
  }
  Result FailSync() {
    LoseVolume("v2");
    Result result = Run({"sync", "g"});
    BringVolumeBack("v2");
    EXPECT_EQ(result.code, kStorage);
    return result;
  }
};

INSTANTIATE_TEST_SUITE_P(Volumes, HookTest, testing::Values("directory"), HookTest::NameOf);

TEST_P(HookTest, ItIsToldOfEachFailureAndOnceOfTheRecovery) {
  MakeGroup();
  RunWell({"protect", "g", "--volume", "v2"});
  SetHook();
  RunWell({"sync", "g"});
  EXPECT_EQ(Trace(), "");
  FailSync();
  EXPECT_THAT(Trace(),
              AllOf(StartsWith("own g sync failed g sync failed 8 "), HasSubstr("\"v2\"")));
  fs::remove(TracePath());
  TakeSnapshot();
  EXPECT_EQ(Trace(), "") << "a run of another kind is no recovery";
  RunWell({"sync", "g"});
  EXPECT_EQ(Trace(), "own g sync recovered g sync recovered 0 \n");
  RunWell({"sync", "g"});
  EXPECT_EQ(Trace(), "own g sync recovered g sync recovered 0 \n");
}

TEST_P(HookTest, ATargetThatIsGoneIsAFailureAndAMistypedNameIsNot) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  SetHook();
  Run({"snapshot", "restore", id + "1", "--yes"});
  EXPECT_EQ(Trace(), "");
  const std::string path = TargetPaths().at("share");
  fs::rename(path, Root() + "/away");
  RunBadly(kNotFound, {"snapshot", "create", "g"}, {"\"share\""});
  EXPECT_THAT(Trace(), StartsWith("own g snapshot failed g snapshot failed 3 "));
  const Json::Value history = RunWell({"history", "g", "--failed", "--json"}).Json();
  EXPECT_EQ(history["runs"].size(), 1U);
  fs::rename(Root() + "/away", path);
  TakeSnapshot();
  EXPECT_THAT(Trace(), HasSubstr("own g snapshot recovered"));
}

TEST_P(HookTest, WhatAHookRunsTellsNoHook) {
  MakeGroup();
  SetHook(std::string(DRGROUPCTL) + " snapshot create g");
  fs::rename(TargetPaths().at("share"), Root() + "/away");
  Run({"snapshot", "create", "g"});
  const std::string trace = Trace();
  EXPECT_EQ(std::count(trace.begin(), trace.end(), '\n'), 1) << trace;
}

TEST_P(HookTest, WhatItDoesIsDoneWithTheGroupFreeAndWithoutOurDescriptors) {
  MakeGroup();
  RunWell({"protect", "g", "--volume", "v2"});
  SetHook(std::string(DRGROUPCTL) +
          " group retention g --keep last=3 || exit 1\nls /proc/self/fd > " + Root() + "/fds");
  FailSync();
  EXPECT_EQ(RunWell({"group", "retention", "g", "--json"}).Json()["keep"], "last=3");
  EXPECT_EQ(ReadFile(Root() + "/fds"), "0\n1\n2\n3\n") << "3 is the directory that ls reads";
}

TEST_P(HookTest, WhatGoesWrongWithItIsAWarning) {
  MakeGroup();
  RunWell({"protect", "g", "--volume", "v2"});
  SetHook("echo from the hook\nexit 3");
  EXPECT_THAT(FailSync().err,
              AllOf(HasSubstr("ended with exit code 3"), HasSubstr("from the hook")));
  fs::remove(Root() + "/the hook");
  EXPECT_THAT(FailSync().err, HasSubstr("could not be run: No such file"));
}

TEST_P(HookTest, ItIsToldOfWhatTheScheduleRuns) {
  MakeGroup();
  RunWell({"protect", "g", "--volume", "v2"});
  SetHook(std::string(DRGROUPCTL) + " schedule show g");
  RunWell({"schedule", "set", "g", "--sync", "hourly"});
  WriteFile(GroupDirectory("g") + "/schedule.sync.json",
            R"({"calendar":"hourly","last":1000,"next":2000})");
  LoseVolume("v2");
  EXPECT_EQ(Run({"schedule", "run"}).code, kStorage);
  BringVolumeBack("v2");
  EXPECT_THAT(Trace(), StartsWith("own g sync failed "));
}

TEST_P(HookTest, ItIsSetShownAndTakenAway) {
  MakeGroup();
  EXPECT_THAT(RunWell({"group", "hook", "g"}).out, HasSubstr("No program is told"));
  RunWell({"group", "hook", "g", "--command", "/bin/true \"a b\""});
  EXPECT_EQ(RunWell({"group", "hook", "g", "--json"}).Json()["hook"], "/bin/true \"a b\"");
  EXPECT_THAT(RunWell({"group", "show", "g"}).out, HasSubstr("/bin/true \"a b\""));
  EXPECT_THAT(Run({"group", "hook", "g", "--command", "/no/such"}).err, HasSubstr("no program"));
  RunBadly(kUsage, {"group", "hook", "g", "--command", "true"}, {"\"true\"", "absolute path"});
  RunBadly(kUsage, {"group", "hook", "g", "--command", "''"}, {"absolute path"});
  RunBadly(kUsage, {"group", "hook", "g", "--command", "/bin/true", "--none"}, {"give one"});
  RunWell({"group", "hook", "g", "--none"});
  EXPECT_EQ(RunWell({"group", "show", "g", "--json"}).Json()["hook"], "");
}

}  // namespace
}  // namespace e2e
