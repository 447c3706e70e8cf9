#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <thread>

#include "base/fail_point.h"
#include "base/kill_point.h"
#include "contract_rig.h"
#include "fake/misbehaviour.h"
#include "tree.h"

// What engine/engine.h and engine/link.h promise, of every engine that keeps them. What an engine
// may refuse is tested of the one that refuses it.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using VrelDR::kErrExists;
using VrelDR::kErrIo;
using VrelDR::kErrSnapshotMissing;
using VrelDR::kErrStopped;
using VrelDR::kErrUnreachable;
using VrelDR::kErrUnsupported;
using VrelDR::kErrVolumeMissing;
using VrelDR::Manner;
using VrelDR::PlaceUse;
using VrelDR::Status;
using VrelDR::TargetPlace;
using VrelDR::Watcher;

constexpr std::size_t kMiB = 1 << 20;

class EngineContractTest : public ContractTest {
 protected:
  using Call = std::function<Status(Watcher&)>;

  // All calls that need the side's volume, each about the target that the side has.
  static std::vector<std::pair<std::string, Call>> CallsOf(const Side& side) {
    const VrelDR::StorageEngine& engine = *side.engine;
    const TargetPlace& place = side.place;
    const TargetPlace other{"other", VrelDR::kTargetShare, "other"};
    return {
        {"Describe",
         [&](Watcher& watcher) {
           VrelDR::VolumeDescription description;
           return engine.Describe(description, watcher);
         }},
        {"Look",
         [&](Watcher& watcher) {
           VrelDR::VolumeSight sight;
           return engine.Look(sight, watcher);
         }},
        {"Mark", [&](Watcher& watcher) { return engine.Mark(*side.identity, false, watcher); }},
        {"CheckWritable", [&](Watcher& watcher) { return engine.CheckWritable(watcher); }},
        {"PreparePlace",
         [&](Watcher& watcher) {
           std::string locator;
           return engine.PreparePlace({"other", VrelDR::kTargetShare}, locator, watcher);
         }},
        {"CreateTarget",
         [&, other](Watcher& watcher) { return engine.CreateTarget(other, {}, watcher); }},
        {"FindTarget",
         [&](Watcher& watcher) {
           bool found = false;
           return engine.FindTarget(place, found, watcher);
         }},
        {"CheckPlace",
         [&](Watcher& watcher) { return engine.CheckPlace(place, PlaceUse::kRemoval, watcher); }},
        {"FindLeftOut",
         [&](Watcher& watcher) {
           std::vector<std::string> paths;
           return engine.FindLeftOut(place, paths, watcher);
         }},
        {"RemoveTarget", [&](Watcher& watcher) { return engine.RemoveTarget(place, watcher); }},
        {"TakeSnapshot",
         [&](Watcher& watcher) { return engine.TakeSnapshot(place, "new", watcher); }},
        {"ListSnapshots",
         [&](Watcher& watcher) {
           std::set<std::string> ids;
           return engine.ListSnapshots(place, ids, watcher);
         }},
        {"RemoveSnapshot",
         [&](Watcher& watcher) { return engine.RemoveSnapshot(place, "s1", watcher); }},
        {"RestoreSnapshot",
         [&](Watcher& watcher) { return engine.RestoreSnapshot(place, "s1", watcher); }},
        {"CloneSnapshot",
         [&, other](Watcher& watcher) {
           return engine.CloneSnapshot(place, "s1", other, watcher);
         }},
        {"Quiesce", [&](Watcher& watcher) { return engine.Quiesce(place, watcher); }},
        {"Demote", [&](Watcher& watcher) { return engine.Demote(place, watcher); }},
        {"Promote",
         [&](Watcher& watcher) { return engine.Promote(place, "s1", Manner::kForced, watcher); }},
        {"Rejoin", [&](Watcher& watcher) { return engine.Rejoin(place, "kept", watcher); }},
        {"CleanUp", [&](Watcher& watcher) { return engine.CleanUp(place, watcher); }},
    };
  }

  Status Attach() {
    Watcher watcher;
    return LinkOf(A(), B())->Attach(A().place, B().place, watcher);
  }
  Status Detach() {
    Watcher watcher;
    return LinkOf(A(), B())->Detach(A().place, B().place, watcher);
  }
  static Status Quiesce(const EngineTarget& target) {
    Watcher watcher;
    return target.engine->Quiesce(target.place, watcher);
  }
  static Status DemoteOnly(const EngineTarget& target) {
    Watcher watcher;
    return target.engine->Demote(target.place, watcher);
  }
  static Status Promote(const EngineTarget& target, const std::string& snapId, Manner manner) {
    Watcher watcher;
    return target.engine->Promote(target.place, snapId, manner, watcher);
  }
  static Status Rejoin(const EngineTarget& target, const std::string& keptId) {
    Watcher watcher;
    return target.engine->Rejoin(target.place, keptId, watcher);
  }
  Status ShipToB(const std::string& snapId) {
    Watcher watcher;
    return TryShip(A(), snapId, "", B(), watcher);
  }
  // The whole way of a switchover.
  static void SwitchOver(const Side& from, const Side& to, const std::string& snapId,
                         const std::string& base) {
    ExpectGood(Quiesce(from));
    Take(from, snapId);
    Ship(from, snapId, base, to);
    ExpectGood(DemoteOnly(from));
    ExpectGood(Promote(to, snapId, Manner::kOrderly));
  }
  // The time of the top is set last, when all else is in its place.
  static Tree WithoutTop(Tree tree) {
    tree.erase(".");
    return tree;
  }
};

// Every pair of volumes between which there is a link.
INSTANTIATE_TEST_SUITE_P(Volumes, EngineContractTest,
                         testing::Values("ext4-ext4", "xfs-xfs", "btrfs-btrfs", "ext4-btrfs",
                                         "fake-fake"),
                         EngineTest::NameOf);

// The volume.

TEST_P(EngineContractTest, AVolumeSaysHowMuchRoomItHas) {
  VrelDR::VolumeDescription description;
  Watcher watcher;
  ExpectGood(A().engine->Describe(description, watcher));
  EXPECT_THAT(description.method, Not(IsEmpty()));
  EXPECT_GT(description.size_bytes, 0U);
  EXPECT_GT(description.free_bytes, 0U);
  EXPECT_LE(description.free_bytes, description.size_bytes);
  ExpectGood(A().engine->CheckWritable(watcher));
}

