#include "engine/local/change_apply.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <random>

#include "engine/local/change_source.h"
#include "engine/local/directory.h"
#include "engine/local/extent_changes.h"
#include "engine/local/file_data.h"
#include "engine/local/tree_remove.h"
#include "engine_fixture.h"
#include "random_tree.h"
#include "tree.h"

// A snapshot that arrives by changes, interrupted anywhere, and gone on with from where a sync had
// brought it to disk.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using VrelDR::Fd;
using VrelDR::Status;
using namespace VrelDR::Local;

// Hands on what it is told until it fails, and lets some of it be on disk before.
class FailingSink : public ChangeSink {
 public:
  FailingSink(ChangeSink& sink, ChangeMark& mark, int keepsAt, int failsAt)
      : sink_(sink), mark_(mark), keeps_at_(keepsAt), fails_at_(failsAt) {}

  Status Begin(ChangePoint& point) override { return sink_.Begin(point); }
  Status Skip(const std::string& name) override { return sink_.Skip(name); }
  Status BeginDirectory(const std::string& name) override {
    return Step(sink_.BeginDirectory(name));
  }
  Status EndDirectory(const EntryAttributes& attributes) override {
    return Step(sink_.EndDirectory(attributes));
  }
  Status BeginFile(const std::string& name, std::uint64_t size) override {
    return Step(sink_.BeginFile(name, size));
  }
  Status BeginFileOnBase(const std::string& name, std::uint64_t size,
                         std::uint64_t baseSize) override {
    return Step(sink_.BeginFileOnBase(name, size, baseSize));
  }
  Status Data(std::uint64_t offset, std::span<const char> bytes) override {
    data_ += bytes.size();
    return Step(sink_.Data(offset, bytes));
  }
  Status Hole(std::uint64_t offset, std::uint64_t length) override {
    return Step(sink_.Hole(offset, length));
  }
  Status EndFile(const EntryAttributes& attributes) override {
    return Step(sink_.EndFile(attributes));
  }
  Status HardLink(const std::string& name, const std::string& path) override {
    return Step(sink_.HardLink(name, path));
  }
  Status SymbolicLink(const std::string& name, const std::string& text,
                      const EntryAttributes& attributes) override {
    return Step(sink_.SymbolicLink(name, text, attributes));
  }
  Status Special(const std::string& name, std::uint32_t major, std::uint32_t minor,
                 const EntryAttributes& attributes) override {
    return Step(sink_.Special(name, major, minor, attributes));
  }
  Status End(const EntryAttributes& attributes) override { return Step(sink_.End(attributes)); }

  std::uint64_t GetData() const { return data_; }

 private:
  Status Step(Status status) {
    ++steps_;
    if (steps_ == keeps_at_) mark_.Keep(mark_.GetReached());
    if (!status.IsOk() || steps_ < fails_at_) return status;
    return {VrelDR::kErrIo, "it was to fail"};
  }

  ChangeSink& sink_;
  ChangeMark& mark_;
  int keeps_at_, fails_at_;
  int steps_ = 0;
  std::uint64_t data_ = 0;
};

