#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <sstream>

#include "rig.h"
#include "tree.h"

// One call of the system fails while the tool works, whichever call it is. Then the power goes, so
// that what was said to be done has to be on disk too.

namespace torture {
namespace {

// How calls fail.
struct Flavour {
  const char* name;
  int error;
  bool sticks;
  const char* program;
};
constexpr Flavour kFlavours[] = {
    {"EIO", EIO, false, "drgroupctl"},
    {"ENOSPC", ENOSPC, false, "drgroupctl"},
    {"EIO from then on", EIO, true, "drgroupctl"},
    {"EIO in rsync", EIO, false, "rsync"},
    {"EIO in btrfs", EIO, false, "btrfs"},
};

struct Case {
  std::size_t step;
  const Flavour* flavour;
  long call;
};

class FailingCallTest : public TortureTest {
 protected:
  // A group that is protected, was synced and has changed since, with an older group snapshot. Kept
  // as "base".
  void MakeBase();
  std::vector<Step> Steps() const;
  // How many calls of the program can fail in the step, and what the step leads to when none does.
  long CountCalls(const Step& step, const std::string& program, Sight& after);
  void RunOne(const Step& step, const Sight& after, const Case& one);

  // Whether a step runs the program.
  static bool Uses(const Step& step, const std::string& program) {
    const bool ships = step.verb == "sync" || step.verb == "switchover" || step.verb == "edit";
    return program == "drgroupctl" || (ships && (program == "btrfs") == IsBtrfs());
  }
  static bool IsBtrfs() { return GetParam().second == "btrfs"; }
  static std::string NameOfCase(const Step& step, const Case& one) {
    return step.verb + ", call " + std::to_string(one.call) + ", " + one.flavour->name;
  }

 private:
  static std::map<std::string, std::string> Environment(const Flavour& flavour);
  // What is wrong with how a command has ended and what it said, or "".
  static std::string Wrong(const e2e::Result& result);

