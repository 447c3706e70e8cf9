#include "vreldr/cut.h"

#include <gmock/gmock.h>
#include <vreldr/error.h>

#include <csignal>
#include <filesystem>
#include <optional>
#include <thread>

#include "base/kill_point.h"
#include "holder.h"
#include "host_fixture.h"
#include "tree.h"
#include "vreldr/session.h"

// Cuts of targets of a host: what is recorded, listed, locked and left of them.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::IsEmpty;
using testing::SizeIs;
using VrelDR::Cut;
using VrelDR::CutGrade;
using VrelDR::CutInfo;
using VrelDR::CutReporter;
using VrelDR::Target;
using VrelDR::TargetOperation;
using VrelDR::Operation::Snapshot;

using Steps = std::vector<std::string_view>;

class CutTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    for (const Target& each : Targets()) {
      MakeShare(each.GetId());
      MakeSampleTree(PathOf(each.GetId()));
      WriteFile(PathOf(each.GetId()) + "/name", each.GetId());
    }
  }

  static std::vector<Target> Targets() {
    return {{"c", VrelDR::kTargetShare}, {"a", VrelDR::kTargetShare}, {"b", VrelDR::kTargetShare}};
  }
  static void PrepareAll(Cut& cut) { ASSERT_TRUE(cut.Prepare(Targets())) << cut.GetErr(); }
  static bool TakeUp(const std::string& targetId) {
    std::string snapId;
    return TargetOperation(VrelDR::kTargetShare, targetId).TakeSnapshot({}, snapId);
  }
  // The cut and its taking up, as one does it who may be killed.
  static bool CutAll() {
    Cut cut;
    bool isGood = cut.Prepare(Targets());
    for (const Target& each : Targets()) isGood = isGood && TakeUp(each.GetId());
    return isGood;
  }
  static std::size_t CountListed() {
    std::size_t count = 0;
    for (const Target& each : Targets()) count += ListIds(each.GetId()).size();
    return count;
  }
  // What is on the volume of snapshots, whatever it is called.
  std::size_t CountOnDisk() const {
    std::size_t count = 0;
    for (const Target& each : Targets()) {
      const std::string dir = VolumePath() + "/.vreldr/snapshots/" + each.GetId();
      if (fs::exists(dir)) count += static_cast<std::size_t>(Distance(dir));
    }
    return count;
  }
  void ExpectNothingElseOnDisk() const {
    EXPECT_EQ(CountOnDisk(), CountListed());
    ExpectNoLeftovers();
  }
  static bool IsRecorded(const std::string& cutId) {
    const CutReporter reporter;
    CutInfo info;
    const bool isFound = reporter.Find(cutId, info);
    EXPECT_EQ(reporter.GetErrCode(), 0) << reporter.GetErr();
    return isFound;
  }

 private:
  static std::ptrdiff_t Distance(const std::string& dir) {
    return std::distance(fs::directory_iterator(dir), {});
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, CutTest, testing::Values("tmpfs", "ext4", "xfs", "btrfs"),
                         HostTest::NameOf);

TEST_P(CutTest, ItsSnapshotsAppearOneByOneWithItsBytesItsTimeAndWhatTheCallerSays) {
  const Snapshot before = Take("a");
  Cut cut;
  PrepareAll(cut);
  const CutInfo& info = cut.GetInfo();
  EXPECT_EQ(info.members, 3);
  EXPECT_EQ(info.grade, IsBtrfs() ? CutGrade::kOneInstant : CutGrade::kNone);
  EXPECT_EQ(info.skew_ms == 0, IsBtrfs());
  EXPECT_EQ(info.held_ms, 0U);
  EXPECT_FALSE(info.method.empty());
  EXPECT_EQ(CountListed(), 1U);
  std::set<std::uint32_t> times;
  for (const Target& each : Targets()) {
    const std::string& id = each.GetId();
    WriteFile(PathOf(id) + "/name", "later");
    const TargetOperation operation(each);
    std::string snapId;
    ASSERT_TRUE(operation.TakeSnapshot({"desc " + id, true, true, "me"}, snapId))
        << operation.GetErr();
    const Snapshot taken = operation.GetSnapshot(snapId);
    EXPECT_EQ(ReadFile(taken.path + "/name"), id);
    EXPECT_EQ(taken.cut_id, info.id);
    EXPECT_EQ(taken.meta.description, "desc " + id);
    EXPECT_TRUE(taken.meta.is_locked);
    EXPECT_TRUE(taken.meta.is_app_consistent);
    EXPECT_EQ(taken.meta.taken_by, "me");
    EXPECT_EQ(taken.maker, VrelDR::Operation::ThisMaker());
    EXPECT_GT(taken.create_time, before.create_time);
    times.insert(taken.create_time);
    // The next one is a snapshot like any other.
    const Snapshot next = Take(id);
    EXPECT_EQ(next.cut_id, "");
    EXPECT_GT(next.create_time, taken.create_time);
  }
  EXPECT_THAT(times, SizeIs(1));
  EXPECT_EQ(before.cut_id, "");
  ExpectNothingElseOnDisk();
}