TEST_P(EngineContractTest, AnIdentityStaysUntilItIsMadeAnew) {
  Watcher watcher;
  VrelDR::VolumeSight sight;
  VrelDR::VolumeIdentity another = *A().identity;
  another.id = "another";
  ExpectGood(A().engine->Mark(*A().identity, false, watcher));
  EXPECT_EQ(A().engine->Mark(another, false, watcher).code, kErrExists);
  ExpectGood(A().engine->Look(sight, watcher));
  EXPECT_TRUE(sight.has_identity);
  EXPECT_TRUE(sight.has_own);
  EXPECT_FALSE(sight.is_empty);
  EXPECT_EQ(sight.file_system, A().identity->file_system);
  ASSERT_TRUE(sight.identity);
  EXPECT_EQ(sight.identity->id, A().identity->id);
  for (int i = 0; i < 2; ++i) ExpectGood(A().engine->Mark(another, true, watcher));
  ExpectGood(A().engine->Look(sight, watcher));
  ASSERT_TRUE(sight.identity);
  EXPECT_EQ(sight.identity->id, "another");
}

TEST_P(EngineContractTest, AVolumeThatIsNotTheExpectedOneIsMissingForEveryCallButTwo) {
  Take(A(), "s1");
  const Tree bytes = BytesOf(A());
  Watcher watcher;
  VrelDR::VolumeIdentity another = *A().identity;
  another.id = "another";
  ExpectGood(A().engine->Mark(another, true, watcher));
  for (const auto& [name, call] : CallsOf(A())) {
    if (name == "Look" || name == "Mark") continue;
    EXPECT_EQ(call(watcher).code, kErrVolumeMissing) << name;
  }
  EXPECT_EQ(ShipToB("s1").code, kErrVolumeMissing);
  ExpectGood(A().engine->Mark(*A().identity, true, watcher));
  EXPECT_EQ(BytesOf(A()), bytes);
  EXPECT_THAT(A().Snapshots(), ElementsAre("s1"));
}

TEST_P(EngineContractTest, EveryCallFailsForAVolumeThatIsOutOfReachAndNothingIsLost) {
  Take(A(), "s1");
  const Tree bytes = BytesOf(A());
  const Tree snapshot = BytesOf(A(), "s1");
  for (const Cut cut : CutsOf(A())) {
    CutOff(A(), cut);
    Watcher watcher;
    for (const auto& [name, call] : CallsOf(A())) {
      // A directory without its volume is one like any other for who expects nothing of it.
      if (!A().IsFake() && (name == "Look" || name == "Mark")) continue;
      EXPECT_EQ(call(watcher).code, CodeOf(cut)) << name;
    }
    CutBack(A(), cut);
    EXPECT_EQ(BytesOf(A()), bytes);
    EXPECT_EQ(BytesOf(A(), "s1"), snapshot);
    EXPECT_THAT(A().Snapshots(), ElementsAre("s1"));
  }
}

TEST_P(EngineContractTest, EveryCallOfALinkFailsForAnEndThatItNeedsAndCannotReach) {
  Take(A(), "s1");
  Watcher watcher;
  for (Side* side : {&A(), &B()}) {
    for (const Cut cut : CutsOf(*side)) {
      SCOPED_TRACE(side->config.name + " " + std::to_string(CodeOf(cut)));
      CutOff(*side, cut);
      const std::unique_ptr<VrelDR::Link> link = LinkOf(A(), B());
      const int ofSource = side == &A() ? CodeOf(cut) : 0;
      const int ofReplica = side == &B() ? CodeOf(cut) : 0;
      // A link that takes every target need not look at the source.
      EXPECT_THAT(link->Check(A().place, watcher).code, AnyOf(0, ofSource));
      EXPECT_EQ(link->Ship(A().place, "s1", "", B().place, watcher).code, CodeOf(cut));
      EXPECT_EQ(link->Drop(B().place, "", watcher).code, ofReplica);
      CutBack(*side, cut);
    }
  }
  Ship(A(), "s1", "", B());
  EXPECT_EQ(BytesOf(B(), "s1"), BytesOf(A(), "s1"));
}

// Targets.

TEST_P(EngineContractTest, ATargetIsKnownByItsLocatorAlone) {
  const EngineTarget alias{A().engine, {"alias", A().place.type, A().place.locator}};
  EXPECT_EQ(alias.TargetPath(), A().TargetPath());
  EXPECT_EQ(BytesOf(alias), BytesOf(A()));
  ExpectGood(alias.TakeSnapshot("s1"));
  EXPECT_THAT(A().Snapshots(), ElementsAre("s1"));
  EXPECT_EQ(alias.SnapshotPath("s1"), A().SnapshotPath("s1"));
  Write(A(), "later");
  ExpectGood(alias.Restore("s1"));
  EXPECT_EQ(BytesOf(A()), BytesOf(A(), "s1"));
  ExpectGood(alias.RemoveSnapshot("s1"));
  EXPECT_THAT(A().Snapshots(), IsEmpty());
  const EngineTarget elsewhere{A().engine, {A().place.id, A().place.type, "elsewhere"}};
  EXPECT_FALSE(IsThere(elsewhere));
  EXPECT_THAT(elsewhere.Snapshots(), IsEmpty());
}

TEST_P(EngineContractTest, ALinkKnowsTargetsByTheirLocatorsAlone) {
  Take(A(), "s1");
  Watcher watcher;
  const TargetPlace source{"x", A().place.type, A().place.locator};
  const TargetPlace replica{"y", B().place.type, B().place.locator};
  const std::unique_ptr<VrelDR::Link> link = LinkOf(A(), B());
  ExpectGood(link->Check(source, watcher));
  ExpectGood(link->Attach(source, replica, watcher));
  ExpectGood(link->Ship(source, "s1", "", replica, watcher));
  EXPECT_EQ(BytesOf(B(), "s1"), BytesOf(A(), "s1"));
  ExpectGood(link->Drop(replica, "", watcher));
  ExpectGood(link->Detach(source, replica, watcher));
}

TEST_P(EngineContractTest, APlaceIsPreparedOnceAndNotWhereSomethingIs) {
  std::string locator;
  Watcher watcher;
  EXPECT_EQ(A().engine->PreparePlace({A().place.id, VrelDR::kTargetShare}, locator, watcher).code,
            kErrExists);
  const EngineTarget made = Prepare(A(), "made", VrelDR::kTargetShare);
  EXPECT_FALSE(IsThere(made));
  ExpectGood(A().engine->PreparePlace({"made", VrelDR::kTargetShare}, locator, watcher));
}