  Sight base_;
};

std::map<std::string, std::string> FailingCallTest::Environment(const Flavour& flavour) {
  std::map<std::string, std::string> environment{{"LD_PRELOAD", FAILING_CALLS},
                                                 {"FAILING_PROGRAM", flavour.program},
                                                 {"FAILING_ERRNO", std::to_string(flavour.error)}};
  if (flavour.sticks) environment["FAILING_STICKS"] = "1";
  return environment;
}

std::string FailingCallTest::Wrong(const e2e::Result& result) {
  if (result.code == e2e::kDone) return "";
  if (result.code > 9 || result.code == e2e::kUsage) {
    return "it ends with " + std::to_string(result.code) + ": " + result.err;
  }
  int failures = 0;
  std::string last;
  std::istringstream lines(result.err);
  for (std::string line; std::getline(lines, line);) {
    last = line;
    const bool isFailure = line.rfind("drgroupctl: ", 0) == 0;
    failures += isFailure && line.rfind("drgroupctl: warning: ", 0) != 0 ? 1 : 0;
  }
  const bool isToldOnce = failures == 1 && last.rfind("drgroupctl: ", 0) == 0;
  const bool isOfUse = last.find("internal error") == std::string::npos;
  return isToldOnce && isOfUse ? "" : "it does not tell its failure in one line: " + result.err;
}

void FailingCallTest::MakeBase() {
  ASSERT_NO_FATAL_FAILURE(StartHost());
  base_ = See();
  for (const Step& step : {TakeSnapshot("g"), Protect("g", "v2", ""), Sync("g")}) {
    Do(WriteAll(base_, true));
    base_ = Finish(step, base_, "before anything fails");
  }
  Do(WriteAll(base_, true));
  ForgetCuts();
  // Taken away, so that everything is on the disks.
  Do(GetDisks().Leave());
  Do(GetDisks().Cut("base", 0));
  Do(GetDisks().Return());
  for (const std::string& each : Faults()) ADD_FAILURE() << each;
  ASSERT_EQ(base_.gsnaps.size(), 1U);
}

std::vector<Step> FailingCallTest::Steps() const {
  const std::string gsnap = base_.gsnaps.begin()->first;
  return {TakeSnapshot("g"),     RestoreSnapshot(gsnap), Sync("g"),      Switchover("g"),
          DeleteSnapshot(gsnap), Unprotect("g", true),   Edit("g", "v3")};
}

long FailingCallTest::CountCalls(const Step& step, const std::string& program, Sight& after) {
  Do(GetDisks().Renew("base"));
  const std::string count = Imports() + "/count";
  host_test::WriteFile(count, "0");
  const e2e::Result result = RunTool(
      step.words,
      {{"LD_PRELOAD", FAILING_CALLS}, {"FAILING_PROGRAM", program}, {"FAILING_COUNT", count}});
  after = See();
  EXPECT_EQ(result.code, e2e::kDone) << step.Text() << ": " << result.err;
  EXPECT_EQ(step.reached(base_, after), "") << step.Text();
  return std::atol(host_test::ReadFile(count).c_str());
}

void FailingCallTest::RunOne(const Step& step, const Sight& after, const Case& one) {
  Do(GetDisks().Renew("base"));
  auto environment = Environment(*one.flavour);
  environment["FAILING_CALL"] = std::to_string(one.call);
  const e2e::Result result = RunTool(step.words, environment);
  Moment moment{"", NameOfCase(step, one), step, false, base_, after, {}};
  moment.is_done = result.code == e2e::kDone;
  // That takes longer than all the rest.
  moment.lives_on = one.call % 3 == 0;
  moment.about += moment.is_done ? ", done" : ", ended with " + std::to_string(result.code);
  const std::string wrong = Wrong(result);
  if (!wrong.empty()) ADD_FAILURE() << moment.about << ": " << wrong;
  Cut(moment);
  LookAtCuts();
}

INSTANTIATE_TEST_SUITE_P(Places, FailingCallTest,
                         testing::Values(Place(Layout::kOneDisk, "ext4"),
                                         Place(Layout::kOneDisk, "xfs"),
                                         Place(Layout::kOneDisk, "btrfs")),
                         NameOfPlace);

TEST_P(FailingCallTest, NothingIsLostAndTheSameCommandGoesOn) {
  Within(AskedTime(30));
  ASSERT_NO_FATAL_FAILURE(MakeBase());
  const std::vector<Step> steps = Steps();
  std::vector<Sight> after(steps.size());
  std::vector<Case> cases;
  for (std::size_t at = 0; at < steps.size(); ++at) {
    std::map<std::string, long> calls;
    for (const Flavour& flavour : kFlavours) {
      const auto [counted, isNew] = calls.emplace(flavour.program, 0);
      if (isNew && !Uses(steps[at], flavour.program)) continue;
      if (isNew) counted->second = CountCalls(steps[at], flavour.program, after[at]);
      for (long call = 0; call < counted->second; ++call) cases.push_back({at, &flavour, call});
    }
  }
  ASSERT_GT(cases.size(), 500U) << "calls are not counted";
  std::shuffle(cases.begin(), cases.end(), Random());
  const char* only = std::getenv("TORTURE_ONLY");
  const auto wanted = static_cast<std::size_t>(AskedCount(60));
  std::size_t done = 0;
  for (const Case& each : cases) {
    const Step& step = steps[each.step];
    if (only != nullptr && *only != '\0' && NameOfCase(step, each) != only) continue;
    if (done == wanted || IsOver()) break;
    ++done;
    RunOne(step, after[each.step], each);
    ASSERT_FALSE(HasFatalFailure());
  }
  for (const std::string& each : Faults()) ADD_FAILURE() << each;
  EXPECT_GT(done, 0U) << "no call was let fail";
  std::cout << done << " of " << cases.size() << " failing calls" << std::endl;
}

}  // namespace
}  // namespace torture