TEST_P(CutTest, WhatIsRecordedOfItGoesWithTheLastOfItsSnapshots) {
  std::string cutId;
  {
    Cut cut;
    PrepareAll(cut);
    cutId = cut.GetInfo().id;
    ASSERT_TRUE(TakeUp("a"));
    ASSERT_TRUE(TakeUp("b"));
  }
  CutInfo info;
  ASSERT_TRUE(CutReporter().Find(cutId, info));
  EXPECT_EQ(info.id, cutId);
  EXPECT_EQ(info.members, 3);
  EXPECT_EQ(info.grade, IsBtrfs() ? CutGrade::kOneInstant : CutGrade::kNone);
  EXPECT_FALSE(info.method.empty());
  EXPECT_TRUE(TargetOperation(2, "a").DeleteSnapshot(ListIds("a").front()));
  EXPECT_TRUE(IsRecorded(cutId));
  EXPECT_TRUE(VrelDR::TargetManager().Remove("b", true));
  EXPECT_FALSE(IsRecorded(cutId));
}

TEST_P(CutTest, WhatNobodyTakesUpGoesWithIt) {
  std::string cutId;
  {
    Cut cut;
    PrepareAll(cut);
    cutId = cut.GetInfo().id;
    EXPECT_TRUE(IsRecorded(cutId));
  }
  EXPECT_FALSE(IsRecorded(cutId));
  EXPECT_EQ(CountListed(), 0U);
  ExpectNothingElseOnDisk();
  {
    Cut cut;
    PrepareAll(cut);
    ASSERT_TRUE(TakeUp("b"));
  }
  EXPECT_EQ(CountListed(), 1U);
  ExpectNothingElseOnDisk();
  // It has no right any more either.
  for (const Target& each : Targets()) Take(each.GetId());
}

TEST_P(CutTest, ItsRightGoesWithItAlsoWhileAProcessLivesThatWasForkedOffBefore) {
  std::optional<Cut> cut;
  PrepareAll(cut.emplace());
  const Holder child([] { return true; });
  cut.reset();
  for (const Target& each : Targets()) Take(each.GetId());
}

TEST_P(CutTest, NothingElseChangesItsTargetsBeforeTheirSnapshotsWereTakenUp) {
  const Snapshot old = Take("a");
  Cut cut;
  PrepareAll(cut);
  const TargetOperation operation(2, "a");
  EXPECT_FALSE(operation.DeleteSnapshot(old.snap_id));
  ExpectError(operation, VrelDR::kErrBusy, {"\"a\"", "cut"});
  EXPECT_FALSE(operation.RestoreSnapshot(old.snap_id));
  EXPECT_EQ(operation.GetErrCode(), VrelDR::kErrBusy);
  EXPECT_FALSE(VrelDR::TargetManager().Remove("a", true));
  Cut another;
  EXPECT_FALSE(another.Prepare(Targets()));
  ExpectError(another, VrelDR::kErrBusy, {"\"a\""});
  // Of another process, everything; it does not take up, nor does its copy of the cut remove.
  EXPECT_EQ(RunInChild({},
                       [&] {
                         const TargetOperation there(2, "a");
                         std::string snapId;
                         const bool isRefused = !there.TakeSnapshot({}, snapId) &&
                                                there.GetErrCode() == VrelDR::kErrBusy;
                         cut.~Cut();
                         return isRefused ? 0 : 1;
                       }),
            0);
  ASSERT_TRUE(TakeUp("a"));
  EXPECT_TRUE(operation.DeleteSnapshot(old.snap_id)) << operation.GetErr();
  EXPECT_THAT(ListIds("a"), SizeIs(1));
  ASSERT_TRUE(TakeUp("b"));
  ASSERT_TRUE(TakeUp("c"));
}

