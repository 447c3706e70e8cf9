#include <algorithm>
#include <chrono>
#include <fstream>
#include <sstream>

#include "paused_shipment.h"
#include "plan_fixture.h"

// Syncs that run: watched, stopped, and in somebody else's way.

namespace e2e {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using Clock = std::chrono::steady_clock;

class PlanRunTest : public PlanTest {
 protected:
  // A group whose lun takes a while to be sent.
  void MakeLargeProtected() {
    MakeGroup();
    std::string bytes(48 << 20, 'x');
    for (std::size_t i = 0; i < bytes.size(); i += 64) bytes[i] = static_cast<char>(i >> 6);
    host_test::WriteFile(TargetPaths().at("lun"), bytes);
    RunWell({"protect", "g", "--volume", "v2", "--dr-group", "gd"});
  }
  static std::vector<std::string> Tool(std::vector<std::string> words) {
    words.insert(words.begin(), DRGROUPCTL);
    return words;
  }
  static Json::Value StatusOfLun() {
    return RunWell({"status", "g", "--json"}).Json()["targets"][0];
  }
  // The sync goes on and brings everything over.
  void ExpectSyncGoesOn() {
    const auto wanted = MainContents();
    RunWell({"sync", "g"});
    EXPECT_EQ(States(), AllProtected());
    EXPECT_EQ(LastArrivedContents(), wanted);
    ExpectSameSnapshots();
  }

 private:
  const SentByPrograms by_programs_;
};

INSTANTIATE_TEST_SUITE_P(FileSystems, PlanRunTest, testing::Values("directory", "btrfs"),
                         FileSystemsTest::NameOf);

TEST_P(PlanRunTest, ARunningSyncIsSeenAndKeepsOthersOut) {
  MakeLargeProtected();
  Process sync(Tool({"sync", "g"}));
  {
    const PausedShipment paused(sync);
    const Json::Value row = StatusOfLun();
    EXPECT_EQ(row["site"], "working");
    EXPECT_EQ(row["operation"], "sync");
    EXPECT_THAT(RunWell({"status", "g"}).out, AllOf(HasSubstr("RUNNING"), HasSubstr("sync ")));
    const Json::Value plan = RunWell({"plan", "show", row["plan_id"].asString(), "--json"}).Json();
    ASSERT_EQ(plan["snapshots"].size(), 1U) << "what is being sent is whole at its source alone";
    EXPECT_TRUE(plan["snapshots"][0]["is_held"].asBool());
    EXPECT_TRUE(plan["snapshots"][0]["is_pending"].asBool());
    RunWell({"plan", "list"});
    RunBadly(kBusy, {"plan", "drop-arrived", "lun", "--yes"},
             {row["plan_id"].asString(), "nothing", "sync runs on it"});
    // By the group, and by the plan where it is another group's.
    for (const char* verb : {"sync", "switchover", "failover", "unprotect"}) {
      RunBadly(kBusy, {verb, "g"}, {"\"g\"", "another process", "\"lun\" is in sync since 20"});
    }
    for (const char* verb : {"sync", "switchover"}) {
      const Result result = Run({verb, "gd"});
      EXPECT_EQ(result.code, kBusy) << result.err;
      EXPECT_THAT(result.err, AllOf(HasSubstr("nothing was done"), HasSubstr("sync")));
    }
  }
  EXPECT_EQ(sync.Wait().code, kDone);
  EXPECT_EQ(LastArrivedContents(), MainContents());
}

TEST_P(PlanRunTest, AStoppedSyncGoesOn) {
  MakeLargeProtected();
  Process sync(Tool({"sync", "g"}));
  {
    const PausedShipment paused(sync);
    const auto begin = Clock::now();
    const Result stop = RunWell({"stop", "g"});
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(3));
    EXPECT_THAT(stop.out, HasSubstr("Stopped the sync of group \"g\", at target \"lun\""));
  }
  const Result result = sync.Wait();
  EXPECT_EQ(result.code, 9) << result.err;
  EXPECT_THAT(result.err, AllOf(HasSubstr("\"lun\""), HasSubstr("stop"),
                                HasSubstr("target \"share\": not started")));
  EXPECT_EQ(StatusOfLun()["site"], "normal");
  const Json::Value again = RunWell({"stop", "g", "--json"}).Json();
  EXPECT_EQ(again["stopped_targets"].size(), 0U);
  EXPECT_THAT(RunWell({"stop", "g"}).out, HasSubstr("No sync ran"));
  ExpectSyncGoesOn();
}