TEST_P(EngineContractTest, ANewTargetHasWhatItsSourcesHaveAndWorks) {
  const fs::path sources = fs::path(A().path).parent_path() / "sources";
  MakeSampleTree(sources);
  const EngineTarget folder = Prepare(A(), "folder", VrelDR::kTargetShare);
  ExpectGood(folder.Create({0, {sources}}));
  EXPECT_EQ(WithoutTop(BytesOf(folder)), WithoutTop(DescribeTree(sources)));
  const EngineTarget parts = Prepare(A(), "parts", VrelDR::kTargetShare);
  ExpectGood(parts.Create({0, {sources / "plain", sources / "folder"}}));
  EXPECT_EQ(ReadFile(parts.TargetPath() + "/plain"), ReadFile(sources / "plain"));
  EXPECT_EQ(DescribeTree(parts.TargetPath() + "/folder"), DescribeTree(sources / "folder"));
  const EngineTarget empty = Prepare(A(), "empty", VrelDR::kTargetShare);
  ExpectGood(empty.Create({}));
  EXPECT_TRUE(fs::is_empty(empty.TargetPath()));
  const EngineTarget lun = Prepare(A(), "lun", VrelDR::kTargetLun);
  ExpectGood(lun.Create({kMiB, {}}));
  EXPECT_EQ(ReadFile(lun.TargetPath()), std::string(kMiB, '\0'));
  const EngineTarget image = Prepare(A(), "image", VrelDR::kTargetLun);
  ExpectGood(image.Create({0, {sources / "folder/below/large"}}));
  EXPECT_EQ(ReadFile(image.TargetPath()), ReadFile(sources / "folder/below/large"));
  for (const EngineTarget& each : {folder, parts, empty}) {
    WriteFile(each.TargetPath() + "/new", "written");
    ExpectGood(each.TakeSnapshot("s1"));
  }
}

TEST_P(EngineContractTest, ACreationThatFailsLeavesNothingInItsPlace) {
  const EngineTarget made = Prepare(A(), "made", VrelDR::kTargetShare);
  EXPECT_FALSE(made.Create({0, {"/var/no such source"}}).IsOk());
  EXPECT_FALSE(IsThere(made));
  setenv("VRELDR_FAIL_POINT", "create@made", 1);
  EXPECT_EQ(made.Create({}).code, kErrIo);
  unsetenv("VRELDR_FAIL_POINT");
  EXPECT_FALSE(IsThere(made));
  ExpectGood(made.CleanUp());
  ExpectGood(made.Create({}));
  EXPECT_TRUE(IsThere(made));
}

TEST_P(EngineContractTest, ACreationThatWasKilledIsThereAsAWholeOrNotAtAll) {
  Take(A(), "s1");
  const Tree wanted = WithoutTop(BytesOf(A(), "s1"));
  for (const bool isClone : {false, true}) {
    int reached = 0;
    for (const std::string_view step : Steps{VrelDR::kCopyFile, VrelDR::kCreateCopied,
                                             VrelDR::kCreateSynced, VrelDR::kCreateRenamed}) {
      SCOPED_TRACE(std::string(step) + (isClone ? " of a clone" : ""));
      const EngineTarget made = Prepare(A(), "made", VrelDR::kTargetShare);
      const auto create = [&] {
        return isClone ? A().Clone("s1", made) : made.Create({0, {A().SnapshotPath("s1")}});
      };
      if (IsKilledAt(step, create)) {
        ++reached;
        if (IsThere(made)) {
          EXPECT_EQ(WithoutTop(BytesOf(made)), wanted);
        } else {
          ExpectGood(made.CleanUp());
          ExpectGood(create());
        }
      }
      EXPECT_EQ(WithoutTop(BytesOf(made)), wanted);
      ExpectGood(made.Remove());
      EXPECT_FALSE(IsThere(made));
    }
    EXPECT_GE(reached, 1);
  }
}

TEST_P(EngineContractTest, ARemovedTargetIsGoneWithAllItHadAndCanBeRemovedAgain) {
  Take(A(), "s1");
  const std::string path = A().TargetPath();
  const std::string snapshot = A().SnapshotPath("s1");
  ExpectGood(A().CheckPlace(PlaceUse::kRemoval));
  for (int i = 0; i < 2; ++i) {
    ExpectGood(A().Remove());
    EXPECT_FALSE(IsThere(A()));
    EXPECT_THAT(A().Snapshots(), IsEmpty());
    EXPECT_FALSE(fs::exists(path));
    EXPECT_FALSE(fs::exists(snapshot));
    ExpectGood(A().CheckPlace(PlaceUse::kRemoval));
  }
  const EngineTarget never = Prepare(A(), "never", VrelDR::kTargetShare);
  ExpectGood(never.Remove());
  const EngineTarget again = Prepare(A(), "source", VrelDR::kTargetShare);
  ExpectGood(again.Create({}));
  EXPECT_THAT(again.Snapshots(), IsEmpty());
  EXPECT_TRUE(fs::is_empty(again.TargetPath()));
}

TEST_P(EngineContractTest, AReplicaIsRemovedWithWhatWasOnItsWay) {
  Take(A(), "s1");
  EXPECT_EQ(ShipHalf("s1").code, kErrIo);
  ExpectGood(B().Remove());
  EXPECT_FALSE(IsThere(B()));
  EXPECT_FALSE(fs::exists(B().SnapshotPath("s1")));
}

TEST_P(EngineContractTest, ATargetThatWorksIsRefusedForNothingAndNothingIsLeftOut) {
  Watcher watcher;
  for (const PlaceUse use :
       {PlaceUse::kSnapshot, PlaceUse::kReplacement, PlaceUse::kDemotion, PlaceUse::kRemoval}) {
    ExpectGood(A().CheckPlace(use));
  }
  std::vector<std::string> leftOut = {"kept"};
  ExpectGood(A().engine->FindLeftOut(A().place, leftOut, watcher));
  EXPECT_THAT(leftOut, ElementsAre("kept"));
}

// Snapshots.

TEST_P(EngineContractTest, ASnapshotHasTheBytesOfItsTimeWhateverIsWrittenLater) {
  const Tree first = BytesOf(A());
  Take(A(), "s1");
  Write(A(), "later");
  const Tree second = BytesOf(A());
  Take(A(), "s2");
  Write(A(), "last");
  EXPECT_EQ(BytesOf(A(), "s1"), first);
  EXPECT_EQ(BytesOf(A(), "s2"), second);
  EXPECT_THAT(A().Snapshots(), ElementsAre("s1", "s2"));
}

TEST_P(EngineContractTest, SnapshotsAreAddedToWhatWasListed) {
  Take(A(), "s1");
  std::set<std::string> ids = {"before"};
  Watcher watcher;
  ExpectGood(A().engine->ListSnapshots(A().place, ids, watcher));
  EXPECT_THAT(ids, ElementsAre("before", "s1"));
}

TEST_P(EngineContractTest, ASnapshotThatIsRemovedIsGoneAndCanBeRemovedAgain) {
  Take(A(), "s1");
  Take(A(), "s2");
  const Tree second = BytesOf(A(), "s2");
  for (int i = 0; i < 2; ++i) {
    ExpectGood(A().RemoveSnapshot("s1"));
    EXPECT_THAT(A().Snapshots(), ElementsAre("s2"));
    EXPECT_FALSE(fs::exists(A().SnapshotPath("s1")));
  }
  ExpectGood(A().RemoveSnapshot("never there"));
  EXPECT_EQ(BytesOf(A(), "s2"), second);
  ExpectGood(B().RemoveSnapshot("of a target that has none"));
}

