#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/swap.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <thread>

#include "../torture/loop_device.h"
#include "contract_fixture.h"
#include "holder.h"

// The contract of engines: who uses a target's bytes.

namespace host_test {
namespace {

using Kind = VrelDR::TargetUser::Kind;
using Users = std::vector<VrelDR::TargetUser>;

class UsersContractTest : public EngineContractTest {
 protected:
  void SetUp() override {
    EngineContractTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    if (geteuid() != 0) GTEST_SKIP() << "mounting and looking into other processes needs root";
    WriteFile(File(), std::string(10000, 'x'));
  }

  std::string File() const { return A().TargetPath() + "/plain"; }
  // A directory of the same file system that is no target's.
  std::string Outside() const {
    const std::string outside = A().path + "/outside";
    fs::create_directory(outside);
    return outside;
  }

  static Users Find(const EngineTarget& target) {
    Watcher watcher;
    VrelDR::UsersSeen seen;
    ExpectGood(target.engine->FindUsers({target.place}, seen, watcher));
    return seen.users[target.place.id];
  }
  static void ExpectUser(const Users& users, Kind kind, bool isWriter, pid_t pid,
                         const std::string& path) {
    ASSERT_EQ(users.size(), 1U);
    EXPECT_EQ(users[0].kind, kind);
    EXPECT_EQ(users[0].is_writer, isWriter);
    EXPECT_EQ(users[0].pid, pid);
    EXPECT_EQ(users[0].path, path);
  }
  static void ExpectNobody(const EngineTarget& target) {
    for (const VrelDR::TargetUser& each : Find(target)) ADD_FAILURE() << each.Text();
  }
  static bool Open(const std::string& path, int flags) { return open(path.c_str(), flags) != -1; }
  static bool LeaveNamespace() {
    return unshare(CLONE_NEWNS) == 0 &&
           mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  }
  static bool Bind(const std::string& from, const std::string& to) {
    return mount(from.c_str(), to.c_str(), nullptr, MS_BIND, nullptr) == 0;
  }
  // A directory of another file system, to mount something on.
  static std::string Elsewhere() {
    const std::string place = "/var/elsewhere";
    fs::create_directory(place);
    return place;
  }
  EngineTarget MakeLun() {
    EngineTarget lun = Prepare(A(), "lun", VrelDR::kTargetLun);
    ExpectGood(lun.Create({kMiB, {}}));
    return lun;
  }
};

INSTANTIATE_TEST_SUITE_P(Volumes, UsersContractTest,
                         testing::Values("ext4-ext4", "xfs-xfs", "btrfs-btrfs", "fake-fake"),
                         EngineTest::NameOf);

TEST_P(UsersContractTest, WhoHasAFileOpenIsNamedWithWhatHeCanDo) {
  ExpectNobody(A());
  {
    const Holder writer([&] { return Open(File(), O_WRONLY | O_APPEND); });
    const Users users = Find(A());
    ExpectUser(users, Kind::kOpenFile, true, writer.GetPid(), File());
    EXPECT_EQ(users[0].Text(), "file \"" + File() + "\" is open for writing by " +
                                   users[0].program + " (pid " + std::to_string(writer.GetPid()) +
                                   ")");
    EXPECT_NE(users[0].program, "");
  }
  const Holder reader([&] { return Open(File(), O_RDONLY); });
  ExpectUser(Find(A()), Kind::kOpenFile, false, reader.GetPid(), File());
  ExpectNobody(B());
}

TEST_P(UsersContractTest, OfSeveralThoseWhoWriteComeFirstAndOneWhoHasAFileTwiceIsOne) {
  const Holder reader([&] { return Open(File(), O_RDONLY); });
  const Holder both([&] { return Open(File(), O_RDONLY) && Open(File(), O_RDWR); });
  const Users users = Find(A());
  ASSERT_EQ(users.size(), 2U);
  EXPECT_TRUE(users[0].is_writer);
  EXPECT_EQ(users[0].pid, both.GetPid());
  EXPECT_FALSE(users[1].is_writer);
}

TEST_P(UsersContractTest, AMappedFileCountsThoughItsDescriptorIsClosed) {
  const auto map = [&](int flags, int access, int how) {
    const int fd = open(File().c_str(), flags);
    void* bytes = mmap(nullptr, 4096, access, how, fd, 0);
    close(fd);
    return bytes != MAP_FAILED;
  };
  {
    const Holder writer([&] { return map(O_RDWR, PROT_READ | PROT_WRITE, MAP_SHARED); });
    ExpectUser(Find(A()), Kind::kMappedFile, true, writer.GetPid(), File());
  }
  {
    const Holder later([&] { return map(O_RDWR, PROT_READ, MAP_SHARED); });
    ExpectUser(Find(A()), Kind::kMappedFile, true, later.GetPid(), File());
  }
  for (const int how : {MAP_SHARED, MAP_PRIVATE}) {
    const Holder reader([&] { return map(O_RDONLY, PROT_READ, how); });
    ExpectUser(Find(A()), Kind::kMappedFile, false, reader.GetPid(), File());
  }
}

TEST_P(UsersContractTest, AFileBelowALoopDeviceCountsInATreeAndAsADisk) {
  const EngineTarget lun = MakeLun();
  WriteFile(A().TargetPath() + "/image", std::string(kMiB, '\0'));
  for (const std::string& image : {lun.TargetPath(), A().TargetPath() + "/image"}) {
    std::string why;
    const torture::LoopDevice loop(image, 0, 0, why);
    ASSERT_NE(loop.GetPath(), "") << why;
    const EngineTarget& used = image == lun.TargetPath() ? lun : A();
    const Users users = Find(used);
    ExpectUser(users, Kind::kLoopDevice, true, 0, image);
    EXPECT_EQ(users[0].through, loop.GetPath());
    EXPECT_EQ(users[0].Text(),
              "loop device \"" + loop.GetPath() + "\" is attached to \"" + image + "\"");
    ExpectNobody(image == lun.TargetPath() ? A() : lun);
  }
}

TEST_P(UsersContractTest, ALoopDeviceSaysWhereItIsMounted) {
  const EngineTarget lun = MakeLun();
  ASSERT_EQ(RunProgram({"mkfs.ext4", "-q", lun.TargetPath()}), 0);
  const std::string place = Elsewhere();
  ASSERT_EQ(RunProgram({"mount", "-o", "loop", lun.TargetPath(), place}), 0);
  const Users users = Find(lun);
  ExpectUser(users, Kind::kLoopDevice, true, 0, lun.TargetPath());
  EXPECT_EQ(users.at(0).mounted_on, place);
  ASSERT_EQ(umount(place.c_str()), 0);
}

TEST_P(UsersContractTest, OfALunItsImageCountsAlone) {
  const EngineTarget lun = MakeLun();
  const std::string note = fs::path(lun.TargetPath()).parent_path() / "note";
  WriteFile(note, "not the disk");
  const Holder other([&] { return Open(note, O_RDWR); });
  ExpectNobody(lun);
  const Holder user([&] { return Open(lun.TargetPath(), O_RDWR); });
  ExpectUser(Find(lun), Kind::kOpenFile, true, user.GetPid(), lun.TargetPath());
}

TEST_P(UsersContractTest, ABindMountCountsWhereverItIsSeen) {
  const std::string place = Elsewhere();
  fs::create_directory(A().TargetPath() + "/sub");
  const Holder viewer([&] { return LeaveNamespace() && Bind(A().TargetPath() + "/sub", place); });
  const Users users = Find(A());
  ExpectUser(users, Kind::kMount, true, viewer.GetPid(), A().TargetPath() + "/sub");
  EXPECT_EQ(users[0].through, place);
  const Holder reader([&] {
    return LeaveNamespace() && Bind(A().TargetPath(), place) &&
           mount(nullptr, place.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) == 0;
  });
  const Users both = Find(A());
  ASSERT_EQ(both.size(), 2U);
  EXPECT_FALSE(both[1].is_writer);
  ExpectNobody(B());
}

TEST_P(UsersContractTest, AFileThatIsOpenByAPathOfAnotherNamespaceIsFound) {
  const std::string place = Elsewhere();
  const Holder hidden([&] {
    return LeaveNamespace() && Bind(A().TargetPath(), place) && Open(place + "/plain", O_RDWR) &&
           umount2(place.c_str(), MNT_DETACH) == 0 &&
           (A().IsFake() || umount2(A().path.c_str(), MNT_DETACH) == 0);
  });
  ExpectUser(Find(A()), Kind::kOpenFile, true, hidden.GetPid(), File());
}

TEST_P(UsersContractTest, AFileThatIsOpenBelowAnotherRootIsFound) {
  const Holder confined([&] {
    return chroot(A().TargetPath().c_str()) == 0 && chdir("/") == 0 && Open("/plain", O_RDWR);
  });
  ExpectUser(Find(A()), Kind::kOpenFile, true, confined.GetPid(), File());
}

TEST_P(UsersContractTest, AFileWithASecondNameElsewhereIsFoundByItsNumber) {
  const std::string name = Outside() + "/second name";
  std::error_code error;
  fs::create_hard_link(File(), name, error);
  // A subvolume shares no file with what is outside of it.
  ASSERT_EQ(error.value(), A().type == "btrfs" ? EXDEV : 0);
  if (error) return;
  const Holder user([&] { return Open(name, O_RDWR); });
  ExpectUser(Find(A()), Kind::kOpenFile, true, user.GetPid(), File());
}

TEST_P(UsersContractTest, AThreadThatHasDescriptorsOfItsOwnIsFound) {
  const Holder user([&] {
    bool opened = false;
    std::atomic<bool> done = false;
    std::thread([&] {
      opened = unshare(CLONE_FILES) == 0 && Open(File(), O_RDWR);
      done = true;
      for (;;) pause();
    }).detach();
    while (!done) std::this_thread::yield();
    return opened;
  });
  ExpectUser(Find(A()), Kind::kOpenFile, true, user.GetPid(), File());
}

TEST_P(UsersContractTest, AMappingCountsWhenTheFirstThreadOfItsProgramHasEnded) {
  const auto map = [&] {
    std::thread([] {
      for (;;) pause();
    }).detach();
    const int fd = open(File().c_str(), O_RDWR);
    void* bytes = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    return bytes != MAP_FAILED;
  };
  const Holder user(map, [] { syscall(SYS_exit, 0); });  // of one thread alone
  for (std::string stat; stat.find(") Z") == std::string::npos; std::this_thread::yield()) {
    std::ifstream file("/proc/" + std::to_string(user.GetPid()) + "/stat");
    std::getline(file, stat);
  }
  ExpectUser(Find(A()), Kind::kMappedFile, true, user.GetPid(), File());
}

// Others want a swap file to be made in a way of theirs.
class SwapContractTest : public UsersContractTest {};

INSTANTIATE_TEST_SUITE_P(Volumes, SwapContractTest, testing::Values("ext4-ext4"),
                         EngineTest::NameOf);

TEST_P(SwapContractTest, ASwapFileCounts) {
  const std::string file = A().TargetPath() + "/swap";
  WriteFile(file, RandomBytes(kMiB));
  ASSERT_EQ(chmod(file.c_str(), 0600), 0);
  ASSERT_EQ(RunProgram({"mkswap", file}), 0);
  ASSERT_EQ(swapon(file.c_str(), 0), 0);
  const Users users = Find(A());
  ASSERT_EQ(swapoff(file.c_str()), 0);
  ExpectUser(users, Kind::kSwapFile, true, 0, file);
}

TEST_P(UsersContractTest, NobodyCountsWhoHasNoBytesOfTheTarget) {
  const EngineTarget other = Prepare(A(), "source2", VrelDR::kTargetShare);
  ExpectGood(other.Create({}));
  WriteFile(other.TargetPath() + "/plain", "another's");
  WriteFile(A().TargetPath() + "/gone", "soon");
  Take(A(), "s1");
  const Holder neighbour([&] { return Open(other.TargetPath() + "/plain", O_RDWR); });
  const Holder reader([&] { return Open(A().SnapshotPath("s1") + "/plain", O_RDONLY); });
  const Holder nameless([&] {
    const std::string path = A().TargetPath() + "/gone";
    return Open(path, O_RDWR) && unlink(path.c_str()) == 0;
  });
  const Holder visitor([&] {
    return chdir(A().TargetPath().c_str()) == 0 && Open(A().TargetPath(), O_RDONLY | O_DIRECTORY) &&
           Open(File(), O_PATH);
  });
  const int own = open(File().c_str(), O_RDWR);
  ExpectNobody(A());
  close(own);
  const Users users = Find(other);
  ExpectUser(users, Kind::kOpenFile, true, neighbour.GetPid(), other.TargetPath() + "/plain");
}

TEST_P(UsersContractTest, SeveralTargetsAreAskedAboutAtOnceAndOneThatIsGoneIsUsedByNobody) {
  const EngineTarget lun = MakeLun();
  EngineTarget gone = Prepare(A(), "gone", VrelDR::kTargetShare);
  const Holder writer([&] { return Open(lun.TargetPath(), O_RDWR) && Open(File(), O_RDONLY); });
  Watcher watcher;
  VrelDR::UsersSeen seen;
  ExpectGood(A().engine->FindUsers({lun.place, gone.place, A().place}, seen, watcher));
  ExpectUser(seen.users["lun"], Kind::kOpenFile, true, writer.GetPid(), lun.TargetPath());
  ExpectUser(seen.users["source"], Kind::kOpenFile, false, writer.GetPid(), File());
  EXPECT_TRUE(seen.users["gone"].empty());
}

}  // namespace
}  // namespace host_test