TEST_P(PlanRunTest, ASignalStopsASyncWithWhatHasArrivedKept) {
  MakeLargeProtected();
  for (const int signal : {SIGINT, SIGTERM}) {
    Process sync(Tool({"sync", "g", "--json"}));
    {
      const PausedShipment paused(sync);
      kill(sync.Id(), signal);
      const Result result = sync.Wait();
      EXPECT_EQ(result.code, 9) << result.err;
      EXPECT_EQ(result.Json()["error"]["kind"], "stopped");
      EXPECT_THAT(result.err, Not(HasSubstr(" %"))) << "no progress with --json";
    }
  }
  ExpectSyncGoesOn();
}

TEST_P(PlanRunTest, ProgressIsToldInLinesWhereThereIsNoTerminal) {
  MakeLargeProtected();
  Process sync(Tool({"sync", "g"}));
  {
    const PausedShipment paused(sync);
    WaitFor("a line of progress",
            [&] { return sync.ErrorSoFar().find(" %, target ") != std::string::npos; });
  }
  const Result result = sync.Wait();
  EXPECT_EQ(result.code, kDone);
  const std::size_t at = result.err.rfind("drgroupctl: ", result.err.find(" %, target "));
  const std::string line = result.err.substr(at, result.err.find('\n', at) - at);
  EXPECT_THAT(line, testing::MatchesRegex("drgroupctl: sync of group \"g\": [0-9]+ %, target "
                                          "\"lun\" \\(1/3\\)(, [0-9.KMG]+ of [0-9.KMG]+)?"));
}

TEST_P(PlanRunTest, ATerminalGetsABarThatIsClearedAtTheEnd) {
  MakeLargeProtected();
  Process sync({"script", "-qec", std::string(DRGROUPCTL) + " sync g", "/dev/null"});
  {
    const PausedShipment paused(sync);
    WaitFor("the bar", [&] { return sync.OutputSoFar().find(" %  1/3 ") != std::string::npos; });
  }
  const Result result = sync.Wait();
  EXPECT_EQ(result.code, kDone) << result.out;
  EXPECT_THAT(result.out, AllOf(HasSubstr("\rsync g ["), HasSubstr("] "), HasSubstr("lun")));
  const std::size_t last = result.out.rfind("\r\x1b[K");
  ASSERT_NE(last, std::string::npos);
  EXPECT_THAT(result.out.substr(last), AllOf(HasSubstr("Synced group"), Not(HasSubstr(" %  "))));
  std::istringstream lines(result.out.substr(0, last));
  for (std::string line; std::getline(lines, line, '\r');) {
    if (line.rfind("sync g [", 0) != 0) continue;
    line.erase(std::min(line.size(), line.find('\x1b')));
    EXPECT_LT(line.size(), 80U) << line;
  }
}

TEST_P(PlanRunTest, ADrVolumeThatIsGoneInTheMiddleOfASyncIsTold) {
  MakeLargeProtected();
  RunWell({"sync", "g"});
  ChangeMain();
  {
    std::fstream lun(TargetPaths().at("lun"), std::ios::in | std::ios::out | std::ios::binary);
    lun << std::string(32 << 20, 'z');
  }
  Process sync(Tool({"sync", "g"}));
  {
    const PausedShipment paused(sync);
    LoseVolume("v2");
  }
  const Result result = sync.Wait();
  EXPECT_EQ(result.code, kStorage) << result.err;
  EXPECT_THAT(result.err, HasSubstr("\"lun\""));
  EXPECT_THAT(result.err, HasSubstr("\"v2\""));
  const Json::Value row = StatusOfLun();
  EXPECT_EQ(row["site"], "unreachable");
  EXPECT_THAT(row["problem"].asString(), AllOf(HasSubstr("\"lun-dr\""), HasSubstr("\"v2\"")));
  const Result again = Run({"sync", "g"});
  EXPECT_EQ(again.code, kStorage) << again.err;
  EXPECT_THAT(again.err, AllOf(HasSubstr("nothing was done"), HasSubstr("\"v2\"")));

  BringVolumeBack("v2");
  ExpectSyncGoesOn();
}

}  // namespace
}  // namespace e2e
