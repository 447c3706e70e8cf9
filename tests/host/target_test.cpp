#include <gmock/gmock.h>

#include <filesystem>

#include "host_fixture.h"
#include "tree.h"
#include "vreldr/volume.h"
#include "vreldrcore/sqlite_db.h"

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::IsEmpty;
using testing::SizeIs;
using VrelDR::Target;
using VrelDR::TargetEntry;
using VrelDR::TargetManager;
using VrelDR::TargetOperation;
using VrelDR::TargetSpec;

class TargetTest : public HostTest {
 protected:
  TargetSpec Spec(const std::string& id, int type, const std::vector<std::string>& sources = {}) {
    TargetSpec spec;
    spec.target = Target(id, type);
    spec.volume = "v1";
    spec.sources = sources;
    return spec;
  }

  void ExpectRefused(const TargetSpec& spec, int code, const std::vector<std::string>& parts) {
    const TargetManager manager;
    EXPECT_FALSE(manager.Create(spec));
    ExpectError(manager, code, parts);
    TargetEntry entry;
    EXPECT_FALSE(manager.Get(spec.target.GetId(), entry));
    EXPECT_EQ(manager.GetErrCode(), 0);
    ExpectNoLeftovers();
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, TargetTest, testing::Values("tmpfs", "ext4", "xfs", "btrfs"),
                         HostTest::NameOf);

TEST_P(TargetTest, AnEmptyLunIsASparseImageOfItsSize) {
  MakeLun("lun1", 40 << 20);
  EXPECT_EQ(fs::file_size(PathOf("lun1")), std::uint64_t{40 << 20});
  EXPECT_LT(AllocatedBytes(PathOf("lun1")), std::uint64_t{1 << 20});
  EXPECT_TRUE(TargetOperation(Target("lun1", 1)).IsExisted());
}

TEST_P(TargetTest, ALunTakesOverAnImageWithItsHoles) {
  MakeSampleTree(Root() + "/source");
  const TargetManager manager;
  ASSERT_TRUE(manager.Create(Spec("lun1", VrelDR::kTargetLun, {Root() + "/source/sparse"})));
  EXPECT_EQ(ReadFile(PathOf("lun1")), ReadFile(Root() + "/source/sparse"));
  EXPECT_LT(AllocatedBytes(PathOf("lun1")), std::uint64_t{1 << 20});
}

TEST_P(TargetTest, AShareOfOneFolderHoldsExactlyItsContent) {
  // On the volume itself, so that nothing depends on what another file system can keep.
  MakeShare("first");
  MakeSampleTree(VolumePath() + "/source");
  const auto before = DescribeTree(VolumePath() + "/source");
  MakeShare("share1", {VolumePath() + "/source/"});
  EXPECT_EQ(DescribeTree(PathOf("share1")), before);
  EXPECT_EQ(DescribeTree(VolumePath() + "/source"), before);
}

TEST_P(TargetTest, AShareOfSeveralSourcesHoldsThemUnderTheirNames) {
  MakeShare("first");
  MakeSampleTree(VolumePath() + "/source");
  WriteFile(VolumePath() + "/extra", "more");
  MakeShare("share1", {VolumePath() + "/source", VolumePath() + "/extra"});
  EXPECT_EQ(DescribeTree(PathOf("share1") + "/source"), DescribeTree(VolumePath() + "/source"));
  EXPECT_EQ(ReadFile(PathOf("share1") + "/extra"), "more");
}

TEST_P(TargetTest, AGuestHoldsItsFilesUnderTheirNames) {
  WriteFile(Root() + "/guest.xml", "<domain/>");
  WriteFile(Root() + "/disk0.raw", "disk");
  const TargetManager manager;
  ASSERT_TRUE(manager.Create(
      Spec("guest1", VrelDR::kTargetGuest, {Root() + "/guest.xml", Root() + "/disk0.raw"})));
  EXPECT_EQ(ReadFile(PathOf("guest1") + "/guest.xml"), "<domain/>");
  EXPECT_EQ(ReadFile(PathOf("guest1") + "/disk0.raw"), "disk");
}

TEST_P(TargetTest, TargetsAreListedByIdentifierWithTheirSnapshots) {
  MakeShare("b");
  MakeLun("a", 4096);
  Take("b");
  Take("b");
  std::vector<TargetEntry> targets;
  const TargetManager manager;
  ASSERT_TRUE(manager.List(targets)) << manager.GetErr();
  ASSERT_THAT(targets, SizeIs(2));
  EXPECT_EQ(targets[0].target, Target("a", VrelDR::kTargetLun));
  EXPECT_EQ(targets[0].snapshots, 0u);
  EXPECT_EQ(targets[1].target, Target("b", VrelDR::kTargetShare));
  EXPECT_EQ(targets[1].snapshots, 2u);
  EXPECT_EQ(targets[1].volume, "v1");
  EXPECT_TRUE(targets[1].is_existed);
}

TEST_P(TargetTest, RemovingATargetRemovesEverythingOfIt) {
  MakeShare("share1");
  MakeSampleTree(PathOf("share1"));
  Take("share1");
  const TargetManager manager;
  EXPECT_FALSE(manager.Remove("share1", false));
  ExpectError(manager, VrelDR::kErrExists, {"share1", "1 snapshots"});
  EXPECT_TRUE(TargetOperation(Target("share1", 2)).IsExisted());

  ASSERT_TRUE(manager.Remove("share1", true)) << manager.GetErr();
  EXPECT_FALSE(fs::exists(VolumePath() + "/share1"));
  EXPECT_FALSE(fs::exists(VolumePath() + "/.vreldr/snapshots/share1"));
  ExpectNoLeftovers();
  EXPECT_FALSE(manager.Remove("share1", true));
  ExpectError(manager, VrelDR::kErrTargetMissing, {"share1"});
}

TEST_P(TargetTest, NothingGoesForARecordThatMeansNothing) {
  MakeShare("a");
  MakeShare("b");
  const auto snapshot = Take("a");
  const auto bytes = DescribeTree(VolumePath() + "/a");
  const VrelDRCore::SqliteDB records(StateDir() + "/replica.db", 20, "vreldrcore_db_info");
  // States that no version has.
  ASSERT_TRUE(records.Exec("UPDATE snapshots SET state = 9; UPDATE targets SET state = 9"));
  MakeShare("c");
  Take("c");
  EXPECT_EQ(DescribeTree(VolumePath() + "/a"), bytes);
  ASSERT_TRUE(records.Exec("UPDATE targets SET state = 2"));
  Take("a");
  ASSERT_TRUE(records.Exec("UPDATE snapshots SET state = 2"));
  EXPECT_THAT(ListIds("a"), testing::Contains(snapshot.snap_id));
  // Places where no target can be.
  for (const char* locator : {"", ".vreldr", ".", "..", "b/..", "/etc"}) {
    SCOPED_TRACE(locator);
    ASSERT_TRUE(
        records.Exec("UPDATE targets SET locator = '" + std::string(locator) + "' WHERE id = 'a'"));
    const TargetManager manager;
    EXPECT_FALSE(manager.Remove("a", true));
    ExpectError(manager, VrelDR::kErrStore, {"\"a\"", "means nothing", "put back a copy"});
    std::string snapId;
    const TargetOperation operation(VrelDR::kTargetShare, "a");
    EXPECT_FALSE(operation.TakeSnapshot({}, snapId));
    ExpectError(operation, VrelDR::kErrStore, {"\"a\"", "means nothing"});
    EXPECT_FALSE(operation.IsExisted());
    ExpectError(operation, VrelDR::kErrStore, {"\"a\"", "means nothing"});
  }
  ASSERT_TRUE(records.Exec("UPDATE targets SET locator = 'a' WHERE id = 'a'"));
  EXPECT_EQ(DescribeTree(VolumePath() + "/a"), bytes);
  EXPECT_THAT(ListIds("a"), testing::Contains(snapshot.snap_id));
}

TEST_P(TargetTest, AnIdentifierCanBeUsedAgainAfterItsTargetWasRemoved) {
  MakeLun("lun1", 4096);
  Take("lun1");
  ASSERT_TRUE(TargetManager().Remove("lun1", true));
  MakeLun("lun1", 8192);
  EXPECT_EQ(fs::file_size(PathOf("lun1")), 8192u);
  EXPECT_THAT(ListIds("lun1"), IsEmpty());
}

TEST_P(TargetTest, ATargetWhoseBytesWereTakenAwayDoesNotExistAndCanBeRemoved) {
  MakeShare("share1");
  fs::rename(VolumePath() + "/share1", VolumePath() + "/elsewhere");
  const TargetOperation operation(Target("share1", 2));
  EXPECT_FALSE(operation.IsExisted());
  EXPECT_EQ(operation.GetErrCode(), 0);
  std::string snapId;
  EXPECT_FALSE(operation.TakeSnapshot({}, snapId));
  ExpectError(operation, VrelDR::kErrTargetMissing, {"share1", "gone"});
  std::vector<TargetEntry> targets;
  EXPECT_TRUE(TargetManager().List(targets));
  ASSERT_THAT(targets, SizeIs(1));
  EXPECT_FALSE(targets[0].is_existed);
  EXPECT_TRUE(TargetManager().Remove("share1", false));
}

TEST_P(TargetTest, BadSpecificationsAreRefusedByName) {
  WriteFile(Root() + "/file", "x");
  fs::create_directories(Root() + "/other/file");
  fs::create_directory(Root() + "/folder");
  const int lun = VrelDR::kTargetLun;
  const int share = VrelDR::kTargetShare;
  const int guest = VrelDR::kTargetGuest;
  const int bad = VrelDR::kErrBadArgument;
  for (const char* id : {"", ".", "..", ".vreldr", "a/b", "/", "new\nline", "tab\t"}) {
    ExpectRefused(Spec(id, share), bad, {"identifier", "not allowed"});
  }
  ExpectRefused(Spec(std::string(201, 'x'), share), bad, {"not allowed"});
  ExpectRefused(Spec("t", 0), bad, {"type 0"});
  ExpectRefused(Spec("t", 4), bad, {"type 4"});
  ExpectRefused(Spec("t", lun), bad, {"size"});
  ExpectRefused(Spec("t", lun, {Root() + "/file", Root() + "/config.json"}), bad, {"one image"});
  ExpectRefused(Spec("t", lun, {Root() + "/folder"}), bad, {"folder"});
  ExpectRefused(Spec("t", guest, {Root() + "/folder"}), bad, {"folder"});
  ExpectRefused(Spec("t", share, {Root() + "/file", Root() + "/other/file"}), bad, {"\"file\""});
  ExpectRefused(Spec("t", share, {Root()}), bad, {Root(), "volume"});
  ExpectRefused(Spec("t", share, {"/dev/null"}), bad, {"/dev/null"});
  ExpectRefused(Spec("t", share, {Root() + "/missing"}), VrelDR::kErrIo,
                {Root() + "/missing", "no such file"});
  TargetSpec elsewhere = Spec("t", share);
  elsewhere.volume = "v9";
  ExpectRefused(elsewhere, VrelDR::kErrVolumeMissing, {"v9", "configuration"});
}

TEST_P(TargetTest, AnIdentifierInUseIsRefused) {
  MakeLun("lun1", 4096);
  const TargetManager manager;
  EXPECT_FALSE(manager.Create(Spec("lun1", VrelDR::kTargetShare)));
  ExpectError(manager, VrelDR::kErrExists, {"lun1", "v1"});
  EXPECT_EQ(fs::file_size(PathOf("lun1")), 4096u);
}

TEST_P(TargetTest, WhatStandsInATargetsPlaceIsLeftAlone) {
  MakeShare("first");
  fs::create_directory(VolumePath() + "/mine");
  ExpectRefused(Spec("mine", VrelDR::kTargetShare), VrelDR::kErrExists, {VolumePath() + "/mine"});
  EXPECT_TRUE(fs::is_directory(VolumePath() + "/mine"));
}

TEST_P(TargetTest, TheVolumeTellsWhatItsSnapshotsAreWorth) {
  std::vector<VrelDR::VolumeInfo> volumes;
  const VrelDR::VolumeManager manager;
  ASSERT_TRUE(manager.List(volumes)) << manager.GetErr();
  ASSERT_THAT(volumes, SizeIs(1));
  EXPECT_EQ(volumes[0].name, "v1");
  EXPECT_EQ(volumes[0].engine, "local");
  EXPECT_EQ(volumes[0].where, VolumePath());
  EXPECT_EQ(volumes[0].problem, "");
  EXPECT_EQ(volumes[0].is_atomic, IsBtrfs());
  EXPECT_EQ(volumes[0].method, IsBtrfs() ? "btrfs" : GetParam() == "xfs" ? "reflink" : "copy");
  if (IsOnImage()) {
    EXPECT_TRUE(volumes[0].is_immutable);
  }
  EXPECT_GT(volumes[0].size_bytes, volumes[0].free_bytes);
  EXPECT_GT(volumes[0].free_bytes, 0u);
}

}  // namespace
}  // namespace host_test