class ChangeApplyTest : public EngineTest {
 protected:
  // Tries once, until the call that is to fail, with a mark as it is on disk.
  Status Try(int keepsAt, int failsAt, std::uint64_t& data) {
    const Fd incoming(open(B().path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ChangeMark mark(incoming.Get(), "snap", "s0");
    bool isThere = false;
    EXPECT_EQ(mark.Read(isThere), 0);
    if (!isThere) {
      EXPECT_EQ(mark.Begin(), 0);
      EXPECT_EQ(mkdir(Top().c_str(), 0700), 0);
    }
    const Fd top = OpenDir(incoming.Get(), "snap");
    const Fd snapshot(open(A().SnapshotPath("s1").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const Fd base(open(A().SnapshotPath("s0").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const Fd baseThere(open(B().SnapshotPath("s0").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    VrelDR::Watcher watcher;
    const WriteBack writeBack(incoming.Get(), B().path);
    Shipment shipment(watcher, "replica", writeBack);
    ChangeProgress progress(shipment, 0);
    ChangeApply apply(
        {top.Get(), baseThere.Get(), Top(), B().path, true, CanShareBlocks(top.Get())}, mark,
        nullptr, progress);
    FailingSink sink(apply, mark, keepsAt, failsAt);
    ExtentChanges finder;
    const std::string path = A().SnapshotPath("s1");
    ChangeSource source(snapshot.Get(), base.Get(), path, finder, nullptr, progress);
    Status status = source.Tell(sink);
    data = sink.GetData();
    return status;
  }

  void Discard() {
    const Fd incoming(open(B().path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    EXPECT_EQ(RemoveTree(incoming.Get(), "snap"), 0);
    EXPECT_EQ(ChangeMark::Remove(incoming.Get(), "snap"), 0);
  }

  std::string Top() const { return B().path + "/snap"; }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, ChangeApplyTest,
                         testing::Values("xfs-xfs", "xfs-ext4", "xfs-btrfs"), EngineTest::NameOf);

TEST_P(ChangeApplyTest, WhatIsInterruptedAnywhereAndGoneOnWithIsTheSnapshot) {
  RandomTree tree(A().TargetPath(), 5);
  tree.Change(120);
  Take(A(), "s0");
  Ship(A(), "s0", "", B());
  tree.Change(80);
  Take(A(), "s1");
  const auto wanted = DescribeTree(A().SnapshotPath("s1"));
  std::mt19937 random(11);
  for (int round = 0; round < 25; ++round) {
    SCOPED_TRACE(round);
    Status status;
    std::uint64_t data = 0;
    int tries = 0;
    do {
      // What comes after what is kept is there, and nobody may rely on it.
      const int keeps = 1 + static_cast<int>(random() % 60);
      const int fails = keeps + static_cast<int>(random() % 60);
      status = Try(keeps, fails, data);
      ASSERT_LT(++tries, 1000);
    } while (!status.IsOk() && status.message == "it was to fail");
    ASSERT_TRUE(status.IsOk()) << status.message;
    ExpectTree(Top(), wanted);
    Discard();
    if (HasFailure()) return;
  }
}

TEST_P(ChangeApplyTest, NothingThatIsOnDiskIsToldAgain) {
  const std::string image = A().TargetPath() + "/disk.img";
  constexpr std::size_t kMiB = 1 << 20;
  WriteFile(image, RandomBytes(8 * kMiB));
  Take(A(), "s0");
  Ship(A(), "s0", "", B());
  Overwrite(image, kMiB, RandomBytes(6 * kMiB));
  Take(A(), "s1");
  std::uint64_t first = 0;
  std::uint64_t second = 0;
  // The file is begun, and then come pieces of half a megabyte.
  EXPECT_FALSE(Try(9, 11, first).IsOk());
  EXPECT_EQ(first, 5 * kMiB);
  const Status status = Try(0, 1000, second);
  EXPECT_TRUE(status.IsOk()) << status.message;
  EXPECT_EQ(second, 2 * kMiB);
  ExpectTree(Top(), DescribeTree(A().SnapshotPath("s1")));
}

TEST_P(ChangeApplyTest, AMarkThatIsTornOrOfAnotherBaseIsNone) {
  const Fd incoming(open(B().path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ChangeMark mark(incoming.Get(), "snap", "s0");
  ASSERT_EQ(mark.Begin(), 0);
  mark.Keep({12, 345});
  const auto isThere = [&](const std::string& base, ChangePoint& point) {
    ChangeMark other(incoming.Get(), "snap", base);
    bool found = false;
    EXPECT_EQ(other.Read(found), 0);
    point = other.GetReached();
    return found;
  };
  ChangePoint point;
  EXPECT_TRUE(isThere("s0", point));
  EXPECT_EQ(point, (ChangePoint{12, 345}));
  EXPECT_FALSE(isThere("s1", point));
  const std::string file = B().path + "/" + ChangeMark::NameOf("snap");
  const std::string whole = ReadFile(file);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    WriteFile(file, whole.substr(0, size));
    EXPECT_FALSE(isThere("s0", point)) << size;
  }
  WriteFile(file, whole + "x");
  EXPECT_FALSE(isThere("s0", point));
}

TEST_P(ChangeApplyTest, ABaseThatIsNotWhatWasToldIsComparedAndNotReliedOn) {
  WriteFile(A().TargetPath() + "/file", RandomBytes(100'000));
  Take(A(), "s0");
  WriteFile(B().TargetPath() + "/file", RandomBytes(90'000));
  Take(B(), "s0");
  Overwrite(A().TargetPath() + "/file", 5000, "changed");
  Take(A(), "s1");
  Ship(A(), "s1", "s0", B());
  ExpectSame(A(), B(), "s1");
  ExpectNothingIncoming(B());
}

// How many bytes this process has had read so far.
std::uint64_t BytesRead() {
  std::ifstream io("/proc/self/io");
  std::string name;
  std::uint64_t value = 0;
  while (io >> name >> value) {
    if (name == "rchar:") return value;
  }
  return 0;
}

TEST_P(ChangeApplyTest, OfFilesThatWereNotChangedNothingIsReadAtTheSource) {
  constexpr std::size_t kMiB = 1 << 20;
  WriteFile(A().TargetPath() + "/large", RandomBytes(8 * kMiB));
  Take(A(), "s0");
  Ship(A(), "s0", "", B());
  Overwrite(A().TargetPath() + "/large", 5 * kMiB, RandomBytes(4096));
  Take(A(), "s1");
  const std::uint64_t before = BytesRead();
  EXPECT_EQ(Ship(A(), "s1", "s0", B()), 4096U);
  // A replica that cannot share blocks reads its own base once, to copy it.
  const std::uint64_t copied = B().type == "ext4" ? 8 * kMiB : 0;
  EXPECT_LE(BytesRead() - before, copied + 300'000);
  ExpectSame(A(), B(), "s1");
}

}  // namespace
}  // namespace host_test
