#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "base/fd.h"
#include "base/kill_point.h"
#include "digest_fixture.h"
#include "engine/cut.h"
#include "engine/local/digest_writer.h"
#include "tree.h"

// The digests that are kept of snapshots that are copies: they are those of the snapshot's bytes
// whenever they are there, and nothing of them is left without their snapshot.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using VrelDR::Fd;
using VrelDR::Status;
using VrelDR::Local::DigestWriter;

constexpr std::size_t kMiB = 1 << 20;

class DigestSnapshotTest : public KeptDigestsTest {
 protected:
  static Status TakeUp(const EngineTarget& target, const std::string& id) {
    VrelDR::Watcher watcher;
    return target.engine->TakeUp(target.place, id, watcher);
  }
  static Status Cut(const Side& side, const std::string& id) {
    std::unique_ptr<VrelDR::EngineCut> cut;
    VrelDR::Watcher watcher;
    VrelDR::CutOutcome outcome;
    Status status = side.engine->PrepareCut({{side.engine.get(), side.place, id}}, watcher, cut);
    if (status.IsOk()) status = cut->Take(watcher, outcome);
    if (status.IsOk()) status = cut->Settle(watcher);
    return status.IsOk() ? TakeUp(side, id) : status;
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, DigestSnapshotTest,
                         testing::Values("ext4-ext4", "xfs-xfs", "btrfs-btrfs"),
                         EngineTest::NameOf);

TEST_P(DigestSnapshotTest, TheyAreKeptOfACopyAndNotWhereBlocksAreShared) {
  WriteFile(A().TargetPath() + "/large", RandomBytes(3 * kMiB + 5));
  Take(A(), "s1");
  EXPECT_EQ(HasDigests(A(), "s1"), Keeps(A()));
  if (Keeps(A())) ExpectRight(A(), "s1");
  EXPECT_EQ(DigestsOn(A()).size(), Keeps(A()) ? 1 : 0);
  ExpectGood(Cut(A(), "s2"));
  EXPECT_EQ(HasDigests(A(), "s2"), Keeps(A()));
  if (Keeps(A())) ExpectRight(A(), "s2");
  EXPECT_EQ(DigestsOn(A()).size(), Keeps(A()) ? 2 : 0);
}

TEST_P(DigestSnapshotTest, TheyGoWithTheirSnapshotAndWithTheirTarget) {
  Take(A(), "s1");
  Take(A(), "s2");
  ExpectGood(A().RemoveSnapshot("s1"));
  EXPECT_FALSE(HasDigests(A(), "s1"));
  EXPECT_EQ(HasDigests(A(), "s2"), Keeps(A()));
  Take(A(), "s3");
  ExpectGood(A().Remove());
  EXPECT_THAT(DigestsOn(A()), IsEmpty());
  EXPECT_FALSE(fs::exists(AreaOf(A())));
}

TEST_P(DigestSnapshotTest, WhatIsLeftUnderANameIsNotTakenForThoseOfTheNextSnapshot) {
  fs::create_directories(AreaOf(A()));
  const Fd area(open(AreaOf(A()).c_str(), O_RDONLY | O_DIRECTORY));
  DigestWriter writer(area.Get(), "s1");
  writer.BeginFile("of another one", 0);
  writer.EndFile();
  ASSERT_TRUE(writer.Finish());
  Take(A(), "s1");
  if (Keeps(A())) ExpectRight(A(), "s1");
  ExpectGood(A().RemoveSnapshot("s1"));
  EXPECT_THAT(DigestsOn(A()), IsEmpty());
}

// Where copies are made.
class CopyDigestTest : public DigestSnapshotTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, CopyDigestTest, testing::Values("ext4-ext4"),
                         EngineTest::NameOf);

TEST_P(CopyDigestTest, OneThatIsKilledHasTheRightOnesOrNoneAndNothingIsLeftOfIt) {
  const Steps steps = {VrelDR::kCopyFile,         VrelDR::kTakeCopied, VrelDR::kTakeDigested,
                       VrelDR::kTakeSynced,       VrelDR::kTakeFrozen, VrelDR::kTakeRenamed,
                       VrelDR::kTakeDigestsPlaced};
  for (const bool isCut : {false, true}) {
    for (const std::string_view step : steps) {
      if (isCut && step == VrelDR::kTakeSynced) continue;
      SCOPED_TRACE(std::string(step) + (isCut ? " of a cut" : ""));
      ASSERT_TRUE(
          IsKilledAt(step, [&] { return isCut ? Cut(A(), "s1") : A().TakeSnapshot("s1"); }));
      if (A().Snapshots().count("s1") != 0) ExpectRight(A(), "s1");
      ExpectGood(A().RemoveSnapshot("s1"));
      ExpectGood(A().CleanUp());
      EXPECT_THAT(DigestsOn(A()), IsEmpty());
      Take(A(), "s1");
      ExpectRight(A(), "s1");
      ExpectGood(A().RemoveSnapshot("s1"));
    }
  }
}

