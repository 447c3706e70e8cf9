#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "children.h"
#include "hold_fixture.h"
#include "host_fixture.h"

// Control groups that are frozen, and thawed whatever happens.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using VrelDR::HoldEnd;
using VrelDR::QuiesceMeans;
using VrelDR::Status;
using VrelDR::WriterHold;

INSTANTIATE_TEST_SUITE_P(Kinds, GroupHoldTest, testing::Values("v1", "v2"),
                         [](const auto& parameter) { return parameter.param; });

TEST_P(GroupHoldTest, AWriterStandsStillWhileItIsHeldAndGoesOnAfterwards) {
  const CountingWriter writer({Group()});
  WriterHold hold(Means());
  ASSERT_EQ(hold.Check().message, "");
  EXPECT_TRUE(writer.Moves());
  ASSERT_EQ(hold.Hold().message, "");
  EXPECT_TRUE(IsFrozen(Group()));
  EXPECT_TRUE(StandsStill(writer));
  HoldEnd end;
  ASSERT_EQ(hold.Release(end).message, "");
  EXPECT_FALSE(IsFrozen(Group()));
  EXPECT_TRUE(writer.Moves());
  EXPECT_THAT(end.troubles, IsEmpty());
  EXPECT_GT(end.held.count(), 0);
  EXPECT_GE(end.held, end.frozen_after);
}

TEST_P(GroupHoldTest, AHundredTasksThatSyncAreHeld) {
  std::vector<std::unique_ptr<CountingWriter>> writers;
  for (int at = 0; at < 100; ++at) {
    writers.push_back(std::make_unique<CountingWriter>(std::vector<std::string>{Group()},
                                                       FileOf("f" + std::to_string(at))));
  }
  WriterHold hold(Means());
  ASSERT_EQ(hold.Hold().message, "");
  std::uint64_t before = 0;
  for (const auto& each : writers) before += each->Count();
  EXPECT_TRUE(StandsStill(*writers.front()));
  std::uint64_t after = 0;
  for (const auto& each : writers) after += each->Count();
  EXPECT_EQ(after, before);
  HoldEnd end;
  ASSERT_EQ(hold.Release(end).message, "");
  for (const auto& each : writers) EXPECT_TRUE(each->Moves());
}

TEST_P(GroupHoldTest, AGroupBelowIsHeldWithIt) {
  const std::string below = Group() + "/below";
  fs::create_directory(below);
  {
    const CountingWriter writer({below});
    QuiesceMeans means = Means();
    means.control_groups.push_back(below);
    means.control_groups.push_back(Group() + "/");
    WriterHold hold(means);
    ASSERT_EQ(hold.Hold().message, "");
    EXPECT_TRUE(StandsStill(writer));
    HoldEnd end;
    ASSERT_EQ(hold.Release(end).message, "");
    EXPECT_TRUE(writer.Moves());
  }
  EXPECT_TRUE(WaitUntil([&] { return rmdir(below.c_str()) == 0; }));
}

TEST_P(GroupHoldTest, WhatSomebodyElseHasFrozenIsRefusedAndStaysFrozen) {
  Freeze(Group(), true);
  WriterHold hold(Means());
  EXPECT_THAT(hold.Check().message, AllOf(HasSubstr(Group()), HasSubstr("frozen already")));
  EXPECT_FALSE(hold.Hold().IsOk());
  EXPECT_TRUE(IsFrozen(Group()));
  Freeze(Group(), false);

  // Between the check and the hold.
  QuiesceMeans means = Means();
  means.control_groups.insert(means.control_groups.begin(), MakeGroup(GetParam(), "other"));
  WriterHold late(means);
  ASSERT_EQ(late.Check().message, "");
  Freeze(Group(), true);
  EXPECT_THAT(late.Hold().message, AllOf(HasSubstr(Group()), HasSubstr("frozen already")));
  EXPECT_TRUE(IsFrozen(Group()));
  EXPECT_FALSE(IsFrozen(means.control_groups[0]));
  Freeze(Group(), false);
}

