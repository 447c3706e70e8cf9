#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <map>

#include "base/kill_point.h"
#include "engine_fixture.h"
#include "tree.h"

// The flags that a user has given files and folders with chattr.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using VrelDR::Status;

constexpr unsigned kUsers =
    FS_IMMUTABLE_FL | FS_APPEND_FL | FS_NODUMP_FL | FS_NOATIME_FL | FS_SYNC_FL;
constexpr const char* kAttribute = "trusted.vreldr.flags";

unsigned FlagsOf(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
  unsigned flags = 0;
  EXPECT_EQ(ioctl(fd, FS_IOC_GETFLAGS, &flags), 0) << path;
  close(fd);
  return flags & kUsers;
}

void SetFlags(const std::string& path, unsigned flags) {
  const int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
  unsigned present = 0;
  EXPECT_EQ(ioctl(fd, FS_IOC_GETFLAGS, &present), 0) << path;
  flags |= present & ~kUsers;
  EXPECT_EQ(ioctl(fd, FS_IOC_SETFLAGS, &flags), 0) << path;
  close(fd);
}

// Of all below a folder that may have flags, and of itself as "".
std::map<std::string, unsigned> FlagsBelow(const std::string& root) {
  std::map<std::string, unsigned> flags{{"", FlagsOf(root)}};
  for (const auto& each : fs::recursive_directory_iterator(root)) {
    const std::string path = each.path();
    EXPECT_EQ(lgetxattr(path.c_str(), kAttribute, nullptr, 0), -1) << path;
    if (each.is_symlink() || (!each.is_directory() && !each.is_regular_file())) continue;
    flags[path.substr(root.size())] = FlagsOf(path);
  }
  EXPECT_EQ(lgetxattr(root.c_str(), kAttribute, nullptr, 0), -1);
  return flags;
}

class FlagsTest : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    if (geteuid() != 0) GTEST_SKIP() << "setting flags needs root";
    path_ = A().TargetPath();
    for (const char* dir : {"/plain", "/fixed/below", "/log"}) fs::create_directories(path_ + dir);
    for (const char* file : {"/plain/file", "/plain/immutable", "/plain/append", "/plain/nodump",
                             "/fixed/file", "/fixed/below/all", "/log/entry", "/pair a"}) {
      WriteFile(path_ + file, file);
    }
    fs::create_hard_link(path_ + "/pair a", path_ + "/pair b");
    fs::create_symlink("file", path_ + "/fixed/link");
    tree_ = DescribeTree(path_);
    SetFlags(path_ + "/plain/immutable", FS_IMMUTABLE_FL);
    SetFlags(path_ + "/plain/append", FS_APPEND_FL);
    SetFlags(path_ + "/plain/nodump", FS_NODUMP_FL);
    SetFlags(path_ + "/fixed/below/all", kUsers);
    SetFlags(path_ + "/pair a", FS_IMMUTABLE_FL | FS_NODUMP_FL);
    SetFlags(path_ + "/log", FS_APPEND_FL);
    SetFlags(path_ + "/fixed/below", FS_IMMUTABLE_FL);
    SetFlags(path_ + "/fixed", FS_IMMUTABLE_FL);
    SetFlags(path_, FS_APPEND_FL | FS_NODUMP_FL);
    flags_ = FlagsBelow(path_);
  }

  static void ExpectGood(const Status& status) { EXPECT_TRUE(status.IsOk()) << status.message; }
  void ExpectAsItWas(const std::string& path) {
    EXPECT_EQ(FlagsBelow(path), flags_) << path;
    ExpectTree(path, tree_);
  }

  std::string path_;
  std::map<std::string, std::string> tree_;
  std::map<std::string, unsigned> flags_;
};

INSTANTIATE_TEST_SUITE_P(FileSystems, FlagsTest,
                         testing::Values("ext4-ext4", "xfs-xfs", "btrfs-btrfs"),
                         EngineTest::NameOf);

// Where a snapshot is a copy, and a target is made unwritable by flags.
class CopiedFlagsTest : public FlagsTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, CopiedFlagsTest, testing::Values("ext4-ext4", "xfs-xfs"),
                         EngineTest::NameOf);

// Where a snapshot comes by rsync; btrfs does not send flags.
class SentFlagsTest : public FlagsTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, SentFlagsTest,
                         testing::Values("ext4-ext4", "xfs-ext4", "ext4-xfs", "ext4-btrfs"),
                         EngineTest::NameOf);

