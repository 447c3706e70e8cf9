#include "disks.h"

#include <fcntl.h>
#include <linux/btrfs.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "host_fixture.h"
#include "loop_device.h"

namespace torture {

namespace fs = std::filesystem;

namespace {

constexpr const char* kLinks = "/var/packages/Guestora/etc";
constexpr std::uint64_t kMiB = 1024 * 1024;
// More than the smallest that any of the file systems can be made on.
constexpr std::uint64_t kDiskSize = 384 * kMiB;
// How much of what is in a volatile cache survives a cut, in percent.
constexpr unsigned kSurvives[] = {0, 50, 90};

std::string Failed(const std::string& step) {
  return step + ": " + std::strerror(errno);
}

std::string Clone(const std::string& from, const std::string& to) {
  const int in = open(from.c_str(), O_RDONLY | O_CLOEXEC);
  const int out = open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  const bool isCloned = in >= 0 && out >= 0 && ioctl(out, FICLONE, in) == 0;
  const std::string why = isCloned ? "" : Failed("cannot clone " + from + " to " + to);
  if (in >= 0) close(in);
  if (out >= 0) close(out);
  return why;
}

// A btrfs that is mounted again from another device is refused while the kernel remembers the
// first.
void ForgetDevices() {
  const int fd = open("/dev/btrfs-control", O_RDWR | O_CLOEXEC);
  if (fd < 0) return;
  btrfs_ioctl_vol_args arguments = {};
  (void)ioctl(fd, BTRFS_IOC_FORGET_DEV, &arguments);
  close(fd);
}

// Another process may look at a mount for a moment, as the one that asks what is mounted.
bool Unmount(const std::string& place) {
  for (int tries = 0; tries < 500; ++tries) {
    if (umount2(place.c_str(), 0) == 0) return true;
    if (errno != EBUSY) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

// A disk that has nothing on it but the directories that the host needs.
std::string MakeFileSystem(const std::string& image, std::uint64_t offset, const std::string& type,
                           const std::string& place, const std::vector<std::string>& directories) {
  std::string why;
  const LoopDevice device(image, offset, kDiskSize, why);
  if (!why.empty()) return why;
  std::vector<std::string> words{"/sbin/mkfs." + type, "-q"};
  if (type == "ext4") words.insert(words.end(), {"-F", "-E", "nodiscard"});
  if (type != "ext4") words.insert(words.end(), {"-f", "-K"});
  words.push_back(device.GetPath());
  if (host_test::RunProgram(words) != 0) return "mkfs." + type + " failed; is it installed?";
  if (mount(device.GetPath().c_str(), place.c_str(), type.c_str(), 0, nullptr) != 0) {
    return Failed("cannot mount " + type);
  }
  for (const std::string& each : directories) fs::create_directory(place + "/" + each);
  return Unmount(place) ? "" : Failed("cannot unmount " + place);
}

}  // namespace

std::string NameOf(Layout layout) {
  switch (layout) {
    case Layout::kOneDisk:
      return "OneDisk";
    case Layout::kDiskEach:
      return "DiskEach";
    default:
      return "CachedDisks";
  }
}

Disks::Disks(const std::string& root, Layout layout, const std::string& type, std::string& why)
    : root_(root), layout_(layout), type_(type), store_(root + "/store") {
  for (const std::string& each : {store_, root_ + "/caches", root_ + "/base"}) {
    fs::create_directories(each);
  }
  for (const std::string& each : Volumes()) fs::create_directories(root_ + "/" + each);
  fs::create_directories(kLinks);
  const std::string image = root_ + "/store.img";
  std::ofstream(image).close();
  fs::resize_file(image, 32 * 1024 * kMiB);
  std::string problem;
  const LoopDevice device(image, 0, 0, problem);
  if (!problem.empty()) {
    why = problem;
  } else if (host_test::RunProgram(
                 {"/sbin/mkfs.xfs", "-q", "-K", "-m", "reflink=1", device.GetPath()}) != 0) {
    why = "mkfs.xfs failed; is it installed?";
  } else if (mount(device.GetPath().c_str(), store_.c_str(), "xfs", 0, nullptr) != 0) {
    why = Failed("cannot mount the file system that the disks lie on; this needs root");
  } else {
    why = MakeEmpty();
  }
}

Disks::~Disks() {
  UnmountAll();
  StopCaches();
  Unmount(store_);
}

std::string Disks::StateDir() const {
  return root_ + "/base/state";
}

std::vector<std::string> Disks::Volumes() const {
  return {"v1", "v2", "v3"};
}

std::string Disks::VolumePath(const std::string& name) const {
  return root_ + (layout_ == Layout::kOneDisk ? "/base/" : "/") + name;
}

std::string Disks::MakeEmpty() {
  const std::string image = Kept("empty");
  std::ofstream(image).close();
  fs::resize_file(image, Count() * kDiskSize);
  std::vector<std::string> base{"state", "links"};
  if (layout_ == Layout::kOneDisk) base.insert(base.end(), {"v1", "v2", "v3"});
  std::string why = MakeFileSystem(image, 0, type_, root_ + "/base", base);
  for (std::size_t at = 1; at < Count() && why.empty(); ++at) {
    why = MakeFileSystem(image, at * kDiskSize, type_, root_ + "/" + Volumes()[at - 1], {});
  }
  return why;
}

std::string Disks::Renew(const std::string& name) {
  std::string why = Leave();
  StopCaches();
  if (why.empty()) why = Clone(Kept(name.empty() ? "empty" : name), Kept("live"));
  if (why.empty() && layout_ == Layout::kCachedDisks) why = StartCaches();
  return why.empty() ? Return() : why;
}

std::string Disks::Leave() {
  return UnmountAll();
}

std::string Disks::Return() {
  return MountAll(Kept("live"), layout_ == Layout::kCachedDisks);
}

std::string Disks::Cut(const std::string& name, unsigned seed) {
  if (layout_ != Layout::kCachedDisks) return Clone(Kept("live"), Kept(name));
  const unsigned percent = kSurvives[seed % std::size(kSurvives)];
  const std::string line =
      "cut " + Kept(name) + " " + std::to_string(seed) + " " + std::to_string(percent);
  const int fd = open((root_ + "/caches/control").c_str(), O_WRONLY | O_CLOEXEC);
  const bool isCut =
      fd >= 0 && write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size());
  const std::string why = isCut ? "" : Failed("cannot cut the power of the cached disks");
  if (fd >= 0) close(fd);
  return why;
}

std::string Disks::Enter(const std::string& name) {
  entered_ = Kept(name);
  return MountAll(entered_, false);
}

std::string Disks::Drop() {
  const std::string why = UnmountAll();
  fs::remove(entered_);
  entered_.clear();
  return why;
}

void Disks::Forget(const std::string& name) const {
  fs::remove(Kept(name));
}

std::string Disks::Sync(const std::string& volume) const {
  const int fd = open(VolumePath(volume).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const std::string why = fd >= 0 && syncfs(fd) == 0 ? "" : Failed("cannot sync " + volume);
  if (fd >= 0) close(fd);
  return why;
}

std::string Disks::StartCaches() {
  const std::string directory = root_ + "/caches";
  const std::vector<std::string> words{FAULT_DISK, Kept("live"), std::to_string(kDiskSize),
                                       std::to_string(Count()), directory};
  caches_ = fork();
  if (caches_ == 0) {
    std::vector<char*> argv;
    for (const std::string& each : words) argv.push_back(const_cast<char*>(each.c_str()));
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
  }
  // The disks are there when the first of them is.
  for (int tries = 0; tries < 1000; ++tries) {
    if (access((directory + "/0").c_str(), F_OK) == 0) return "";
    if (waitpid(caches_, nullptr, WNOHANG) == caches_) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return "the program that makes disks with a write cache did not start; can FUSE be used?";
}

void Disks::StopCaches() {
  if (caches_ == -1) return;
  if (!Unmount(root_ + "/caches")) kill(caches_, SIGKILL);
  host_test::WaitFor(caches_);
  caches_ = -1;
}

std::string Disks::MountAll(const std::string& image, bool isCached) {
  ForgetDevices();
  std::vector<std::string> places{root_ + "/base"};
  for (const std::string& each : Volumes()) places.push_back(root_ + "/" + each);
  for (std::size_t at = 0; at < Count(); ++at) {
    const std::string file = isCached ? root_ + "/caches/" + std::to_string(at) : image;
    std::string why;
    const LoopDevice device(file, isCached ? 0 : at * kDiskSize, kDiskSize, why);
    if (!why.empty()) return why;
    const std::string& place = places[at];
    if (mount(device.GetPath().c_str(), place.c_str(), type_.c_str(), 0, nullptr) != 0) {
      return Failed("cannot mount disk " + std::to_string(at) + " of " + file);
    }
    mounted_.push_back(place);
  }
  if (mount((root_ + "/base/links").c_str(), kLinks, nullptr, MS_BIND, nullptr) != 0) {
    return Failed("cannot put the links in their place");
  }
  mounted_.emplace_back(kLinks);
  return "";
}

std::string Disks::UnmountAll() {
  while (!mounted_.empty()) {
    if (!Unmount(mounted_.back())) return Failed("cannot unmount " + mounted_.back());
    mounted_.pop_back();
  }
  return "";
}

}  // namespace torture
