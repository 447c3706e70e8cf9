#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "file_systems_fixture.h"

// Who writes a group's targets, and how they are held.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using host_test::ReadFile;
using host_test::WriteFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class QuiesceTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    RunWell({"target", "create", "a", "--volume", "v1", "--type", "share"});
    RunWell({"group", "create", "g", "--target", "a"});
  }
  std::string Definition() const { return ReadFile(GroupDirectory("g") + "/group.json"); }
  // A command that adds a line to a file.
  std::string Note(const std::string& name) const {
    return "/bin/sh -c 'echo x >>" + Root() + "/" + name + "'";
  }
  std::string Noted(const std::string& name) const {
    return fs::exists(Root() + "/" + name) ? ReadFile(Root() + "/" + name) : "";
  }
  static Json::Value Show() { return RunWell({"group", "quiesce", "g", "--json"}).Json(); }
};

TEST_F(QuiesceTest, WhatIsSetIsShownAndKeptThroughARenaming) {
  EXPECT_THAT(Definition(), Not(HasSubstr("quiesce")));
  EXPECT_THAT(RunWell({"group", "quiesce", "g"}).out, HasSubstr("No writers are held."));
  EXPECT_EQ(Show()["writers"].size(), 0U);
  RunWell({"group", "quiesce", "g", "--control-group", "/sys/fs/cgroup/x", "/sys/fs/cgroup/y",
           "--unit", "db.service", "--domain", "vm 1", "--freeze-command",
           R"(flush --all "two words" 'a\b' c\ d "")", "--thaw-command", "go-on", "--application",
           "--deadline", "250"});
  const Json::Value shown = Show();
  EXPECT_THAT(shown.getMemberNames(), ElementsAre("deadline_ms", "group_id", "writers"));
  EXPECT_EQ(shown["deadline_ms"], 250);
  ASSERT_EQ(shown["writers"].size(), 5U);
  const Json::Value& command = shown["writers"][4];
  EXPECT_THAT(command.getMemberNames(),
              ElementsAre("is_app_consistent", "kind", "name", "thaw_command"));
  EXPECT_EQ(command["kind"], "command");
  EXPECT_EQ(command["name"], R"(flush --all "two words" "a\\b" "c d" "")");
  EXPECT_EQ(command["thaw_command"], "go-on");
  EXPECT_EQ(command["is_app_consistent"], true);
  EXPECT_THAT(Definition(), HasSubstr(R"("freeze":["flush","--all","two words","a\\b","c d",""])"));
  EXPECT_EQ(RunWell({"group", "show", "g", "--json"}).Json()["writers"], shown["writers"]);
  EXPECT_THAT(RunWell({"group", "show", "g"}).out, HasSubstr("db.service"));

  // What is shown can be given again.
  RunWell({"group", "quiesce", "g", "--freeze-command", command["name"].asString(),
           "--thaw-command", "go-on", "--application"});
  EXPECT_EQ(Show(), shown);

  RunWell({"group", "rename", "g", "h"});
  EXPECT_EQ(RunWell({"group", "quiesce", "h", "--json"}).Json()["writers"], shown["writers"]);
  RunWell({"group", "rename", "h", "g"});
  EXPECT_EQ(Show(), shown);
}

TEST_F(QuiesceTest, AnOptionReplacesItsKindAndNoneTakesAwayAll) {
  RunWell({"group", "quiesce", "g", "--unit", "a", "b", "--domain", "vm"});
  RunWell({"group", "quiesce", "g", "--unit", "c"});
  const Json::Value writers = Show()["writers"];
  ASSERT_EQ(writers.size(), 2U);
  EXPECT_EQ(writers[0]["name"], "c");
  EXPECT_EQ(writers[1]["name"], "vm");
  RunWell({"group", "quiesce", "g", "--deadline", "60000"});
  EXPECT_EQ(Show()["writers"], writers);
  EXPECT_EQ(Show()["deadline_ms"], 60000);
  RunWell({"group", "quiesce", "g", "--none"});
  EXPECT_EQ(Show()["writers"].size(), 0U);
  EXPECT_THAT(Definition(), Not(HasSubstr("quiesce")));
}

TEST_F(QuiesceTest, WhatIsWrongOnTheCommandLineChangesNothing) {
  const std::string before = Definition();
  const auto refuse = [&](std::vector<std::string> options, const std::string& said) {
    options.insert(options.begin(), {"group", "quiesce", "g"});
    RunBadly(kUsage, options, {said});
  };
  refuse({"--deadline", "soon"}, "\"soon\" is not a number");
  refuse({"--deadline", "-5"}, "not a number");
  refuse({"--deadline", "50"}, "from 100 to 60000 ms");
  refuse({"--control-group", "relative"}, "not an absolute path");
  refuse({"--unit", "a", "a"}, "\"a\" is named twice");
  refuse({"--unit", ""}, "no name");
  refuse({"--freeze-command", "a"}, "each --freeze-command needs its --thaw-command");
  refuse({"--thaw-command", "a"}, "each --freeze-command needs its --thaw-command");
  refuse({"--freeze-command", "a 'b", "--thaw-command", "c"}, "ends within quotes");
  refuse({"--freeze-command", "a\\", "--thaw-command", "c"}, "behind a backslash");
  refuse({"--freeze-command", "a", "--thaw-command", " "}, "has no words");
  refuse({"--freeze-command", "''", "--thaw-command", "a"}, "names no program");
  refuse({"--application"}, "give --freeze-command as well");
  refuse({"--none", "--unit", "a"}, "give it alone");
  EXPECT_EQ(Definition(), before);
  RunBadly(kNotFound, {"group", "quiesce", "other"}, {"\"other\""});
}