TEST_P(EngineContractTest, ASnapshotThatWasKilledIsThereAsAWholeOrNotAtAll) {
  const Tree wanted = BytesOf(A());
  int reached = 0;
  for (const std::string_view step :
       Steps{VrelDR::kCopyFile, VrelDR::kTakeCopied, VrelDR::kTakeSynced, VrelDR::kTakeFrozen,
             VrelDR::kTakeRenamed}) {
    SCOPED_TRACE(step);
    if (IsKilledAt(step, [&] { return A().TakeSnapshot("s1"); })) {
      ++reached;
      if (A().Snapshots().count("s1") != 0) {
        EXPECT_EQ(BytesOf(A(), "s1"), wanted);
      }
      ExpectGood(A().RemoveSnapshot("s1"));
      ExpectGood(A().CleanUp());
      EXPECT_FALSE(fs::exists(A().SnapshotPath("s1")));
      Take(A(), "s1");
    }
    EXPECT_EQ(BytesOf(A(), "s1"), wanted);
    ExpectGood(A().RemoveSnapshot("s1"));
    EXPECT_THAT(A().Snapshots(), IsEmpty());
  }
  // There a snapshot is one step of the system.
  EXPECT_EQ(reached == 0, A().type == "btrfs");
  EXPECT_EQ(BytesOf(A()), wanted);
}

TEST_P(EngineContractTest, ASnapshotThatFailsIsNotListed) {
  setenv("VRELDR_FAIL_POINT", "take@source", 1);
  EXPECT_EQ(A().TakeSnapshot("s1").code, kErrIo);
  unsetenv("VRELDR_FAIL_POINT");
  EXPECT_THAT(A().Snapshots(), IsEmpty());
  Take(A(), "s1");
}

TEST_P(EngineContractTest, ARestoredTargetHasTheSnapshotsBytesAndIsWritable) {
  Take(A(), "s1");
  Write(A(), "later");
  for (int i = 0; i < 2; ++i) {
    ExpectGood(A().Restore("s1"));
    EXPECT_EQ(BytesOf(A()), BytesOf(A(), "s1"));
  }
  const Tree snapshot = BytesOf(A(), "s1");
  Write(A(), "last");
  EXPECT_EQ(BytesOf(A(), "s1"), snapshot);
}

TEST_P(EngineContractTest, ARestoreThatFailsOrWasKilledLeavesTheOldBytesOrTheSnapshots) {
  Take(A(), "s1");
  const Tree wanted = WithoutTop(BytesOf(A(), "s1"));
  int reached = 0;
  for (const std::string_view step : Steps{VrelDR::kRestoreCopied, VrelDR::kRestoreSynced,
                                           VrelDR::kRestoreExchanged, VrelDR::kRestoreDone}) {
    SCOPED_TRACE(step);
    Write(A(), "later");
    const Tree before = WithoutTop(BytesOf(A()));
    EXPECT_EQ(A().Restore("none").code, kErrSnapshotMissing);
    EXPECT_EQ(WithoutTop(BytesOf(A())), before);
    if (IsKilledAt(step, [&] { return A().Restore("s1"); })) {
      ++reached;
      const Tree found = WithoutTop(BytesOf(A()));
      EXPECT_TRUE(found == before || found == wanted);
      ExpectGood(A().CleanUp());
      EXPECT_EQ(WithoutTop(BytesOf(A())), found);
      ExpectGood(A().Restore("s1"));
    }
    EXPECT_EQ(BytesOf(A()), BytesOf(A(), "s1"));
  }
  EXPECT_GE(reached, 2);
}

TEST_P(EngineContractTest, ACloneIsATargetOfItsOwn) {
  Take(A(), "s1");
  const Tree wanted = BytesOf(A(), "s1");
  Write(A(), "later");
  const EngineTarget clone = Prepare(A(), "clone", VrelDR::kTargetShare);
  EXPECT_EQ(A().Clone("none", clone).code, kErrSnapshotMissing);
  EXPECT_FALSE(IsThere(clone));
  ExpectGood(clone.CleanUp());
  ExpectGood(A().Clone("s1", clone));
  EXPECT_EQ(BytesOf(clone), wanted);
  EXPECT_THAT(clone.Snapshots(), IsEmpty());
  Write(clone, "of the clone");
  ExpectGood(clone.TakeSnapshot("s1"));
  EXPECT_EQ(BytesOf(A(), "s1"), wanted);
  ExpectGood(clone.Remove());
  EXPECT_EQ(BytesOf(A(), "s1"), wanted);
}

TEST_P(EngineContractTest, OneEngineServesSeveralThreads) {
  const EngineTarget other = Prepare(A(), "other", VrelDR::kTargetShare);
  ExpectGood(other.Create({}));
  MakeSampleTree(other.TargetPath());
  const auto work = [](const EngineTarget& target) {
    for (int i = 0; i < 5; ++i) ExpectGood(target.TakeSnapshot("s" + std::to_string(i)));
    ExpectGood(target.RemoveSnapshot("s0"));
  };
  {
    const std::jthread one([&] { work(A()); });
    const std::jthread two([&] { work(other); });
  }
  for (const EngineTarget* each : {static_cast<const EngineTarget*>(&A()), &other}) {
    EXPECT_THAT(each->Snapshots(), ElementsAre("s1", "s2", "s3", "s4"));
    EXPECT_EQ(BytesOf(*each, "s4"), BytesOf(*each));
  }
}

// Parts.

TEST_P(EngineContractTest, ASwitchoverLosesNothingThereAndBackAgainAndAgain) {
  Side* from = &A();
  Side* to = &B();
  std::string base;
  for (int i = 1; i <= 4; ++i) {
    SCOPED_TRACE(i);
    const std::string id = "s" + std::to_string(i);
    WriteFile(from->TargetPath() + "/round", id);
    const Tree bytes = BytesOf(*from);
    SwitchOver(*from, *to, id, base);
    EXPECT_EQ(BytesOf(*to), bytes);
    EXPECT_EQ(BytesOf(*from), bytes);
    std::swap(from, to);
    base = id;
  }
  for (int i = 1; i <= 4; ++i) {
    const std::string id = "s" + std::to_string(i);
    EXPECT_EQ(BytesOf(A(), id), BytesOf(B(), id));
  }
}

