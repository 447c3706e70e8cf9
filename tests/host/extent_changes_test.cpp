#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "base/fd.h"
#include "engine/local/change_compare.h"
#include "engine/local/extent_changes.h"
#include "host_fixture.h"
#include "tree.h"

// Which runs of two files are said to differ, compared with their bytes.

namespace host_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using VrelDR::Fd;
using VrelDR::Local::ExtentChanges;
using Bytes = VrelDR::Local::Run;

constexpr std::uint64_t kKiB = 1024;
constexpr std::uint64_t kBlock = 4096;

class ExtentChangesTest : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    char name[] = "/var/extent-test-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    path_ = name;
    std::string why;
    image_ = std::make_unique<MountedImage>(GetParam(), path_, why);
    if (!image_->IsMounted()) GTEST_SKIP() << why;
  }

  Fd Make(const std::string& name) const {
    return Fd(open((path_ + "/" + name).c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  }
  // A file with the same blocks as `from`.
  Fd CloneOf(const Fd& from, const std::string& name) const {
    Fd to = Make(name);
    EXPECT_EQ(ioctl(to.Get(), FICLONE, from.Get()), 0);
    return to;
  }
  static void Fill(const Fd& file, std::uint64_t at, std::uint64_t length, char with) {
    const std::string bytes(length, with);
    ASSERT_EQ(pwrite(file.Get(), bytes.data(), length, static_cast<off_t>(at)),
              static_cast<ssize_t>(length));
  }
  std::string Read(const std::string& name) const { return ReadFile(path_ + "/" + name); }

  // What is found, and "unknown" as a failure.
  std::vector<Bytes> Find(const Fd& base, const Fd& now) {
    std::vector<Bytes> runs;
    bool isKnown = false;
    EXPECT_EQ(changes_.Find("file", base.Get(), now.Get(), isKnown, runs), 0);
    EXPECT_TRUE(isKnown);
    return runs;
  }

  // Whether all bytes outside the runs are the same in both, up to the shorter end.
  static bool Covers(const std::vector<Bytes>& runs, const std::string& before,
                     const std::string& now) {
    std::uint64_t at = 0;
    const std::uint64_t end = std::min(before.size(), now.size());
    for (const Bytes& run : runs) {
      if (run.offset < at || run.length == 0 || run.offset + run.length > end) return false;
      if (before.compare(at, run.offset - at, now, at, run.offset - at) != 0) return false;
      at = run.offset + run.length;
    }
    return before.compare(at, end - at, now, at, end - at) == 0;
  }

  std::string path_;
  std::unique_ptr<MountedImage> image_;
  ExtentChanges changes_;
};

INSTANTIATE_TEST_SUITE_P(FileSystems, ExtentChangesTest, testing::Values("xfs", "btrfs"));

TEST_P(ExtentChangesTest, ItIsKnownWhereFilesCanShareBlocks) {
  const Fd dir(open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  EXPECT_TRUE(ExtentChanges::CanTell(dir.Get()));
  const Fd other(open("/var", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  EXPECT_FALSE(ExtentChanges::CanTell(other.Get()));
}

TEST_P(ExtentChangesTest, WhatWasWrittenIsFoundAlsoBeforeItIsOnDisk) {
  const Fd base = Make("base");
  Fill(base, 0, 1024 * kKiB, 'a');
  const Fd now = CloneOf(base, "now");
  EXPECT_THAT(Find(base, now), IsEmpty());
  Fill(now, 100 * kKiB + 5, 10, 'b');
  EXPECT_THAT(Find(base, now), ElementsAre(Bytes{100 * kKiB, kBlock}));
  // The base's own bytes are in memory alone now.
  Fill(base, 200 * kKiB, kBlock, 'c');
  EXPECT_THAT(Find(base, now), ElementsAre(Bytes{100 * kKiB, kBlock}, Bytes{200 * kKiB, kBlock}));
}

TEST_P(ExtentChangesTest, HolesAndRoomThatWasOnlyReservedAreZeros) {
  const Fd base = Make("base");
  const Fd now = Make("now");
  for (const Fd* each : {&base, &now}) {
    ASSERT_EQ(ftruncate(each->Get(), static_cast<off_t>(10'000 * kKiB)), 0);
  }
  ASSERT_EQ(fallocate(now.Get(), 0, 0, static_cast<off_t>(1000 * kKiB)), 0);
  EXPECT_THAT(Find(base, now), IsEmpty());
  // Written into that room, and nowhere but in memory.
  Fill(now, 500 * kKiB, kBlock, 'x');
  EXPECT_THAT(Find(base, now), ElementsAre(Bytes{500 * kKiB, kBlock}));
  ASSERT_EQ(fallocate(now.Get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0,
                      static_cast<off_t>(1000 * kKiB)),
            0);
  EXPECT_THAT(Find(base, now), IsEmpty());
}

TEST_P(ExtentChangesTest, WhatIsElsewhereInTheSameBlocksIsNotTheSame) {
  const Fd base = Make("base");
  Fill(base, 0, 64 * kKiB, 'a');
  Fill(base, 64 * kKiB, 64 * kKiB, 'b');
  ASSERT_EQ(fsync(base.Get()), 0);
  const Fd now = CloneOf(base, "now");
  struct file_clone_range swapped = {base.Get(), 64 * kKiB, 64 * kKiB, 0};
  ASSERT_EQ(ioctl(now.Get(), FICLONERANGE, &swapped), 0);
  EXPECT_THAT(Find(base, now), ElementsAre(Bytes{0, 64 * kKiB}));
}

TEST_P(ExtentChangesTest, MoreExtentsThanAreLookedAtAtOnceAreAllLookedAt) {
  const Fd base = Make("base");
  Fill(base, 0, 5000 * 2 * kBlock, 'a');
  ASSERT_EQ(fsync(base.Get()), 0);
  const Fd now = CloneOf(base, "now");
  std::vector<Bytes> written;
  for (std::uint64_t i = 0; i < 5000; ++i) {
    Fill(now, i * 2 * kBlock, kBlock, 'n');
    written.push_back({i * 2 * kBlock, kBlock});
  }
  EXPECT_EQ(Find(base, now), written);
  // The other way round the many are in the base.
  EXPECT_EQ(Find(now, base), written);
}

TEST_P(ExtentChangesTest, NothingThatDiffersIsMissedWhateverWasDone) {
  std::mt19937_64 random(7);
  constexpr std::uint64_t kMost = 2000 * kKiB;
  for (int round = 0; round < 40; ++round) {
    SCOPED_TRACE(round);
    const Fd base = Make("base");
    const auto change = [&](const Fd& file, int count) {
      for (int i = 0; i < count; ++i) {
        const std::uint64_t at = random() % kMost;
        const std::uint64_t length = 1 + random() % (random() % 4 == 0 ? 200 * kKiB : 3 * kBlock);
        const auto from = static_cast<off_t>(at);
        const auto room = static_cast<off_t>(length);
        switch (random() % 6) {
          case 0:
            ASSERT_EQ(ftruncate(file.Get(), from), 0);
            break;
          case 1:
            ASSERT_EQ(fallocate(file.Get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, from, room),
                      0);
            break;
          case 2:
            ASSERT_EQ(fallocate(file.Get(), 0, from, room), 0);
            break;
          case 3:
            ASSERT_EQ(fsync(file.Get()), 0);
            break;
          default:
            Fill(file, at, length, static_cast<char>('a' + random() % 26));
        }
      }
    };
    change(base, 20);
    const Fd now = CloneOf(base, "now");
    change(now, 1 + round % 8);
    if (round % 5 == 0) change(base, 2);
    std::vector<Bytes> runs;
    bool isKnown = false;
    ASSERT_EQ(changes_.Find("", base.Get(), now.Get(), isKnown, runs), 0);
    // btrfs keeps small files where no position says what they are.
    EXPECT_TRUE(!isKnown || Covers(runs, Read("base"), Read("now")));
    EXPECT_TRUE(isKnown || GetParam() == "btrfs");
    VrelDR::Watcher watcher;
    VrelDR::Watch watch(watcher);
    const std::uint64_t both = std::min(Read("base").size(), Read("now").size());
    std::vector<Bytes> compared;
    ASSERT_EQ(VrelDR::Local::CompareData(base.Get(), now.Get(), both, watch, compared), 0);
    EXPECT_TRUE(Covers(compared, Read("base"), Read("now")));
  }
}

// No other keeps files so.
class OddExtentsTest : public ExtentChangesTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, OddExtentsTest, testing::Values("btrfs"));

TEST_P(OddExtentsTest, OfWhatIsCompressedOrKeptWithItsInodeNothingIsKnown) {
  ASSERT_EQ(mount(nullptr, path_.c_str(), nullptr, MS_REMOUNT, "compress-force=zstd"), 0);
  for (const std::uint64_t size : {std::uint64_t{100}, 1000 * kKiB}) {
    const Fd base = Make("base");
    Fill(base, 0, size, 'a');
    ASSERT_EQ(fsync(base.Get()), 0);
    const Fd now = CloneOf(base, "now");
    std::vector<Bytes> runs;
    bool isKnown = true;
    EXPECT_EQ(changes_.Find("", base.Get(), now.Get(), isKnown, runs), 0);
    EXPECT_FALSE(isKnown) << size;
  }
}

}  // namespace
}  // namespace host_test
