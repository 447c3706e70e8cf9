#include "vreldr/snapshot_history.h"

#include <gtest/gtest.h>

namespace host_test {
namespace {

namespace History = VrelDR::SnapshotHistory;
using History::SnapshotList;
using VrelDR::ArrivedSnapshots;
using VrelDR::Operation::Snapshot;
using Ids = std::vector<std::string>;

Snapshot Taken(const std::string& snapId, std::uint32_t time, std::uint64_t sequence = 1) {
  Snapshot snapshot;
  snapshot.snap_id = snapId;
  snapshot.create_time = time;
  snapshot.sequence = sequence;
  return snapshot;
}

Snapshot Described(const std::string& snapId, std::uint32_t time, const std::string& description) {
  Snapshot snapshot = Taken(snapId, time);
  snapshot.meta.description = description;
  return snapshot;
}

Ids IdsOf(const SnapshotList& snapshots) {
  Ids ids;
  for (const Snapshot& each : snapshots) ids.push_back(each.snap_id);
  return ids;
}

// Of the first snapshots of a target, each a second after the one before.
SnapshotList Line(const Ids& ids) {
  SnapshotList snapshots;
  for (const std::string& each : ids) {
    snapshots.push_back(Taken(each, static_cast<std::uint32_t>(100 + snapshots.size())));
  }
  return snapshots;
}

TEST(SnapshotHistory, FindsASnapshotByItsIdentifier) {
  const SnapshotList snapshots = Line({"a", "b"});
  EXPECT_EQ(History::Find(snapshots, "b"), &snapshots[1]);
  EXPECT_EQ(History::Find(snapshots, "c"), nullptr);
  EXPECT_EQ(History::Find({}, "a"), nullptr);
}

TEST(SnapshotHistory, TheNewestCommonOneIsTheLastThatTheOtherHasToo) {
  const SnapshotList one = Line({"a", "b", "c", "d"});
  EXPECT_EQ(History::NewestCommon(one, Line({"c", "a", "x"})), "c");
  EXPECT_EQ(History::NewestCommon(one, Line({"x"})), "");
  EXPECT_EQ(History::NewestCommon(one, {}), "");
  EXPECT_EQ(History::NewestCommon({}, one), "");
}

TEST(SnapshotHistory, TheNewestCommonOneBeforeAnotherLeavesThatAndTheLaterOnesOut) {
  const SnapshotList one = Line({"a", "b", "c", "d"});
  const SnapshotList other = Line({"a", "b", "c", "d"});
  EXPECT_EQ(History::NewestCommon(one, other, "d"), "c");
  EXPECT_EQ(History::NewestCommon(one, Line({"a", "d"}), "c"), "a");
  EXPECT_EQ(History::NewestCommon(one, other, "a"), "");
  EXPECT_EQ(History::NewestCommon(one, other, "gone"), "d");
}

TEST(SnapshotHistory, TheNewestHeldOneIsKnownFromEitherSide) {
  const SnapshotList here = {Taken("a", 10), Taken("b", 20)};
  const SnapshotList there = {Taken("b", 99), Taken("c", 15)};
  EXPECT_EQ(History::NewestHeld({"c", "a"}, here, there).snap_id, "c");
  EXPECT_EQ(History::NewestHeld({"a", "c", "b"}, here, there).snap_id, "b");
  EXPECT_EQ(History::NewestHeld({"b"}, here, there).create_time, 20U) << "the own side counts";
  EXPECT_TRUE(History::NewestHeld({}, here, there).snap_id.empty());
}

TEST(SnapshotHistory, AHeldOneThatNobodyKnowsIsOlderThanAllOthers) {
  const Snapshot newest = History::NewestHeld({"x", "a"}, Line({"a"}), {});
  EXPECT_EQ(newest.snap_id, "a");
  const Snapshot unknown = History::NewestHeld({"x"}, Line({"a"}), {});
  EXPECT_EQ(unknown.snap_id, "x");
  EXPECT_EQ(unknown.create_time, 0U);
}

TEST(SnapshotHistory, OneIsTheNewestUnlessALaterOneIsHeld) {
  const SnapshotList snapshots = {Taken("a", 10, 1), Taken("b", 20, 2), Taken("c", 20, 3)};
  EXPECT_TRUE(History::IsNewest(Taken("n", 15), snapshots, {"a"}));
  EXPECT_FALSE(History::IsNewest(Taken("n", 15), snapshots, {"a", "b"}));
  EXPECT_TRUE(History::IsNewest(Taken("n", 15), snapshots, {"gone"}));
  EXPECT_TRUE(History::IsNewest(Taken("n", 15), {}, {"a"}));
  EXPECT_FALSE(History::IsNewest(snapshots[1], snapshots, {"c"})) << "of one second, but later";
  EXPECT_TRUE(History::IsNewest(snapshots[2], snapshots, {"b", "c"}));
}

TEST(SnapshotHistory, AReplicaTakesOverWithWhatIsRecordedWhenItIsThere) {
  const SnapshotList present = Line({"a", "b", "own"});
  const ArrivedSnapshots arrived = History::WhatArrived(present[1], "", present);
  EXPECT_EQ(arrived.recorded_id, "b");
  EXPECT_FALSE(arrived.is_gone);
  EXPECT_EQ(arrived.newest.snap_id, "b") << "what is newer never was sent";
}

TEST(SnapshotHistory, AReplicaTakesOverWithWhatHasArrivedAndIsNotRecordedYet) {
  const SnapshotList present = Line({"a", "b", "c"});
  EXPECT_EQ(History::WhatArrived(present[1], "c", present).newest.snap_id, "c");
  EXPECT_EQ(History::WhatArrived(present[1], "a", present).newest.snap_id, "b");
  EXPECT_EQ(History::WhatArrived(present[1], "still-on-its-way", present).newest.snap_id, "b");
  EXPECT_EQ(History::WhatArrived({}, "b", present).newest.snap_id, "b");
}

TEST(SnapshotHistory, WhenTheRecordedOneIsGoneAnOlderOneThatWasSentTakesItsPlace) {
  const SnapshotList present = {Taken("a", 10), Described("kept", 11, "Before reprotect"),
                                Taken("own", 30)};
  const ArrivedSnapshots arrived = History::WhatArrived(Taken("gone", 20), "", present);
  EXPECT_TRUE(arrived.is_gone);
  EXPECT_EQ(arrived.recorded_id, "gone");
  EXPECT_EQ(arrived.newest.snap_id, "a");
  Snapshot unknown;
  unknown.snap_id = "gone";
  EXPECT_EQ(History::WhatArrived(unknown, "", present).newest.snap_id, "own")
      << "nobody knows how old it was";
}

TEST(SnapshotHistory, AReplicaWithNothingThatArrivedHasNothingToTakeOverWith) {
  const ArrivedSnapshots none = History::WhatArrived({}, "", Line({"own"}));
  EXPECT_TRUE(none.recorded_id.empty());
  EXPECT_FALSE(none.is_gone);
  EXPECT_TRUE(none.newest.snap_id.empty());
  const ArrivedSnapshots gone = History::WhatArrived(Taken("gone", 20), "", {});
  EXPECT_TRUE(gone.is_gone);
  EXPECT_TRUE(gone.newest.snap_id.empty());
}

TEST(SnapshotHistory, NewerIsWhatWasTakenLaterOrInTheSameSecondAfterIt) {
  const SnapshotList snapshots = {Taken("a", 10, 1), Taken("b", 20, 2), Taken("c", 20, 3)};
  EXPECT_EQ(History::NewerThan(snapshots, "a", 0), Ids({"b", "c"}));
  EXPECT_EQ(History::NewerThan(snapshots, "b", 99), Ids({"c"}));
  EXPECT_EQ(History::NewerThan(snapshots, "c", 0), Ids());
}

TEST(SnapshotHistory, NewerThanOneThatIsNotThereIsWhatWasTakenAfterItsTime) {
  const SnapshotList snapshots = Line({"a", "b", "c"});
  EXPECT_EQ(History::NewerThan(snapshots, "gone", 101), Ids({"c"}));
  EXPECT_EQ(History::NewerThan(snapshots, "gone", 0), Ids({"a", "b", "c"}));
  EXPECT_EQ(History::NewerThan({}, "gone", 0), Ids());
}

TEST(SnapshotHistory, StillToSendIsWhatTheSourceHasAndTheReplicaHasNot) {
  const SnapshotList source = Line({"a", "b", "c", "d"});
  EXPECT_EQ(History::StillToSend({"d", "gone", "b", "a"}, source, Line({"b"})), Ids({"a", "d"}));
  EXPECT_EQ(History::StillToSend({}, source, {}), Ids());
  EXPECT_EQ(History::StillToSend({"a"}, {}, {}), Ids());
}

TEST(SnapshotHistory, IdentifiersAreSortedByAgeAndTheUnknownOnesGoLast) {
  const SnapshotList snapshots = {Taken("c", 30, 1), Taken("a", 10, 4), Taken("b", 10, 5)};
  Ids ids = {"y", "c", "b", "x", "a"};
  History::SortByAge(snapshots, ids);
  EXPECT_EQ(ids, Ids({"a", "b", "c", "y", "x"}));
  History::SortByAge({}, ids);
  EXPECT_EQ(ids, Ids({"a", "b", "c", "y", "x"}));
}

TEST(SnapshotHistory, LeftoversCarryTheDescriptionAndAreNeededByNobody) {
  const SnapshotList snapshots = {Described("a", 10, "By sync"), Described("b", 20, "by hand"),
                                  Taken("c", 30), Described("d", 40, "By sync"),
                                  Described("e", 50, "By sync")};
  EXPECT_EQ(IdsOf(History::Leftovers(snapshots, "By sync", {"d"})), Ids({"a", "e"}));
  EXPECT_EQ(IdsOf(History::Leftovers(snapshots, "", {"d"})), Ids({"c"}));
  EXPECT_EQ(IdsOf(History::Leftovers({}, "", {})), Ids());
}

}  // namespace
}  // namespace host_test
