// Goes through everything that can happen to a plan between two nodes, within bounds, to its end.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>

#include "two_sides/begins.h"
#include "two_sides/explorer.h"

namespace host_test {
namespace {

using two_sides::Budget;
using two_sides::Explore;
using two_sides::Found;
using two_sides::Mutation;
using two_sides::Op;
using two_sides::World;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsSlow = true;
#else
constexpr bool kIsSlow = false;
#endif

constexpr std::uint64_t kMostStates = 4'000'000;

enum class Start { kUnprotected, kProtected, kFailedOver, kBothChanged };

World Begin(Start start, const Budget& budget) {
  switch (start) {
    case Start::kUnprotected:
      return two_sides::Unprotected(budget);
    case Start::kProtected:
      return two_sides::Protected(budget);
    case Start::kFailedOver:
      return two_sides::FailedOver(budget);
    case Start::kBothChanged:
      return two_sides::BothChanged(budget);
  }
  return {};
}

std::string Text(const Found& found) {
  std::string text = found.broken + ", in " + std::to_string(found.trace.size()) + " lines:\n";
  for (const std::string& each : found.trace) text += "  " + each + "\n";
  return text;
}

// One part of all that can happen. A driver or a node may crash, and a message be lost, late or
// doubled, as often as `faults` says, at any step.
struct Part {
  const char* name;
  Start start;
  Budget budget;
  Budget when_slow;  // under the sanitizers
  bool is_one_at_a_time;
  std::vector<std::string> ends;  // what has to be among what drivers came to
};

void PrintTo(const Part& part, std::ostream* out) {
  *out << part.name;
}

// Of operations, faults, orders without the other side, losses of records, writes.
constexpr Budget Upto(int operations, int faults, int forces, int losses, int writes) {
  return {operations, faults, forces, losses, writes};
}

const std::vector<Part>& Parts() {
  static const std::vector<Part> parts = {
      {"ANewPlanAndOneMoreOperation",
       Start::kUnprotected,
       Upto(2, 1, 0, 0, 1),
       Upto(1, 2, 0, 0, 1),
       false,
       {"create done", "create taken back"}},
      {"OneOperationAndThreeFaults",
       Start::kProtected,
       Upto(1, 3, 0, 0, 1),
       Upto(1, 1, 0, 0, 1),
       false,
       {"sync done", "sync taken back", "edit done", "edit taken back", "delete done",
        "delete taken back", "switchover done", "switchover taken back", "failover done",
        "failover taken back"}},
      {"TwoOperationsAtOnce",
       Start::kProtected,
       Upto(2, 0, 0, 0, 1),
       Upto(2, 0, 0, 0, 0),
       false,
       {"sync refused", "switchover done", "delete done", "revert done", "reprotect done"}},
      {"TwoOperationsOneAfterTheOtherAndTwoFaults",
       Start::kProtected,
       Upto(2, 2, 0, 0, 1),
       Upto(2, 1, 0, 0, 0),
       true,
       {"revert done", "reprotect done", "switchover done"}},
      {"AFailedOverPlanAndTwoFaults",
       Start::kFailedOver,
       Upto(1, 2, 0, 0, 1),
       Upto(1, 1, 0, 0, 1),
       false,
       {"revert done", "revert taken back", "reprotect done", "reprotect taken back"}},
      {"AFailedOverPlanAndTwoOperationsAtOnce",
       Start::kFailedOver,
       Upto(2, 0, 0, 0, 1),
       Upto(2, 0, 0, 0, 0),
       false,
       {"revert done", "sync done", "switchover done"}},
      {"AnOrderToOneSideDuringAnOperation",
       Start::kProtected,
       Upto(1, 1, 1, 0, 0),
       Upto(1, 0, 1, 0, 0),
       false,
       {"switchover diverged", "settle diverged", "sync done"}},
      {"AnOrderToOneSideAndAWriteDuringAnOperation",
       Start::kProtected,
       Upto(1, 1, 1, 0, 1),
       Upto(1, 0, 1, 0, 1),
       true,
       {"switchover diverged", "settle diverged", "sync done"}},
      {"AnOrderToOneSideAndTwoOperations",
       Start::kProtected,
       Upto(2, 0, 1, 0, 1),
       Upto(1, 0, 1, 0, 0),
       true,
       {"reprotect done", "settle done"}},
      {"OrdersToBothSides",
       Start::kProtected,
       Upto(0, 2, 2, 0, 1),
       Upto(0, 1, 2, 0, 1),
       false,
       {"settle diverged", "settle done"}},
      {"OrdersToBothSidesAndAnOperation",
       Start::kProtected,
       Upto(1, 0, 2, 0, 0),
       Upto(0, 0, 2, 0, 1),
       false,
       {"settle diverged", "settle done"}},
      {"ResolvingAndTwoFaults",
       Start::kBothChanged,
       Upto(1, 2, 0, 0, 1),
       Upto(1, 1, 0, 0, 0),
       false,
       {"resolve done", "resolve taken back", "settle diverged"}},
      {"ResolvingAndAnOrderToOneSide",
       Start::kBothChanged,
       Upto(1, 1, 1, 0, 0),
       Upto(1, 0, 1, 0, 0),
       true,
       {"resolve done", "settle done"}},
      {"ResolvingTwiceAtOnce",
       Start::kBothChanged,
       Upto(2, 0, 0, 0, 1),
       Upto(2, 0, 0, 0, 0),
       false,
       {"resolve done", "resolve refused", "sync done"}},
      {"LostRecordsDuringAnOperation",
       Start::kProtected,
       Upto(1, 1, 0, 1, 1),
       Upto(1, 0, 0, 1, 1),
       false,
       {"settle held", "settle done", "sync done"}},
      {"LostRecordsAndAnOrderToOneSide",
       Start::kProtected,
       Upto(0, 2, 1, 1, 1),
       Upto(0, 1, 1, 1, 1),
       false,
       {"settle held", "settle done"}},
  };
  return parts;
}

class TwoSidesModel : public testing::TestWithParam<Part> {};

TEST_P(TwoSidesModel, NothingThatCanHappenBreaksARuleAndAllOfItComesToAGoodEnd) {
  const Part& part = GetParam();
  World begin = Begin(part.start, kIsSlow ? part.when_slow : part.budget);
  begin.scope.is_one_at_a_time = part.is_one_at_a_time;
  ASSERT_EQ(begin.broken, "");
  const Found found = Explore(begin, Mutation::kNone, kMostStates);
  std::cout << part.name << ": " << found.states << " states, " << found.transitions
            << " transitions, settled from " << found.settled << ", of these diverged "
            << found.diverged << " and held " << found.held << "\n";
  EXPECT_EQ(found.broken, "") << Text(found);
  EXPECT_TRUE(found.is_whole) << "given up after " << found.states << " states";
  if (kIsSlow) return;
  for (const std::string& each : part.ends) EXPECT_EQ(found.ends.count(each), 1U) << each;
}

INSTANTIATE_TEST_SUITE_P(Parts, TwoSidesModel, testing::ValuesIn(Parts()),
                         [](const auto& tested) { return tested.param.name; });

// What a rule is for is seen when it is off.
struct Weakened {
  Mutation mutation;
  Start start;
  Budget budget;
  std::vector<Op> operations;
  std::string broken;
};

std::string NameOf(Mutation mutation) {
  for (const auto& each : two_sides::Mutations()) {
    if (each.mutation == mutation) return each.name;
  }
  return "Unknown";
}

void PrintTo(const Weakened& weakened, std::ostream* out) {
  *out << NameOf(weakened.mutation);
}

const std::vector<Weakened>& AllWeakened() {
  static const std::string kBothWritable = "both copies are writable, and nobody forced that";
  static const std::string kGivenUp = "a side is writable that has given up its part";
  static const std::string kNotAsTaken = "a snapshot is recorded that is not there as it was taken";
  static const std::vector<Weakened> all = {
      {Mutation::kPromoteBeforeGivenUp, Start::kProtected, Upto(1, 0, 0, 0, 0), {}, kBothWritable},
      {Mutation::kSayUnwritableOnly, Start::kProtected, Upto(1, 0, 0, 0, 0), {}, kGivenUp},
      {Mutation::kRecordBeforeUnwritable, Start::kProtected, Upto(1, 1, 0, 0, 0), {}, kGivenUp},
      {Mutation::kWritableBeforeCommit,
       Start::kProtected,
       Upto(1, 1, 0, 0, 0),
       {},
       "a side that does not work is writable"},
      {Mutation::kAcceptAnyAttempt,
       Start::kProtected,
       Upto(2, 1, 0, 0, 0),
       {Op::kSwitchover, Op::kFailover},
       kBothWritable},
      {Mutation::kAcceptOldAttempt,
       Start::kProtected,
       Upto(1, 2, 0, 0, 0),
       {Op::kSwitchover, Op::kFailover},
       kBothWritable},
      {Mutation::kTakeBackWithoutVoid,
       Start::kProtected,
       Upto(1, 1, 0, 0, 0),
       {Op::kSwitchover, Op::kFailover},
       kBothWritable},
      {Mutation::kCloseBeforeFinish,
       Start::kProtected,
       Upto(1, 1, 1, 0, 0),
       {},
       "a settled plan cannot be synced"},
      {Mutation::kForgetTombstone,
       Start::kProtected,
       Upto(1, 0, 0, 0, 0),
       {},
       "a side is held without need"},
      {Mutation::kForgetNumbers,
       Start::kProtected,
       Upto(1, 1, 0, 0, 0),
       {},
       "a deleted plan is there again"},
      {Mutation::kNumbersOfOneKind,
       Start::kProtected,
       Upto(0, 0, 2, 0, 0),
       {},
       "two terms of one number say different things"},
      {Mutation::kAdoptWhateverIsHigher,
       Start::kProtected,
       Upto(0, 0, 2, 0, 0),
       {},
       "a side took in a term that does not follow its own, and told nobody"},
      {Mutation::kDoNotHold,
       Start::kProtected,
       Upto(0, 0, 1, 1, 0),
       {},
       "both sides have talked, and both can be written"},
      {Mutation::kDoNotKeepBytes,
       Start::kFailedOver,
       Upto(2, 0, 0, 0, 0),
       {},
       "an acknowledged write is nowhere any more"},
      {Mutation::kSnapshotBeforeQuiet,
       Start::kProtected,
       Upto(1, 0, 0, 0, 1),
       {},
       "an acknowledged write is missing in the copy that works"},
      {Mutation::kCommitWithoutBytes, Start::kProtected, Upto(1, 0, 0, 0, 0), {}, kNotAsTaken},
      {Mutation::kRecordBeforeBytes, Start::kProtected, Upto(1, 1, 0, 0, 0), {}, kNotAsTaken},
      {Mutation::kReleaseBeforeArrival,
       Start::kProtected,
       Upto(1, 0, 0, 0, 0),
       {},
       "no snapshot is on both sides any more"},
      {Mutation::kDoNotRoll,
       Start::kProtected,
       Upto(1, 1, 1, 0, 1),
       {},
       "a copy does not hold exactly the snapshot that it is to work from"},
      {Mutation::kTimesAreNotTold,
       Start::kProtected,
       Upto(2, 0, 0, 0, 0),
       {},
       "a snapshot is not later than all before it"},
      {Mutation::kTellEndsResolving, Start::kBothChanged, Upto(1, 1, 0, 0, 0), {}, kBothWritable},
  };
  return all;
}

class WeakenedTwoSides : public testing::TestWithParam<Weakened> {};

TEST_P(WeakenedTwoSides, WithoutARuleSomethingBreaksAndWithItNothingDoes) {
  const Weakened& weakened = GetParam();
  World begin = Begin(weakened.start, weakened.budget);
  begin.scope.operations = weakened.operations;
  const Found found = Explore(begin, weakened.mutation, kMostStates);
  ASSERT_NE(found.broken, "") << "nothing breaks in " << found.states << " states";
  std::cout << "Found among " << found.states << " states: " << Text(found);
  EXPECT_EQ(found.broken, weakened.broken);
  const Found sound = Explore(begin, Mutation::kNone, found.states);
  EXPECT_EQ(sound.broken, "") << Text(sound);
}

INSTANTIATE_TEST_SUITE_P(Rules, WeakenedTwoSides, testing::ValuesIn(AllWeakened()),
                         [](const auto& tested) { return NameOf(tested.param.mutation); });

TEST(TwoSidesMutations, EachIsTried) {
  for (const auto& each : two_sides::Mutations()) {
    EXPECT_TRUE(std::any_of(AllWeakened().begin(), AllWeakened().end(), [&](const Weakened& tried) {
      return tried.mutation == each.mutation;
    })) << each.name;
  }
}

}  // namespace
}  // namespace host_test