TEST_P(CutTest, ATargetThatDoesNotGoAlongIsNamedAndNothingIsLeftOrLocked) {
  const auto expectRefused = [](const std::vector<Target>& targets, int code,
                                const std::string& part) {
    Cut cut;
    EXPECT_FALSE(cut.Prepare(targets));
    ExpectError(cut, code, {part});
    // Also while it lives.
    for (const Target& each : Targets()) Take(each.GetId());
  };
  expectRefused({}, VrelDR::kErrBadArgument, "name one");
  expectRefused({{"a", 2}, {"b", 2}, {"a", 2}}, VrelDR::kErrBadArgument, "\"a\"");
  expectRefused({{"a", 2}, {"none", 2}}, VrelDR::kErrTargetMissing, "none");
  for (const char* point : {"take@b", "cut@b"}) {
    setenv("VRELDR_FAIL_POINT", point, 1);
    Cut cut;
    EXPECT_FALSE(cut.Prepare(Targets()));
    unsetenv("VRELDR_FAIL_POINT");
    ExpectError(cut, VrelDR::kErrIo, {"\"b\""});
    ExpectNothingElseOnDisk();
  }
  Cut cut;
  PrepareAll(cut);
  EXPECT_FALSE(cut.Prepare(Targets()));
  EXPECT_EQ(cut.GetErrCode(), VrelDR::kErrBadArgument);
  ASSERT_TRUE(TakeUp("a"));
}

TEST_P(CutTest, OneThatCannotBeTakenUpIsGoneAndTheNextIsTakenAnew) {
  Cut cut;
  PrepareAll(cut);
  setenv("VRELDR_FAIL_POINT", "take_up@b", 1);
  EXPECT_FALSE(TakeUp("b"));
  unsetenv("VRELDR_FAIL_POINT");
  EXPECT_THAT(ListIds("b"), IsEmpty());
  EXPECT_EQ(Take("b").cut_id, "");
  EXPECT_EQ(Take("a").cut_id, cut.GetInfo().id);
  EXPECT_EQ(Take("c").cut_id, cut.GetInfo().id);
  ExpectNothingElseOnDisk();
}

TEST_P(CutTest, AnyThreadTakesUpAndOneAloneEach) {
  const VrelDR::Session session;
  for (int round = 0; round < 3; ++round) {
    Cut cut;
    PrepareAll(cut);
    std::vector<std::jthread> threads;
    for (int i = 0; i < 2; ++i) {
      for (const Target& each : Targets()) {
        // Of two the other one is refused, or takes one anew when the first has done.
        threads.emplace_back([each] { (void)TakeUp(each.GetId()); });
      }
    }
    threads.clear();
    for (const Target& each : Targets()) {
      int count = 0;
      for (const Snapshot& snapshot : TargetOperation(each).ListSnapshots()) {
        count += snapshot.cut_id == cut.GetInfo().id ? 1 : 0;
      }
      EXPECT_EQ(count, 1) << each.GetId();
    }
  }
}

TEST_P(CutTest, OneThatIsKilledLeavesNothingHalfListedAndTheNextChangeOfEachTargetClearsIt) {
  const Steps all = {VrelDR::kCutRecorded, VrelDR::kCopyFile,    VrelDR::kTakeCopied,
                     VrelDR::kCutTaken,    VrelDR::kCutSettled,  VrelDR::kTakeRecorded,
                     VrelDR::kTakeFrozen,  VrelDR::kTakeRenamed, VrelDR::kTakeUpRenamed,
                     VrelDR::kTakeWhole,   VrelDR::kTakeDone};
  for (const std::string_view step : all) {
    const bool isOfCopies =
        step == VrelDR::kCopyFile || step == VrelDR::kTakeCopied || step == VrelDR::kTakeFrozen;
    if (isOfCopies && IsBtrfs()) continue;
    SCOPED_TRACE(step);
    const std::size_t before = CountListed();
    ASSERT_EQ(
        RunInChild({{"VRELDR_KILL_POINT", std::string(step)}}, [] { return CutAll() ? 0 : 1; }),
        128 + SIGKILL);
    const std::size_t done = step == VrelDR::kTakeDone ? 1 : 0;
    EXPECT_EQ(CountListed(), before + done);
    for (const Target& each : Targets()) {
      for (const Snapshot& snapshot : TargetOperation(each).ListSnapshots()) {
        EXPECT_EQ(ReadFile(snapshot.path + "/name"), each.GetId());
        EXPECT_TRUE(snapshot.cut_id.empty() || IsRecorded(snapshot.cut_id));
      }
      Take(each.GetId());
    }
    ExpectNothingElseOnDisk();
  }
  EXPECT_TRUE(CutAll());
  ExpectNothingElseOnDisk();
}

}  // namespace
}  // namespace host_test
