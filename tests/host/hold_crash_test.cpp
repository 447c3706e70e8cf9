#include <csignal>

#include "base/kill_point.h"
#include "hold_fixture.h"
#include "host_fixture.h"

// The process that has writers held is killed. Whatever the step, they go on within a second, and
// what thaws them runs once.

namespace host_test {
namespace {

using VrelDR::HoldEnd;
using VrelDR::QuiesceMeans;
using VrelDR::WriterHold;

constexpr int kKilled = 128 + SIGKILL;
constexpr std::chrono::seconds kSoon{1};

class HoldCrashTest : public GroupHoldTest {};

INSTANTIATE_TEST_SUITE_P(Kinds, HoldCrashTest, testing::Values("v1", "v2"),
                         [](const auto& parameter) { return parameter.param; });

TEST_P(HoldCrashTest, WritersGoOnWithinASecondWhateverTheStep) {
  const CountingWriter writer({Group()});
  QuiesceMeans means = Means();
  means.commands = {NotingCommand()};
  means.deadline_ms = 60000;
  std::size_t runs = 0;
  for (const std::string_view step :
       {VrelDR::kHoldGuarded, VrelDR::kHoldFrozen, VrelDR::kHoldThawed}) {
    SCOPED_TRACE(step);
    ASSERT_EQ(RunInChild({{"VRELDR_KILL_POINT", std::string(step)}},
                         [&] {
                           WriterHold hold(means);
                           HoldEnd end;
                           return hold.Hold().IsOk() && hold.Release(end).IsOk() ? 0 : 1;
                         }),
              kKilled);
    EXPECT_TRUE(WaitUntil([] { return !HasGuardian(); }, kSoon));
    EXPECT_FALSE(IsFrozen(Group()));
    EXPECT_TRUE(writer.Moves(kSoon));
    if (step != VrelDR::kHoldGuarded) ++runs;
    EXPECT_EQ(Lines("frozen"), runs);
    EXPECT_EQ(Lines("thawed"), runs);
  }
}

TEST_P(HoldCrashTest, AKillWhileACommandFreezesEndsThatAndThawsIt) {
  const CountingWriter writer({Group()});
  QuiesceMeans means = Means();
  means.commands = {NotingCommand("echo $$ >pid; exec sleep 1000")};
  means.deadline_ms = 60000;
  const pid_t child = StartChild({}, [&] {
    WriterHold hold(means);
    return hold.Hold().IsOk() ? 0 : 1;
  });
  ASSERT_TRUE(WaitUntil([&] { return Lines("pid") == 1; }));
  kill(child, SIGKILL);
  EXPECT_EQ(WaitFor(child), kKilled);
  EXPECT_TRUE(WaitUntil([&] { return Lines("thawed") == 1; }, kSoon));
  EXPECT_TRUE(WaitUntil([] { return !HasGuardian(); }, kSoon));
  EXPECT_EQ(system(("kill -0 $(cat " + FileOf("pid") + ") 2>/dev/null").c_str()) == 0, false);
  EXPECT_TRUE(writer.Moves(kSoon));
  EXPECT_EQ(Lines("thawed"), 1U);
}

TEST_P(HoldCrashTest, ADescriptorThatAnotherProcessHasKeepsNobodyFrozen) {
  const CountingWriter writer({Group()});
  QuiesceMeans means = Means();
  means.deadline_ms = 60000;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t child = StartChild({}, [&] {
    WriterHold hold(means);
    if (!hold.Hold().IsOk()) return 1;
    // One that was forked off has the guardian's descriptor as well.
    if (fork() == 0) {
      char byte;
      close(ends[1]);
      (void)!read(ends[0], &byte, 1);
      _exit(0);
    }
    raise(SIGKILL);
    return 0;
  });
  EXPECT_EQ(WaitFor(child), kKilled);
  EXPECT_TRUE(writer.Moves(kSoon));
  close(ends[0]);
  close(ends[1]);
}

TEST_P(HoldCrashTest, ASignalToTheWholeSessionEndsTheCallerAloneAndWritersGoOn) {
  const CountingWriter writer({Group()});
  QuiesceMeans means = Means();
  means.deadline_ms = 60000;
  const pid_t child = StartChild({}, [&] {
    setsid();
    WriterHold hold(means);
    if (!hold.Hold().IsOk()) return 1;
    kill(0, SIGTERM);
    return 2;
  });
  EXPECT_EQ(WaitFor(child), 128 + SIGTERM);
  EXPECT_TRUE(writer.Moves(kSoon));
}

}  // namespace
}  // namespace host_test