TEST_P(EngineContractTest, EachStepOfARoleCanBeMadeTwiceAndKeepsTheBytes) {
  Take(A(), "s1");
  Ship(A(), "s1", "", B());
  Write(A(), "later");
  const Tree bytes = BytesOf(A());
  for (int i = 0; i < 2; ++i) ExpectGood(Quiesce(A()));
  EXPECT_EQ(BytesOf(A()), bytes);
  // Quiet, it still is the source.
  Take(A(), "s2");
  EXPECT_EQ(BytesOf(A(), "s2"), bytes);
  for (int i = 0; i < 2; ++i) ExpectGood(DemoteOnly(A()));
  EXPECT_EQ(BytesOf(A()), bytes);
  ExpectGood(Quiesce(A()));
  for (int i = 0; i < 2; ++i) ExpectGood(Promote(B(), "s1", Manner::kOrderly));
  EXPECT_EQ(BytesOf(B()), BytesOf(A(), "s1"));
  // And it is taken back.
  for (int i = 0; i < 2; ++i) {
    ExpectGood(Quiesce(B()));
    ExpectGood(DemoteOnly(B()));
    ExpectGood(Promote(A(), "", Manner::kOrderly));
  }
  EXPECT_EQ(BytesOf(A()), bytes);
  Write(A(), "last");
  Take(A(), "s3");
}

TEST_P(EngineContractTest, APromotionThatFailsOrWasKilledLeavesTheOldBytesOrTheSnapshots) {
  Take(A(), "s1");
  Ship(A(), "s1", "", B());
  const Tree wanted = WithoutTop(BytesOf(B(), "s1"));
  int reached = 0;
  for (const std::string_view step :
       Steps{VrelDR::kRestoreCopied, VrelDR::kRestoreSynced, VrelDR::kRestoreExchanged,
             VrelDR::kRestoreDone, VrelDR::kPromoteDone}) {
    SCOPED_TRACE(step);
    ExpectGood(A().Demote());
    ExpectGood(Promote(B(), "", Manner::kOrderly));
    WriteFile(B().TargetPath() + "/of its own", std::string(step));
    ExpectGood(B().Demote());
    const Tree before = WithoutTop(BytesOf(B()));
    EXPECT_EQ(Promote(B(), "none", Manner::kOrderly).code, kErrSnapshotMissing);
    EXPECT_EQ(WithoutTop(BytesOf(B())), before);
    if (IsKilledAt(step, [&] { return Promote(B(), "s1", Manner::kOrderly); })) {
      ++reached;
      const Tree found = WithoutTop(BytesOf(B()));
      EXPECT_TRUE(found == before || found == wanted);
      ExpectGood(B().CleanUp());
      ExpectGood(Promote(B(), "s1", Manner::kOrderly));
    }
    EXPECT_EQ(BytesOf(B()), BytesOf(B(), "s1"));
    Write(B(), "works");
    ExpectGood(B().TakeSnapshot("s2"));
    ExpectGood(B().RemoveSnapshot("s2"));
    ExpectGood(B().Demote());
  }
  EXPECT_GE(reached, 3);
}

TEST_P(EngineContractTest, ADemotionThatWasKilledCanBeMadeAgainOrTakenBack) {
  const Tree bytes = BytesOf(A());
  int reached = 0;
  for (const std::string_view step : Steps{VrelDR::kQuiesceKept, VrelDR::kQuiesceDone}) {
    for (const bool again : {false, true}) {
      SCOPED_TRACE(step);
      if (IsKilledAt(step, [&] { return A().Demote(); })) {
        ++reached;
        EXPECT_EQ(BytesOf(A()), bytes);
      }
      if (again) ExpectGood(A().Demote());
      ExpectGood(Promote(A(), "", Manner::kOrderly));
      EXPECT_EQ(BytesOf(A()), bytes);
      Take(A(), "s1");
      ExpectGood(A().RemoveSnapshot("s1"));
    }
  }
  EXPECT_GE(reached, 2);
}

TEST_P(EngineContractTest, WhoIsForcedNeedsNotTheOtherSide) {
  Take(A(), "s1");
  Ship(A(), "s1", "", B());
  for (const Cut cut : CutsOf(A())) {
    ExpectGood(B().Demote());
    CutOff(A(), cut);
    for (int i = 0; i < 2; ++i) ExpectGood(Promote(B(), "s1", Manner::kForced));
    EXPECT_EQ(BytesOf(B()), BytesOf(B(), "s1"));
    Write(B(), "works");
    ExpectGood(B().TakeSnapshot("s2"));
    ExpectGood(B().RemoveSnapshot("s2"));
    CutBack(A(), cut);
  }
}

TEST_P(EngineContractTest, AnOldSourceThatRejoinsKeepsWhatOnlyItHas) {
  Take(A(), "s1");
  Ship(A(), "s1", "", B());
  // It thinks that it works; that it is quiet; that it is a replica.
  for (int part = 0; part < 3; ++part) {
    SCOPED_TRACE(part);
    const std::string kept = "kept" + std::to_string(part);
    const std::string newest = "newest" + std::to_string(part);
    WriteFile(A().TargetPath() + "/only here", kept);
    const Tree unsent = BytesOf(A());
    if (part > 0) ExpectGood(Quiesce(A()));
    if (part > 1) ExpectGood(DemoteOnly(A()));
    ExpectGood(Promote(B(), "s1", Manner::kForced));
    WriteFile(B().TargetPath() + "/new life", kept);
    for (int i = 0; i < 2; ++i) {
      ExpectGood(Rejoin(A(), kept));
      EXPECT_EQ(BytesOf(A(), kept), unsent);
      EXPECT_EQ(BytesOf(A()), unsent);
    }
    // It is a replica like any other, and takes over again.
    Take(B(), newest);
    Ship(B(), newest, "s1", A());
    ExpectGood(B().Demote());
    ExpectGood(Promote(A(), newest, Manner::kOrderly));
    EXPECT_EQ(BytesOf(A()), BytesOf(B(), newest));
    EXPECT_EQ(BytesOf(A(), kept), unsent);
  }
}

TEST_P(EngineContractTest, ARejoiningThatFailsOrWasKilledLosesNothing) {
  WriteFile(A().TargetPath() + "/only here", "never sent");
  const Tree unsent = BytesOf(A());
  int reached = 0;
  const Steps steps = {VrelDR::kCopyFile,   VrelDR::kTakeCopied,  VrelDR::kTakeSynced,
                       VrelDR::kTakeFrozen, VrelDR::kTakeRenamed, VrelDR::kQuiesceKept,
                       VrelDR::kQuiesceDone};
  for (const bool wasDemoted : {false, true}) {
    for (const std::string_view step : steps) {
      SCOPED_TRACE(std::string(step) + (wasDemoted ? " of a demoted one" : ""));
      ExpectGood(Promote(A(), "", Manner::kForced));
      if (wasDemoted) ExpectGood(A().Demote());
      setenv("VRELDR_FAIL_POINT", "take@source", 1);
      EXPECT_EQ(Rejoin(A(), "kept").code, kErrIo);
      unsetenv("VRELDR_FAIL_POINT");
      EXPECT_EQ(BytesOf(A()), unsent);
      if (IsKilledAt(step, [&] { return Rejoin(A(), "kept"); })) {
        ++reached;
        EXPECT_EQ(BytesOf(A()), unsent);
        if (A().Snapshots().count("kept") != 0) {
          EXPECT_EQ(BytesOf(A(), "kept"), unsent);
        }
        ExpectGood(A().CleanUp());
        ExpectGood(Rejoin(A(), "kept"));
      }
      EXPECT_EQ(BytesOf(A(), "kept"), unsent);
      EXPECT_EQ(BytesOf(A()), unsent);
      ExpectGood(A().RemoveSnapshot("kept"));
    }
  }
  EXPECT_GE(reached, 2);
}

