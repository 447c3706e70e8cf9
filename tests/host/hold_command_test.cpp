#include <unistd.h>

#include <filesystem>

#include "hold_fixture.h"

// Commands that make a writer stand still, and let it go on.

namespace host_test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using VrelDR::HoldEnd;
using VrelDR::QuiesceMeans;
using VrelDR::Status;
using VrelDR::WriterHold;

QuiesceMeans MeansOf(const VrelDR::QuiesceCommand& command, std::uint32_t deadline = 5000) {
  QuiesceMeans means;
  means.commands = {command};
  means.deadline_ms = deadline;
  return means;
}

TEST_F(HoldTest, WithoutMeansNobodyIsHeld) {
  WriterHold hold{QuiesceMeans()};
  EXPECT_EQ(hold.Check().message, "");
  EXPECT_EQ(hold.Hold().message, "");
  EXPECT_FALSE(HasGuardian());
  HoldEnd end;
  EXPECT_EQ(hold.Release(end).message, "");
  EXPECT_EQ(end.held.count(), 0);
}

TEST_F(HoldTest, ACommandRunsOnceAndSoDoesItsThaw) {
  WriterHold hold(MeansOf(NotingCommand()));
  ASSERT_EQ(hold.Hold().message, "");
  EXPECT_EQ(Lines("frozen"), 1U);
  EXPECT_EQ(Lines("thawed"), 0U);
  HoldEnd end;
  ASSERT_EQ(hold.Release(end).message, "");
  EXPECT_EQ(Lines("frozen"), 1U);
  EXPECT_EQ(Lines("thawed"), 1U);
}

TEST_F(HoldTest, ArgumentsReachACommandAsTheyAre) {
  WriteScript("keep", "printf '%s\\n' \"$@\" >" + FileOf("args"));
  VrelDR::QuiesceCommand command{{FileOf("keep"), "a b", "$HOME;*", ""}, {"true"}, false};
  WriterHold hold(MeansOf(command));
  ASSERT_EQ(hold.Hold().message, "");
  EXPECT_EQ(Lines("args"), 3U);
}

TEST_F(HoldTest, ACommandThatFailsIsToldWithItsLastLineAndThawedOnce) {
  WriterHold hold(MeansOf(NotingCommand("echo first; echo 'cannot flush' >&2; echo; exit 3")));
  const Status status = hold.Hold();
  EXPECT_EQ(status.code, VrelDR::kErrNotHeld);
  EXPECT_THAT(status.message, AllOf(HasSubstr("command \"/bin/sh\""), HasSubstr("exit status 3"),
                                    HasSubstr("\"cannot flush\"")));
  EXPECT_EQ(Lines("thawed"), 1U);
  HoldEnd end;
  (void)hold.Release(end);
  EXPECT_EQ(Lines("thawed"), 1U);
}

TEST_F(HoldTest, ACommandThatHangsIsKilledAtTheDeadlineAndThawedOnce) {
  WriterHold hold(MeansOf(NotingCommand("echo $$ >pid; echo waiting; sleep 1000"), 300));
  const Status status = hold.Hold();
  EXPECT_THAT(status.message, AllOf(HasSubstr("not frozen in time"), HasSubstr("\"waiting\""),
                                    HasSubstr("the deadline of 300 ms")));
  EXPECT_EQ(Lines("thawed"), 1U);
  EXPECT_EQ(Lines("pid"), 1U);
}

TEST_F(HoldTest, WhatACommandPrintsIsTakenInHoweverMuchItIs) {
  WriterHold hold(
      MeansOf(NotingCommand("head -c 8388608 /dev/zero | tr '\\0' x; echo; echo end; "
                            "exit 1")));
  EXPECT_THAT(hold.Hold().message, AllOf(HasSubstr("exit status 1, \"end\"")));
  WriterHold endless(MeansOf(NotingCommand("exec yes"), 300));
  EXPECT_THAT(endless.Hold().message, HasSubstr("last said \"y\""));
}

TEST_F(HoldTest, WhatACommandLeavesRunningIsNotWaitedFor) {
  WriterHold hold(MeansOf(NotingCommand("sleep 1000 & echo $! >pid")));
  ASSERT_EQ(hold.Hold().message, "");
  HoldEnd end;
  EXPECT_EQ(hold.Release(end).message, "");
  EXPECT_LT(end.held.count(), 5000);
  EXPECT_EQ(system(("kill $(cat " + FileOf("pid") + ")").c_str()), 0);
}