TEST_P(FlagsTest, ARestoreAndACloneHaveThem) {
  Take(A(), "1");
  for (const char* name : {"", "/fixed", "/log", "/plain/append", "/plain/nodump"}) {
    SetFlags(path_ + name, 0);
  }
  WriteFile(path_ + "/fixed/new", "new");
  for (int i = 0; i < 2; ++i) {
    ExpectGood(A().Restore("1"));
    ExpectAsItWas(path_);
    ExpectNothingIncoming(A());
  }
  const EngineTarget clone = A().Other("clone", VrelDR::kTargetShare);
  ExpectGood(A().Clone("1", clone));
  ExpectAsItWas(clone.TargetPath());
  ExpectGood(clone.Remove());
  EXPECT_FALSE(fs::exists(clone.TargetPath()));
  ExpectGood(A().Remove());
  EXPECT_FALSE(fs::exists(path_));
  EXPECT_FALSE(fs::exists(A().SnapshotPath("1")));
}

TEST_P(FlagsTest, ADemotedTargetGetsThemBack) {
  for (int round = 0; round < 2; ++round) {
    // Once more is fine, and knows those of the user still.
    for (int i = 0; i < 2; ++i) ExpectGood(A().Demote());
    if (A().type != "btrfs") {
      for (const auto& [name, flags] : FlagsBelow(path_)) {
        EXPECT_EQ(flags, flags_[name] | FS_IMMUTABLE_FL) << name;
      }
    }
    for (int i = 0; i < 2; ++i) ExpectGood(A().Promote(""));
    ExpectAsItWas(path_);
  }
}

TEST_P(FlagsTest, ADemotedTargetsSnapshotHasThoseOfItsUser) {
  ExpectGood(A().Demote());
  Take(A(), "1");
  ExpectGood(A().Promote("1"));
  ExpectAsItWas(path_);
  // What was known of the bytes before is not taken for these.
  SetFlags(path_ + "/plain/file", FS_IMMUTABLE_FL);
  SetFlags(path_ + "/plain/immutable", 0);
  flags_ = FlagsBelow(path_);
  ExpectGood(A().Demote());
  ExpectGood(A().Promote(""));
  ExpectAsItWas(path_);
}

TEST_P(CopiedFlagsTest, ADemotionThatWasKilledForgetsNone) {
  for (const std::string_view step : {VrelDR::kQuiesceKept, VrelDR::kQuiesceDone}) {
    EXPECT_EQ(RunInChild({{"VRELDR_KILL_POINT", std::string(step)}},
                         [this] { return A().Demote().IsOk() ? 0 : 1; }),
              128 + SIGKILL);
    ExpectGood(A().Demote());
    ExpectGood(A().Promote(""));
    ExpectAsItWas(path_);
  }
}

TEST_P(CopiedFlagsTest, WhatAnEarlierVersionMadeImmutableBecomesWritable) {
  ExpectGood(A().Demote());
  ASSERT_GT(fs::remove_all(A().path + "/.vreldr/frozen"), 0u);
  ExpectGood(A().Demote());
  ExpectGood(A().Promote(""));
  for (const auto& [name, flags] : FlagsBelow(path_)) {
    EXPECT_EQ(flags, flags_[name] & ~static_cast<unsigned>(FS_IMMUTABLE_FL)) << name;
  }
}

TEST_P(SentFlagsTest, TheyGoOverAndComeBack) {
  Take(A(), "1");
  Ship(A(), "1", "", B());
  ExpectGood(A().Demote());
  ExpectGood(B().Promote("1"));
  std::map<std::string, unsigned> found = FlagsBelow(B().TargetPath());
  EXPECT_EQ(found, flags_);
  ExpectTree(B().TargetPath(), tree_);
  if (B().type == "btrfs") return;  // what it sends has no flags
  SetFlags(B().TargetPath() + "/plain/file", FS_APPEND_FL);
  flags_ = FlagsBelow(B().TargetPath());
  Take(B(), "2");
  Ship(B(), "2", "1", A());
  ExpectGood(A().Promote("2"));
  ExpectAsItWas(path_);
}

TEST_P(CopiedFlagsTest, AnAttributeOfAUserIsNotTakenForARecord) {
  const std::string file = path_ + "/plain/file";
  ASSERT_EQ(setxattr(file.c_str(), kAttribute, "i", 1, 0), 0);
  Take(A(), "1");
  ExpectGood(A().Restore("1"));
  ExpectAsItWas(path_);
}

}  // namespace
}  // namespace host_test