// Links.

TEST_P(EngineContractTest, WhetherATargetCanBeReplicatedIsAskedWithoutChangingIt) {
  const Tree bytes = BytesOf(A());
  Watcher watcher;
  for (int i = 0; i < 2; ++i) ExpectGood(LinkOf(A(), B())->Check(A().place, watcher));
  EXPECT_EQ(BytesOf(A()), bytes);
  Write(A(), "still writable");
}

TEST_P(EngineContractTest, APairIsMadeAndEndedAsOftenAsOneLikes) {
  Take(A(), "s1");
  Ship(A(), "s1", "", B());
  const Tree source = BytesOf(A());
  const Tree replica = BytesOf(B());
  for (int i = 0; i < 2; ++i) {
    ExpectGood(Attach());
    ExpectGood(Attach());
    ExpectGood(Detach());
    ExpectGood(Detach());
    EXPECT_EQ(BytesOf(A()), source);
    EXPECT_EQ(BytesOf(B()), replica);
    EXPECT_EQ(BytesOf(B(), "s1"), BytesOf(A(), "s1"));
  }
  // Both keep their parts, and go on as a pair once they are one again.
  Write(A(), "works");
  Take(A(), "s2");
  ExpectGood(Attach());
  Ship(A(), "s2", "s1", B());
  EXPECT_EQ(BytesOf(B(), "s2"), BytesOf(A()));
}

TEST_P(EngineContractTest, ASnapshotArrivesAsItIsAndIsNotSentAgain) {
  Take(A(), "s1");
  EXPECT_GT(Ship(A(), "s1", "", B()), 0U);
  EXPECT_EQ(BytesOf(B(), "s1"), BytesOf(A(), "s1"));
  EXPECT_EQ(Ship(A(), "s1", "", B()), 0U);
  ChangeOddTree(A().TargetPath());
  Take(A(), "s2");
  Ship(A(), "s2", "s1", B());
  EXPECT_EQ(BytesOf(B(), "s2"), BytesOf(A(), "s2"));
  EXPECT_EQ(BytesOf(B(), "s1"), BytesOf(A(), "s1"));
  EXPECT_THAT(B().Snapshots(), ElementsAre("s1", "s2"));
}

