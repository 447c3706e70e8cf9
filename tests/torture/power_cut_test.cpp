#include <sys/wait.h>

#include <iostream>
#include <thread>

#include "content.h"
#include "host_fixture.h"
#include "kill_points.h"
#include "rig.h"
#include "tree.h"

// The power goes at moments that nobody chose, and everything that was acknowledged is there.

namespace torture {
namespace {

using Milliseconds = std::chrono::milliseconds;

class PowerCutTest : public TortureTest {
 protected:
  // A sequence of steps on a new host, cut at every step in one of three ways.
  void RunSequence(int steps);
  void ExpectNoFaults() const;

  KillChoice kills_;

 private:
  // All run the step to its end.
  Sight CutAtAKillPoint(const Step& step, const Sight& before);
  Sight CutAtRandomMoments(const Step& step, const Sight& before);

  std::map<std::string, int> usual_;  // how long a verb takes, in milliseconds
};

Sight PowerCutTest::CutAtAKillPoint(const Step& step, const Sight& before) {
  const std::string point = kills_.For(step.verb, Random());
  const e2e::Result result = RunTool(step.words, {{"VRELDR_KILL_POINT", point}});
  const bool isKilled = result.code == 128 + SIGKILL;
  kills_.Tell(step.verb, point, isKilled);
  if (!isKilled) {
    EXPECT_EQ(result.code, e2e::kDone) << step.Text() << ": " << result.err;
    return See();
  }
  Cut({"", "killed at " + point, step, false, before, {}, {}});
  Sight now = See();
  if (step.reached(before, now).empty() && step.verb == "switchover") return now;
  const e2e::Result again = RunTool(step.again);
  const bool isThere = step.reached(before, now).empty();
  now = See();
  const bool isRefused = again.code == e2e::kNotFound || again.code == e2e::kRefused;
  EXPECT_TRUE(again.code == e2e::kDone || (isThere && isRefused))
      << step.Text() << " after it was killed at " << point << ": " << again.err;
  const std::string missing = step.reached(before, now);
  EXPECT_TRUE(missing.empty() || isThere)
      << step.Text() << " after it was killed at " << point << ": " << missing;
  return now;
}

Sight PowerCutTest::CutAtRandomMoments(const Step& step, const Sight& before) {
  const auto start = std::chrono::steady_clock::now();
  std::vector<std::string> argv{DRGROUPCTL};
  argv.insert(argv.end(), step.words.begin(), step.words.end());
  e2e::Process process(argv);
  const int usual = usual_.emplace(step.verb, 10).first->second;
  int at = 0;
  for (int cuts = 0; cuts < 3; ++cuts) {
    at += static_cast<int>(Random()() % static_cast<unsigned>(usual * 1000 / 2 + 1));
    std::this_thread::sleep_until(start + std::chrono::microseconds(at));
    siginfo_t info = {};
    waitid(P_PID, static_cast<id_t>(process.Id()), &info, WEXITED | WNOHANG | WNOWAIT);
    if (info.si_pid != 0) break;
    Cut({"",
         "after " + std::to_string(at) + " us of some " + std::to_string(usual) + " ms",
         step,
         false,
         before,
         {},
         {}});
  }
  const e2e::Result result = process.Wait();
  const auto took = std::chrono::steady_clock::now() - start;
  usual_[step.verb] = 1 + static_cast<int>(std::chrono::duration_cast<Milliseconds>(took).count());
  EXPECT_EQ(result.code, e2e::kDone) << step.Text() << ": " << result.err;
  Sight now = See();
  EXPECT_EQ(step.reached(before, now), "") << step.Text();
  return now;
}

void PowerCutTest::RunSequence(int steps) {
  StartHost();
  Sight now = See();
  Arrived arrived = Arrived::kOneCut;
  for (int at = 0; at < steps && !HasFailure() && (!IsOver() || at < 3); ++at) {
    const bool isChanged = Random()() % 3 != 0;
    if (isChanged) Do(WriteAll(now, Random()() % 4 != 0));
    const Sight before = now;
    const Step step = NextStep(before, Random(), Imports(), Version(), arrived);
    SCOPED_TRACE(step.Text());
    switch (Random()() % 4) {
      case 0:
        now = Finish(step, before, "running");
        break;
      case 1:
        now = CutAtRandomMoments(step, before);
        break;
      default:
        now = CutAtAKillPoint(step, before);
    }
    Complete(now);
    if (step.verb == "reprotect") arrived = Arrived::kNothing;
    if (step.verb == "edit") arrived = Arrived::kNoCut;
    if (step.verb == "sync" || step.verb == "switchover" || step.verb == "unprotect") {
      arrived = Arrived::kOneCut;
    }
    if (step.verb == "snapshot restore") Unsynced().clear();
    Cut({"", "acknowledged", step, true, before, now, {}});
  }
  LookAtCuts();
}

void PowerCutTest::ExpectNoFaults() const {
  for (const std::string& each : Faults()) ADD_FAILURE() << each;
}

std::vector<Place> Places() {
  std::vector<Place> places;
  for (const Layout layout : {Layout::kOneDisk, Layout::kDiskEach, Layout::kCachedDisks}) {
    for (const char* type : {"ext4", "xfs", "btrfs"}) places.emplace_back(layout, type);
  }
  return places;
}
INSTANTIATE_TEST_SUITE_P(Places, PowerCutTest, testing::ValuesIn(Places()), NameOfPlace);

TEST_P(PowerCutTest, WhatWasAcknowledgedSurvivesEveryCut) {
  Within(AskedTime(20));
  const int wanted = AskedCount(40);
  while (Looked() < wanted && (!IsOver() || Looked() == 0) && Faults().empty() && !HasFailure()) {
    ASSERT_NO_FATAL_FAILURE(RunSequence(12));
  }
  ExpectNoFaults();
  EXPECT_GT(Looked(), 0);
  std::cout << Looked() << " cuts, " << kills_.Reached().size() << " kill points reached"
            << std::endl;
}

// Without this one, a ring that sees nothing would look like a host that loses nothing.
TEST_P(PowerCutTest, AWriterThatDoesNotSyncIsCaught) {
  ASSERT_NO_FATAL_FAILURE(Do(GetDisks().Renew()));
  const std::string text(50000, 'u');
  const std::vector<std::string> files{GetDisks().StateDir() + "/file",
                                       GetDisks().VolumePath("v1") + "/file",
                                       GetDisks().VolumePath("v2") + "/file"};
  for (const bool isSafe : {true, false}) {
    for (const std::string& file : files) {
      std::vector<std::string> words{UNSAFE_WRITER, file, text};
      if (isSafe) words.emplace_back("safely");
      ASSERT_EQ(host_test::RunProgram(words), 0);
      Do(GetDisks().Cut("cut", AskedSeed()));
      EXPECT_EQ(host_test::ReadFile(file), text);
      Do(GetDisks().Leave());
      Do(GetDisks().Enter("cut"));
      const bool isThere = host_test::ReadFile(file) == text;
      Do(GetDisks().Drop());
      Do(GetDisks().Return());
      EXPECT_EQ(isThere, isSafe) << (isSafe ? "a safe writer lost " : "the ring did not catch ")
                                 << file;
      Do(GetDisks().Renew());
    }
  }
}

// The tool itself, when the system only says that it has synced.
TEST_P(PowerCutTest, AToolWhoseSyncsDoNothingIsCaught) {
  const std::string loaded = std::getenv("LD_PRELOAD");
  setenv("LD_PRELOAD", (FAILING_CALLS ":" + loaded).c_str(), 1);
  setenv("FAILING_SYNCS_LIE", "1", 1);
  StartHost();
  const Sight before = See();
  const Step step = TakeSnapshot("g");
  Cut({"", "acknowledged", step, true, before, Finish(step, before, "running"), {}});
  unsetenv("FAILING_SYNCS_LIE");
  setenv("LD_PRELOAD", loaded.c_str(), 1);
  // Before the power goes nothing is missing.
  ExpectNoFaults();
  LookAtCuts();
  EXPECT_FALSE(Faults().empty()) << "nothing of what was never synced is missing";
}

}  // namespace
}  // namespace torture
