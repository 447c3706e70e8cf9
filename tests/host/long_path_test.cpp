#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>
#include <string>

#include "base/fd.h"
#include "engine_fixture.h"

// Paths that the system has no call for, as they are longer than it takes, made step by step.

namespace host_test {
namespace {

using VrelDR::Fd;

constexpr std::size_t kMostOfSystem = 4095;

class LongPathTest : public EngineTest {
 protected:
  // A path of this length whose last name has `name` bytes.
  static std::string PathOf(std::size_t length, std::size_t name) {
    std::string path;
    const std::size_t folders = length - name - 1;
    while (path.size() < folders) {
      if (!path.empty()) path += '/';
      const std::size_t left = folders - path.size();
      path += std::string(left == 202 ? 100 : std::min<std::size_t>(left, 201), 'd');
    }
    EXPECT_EQ(path.size(), folders);
    return path + "/" + std::string(name, 'f');
  }

  // The last step's descriptor: a folder's for each name before it, which is made if asked for.
  static Fd Walk(const std::string& root, const std::string& path, bool make) {
    Fd at(open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (std::size_t begin = 0; at && begin < path.size();) {
      const std::size_t end = std::min(path.find('/', begin), path.size());
      const std::string name = path.substr(begin, end - begin);
      if (end == path.size()) {
        return Fd(openat(at.Get(), name.c_str(), make ? O_RDWR | O_CREAT : O_RDONLY, 0600));
      }
      if (make) (void)mkdirat(at.Get(), name.c_str(), 0700);
      at = Fd(openat(at.Get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
      begin = end + 1;
    }
    return {};
  }

  void Make(const std::string& path) {
    const Fd file = Walk(A().TargetPath(), path, true);
    ASSERT_TRUE(file);
    ASSERT_EQ(write(file.Get(), "deep", 4), 4);
  }

  void ExpectArrives(const std::string& id, const std::string& base, const std::string& path) {
    SCOPED_TRACE(id);
    Take(A(), id);
    Ship(A(), id, base, B());
    if (path.empty()) return;
    const Fd file = Walk(B().SnapshotPath(id), path, false);
    char bytes[5] = {};
    EXPECT_TRUE(file);
    EXPECT_EQ(read(file.Get(), bytes, 4), 4);
    EXPECT_STREQ(bytes, "deep");
  }

  void ExpectRefused(const std::string& id, const std::string& base, const std::string& part) {
    SCOPED_TRACE(id);
    Take(A(), id);
    TestWatcher watcher;
    const VrelDR::Status status = TryShip(A(), id, base, B(), watcher);
    ExpectStatus(status, VrelDR::kErrUnsupported, part);
    EXPECT_LT(status.message.size(), 500U);
    EXPECT_EQ(watcher.GetSent(), 0U);
    EXPECT_EQ(B().Snapshots().count(id), 0U);
    ASSERT_TRUE(B().Drop("").IsOk());
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, LongPathTest,
                         testing::Values("tmpfs-tmpfs", "ext4-ext4", "btrfs-btrfs", "btrfs-ext4"),
                         EngineTest::NameOf);

TEST_P(LongPathTest, OnlyWhatTheProgramThatSendsCannotTakeIsRefusedAndByName) {
  const std::string incoming = B().path + "/.vreldr/incoming/replica/s1";
  const std::size_t most = AreBothBtrfs() ? kMostOfSystem - 1 - incoming.size() - 1 : kMostOfSystem;
  const std::string longest = PathOf(most, 200);
  Make("other/deep");
  ExpectArrives("s0", "", "other/deep");
  Make(longest);
  ExpectArrives("s1", "", longest);
  ExpectArrives("s2", "s0", longest);
  const std::string tooLong = longest + "g";
  Make(tooLong);
  const std::string part = "ffg\" in it has " + std::to_string(tooLong.size()) + " bytes";
  ExpectRefused("s3", "", part);
  ExpectRefused("s4", "s2", part);
}

TEST_P(LongPathTest, AFolderThatTheProgramThatSendsCannotOpenIsRefusedByName) {
  const std::size_t most = kMostOfSystem - A().SnapshotPath("s1").size() - 1;
  const std::string folder = PathOf(most + 1, 100);
  if (AreBothBtrfs()) {
    // Nothing opens it there; but a path that even the system's own part of it does not take.
    const std::string beyond = PathOf(kMostOfSystem + 200, 100);
    ExpectArrives("s0", "", "");
    Make(beyond);
    ExpectRefused("s1", "", "ddd\" in it has 4");
    ExpectRefused("s2", "s0", "ddd\" in it has 4");
    return;
  }
  Make(folder + "/deep");
  ExpectRefused("s1", "", "ff\" in it has " + std::to_string(folder.size()) + " bytes");
}

}  // namespace
}  // namespace host_test
