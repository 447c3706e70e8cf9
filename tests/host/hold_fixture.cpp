#include "hold_fixture.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <new>
#include <sstream>
#include <thread>

#include "control_groups.h"

namespace host_test {

namespace fs = std::filesystem;

namespace {

void WriteTo(const std::string& path, const std::string& text) {
  std::ofstream(path) << text << std::flush;
}

std::string ReadText(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

}  // namespace

bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds most) {
  const auto end = std::chrono::steady_clock::now() + most;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

CountingWriter::CountingWriter(const std::vector<std::string>& groups, const std::string& file) {
  void* memory =
      mmap(nullptr, sizeof *counter_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  counter_ = new (memory) std::atomic<std::uint64_t>(0);
  pid_ = fork();
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (const std::string& each : groups) WriteTo(each + "/cgroup.procs", "0");
    const int fd = file.empty() ? -1 : open(file.c_str(), O_CREAT | O_WRONLY, 0600);
    for (std::uint64_t count = 1;; ++count) {
      if (fd != -1 && (pwrite(fd, &count, sizeof count, 0) < 0 || fdatasync(fd) != 0)) _exit(1);
      counter_->store(count);
      if (fd == -1) std::this_thread::yield();
    }
  }
  EXPECT_TRUE(Moves());
}

CountingWriter::~CountingWriter() {
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  munmap(counter_, sizeof *counter_);
}

bool CountingWriter::Moves(std::chrono::milliseconds most) const {
  const std::uint64_t before = Count();
  return WaitUntil([&] { return Count() != before; }, most);
}

bool StandsStill(const CountingWriter& held) {
  const CountingWriter other({});
  const std::uint64_t before = held.Count();
  const std::uint64_t start = other.Count();
  return WaitUntil([&] { return other.Count() > start + 1000; }) && held.Count() == before;
}

void HoldTest::SetUp() {
  std::string dir = testing::TempDir() + "vreldr-hold-XXXXXX";
  ASSERT_NE(mkdtemp(dir.data()), nullptr);
  root_ = dir;
}

void HoldTest::TearDown() {
  EXPECT_TRUE(WaitUntil([] { return !HasGuardian(); }));
  std::reverse(groups_.begin(), groups_.end());
  for (const std::string& each : groups_) {
    EXPECT_TRUE(WaitUntil([&] { return rmdir(each.c_str()) == 0 || errno == ENOENT; })) << each;
  }
  for (const char* each : {"v1", "v2"}) {
    if (fs::exists(root_ + "/" + each)) umount2((root_ + "/" + each).c_str(), MNT_DETACH);
  }
  std::error_code error;
  fs::remove_all(root_, error);
}

std::string HoldTest::Hierarchy(const std::string& kind, std::string& why) const {
  return FindHierarchy(kind, root_, why);
}

std::string HoldTest::MakeGroup(const std::string& kind, const std::string& name) {
  std::string why;
  const std::string group =
      Hierarchy(kind, why) + "/vreldr-test-" + std::to_string(getpid()) + "-" + name;
  EXPECT_EQ(mkdir(group.c_str(), 0755), 0) << group << ": " << std::strerror(errno) << why;
  groups_.push_back(group);
  return group;
}

std::vector<std::string> HoldTest::Shell(const std::string& text) const {
  return {"/bin/sh", "-c", "cd '" + root_ + "' || exit 1; " + text};
}

VrelDR::QuiesceCommand HoldTest::NotingCommand(const std::string& freeze) const {
  return {Shell("echo f >>frozen; " + freeze), Shell("echo t >>thawed"), false};
}

void HoldTest::WriteScript(const std::string& name, const std::string& text) const {
  WriteTo(FileOf(name), "#!/bin/sh\n" + text);
  chmod(FileOf(name).c_str(), 0755);
}

std::size_t HoldTest::Lines(const std::string& name) const {
  const std::string text = ReadText(FileOf(name));
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

bool HoldTest::HasGuardian() {
  // Programs that run beside this one have namespaces of their own.
  std::error_code error;
  const fs::path own = fs::read_symlink("/proc/self/ns/mnt", error);
  for (fs::directory_iterator each("/proc", error), end; !error && each != end;
       each.increment(error)) {
    std::error_code ignored;
    if (ReadText(each->path() / "comm") == "vreldr-hold\n" &&
        fs::read_symlink(each->path() / "ns/mnt", ignored) == own) {
      return true;
    }
  }
  return false;
}

void GroupHoldTest::SetUp() {
  HoldTest::SetUp();
  std::string why;
  const std::string hierarchy = Hierarchy(GetParam(), why);
  if (hierarchy.empty()) GTEST_SKIP() << why;
  if (access(hierarchy.c_str(), W_OK) != 0) {
    GTEST_SKIP() << hierarchy << ": " << std::strerror(errno) << "; run it as root";
  }
  group_ = MakeGroup(GetParam());
}

bool GroupHoldTest::IsFrozen(const std::string& group) {
  if (fs::exists(group + "/freezer.state")) return ReadText(group + "/freezer.state") == "FROZEN\n";
  return ReadText(group + "/cgroup.events").find("frozen 1") != std::string::npos;
}

void GroupHoldTest::Freeze(const std::string& group, bool frozen) {
  const bool isV1 = fs::exists(group + "/freezer.state");
  WriteTo(group + (isV1 ? "/freezer.state" : "/cgroup.freeze"),
          isV1 ? (frozen ? "FROZEN" : "THAWED") : (frozen ? "1" : "0"));
  EXPECT_TRUE(WaitUntil([&] { return IsFrozen(group) == frozen; }));
}

VrelDR::QuiesceMeans GroupHoldTest::Means() const {
  VrelDR::QuiesceMeans means;
  means.control_groups = {group_};
  return means;
}

}  // namespace host_test