TEST_F(HoldTest, AThawThatFailsIsTroubleAndNoFailure) {
  VrelDR::QuiesceCommand command = NotingCommand();
  command.thaw = Shell("echo 'still locked'; exit 7");
  WriterHold hold(MeansOf(command));
  ASSERT_EQ(hold.Hold().message, "");
  HoldEnd end;
  EXPECT_EQ(hold.Release(end).message, "");
  ASSERT_THAT(end.troubles, SizeIs(1));
  EXPECT_THAT(end.troubles[0], AllOf(HasSubstr("could not be thawed"), HasSubstr("exit status 7"),
                                     HasSubstr("still locked")));
}

TEST_F(HoldTest, AHoldThatFailsTellsWhatCouldNotBeThawedEither) {
  VrelDR::QuiesceCommand command = NotingCommand();
  command.thaw = Shell("echo 'still locked'; exit 7");
  QuiesceMeans means = MeansOf(command, 500);
  means.commands.push_back({Shell("sleep 1000"), Shell("true"), false});
  WriterHold hold(means);
  EXPECT_THAT(hold.Hold().message, AllOf(HasSubstr("not frozen in time"),
                                         HasSubstr("could not be thawed: exit status 7")));
}

TEST_F(HoldTest, OneOfTwoThatFailsLetsBothGoOn) {
  QuiesceMeans means = MeansOf(NotingCommand("sleep 1000"), 60000);
  means.commands.push_back({Shell("exit 1"), Shell("echo t >>thawed"), false});
  WriterHold hold(means);
  EXPECT_FALSE(hold.Hold().IsOk());
  EXPECT_EQ(Lines("thawed"), 2U);
}

TEST_F(HoldTest, AProgramThatIsMissingIsToldBeforeAnythingRuns) {
  QuiesceMeans means = MeansOf({Shell("echo f >>frozen"), {FileOf("missing")}, false});
  means.commands.push_back({{"no-such-program"}, {"true"}, false});
  means.commands.push_back({{"dir/program"}, {"true"}, false});
  WriteScript("plain", "");
  ASSERT_EQ(chmod(FileOf("plain").c_str(), 0644), 0);
  means.commands.push_back({{"true"}, {FileOf("plain")}, false});
  WriterHold hold(means);
  EXPECT_EQ(hold.Check().code, VrelDR::kErrNotHeld);
  ASSERT_THAT(hold.GetFaults(), SizeIs(4));
  EXPECT_THAT(hold.GetFaults()[0], AllOf(HasSubstr("thaw command"), HasSubstr("missing\"")));
  EXPECT_THAT(hold.GetFaults()[1], HasSubstr("\"no-such-program\" is not there"));
  EXPECT_THAT(hold.GetFaults()[2], HasSubstr("no absolute path"));
  EXPECT_THAT(hold.GetFaults()[3], HasSubstr("may not be run"));
  EXPECT_FALSE(hold.Hold().IsOk());
  EXPECT_EQ(Lines("frozen"), 0U);
}

TEST_F(HoldTest, AProgramThatCannotBeExecutedIsToldWithTheReason) {
  WriteScript("broken", "");
  VrelDR::QuiesceCommand command = NotingCommand();
  command.freeze = {FileOf("broken")};
  std::filesystem::resize_file(FileOf("broken"), 0);
  WriterHold hold(MeansOf(command));
  ASSERT_EQ(hold.Check().message, "");
  EXPECT_THAT(hold.Hold().message, AllOf(HasSubstr("broken"), HasSubstr("xec format error")));
  EXPECT_EQ(Lines("thawed"), 0U);  // it was never started
}

TEST_F(HoldTest, MeansThatMeanNothingAreRefused) {
  WriterHold hold(MeansOf({{}, {"true"}, false}));
  EXPECT_EQ(hold.Check().code, VrelDR::kErrBadArgument);
  EXPECT_THAT(hold.Hold().message, HasSubstr("names no program"));
}

}  // namespace
}  // namespace host_test