TEST_P(EngineContractTest, OnlyWhatDiffersFromTheBaseIsSentAndEverythingWithoutOne) {
  WriteFile(A().TargetPath() + "/big", RandomBytes(4 * kMiB));
  Take(A(), "s1");
  EXPECT_GE(Ship(A(), "s1", "", B()), 4 * kMiB);
  Overwrite(A().TargetPath() + "/big", kMiB, RandomBytes(100'000));
  Take(A(), "s2");
  const std::uint64_t changed = Ship(A(), "s2", "s1", B());
  EXPECT_GE(changed, 100'000U);
  EXPECT_LE(changed, kMiB);
  Take(A(), "s3");
  EXPECT_GE(Ship(A(), "s3", "", B()), 4 * kMiB);
  for (const char* id : {"s1", "s2", "s3"}) EXPECT_EQ(BytesOf(B(), id), BytesOf(A(), id));
}

TEST_P(EngineContractTest, ASnapshotThatIsNotThereIsNotShipped) {
  EXPECT_EQ(ShipToB("none").code, kErrSnapshotMissing);
  EXPECT_THAT(B().Snapshots(), IsEmpty());
}

TEST_P(EngineContractTest, AShipmentThatWasKilledIsThereAsAWholeOrNotAtAllAndGoesOn) {
  Take(A(), "base");
  Ship(A(), "base", "", B());
  int reached = 0;
  for (const std::string_view step :
       Steps{VrelDR::kShipBegun, VrelDR::kCopyFile, VrelDR::kShipData, VrelDR::kShipSent,
             VrelDR::kShipSynced, VrelDR::kShipMarked, VrelDR::kShipFrozen, VrelDR::kShipRenamed,
             VrelDR::kShipDone}) {
    for (const std::string base : {"", "base"}) {
      SCOPED_TRACE(std::string(step) + (base.empty() ? "" : " on a base"));
      const std::string id = std::string(step) + base;
      WriteFile(A().TargetPath() + "/new", id);
      Take(A(), id);
      const Tree wanted = BytesOf(A(), id);
      const bool isKilled = IsKilledAt(step, [&] {
        Watcher watcher;
        return TryShip(A(), id, base, B(), watcher);
      });
      if (isKilled) ++reached;
      if (!isKilled || B().Snapshots().count(id) != 0) {
        EXPECT_EQ(BytesOf(B(), id), wanted);
      }
      Ship(A(), id, base, B());
      EXPECT_EQ(BytesOf(B(), id), wanted);
      ExpectGood(A().RemoveSnapshot(id));
      ExpectGood(B().RemoveSnapshot(id));
    }
  }
  EXPECT_GE(reached, 8);
  EXPECT_THAT(B().Snapshots(), ElementsAre("base"));
}

TEST_P(EngineContractTest, AShipmentThatFailsIsNotListedAndIsFinishedByTheNext) {
  WriteFile(A().TargetPath() + "/big", RandomBytes(8 * kMiB));
  Take(A(), "s1");
  EXPECT_EQ(ShipHalf("s1").code, kErrIo);
  EXPECT_THAT(B().Snapshots(), IsEmpty());
  Ship(A(), "s1", "", B());
  EXPECT_EQ(BytesOf(B(), "s1"), BytesOf(A(), "s1"));
}

TEST_P(EngineContractTest, AStoppedShipmentEndsSoonAndTheNextSendsTheRest) {
  WriteFile(A().TargetPath() + "/big", RandomBytes(8 * kMiB));
  Take(A(), "s1");
  SlowDown();
  if (B().IsFake()) Misbehave(B(), VrelDR::Fake::kSlow, true);
  TestWatcher watcher;
  watcher.StopAfter(3 * kMiB);
  EXPECT_EQ(TryShip(A(), "s1", "", B(), watcher).code, kErrStopped);
  EXPECT_LT(watcher.GetDelay(), std::chrono::seconds(1));
  FullSpeed();
  if (B().IsFake()) Misbehave(B(), VrelDR::Fake::kSlow, false);
  EXPECT_THAT(B().Snapshots(), IsEmpty());
  const std::uint64_t rest = Ship(A(), "s1", "", B());
  EXPECT_GT(rest, 0U);
  EXPECT_LE(rest, 7 * kMiB);
  EXPECT_EQ(BytesOf(B(), "s1"), BytesOf(A(), "s1"));
}

TEST_P(EngineContractTest, WhatIsLeftOfShipmentsIsDroppedByDropAloneButTheOneToKeep) {
  WriteFile(A().TargetPath() + "/big", RandomBytes(4 * kMiB));
  Take(A(), "whole");
  Ship(A(), "whole", "", B());
  for (const std::string id : {"s1", "s2"}) {
    Take(A(), id);
    ASSERT_TRUE(IsKilledAt(VrelDR::kShipSent, [&] { return ShipToB(id); }));
  }
  ExpectGood(B().CleanUp());  // which is about other work
  Watcher watcher;
  CutOff(A(), Cut::kMissing);  // it does without the source
  for (int i = 0; i < 2; ++i) ExpectGood(LinkOf(A(), B())->Drop(B().place, "s1", watcher));
  CutBack(A(), Cut::kMissing);
  EXPECT_THAT(B().Snapshots(), ElementsAre("whole"));
  EXPECT_LT(Ship(A(), "s1", "", B()), kMiB);
  EXPECT_GE(Ship(A(), "s2", "", B()), 4 * kMiB);
  for (int i = 0; i < 2; ++i) ExpectGood(LinkOf(A(), B())->Drop(B().place, "", watcher));
  EXPECT_THAT(B().Snapshots(), ElementsAre("s1", "s2", "whole"));
  for (const char* id : {"s1", "s2", "whole"}) EXPECT_EQ(BytesOf(B(), id), BytesOf(A(), id));
}

// Watchers.

TEST_P(EngineContractTest, ACallThatShallNotGoOnIsStoppedAndChangesNothing) {
  Take(A(), "s1");
  const Tree bytes = BytesOf(A());
  StrictWatcher watcher(false, std::chrono::minutes(1));
  for (const auto& [name, call] : CallsOf(A())) EXPECT_EQ(call(watcher).code, kErrStopped) << name;
  EXPECT_EQ(BytesOf(A()), bytes);
  EXPECT_THAT(A().Snapshots(), ElementsAre("s1"));
  Write(A(), "works");
}

TEST_P(EngineContractTest, AShipmentThatShallNotGoOnIsStoppedAndNotListed) {
  WriteFile(A().TargetPath() + "/big", RandomBytes(kMiB));
  Take(A(), "s1");
  StrictWatcher watcher(false, std::chrono::minutes(1));
  EXPECT_EQ(TryShip(A(), "s1", "", B(), watcher).code, kErrStopped);
  EXPECT_THAT(B().Snapshots(), IsEmpty());
  Ship(A(), "s1", "", B());
}

TEST_P(EngineContractTest, AProgramThatHangsEndsTheShipmentWhenPatienceDoesAndIsGone) {
  Take(A(), "s1");
  HangPrograms();
  StrictWatcher watcher(true, std::chrono::milliseconds(200));
  const auto begun = std::chrono::steady_clock::now();
  EXPECT_EQ(TryShip(A(), "s1", "", B(), watcher).code, kErrUnreachable);
  EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(5));
  EXPECT_TRUE(HaveProgramsEnded());
  EXPECT_THAT(B().Snapshots(), IsEmpty());
  FullSpeed();
  Ship(A(), "s1", "", B());
  EXPECT_EQ(BytesOf(B(), "s1"), BytesOf(A(), "s1"));
}

// Counts what it is told, for a second.
class CountingWatcher : public TestWatcher {
 public:
  void Tell(std::uint64_t done, std::uint64_t total, std::uint64_t sent) override {
    TestWatcher::Tell(done, total, sent);
    ++count_;
  }
  bool GoesOn() override { return std::chrono::steady_clock::now() < end_; }
  int GetCount() const { return count_; }

 private:
  const std::chrono::steady_clock::time_point end_ =
      std::chrono::steady_clock::now() + std::chrono::seconds(1);
  int count_ = 0;
};

TEST_P(EngineContractTest, AShipmentTellsHowFarItIsSeveralTimesASecond) {
  WriteFile(A().TargetPath() + "/big", RandomBytes(8 * kMiB));
  Take(A(), "s1");
  SlowDown();
  if (B().IsFake()) Misbehave(B(), VrelDR::Fake::kSlow, true);
  CountingWatcher watcher;
  EXPECT_EQ(TryShip(A(), "s1", "", B(), watcher).code, kErrStopped);
  EXPECT_GE(watcher.GetCount(), 4);
  EXPECT_GT(watcher.GetDone(), 0U);
  EXPECT_LT(watcher.GetDone(), watcher.GetTotal());
}

TEST_P(EngineContractTest, AShipmentThatMovesIsNotEndedForTheTimeItTakes) {
  WriteFile(A().TargetPath() + "/big", RandomBytes(4 * kMiB));
  Take(A(), "s1");
  UseProgram("rsync", "exec /usr/bin/rsync --bwlimit=2m \"$@\"\n");
  StrictWatcher watcher(true, std::chrono::milliseconds(1500));
  ExpectGood(TryShip(A(), "s1", "", B(), watcher));
  EXPECT_EQ(BytesOf(B(), "s1"), BytesOf(A(), "s1"));
}

// Where a snapshot takes its time.
class SlowSnapshotContractTest : public EngineContractTest {};

INSTANTIATE_TEST_SUITE_P(Volumes, SlowSnapshotContractTest,
                         testing::Values("ext4-ext4", "xfs-xfs", "fake-fake"), EngineTest::NameOf);

TEST_P(SlowSnapshotContractTest, ASnapshotThatShallNotBeTakenToItsEndIsStoppedAndNotListed) {
  WriteFile(A().TargetPath() + "/big", RandomBytes(kMiB));
  StrictWatcher watcher(false, std::chrono::minutes(1));
  EXPECT_EQ(A().engine->TakeSnapshot(A().place, "s1", watcher).code, kErrStopped);
  EXPECT_THAT(A().Snapshots(), IsEmpty());
  ExpectGood(A().RemoveSnapshot("s1"));
  ExpectGood(A().CleanUp());
  Take(A(), "s1");
  EXPECT_EQ(BytesOf(A(), "s1"), BytesOf(A()));
}

// What the contract lets an engine refuse, by the one that refuses all of it.
class StrictContractTest : public EngineContractTest {
 protected:
  static void ExpectRefused(const Status& status, const std::string& part) {
    ExpectStatus(status, kErrUnsupported, part);
  }
};

INSTANTIATE_TEST_SUITE_P(Volumes, StrictContractTest, testing::Values("fake-fake"),
                         EngineTest::NameOf);

TEST_P(StrictContractTest, NothingButAQuietTargetIsDemoted) {
  ExpectRefused(DemoteOnly(A()), "quiesce it");
  ExpectGood(Quiesce(A()));
  ExpectGood(DemoteOnly(A()));
}

TEST_P(StrictContractTest, AReplicaIsNeitherSnapshottedNorRestoredUntilItWorks) {
  Take(A(), "s1");
  Ship(A(), "s1", "", B());
  ExpectRefused(B().TakeSnapshot("s2"), "is a replica");
  ExpectRefused(B().Restore("s1"), "is a replica");
  const EngineTarget clone = Prepare(B(), "clone", VrelDR::kTargetShare);
  ExpectGood(B().Clone("s1", clone));
  ExpectGood(A().Demote());
  ExpectGood(Promote(B(), "s1", Manner::kOrderly));
  ExpectGood(B().TakeSnapshot("s2"));
  ExpectGood(B().Restore("s1"));
}

TEST_P(StrictContractTest, NobodyIsPromotedInOrderBesideOneThatHasNotGivenUpItsPart) {
  Take(A(), "s1");
  Ship(A(), "s1", "", B());
  const Tree before = BytesOf(B());
  ExpectRefused(Promote(B(), "s1", Manner::kOrderly), "demote that one");
  ExpectGood(Quiesce(A()));
  ExpectRefused(Promote(B(), "s1", Manner::kOrderly), "demote that one");
  EXPECT_EQ(BytesOf(B()), before);
  ExpectGood(DemoteOnly(A()));
  ExpectGood(Promote(B(), "s1", Manner::kOrderly));
  ExpectRefused(Promote(A(), "", Manner::kOrderly), "demote that one");
  ExpectGood(Promote(A(), "", Manner::kForced));
}

TEST_P(StrictContractTest, NobodyIsPromotedInOrderBesideOneThatCannotBeAsked) {
  Take(A(), "s1");
  Ship(A(), "s1", "", B());
  ExpectGood(A().Demote());
  for (const Cut cut : CutsOf(A())) {
    CutOff(A(), cut);
    EXPECT_EQ(Promote(B(), "s1", Manner::kOrderly).code, kErrUnreachable);
    CutBack(A(), cut);
  }
  // A pair that is none any more asks nobody.
  ExpectGood(Detach());
  CutOff(A(), Cut::kUnreachable);
  ExpectGood(Promote(B(), "s1", Manner::kOrderly));
}

TEST_P(StrictContractTest, BothEndsOfAPairAreTriedThoughOneCannotBeReached) {
  ExpectGood(A().Demote());
  CutOff(A(), Cut::kUnreachable);
  EXPECT_EQ(Detach().code, kErrUnreachable);
  ExpectGood(Promote(B(), "", Manner::kOrderly));
  CutBack(A(), Cut::kUnreachable);
  ExpectGood(Detach());
  CutOff(B(), Cut::kUnreachable);
  ExpectGood(Promote(A(), "", Manner::kOrderly));
}

TEST_P(StrictContractTest, OnlyAPairsReplicaIsShippedTo) {
  Take(A(), "s1");
  ExpectGood(Detach());
  ExpectRefused(ShipToB("s1"), "not attached");
  ExpectGood(Attach());
  ExpectGood(A().Demote());
  ExpectGood(Promote(B(), "", Manner::kOrderly));
  ExpectRefused(ShipToB("s1"), "which works");
  ExpectGood(B().Demote());
  ExpectGood(ShipToB("s1"));
}

TEST_P(StrictContractTest, OnlyADemotedTargetIsAttachedAndToOneSource) {
  ExpectGood(Detach());
  ExpectGood(Promote(B(), "", Manner::kOrderly));
  ExpectRefused(Attach(), "demote it");
  ExpectGood(B().Demote());
  ExpectGood(Attach());
  const EngineTarget other = Prepare(A(), "other", VrelDR::kTargetShare);
  ExpectGood(other.Create({}));
  Watcher watcher;
  ExpectRefused(LinkOf(A(), B())->Attach(other.place, B().place, watcher), "of another target");
}

TEST_P(StrictContractTest, ATargetThatCannotBeReplicatedIsSaidToBeSoBeforehand) {
  Watcher watcher;
  for (const Cut cut : CutsOf(A())) {
    CutOff(A(), cut);
    EXPECT_EQ(LinkOf(A(), B())->Check(A().place, watcher).code, CodeOf(cut));
    CutBack(A(), cut);
  }
  Misbehave(A(), VrelDR::Fake::kNoReplication, true);
  ExpectRefused(LinkOf(A(), B())->Check(A().place, watcher), "not replicated");
}

TEST_P(StrictContractTest, AnArrivingSnapshotIsSeenBeforeItIsWholeAndListedAfterwards) {
  Take(A(), "s1");
  Misbehave(B(), VrelDR::Fake::kLoseSecondHalf, true);
  ExpectStatus(ShipToB("s1"), kErrIo, "is lost");
  EXPECT_TRUE(fs::exists(B().SnapshotPath("s1")));
  EXPECT_NE(DescribeTree(B().SnapshotPath("s1")), BytesOf(A(), "s1"));
  EXPECT_THAT(B().Snapshots(), IsEmpty());
  EXPECT_EQ(Promote(B(), "s1", Manner::kForced).code, kErrSnapshotMissing);
  Misbehave(B(), VrelDR::Fake::kLoseSecondHalf, false);
  ExpectGood(ShipToB("s1"));
  EXPECT_EQ(BytesOf(B(), "s1"), BytesOf(A(), "s1"));
  EXPECT_THAT(B().Snapshots(), ElementsAre("s1"));
}

TEST_P(StrictContractTest, WhatDoesNotMoveEndsWhenPatienceDoes) {
  Take(A(), "s1");
  for (const Side* side : {&A(), &B()}) Misbehave(*side, VrelDR::Fake::kSlow, true);
  StrictWatcher watcher(true, std::chrono::milliseconds(200));
  EXPECT_EQ(A().engine->TakeSnapshot(A().place, "s2", watcher).code, kErrUnreachable);
  EXPECT_EQ(A().engine->RestoreSnapshot(A().place, "s1", watcher).code, kErrUnreachable);
  EXPECT_EQ(TryShip(A(), "s1", "", B(), watcher).code, kErrUnreachable);
  StrictWatcher stopped(false, std::chrono::minutes(1));
  EXPECT_EQ(TryShip(A(), "s1", "", B(), stopped).code, kErrStopped);
  EXPECT_THAT(A().Snapshots(), ElementsAre("s1"));
  EXPECT_THAT(B().Snapshots(), IsEmpty());
}

TEST_P(StrictContractTest, ALocatorIsNoIdentifierAndNoneIsUsedTwice) {
  EXPECT_NE(A().place.locator, A().place.id);
  const EngineTarget first = Prepare(A(), "other", VrelDR::kTargetShare);
  ExpectGood(first.Create({}));
  ExpectGood(first.Remove());
  const EngineTarget second = Prepare(A(), "other", VrelDR::kTargetShare);
  EXPECT_NE(second.place.locator, first.place.locator);
}

}  // namespace
}  // namespace host_test
