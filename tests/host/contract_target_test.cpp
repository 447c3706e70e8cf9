#include "base/kill_point.h"
#include "contract_fixture.h"

// The contract of engines: volumes and targets.

namespace host_test {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using VrelDR::kErrExists;

// Every pair of volumes between which there is a link. A build with sanitizers looks at the
// programs and not at the bytes, and leaves out what is alike.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
const std::string kPairs[] = {"ext4-btrfs", "btrfs-btrfs", "fake-fake"};
#else
const std::string kPairs[] = {"ext4-ext4", "xfs-xfs", "btrfs-btrfs", "ext4-btrfs", "fake-fake"};
#endif
INSTANTIATE_TEST_SUITE_P(Volumes, EngineContractTest, testing::ValuesIn(kPairs),
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

}  // namespace
}  // namespace host_test