TEST_F(QuiesceTest, WhatCannotBeHeldNowIsKeptWithAWarning) {
  const std::vector<std::string> words{"group", "quiesce", "g", "--control-group", "/sys/no-such"};
  const Result result = Run(words);
  EXPECT_EQ(result.code, kDone);
  EXPECT_THAT(result.err, AllOf(HasSubstr("kept, but"), HasSubstr("/sys/no-such")));
  EXPECT_EQ(Show()["writers"][0]["name"], "/sys/no-such");
  EXPECT_EQ(Run({"group", "quiesce", "g"}).err, "") << "a look warns of nothing";
  EXPECT_EQ(Run({"group", "quiesce", "g", "--none"}).err, "");
  EXPECT_EQ(
      Run({"group", "quiesce", "g", "--freeze-command", "true", "--thaw-command", "true"}).err, "");
}

TEST_F(QuiesceTest, ADefinitionWithMeansThatMeanNothingIsRefusedByEveryVerb) {
  std::string text = Definition();
  text.insert(1, R"("quiesce":{"unit":["a"]},)");
  WriteFile(GroupDirectory("g") + "/group.json", text);
  RunBadly(kCatalogue, {"group", "quiesce", "g"}, {"group.json", "\"quiesce\"", "\"unit\""});
  RunBadly(kCatalogue, {"group", "show", "g"}, {"\"unit\""});
}

TEST_F(QuiesceTest, ACheckTellsEveryFaultAndKeepsNothingNew) {
  const std::string before = Definition();
  RunBadly(kRefused, {"group", "quiesce", "g", "--check"}, {"\"g\"", "names no writers"});
  RunBadly(kRefused, {"group", "quiesce", "g", "--try"}, {"names no writers"});
  const std::vector<std::string> words{"group", "quiesce",         "g",      "--control-group",
                                       Root(),  "/sys/fs/no-such", "--check"};
  const Result result = Run(words);
  EXPECT_EQ(result.code, kRefused);
  EXPECT_THAT(result.err, HasSubstr("; and 1 more"));
  EXPECT_THAT(result.out, HasSubstr("/sys/fs/no-such"));
  std::vector<std::string> json = words;
  json.emplace_back("--json");
  const Json::Value error = Run(json).Json()["error"];
  ASSERT_EQ(error["faults"].size(), 2U);
  EXPECT_THAT(error["faults"][0].asString(), HasSubstr("no control group"));
  EXPECT_EQ(Definition(), before);

  EXPECT_THAT(RunWell({"group", "quiesce", "g", "--freeze-command", "true", "--thaw-command",
                       "true", "--check"})
                  .out,
              HasSubstr("can be held"));
  EXPECT_EQ(Show()["writers"].size(), 1U);
}

TEST_F(QuiesceTest, ATrialHoldsOnceAndSaysHowLong) {
  const Json::Value trial = RunWell({"group", "quiesce", "g", "--freeze-command", Note("frozen"),
                                     "--thaw-command", Note("thawed"), "--try", "--json"})
                                .Json();
  EXPECT_THAT(trial.getMemberNames(), ElementsAre("deadline_ms", "freeze_ms", "group_id", "held_ms",
                                                  "troubles", "writers"));
  EXPECT_GE(trial["held_ms"].asUInt64(), trial["freeze_ms"].asUInt64());
  EXPECT_EQ(Noted("frozen") + Noted("thawed"), "x\nx\n");
  RunWell({"group", "quiesce", "g", "--try"});
  EXPECT_EQ(Noted("frozen") + Noted("thawed"), "x\nx\nx\nx\n");
}

TEST_F(QuiesceTest, ATrialThatFailsIsToldThawedAndNotKept) {
  const std::string before = Definition();
  RunBadly(kRefused,
           {"group", "quiesce", "g", "--freeze-command", "/bin/sh -c 'echo no room; exit 3'",
            "--thaw-command", Note("thawed"), "--try"},
           {"\"g\"", "/bin/sh", "exit status 3", "no room"});
  EXPECT_EQ(Noted("thawed"), "x\n");
  EXPECT_EQ(Definition(), before);
  RunBadly(kRefused,
           {"group", "quiesce", "g", "--freeze-command", "sleep 1000", "--thaw-command",
            Note("thawed"), "--deadline", "200", "--try"},
           {"not frozen in time", "the deadline of 200 ms"});
  EXPECT_EQ(Noted("thawed"), "x\nx\n");
}

TEST_F(QuiesceTest, ATrialThatIsKilledIsThawedAndCanBeRunAgain) {
  RunWell({"group", "quiesce", "g", "--freeze-command", Note("frozen"), "--thaw-command",
           Note("thawed")});
  std::string runs;
  for (const char* step : {"hold.guarded", "hold.frozen", "hold.thawed"}) {
    setenv("VRELDR_KILL_POINT", step, 1);
    EXPECT_EQ(Run({"group", "quiesce", "g", "--try"}).code, 128 + SIGKILL) << step;
    unsetenv("VRELDR_KILL_POINT");
    if (std::string(step) != "hold.guarded") runs += "x\n";
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (Noted("thawed") != runs && std::chrono::steady_clock::now() < end) usleep(1000);
    EXPECT_EQ(Noted("frozen"), runs) << step;
    EXPECT_EQ(Noted("thawed"), runs) << step;
    RunWell({"group", "quiesce", "g", "--try"});
    runs += "x\n";
  }
}

TEST_F(QuiesceTest, AThawThatFailsIsAWarning) {
  const Result result = RunWell({"group", "quiesce", "g", "--freeze-command", "true",
                                 "--thaw-command", "/bin/sh -c 'echo stuck; exit 1'", "--try"});
  EXPECT_THAT(result.err, HasSubstr("could not be thawed: exit status 1, \"stuck\""));
}

}  // namespace
}  // namespace e2e
