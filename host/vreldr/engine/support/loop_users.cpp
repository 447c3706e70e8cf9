#include "engine/support/loop_users.h"

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>

#include <sstream>

#include "engine/support/open_entry.h"
#include "engine/support/proc_file.h"

namespace VrelDR {

namespace {

// Where this process sees the device, or a partition of it, mounted; empty when it is nowhere.
std::string FindMountOf(const std::string& name, const std::vector<Mount>& mounts) {
  const std::string dir = "/sys/block/" + name;
  std::set<std::string> devices = {ReadSystemLine(dir + "/dev")};
  std::vector<std::string> partitions;
  (void)ListSystemDir(dir, name + "p", partitions);
  for (const std::string& each : partitions) {
    devices.insert(ReadSystemLine(PathIn(dir, each) + "/dev"));
  }
  for (const Mount& each : mounts) {
    if (devices.count(each.device) != 0) return each.place;
  }
  return {};
}

}  // namespace

void FindLoopUsers(OwnedFiles& files, UsersSeen& seen) {
  std::vector<std::string> names;
  if (ListSystemDir("/sys/block", "loop", names) != 0) seen.unseen.insert("loop devices");
  std::vector<Mount> mounts;
  (void)ReadMounts("/proc/self/mountinfo", mounts);
  for (const std::string& name : names) {
    FileUse use;
    use.path = ReadSystemLine("/sys/block/" + name + "/loop/backing_file");
    if (use.path.empty()) continue;  // not attached to anything
    use.user.kind = TargetUser::Kind::kLoopDevice;
    use.user.through = "/dev/" + name;
    use.user.is_writer = ReadSystemLine("/sys/block/" + name + "/ro") != "1";
    const Fd device(open(use.user.through.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct loop_info64 info = {};
    if (device && ioctl(device.Get(), LOOP_GET_STATUS64, &info) == 0) {
      use.device = info.lo_device;
      use.inode = info.lo_inode;
    } else if (!files.Identify(use)) {
      seen.unseen.insert("the file that " + use.user.through +
                         " is attached to, as it cannot be opened: run it as root to see that");
      continue;
    }
    if (!files.MayHave(use.device, use.inode)) continue;
    use.user.mounted_on = FindMountOf(name, mounts);
    files.Tell(std::move(use));
  }
}

void FindSwapUsers(OwnedFiles& files) {
  std::istringstream list(ReadSystemFile("/proc/swaps"));
  std::string line;
  std::getline(list, line);  // its head
  while (std::getline(list, line)) {
    FileUse use;
    std::string type;
    std::istringstream(line) >> use.path >> type;
    struct stat st;
    if (type != "file" || stat(use.path.c_str(), &st) != 0 || !files.MayHave(st.st_dev, st.st_ino))
      continue;
    use.user.kind = TargetUser::Kind::kSwapFile;
    use.user.is_writer = true;
    use.device = st.st_dev;
    use.inode = st.st_ino;
    files.Tell(std::move(use));
  }
}

}  // namespace VrelDR
