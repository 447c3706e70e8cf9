#include "host_fixture.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>

#include "tree.h"

extern char** environ;

namespace host_test {

namespace fs = std::filesystem;

int WaitFor(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) == -1) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int RunProgram(const std::vector<std::string>& args) {
  std::vector<char*> argv;
  for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  const int error = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  return error == 0 ? WaitFor(pid) : -1;
}

pid_t StartChild(const std::vector<std::pair<std::string, std::string>>& environment,
                 const std::function<int()>& body) {
  const pid_t pid = fork();
  if (pid == 0) {
    for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
    _exit(body());
  }
  return pid;
}

int RunInChild(const std::vector<std::pair<std::string, std::string>>& environment,
               const std::function<int()>& body) {
  const pid_t pid = StartChild(environment, body);
  return pid == -1 ? -1 : WaitFor(pid);
}

MountedImage::MountedImage(const std::string& type, const std::string& dir, std::string& why,
                           std::uint64_t mib)
    : dir_(dir) {
  const std::string image = dir + ".img";
  if (mib == 0) mib = type == "xfs" ? 320 : type == "btrfs" ? 160 : 64;
  WriteFile(image, "");
  fs::resize_file(image, mib * 1024 * 1024);
  // The directories of system tools may be missing from an ordinary user's PATH.
  if (RunProgram({"/sbin/mkfs." + type, "-q", image}) != 0) {
    why = "cannot make a file system with mkfs." + type + "; is it installed?";
  } else if (RunProgram({"mount", "-o", "loop", image, dir}) != 0) {
    why = "cannot mount a loop image; this needs root";
  } else {
    mounted_ = true;
  }
}

MountedImage::~MountedImage() {
  if (mounted_) umount2(dir_.c_str(), MNT_DETACH);
}

bool MountedImage::Remount(const std::string& option) const {
  return RunProgram({"mount", "-o", "remount," + option, dir_}) == 0;
}

bool MountedImage::MountAgain(bool cut) {
  const std::string left = GetImage() + ".cut";
  if (cut && RunProgram({"cp", "--reflink=always", GetImage(), left}) != 0) return false;
  if (!Unmount()) return false;
  if (cut) {
    fs::rename(left, GetImage());
    // The system would take the newer of the two for what has to be mounted.
    (void)RunProgram({"/sbin/btrfs", "device", "scan", "--forget"});
  }
  return Mount();
}

bool MountedImage::Unmount() {
  // Processes that were killed may hold it a little longer.
  for (int tries = 0; umount2(dir_.c_str(), 0) != 0; ++tries) {
    if (errno != EBUSY || tries == 100) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  mounted_ = false;
  return true;
}

bool MountedImage::Mount() {
  mounted_ = RunProgram({"mount", "-o", "loop", GetImage(), dir_}) == 0;
  return mounted_;
}

void HostTest::SetUp() {
  // In the program's own /var, which goes with the program.
  char name[] = "/var/host-test-XXXXXX";
  ASSERT_NE(mkdtemp(name), nullptr);
  root_ = name;
  fs::create_directory(VolumePath());
  if (IsOnImage()) {
    std::string why;
    image_ = std::make_unique<MountedImage>(GetParam(), VolumePath(), why);
    if (!image_->IsMounted()) GTEST_SKIP() << why;
  }
  WriteFile(root_ + "/config.json", R"({"state_dir": ")" + StateDir() + R"(", "volumes": [)" +
                                        VolumeText("v1", VolumePath()) + "]}");
  setenv("VRELDR_CONFIG", (root_ + "/config.json").c_str(), 1);
}

void HostTest::TearDown() {
  image_.reset();
  unsetenv("VRELDR_CONFIG");
}

std::string HostTest::VolumeText(const std::string& name, const std::string& path) const {
  return R"({"name": ")" + name + R"(", "engine": ")" + (IsFake() ? "fake" : "local") +
         R"(", "path": ")" + path + R"("})";
}

void HostTest::UnmountVolume() {
  image_.reset();
  if (IsFake()) fs::rename(VolumePath(), VolumePath() + " away");
}

void HostTest::MakeLun(const std::string& id, std::uint64_t size) const {
  VrelDR::TargetSpec spec;
  spec.target = VrelDR::Target(id, VrelDR::kTargetLun);
  spec.volume = "v1";
  spec.size_bytes = size;
  const VrelDR::TargetManager manager;
  ASSERT_TRUE(manager.Create(spec)) << manager.GetErr();
}

void HostTest::MakeShare(const std::string& id, const std::vector<std::string>& sources) const {
  VrelDR::TargetSpec spec;
  spec.target = VrelDR::Target(id, VrelDR::kTargetShare);
  spec.volume = "v1";
  spec.sources = sources;
  const VrelDR::TargetManager manager;
  ASSERT_TRUE(manager.Create(spec)) << manager.GetErr();
}

std::string HostTest::PathOf(const std::string& targetId) {
  VrelDR::TargetEntry entry;
  EXPECT_TRUE(VrelDR::TargetManager().Get(targetId, entry)) << targetId;
  return entry.path;
}

VrelDR::Operation::Snapshot HostTest::Take(const std::string& targetId) {
  const VrelDR::TargetOperation operation(0, targetId);
  std::string snapId;
  EXPECT_TRUE(operation.TakeSnapshot(VrelDR::Operation::SnapshotMeta(), snapId))
      << operation.GetErr();
  return operation.GetSnapshot(snapId);
}

std::vector<std::string> HostTest::ListIds(const std::string& targetId) {
  std::vector<std::string> ids;
  const VrelDR::TargetOperation operation(0, targetId);
  for (const auto& each : operation.ListSnapshots()) ids.push_back(each.snap_id);
  EXPECT_EQ(operation.GetErrCode(), 0) << operation.GetErr();
  return ids;
}

void HostTest::ExpectError(const VrelDR::DRErrRecorder& recorder, int code,
                           const std::vector<std::string>& parts) {
  EXPECT_EQ(recorder.GetErrCode(), code) << recorder.GetErr();
  ASSERT_TRUE(recorder.GetErrMsg().isString());
  const std::string message = recorder.GetErrMsg().asString();
  EXPECT_EQ(message.find('\n'), std::string::npos) << message;
  for (const std::string& part : parts) {
    EXPECT_NE(message.find(part), std::string::npos) << message << "\nlacks: " << part;
  }
}

void HostTest::ExpectNoLeftovers() const {
  if (IsFake()) {
    for (const auto& each : fs::directory_iterator(VolumePath())) {
      EXPECT_FALSE(fs::exists(each.path() / "work")) << each.path();
    }
    return;
  }
  const std::string own = VolumePath() + "/.vreldr";
  if (fs::exists(own + "/digests")) {
    for (const auto& each : fs::recursive_directory_iterator(own + "/digests")) {
      const fs::path snapshot =
          own / fs::path("snapshots") / each.path().lexically_relative(own + "/digests");
      EXPECT_TRUE(fs::exists(snapshot)) << "of no snapshot: " << each.path();
    }
  }
  const std::string tmp = own + "/tmp";
  if (!fs::exists(tmp)) return;
  for (const auto& each : fs::recursive_directory_iterator(tmp)) {
    ADD_FAILURE() << "left over: " << each.path();
  }
}

}  // namespace host_test