TEST_P(GroupHoldTest, AGroupThatHoldsThisProgramOrItsParentsIsRefused) {
  const int status = RunInChild({}, [&] {
    std::ofstream(Group() + "/cgroup.procs") << "0" << std::flush;
    WriterHold own(Means());
    const std::string said = own.Check().message;
    const bool named = said.find("this program itself") != std::string::npos &&
                       said.find(std::to_string(getpid())) != std::string::npos;
    const pid_t parent = getpid();
    // The child leaves the group; its parent stays.
    const int below = RunInChild({}, [&] {
      std::ofstream(fs::path(Group()).parent_path() / "cgroup.procs") << "0" << std::flush;
      WriterHold childs(Means());
      const std::string text = childs.Check().message;
      return text.find("what has started this program") != std::string::npos &&
                     text.find("(process " + std::to_string(parent) + ")") != std::string::npos &&
                     !childs.Hold().IsOk()
                 ? 0
                 : 1;
    });
    return named && below == 0 ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

TEST_P(GroupHoldTest, AGroupAboveThisProgramIsRefused) {
  const std::string below = Group() + "/below";
  fs::create_directory(below);
  EXPECT_EQ(RunInChild({},
                       [&] {
                         std::ofstream(below + "/cgroup.procs") << "0" << std::flush;
                         return WriterHold(Means()).Check().code == VrelDR::kErrNotHeld ? 0 : 1;
                       }),
            0);
  EXPECT_TRUE(WaitUntil([&] { return rmdir(below.c_str()) == 0; }));
}

TEST_P(GroupHoldTest, TheGuardianIsInNoGroupThatIsHeld) {
  const CountingWriter writer({Group()});
  WriterHold hold(Means());
  ASSERT_EQ(hold.Hold().message, "");
  std::ifstream members(Group() + "/cgroup.procs");
  for (pid_t pid = 0; members >> pid;) EXPECT_EQ(pid, writer.Pid());
  EXPECT_TRUE(HasGuardian());
}

TEST_P(GroupHoldTest, FaultsAreToldOneByOne) {
  QuiesceMeans means;
  std::string why;
  const std::string root = Hierarchy(GetParam(), why);
  means.control_groups = {Group() + "-missing", Root(), root, Group()};
  WriterHold hold(means);
  EXPECT_EQ(hold.Check().code, VrelDR::kErrNotHeld);
  ASSERT_THAT(hold.GetFaults(), SizeIs(3));
  EXPECT_THAT(hold.GetFaults()[0], AllOf(HasSubstr(Group() + "-missing"), HasSubstr("not there")));
  EXPECT_THAT(hold.GetFaults()[1], AllOf(HasSubstr(Root()), HasSubstr("no control group")));
  EXPECT_THAT(hold.GetFaults()[2], AllOf(HasSubstr(root), HasSubstr("the root")));
  EXPECT_FALSE(hold.Hold().IsOk());
  EXPECT_FALSE(IsFrozen(Group()));
}

TEST_P(GroupHoldTest, AGroupThatIsGoneWhenItIsToBeHeldIsAFailure) {
  const std::string gone = MakeGroup(GetParam(), "gone");
  const CountingWriter writer({Group()});
  QuiesceMeans means = Means();
  means.control_groups.push_back(gone);
  WriterHold hold(means);
  ASSERT_EQ(hold.Check().message, "");
  ASSERT_EQ(rmdir(gone.c_str()), 0);
  EXPECT_THAT(hold.Hold().message, HasSubstr(gone));
  EXPECT_TRUE(writer.Moves());
}

TEST_P(GroupHoldTest, TheGuardianThawsAtTheDeadlineAndTheReleaseSaysSo) {
  const CountingWriter writer({Group()});
  QuiesceMeans means = Means();
  means.deadline_ms = 200;
  WriterHold hold(means);
  ASSERT_EQ(hold.Hold().message, "");
  EXPECT_TRUE(writer.Moves());  // nobody has released it
  HoldEnd end;
  const Status status = hold.Release(end);
  EXPECT_EQ(status.code, VrelDR::kErrNotHeld);
  EXPECT_THAT(status.message, HasSubstr("the deadline of 200 ms"));
  EXPECT_GE(end.held.count(), 199);
  EXPECT_LT(end.held.count(), 1200);
}

TEST_P(GroupHoldTest, AThawByAnotherIsToldByTheRelease) {
  const CountingWriter writer({Group()});
  WriterHold hold(Means());
  ASSERT_EQ(hold.Hold().message, "");
  Freeze(Group(), false);
  HoldEnd end;
  EXPECT_THAT(hold.Release(end).message, HasSubstr("somebody else has thawed"));
}

TEST_P(GroupHoldTest, AHoldThatIsForgottenEndsWithItsObject) {
  const CountingWriter writer({Group()});
  {
    WriterHold hold(Means());
    ASSERT_EQ(hold.Hold().message, "");
  }
  EXPECT_TRUE(writer.Moves());
}

pid_t FindGuardianIn(const std::vector<fs::path>& processes) {
  for (const fs::path& each : processes) {
    std::string name;
    std::getline(std::ifstream(each / "comm"), name);
    if (name == "vreldr-hold") return std::stoi(each.filename());
  }
  return 0;
}

TEST_P(GroupHoldTest, WhatAKilledGuardianHeldIsThawedByTheRelease) {
  const CountingWriter writer({Group()});
  QuiesceMeans means = Means();
  means.commands = {NotingCommand()};
  means.deadline_ms = 60000;
  WriterHold hold(means);
  ASSERT_EQ(hold.Hold().message, "");
  // Its children: of other tests' guardians it is not the parent.
  std::vector<fs::path> children;
  std::ifstream list("/proc/self/task/" + std::to_string(getpid()) + "/children");
  for (std::string pid; list >> pid;) children.push_back("/proc/" + pid);
  const pid_t guardian = FindGuardianIn(children);
  ASSERT_GT(guardian, 0);
  kill(guardian, SIGKILL);
  EXPECT_TRUE(StandsStill(writer));
  HoldEnd end;
  EXPECT_THAT(hold.Release(end).message, HasSubstr("was killed"));
  EXPECT_TRUE(writer.Moves());
  EXPECT_EQ(Lines("thawed"), 1U);
  EXPECT_THAT(end.troubles, IsEmpty());
}

TEST_P(GroupHoldTest, AServiceThatMindsItsChildrenInAnyWayCanHold) {
  for (const Children how : kAllChildren) {
    EXPECT_EQ(RunInChild({},
                         [&] {
                           const HowChildrenEnd children(how);
                           QuiesceMeans means = Means();
                           means.commands = {NotingCommand()};
                           WriterHold hold(means);
                           HoldEnd end;
                           if (!hold.Hold().IsOk() || !IsFrozen(Group())) return 1;
                           return hold.Release(end).IsOk() && end.troubles.empty() ? 0 : 2;
                         }),
              0)
        << static_cast<int>(how);
  }
  EXPECT_EQ(Lines("frozen"), 4U);
  EXPECT_EQ(Lines("thawed"), 4U);
}

}  // namespace
}  // namespace host_test