TEST_P(CopyDigestTest, ACutThatIsTakenUpAgainHasThem) {
  for (const std::string_view step : {VrelDR::kTakeDigestsPlaced, VrelDR::kTakeFrozen}) {
    SCOPED_TRACE(step);
    ASSERT_TRUE(IsKilledAt(step, [&] { return Cut(A(), "s1"); }));
    ExpectGood(TakeUp(A(), "s1"));
    ExpectRight(A(), "s1");
    ExpectGood(A().RemoveSnapshot("s1"));
  }
}

TEST_P(CopyDigestTest, ARemovalThatIsKilledIsFinishedByTheNext) {
  for (const std::string_view step : {VrelDR::kDeleteRenamed, VrelDR::kDeleteDigestsGone}) {
    SCOPED_TRACE(step);
    Take(A(), "s1");
    ASSERT_TRUE(IsKilledAt(step, [&] { return A().RemoveSnapshot("s1"); }));
    EXPECT_THAT(A().Snapshots(), IsEmpty());
    ExpectGood(A().RemoveSnapshot("s1"));
    EXPECT_THAT(DigestsOn(A()), IsEmpty());
  }
}

TEST_P(CopyDigestTest, OneThatSomebodyHasMadeImmutableIsRemovedAllTheSame) {
  Take(A(), "s1");
  const Fd file(open((AreaOf(A()) + "/s1").c_str(), O_RDONLY));
  const unsigned flags = FS_IMMUTABLE_FL;
  ASSERT_EQ(ioctl(file.Get(), FS_IOC_SETFLAGS, &flags), 0);
  ExpectGood(A().RemoveSnapshot("s1"));
  EXPECT_THAT(DigestsOn(A()), IsEmpty());
}

TEST_P(CopyDigestTest, OfWhatIsWrittenMeanwhileTheyAreThoseOfTheCopy) {
  const std::string path = A().TargetPath() + "/disk";
  WriteFile(path, RandomBytes(12 * kMiB));
  std::atomic<bool> ends = false;
  std::thread writer([&] {
    const Fd file(open(path.c_str(), O_WRONLY));
    for (unsigned i = 0; !ends; i += 7919) {
      const off_t at = static_cast<off_t>(i) * 512 % static_cast<off_t>(12 * kMiB);
      EXPECT_EQ(pwrite(file.Get(), &i, sizeof(i), at), sizeof(i));
      if (i % 10 == 0) {
        EXPECT_EQ(ftruncate(file.Get(), 12 * kMiB - i % 4096), 0);
      }
    }
  });
  for (const char* id : {"s1", "s2", "s3"}) Take(A(), id);
  ends = true;
  writer.join();
  for (const char* id : {"s1", "s2", "s3"}) ExpectRight(A(), id);
}

// Fills the volume but for about so many bytes.
void FillBut(const std::string& path, std::uint64_t left) {
  const std::string name = path + "/filling";
  fs::remove(name);
  const Fd file(open(name.c_str(), O_WRONLY | O_CREAT, 0600));
  ASSERT_EQ(syncfs(file.Get()), 0);
  struct statvfs info;
  ASSERT_EQ(statvfs(path.c_str(), &info), 0);
  const std::uint64_t free = std::uint64_t{info.f_bfree} * info.f_frsize;
  ASSERT_GT(free, left);
  ASSERT_EQ(posix_fallocate(file.Get(), 0, static_cast<off_t>(free - left)), 0);
  ASSERT_EQ(syncfs(file.Get()), 0);
}

TEST_P(CopyDigestTest, ASnapshotForWhichThereIsRoomDoesNotFailForTheirs) {
  // So many and so long names that the digests take up more than is kept in memory.
  constexpr int kFiles = 1500;
  for (int i = 0; i < kFiles; ++i) {
    std::string name = std::to_string(i);
    name += std::string(230, 'n');
    WriteFile(A().TargetPath() + "/" + name, i % 2 == 0 ? "" : std::string(4096, 'x'));
  }
  const auto wanted = BytesOf(A());
  // What it takes with them and without.
  Take(A(), "probe");
  const std::uint64_t ofDigests = fs::file_size(AreaOf(A()) + "/probe");
  ASSERT_GT(ofDigests, 256 * 1024);
  ExpectGood(A().RemoveSnapshot("probe"));
  int failed = 0;
  int without = 0;
  int with = 0;
  for (std::uint64_t left = kFiles * 2048; with == 0; left += 128 * 1024) {
    SCOPED_TRACE(left);
    ASSERT_LT(left, 16 * kMiB);
    FillBut(A().path, left);
    const Status status = A().TakeSnapshot("s1");
    if (!status.IsOk()) {
      ExpectStatus(status, VrelDR::kErrNoSpace, "");
      ++failed;
      EXPECT_EQ(without + with, 0);
    } else if (HasDigests(A(), "s1")) {
      ++with;
      ExpectRight(A(), "s1");
    } else {
      ++without;
    }
    if (status.IsOk()) {
      EXPECT_EQ(BytesOf(A(), "s1"), wanted);
    }
    ExpectGood(A().RemoveSnapshot("s1"));
    ExpectGood(A().CleanUp());
    EXPECT_THAT(DigestsOn(A()), IsEmpty());
  }
  EXPECT_GT(failed, 0);
  EXPECT_GT(without, 0);
}

}  // namespace
}  // namespace host_test
