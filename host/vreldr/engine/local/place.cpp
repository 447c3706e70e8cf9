#include "engine/local/place.h"

#include <fcntl.h>
#include <linux/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <set>

#include "engine/local/directory.h"
#include "engine/local/subvolume.h"
#include "engine/support/mount_list.h"

namespace VrelDR::Local {

namespace {

std::string Joined(const std::string& path, const std::string& name) {
  return path + "/" + name;
}

}  // namespace

int FindMounts(int dirFd, const std::string& name, std::vector<std::string>& paths) {
  std::string dir = WhereIs(dirFd);
  if (dir.empty()) return errno;
  if (dir.back() != '/') dir += '/';
  const std::string below = dir + (name.empty() ? "" : name + "/");
  std::vector<Mount> mounts;
  if (const int error = ReadMounts("/proc/self/mountinfo", mounts)) return error;
  std::set<std::string> found;
  for (const Mount& each : mounts) {
    const std::string& place = each.place;
    const bool isOnTheWay = below.starts_with(place + "/") || (place + "/").starts_with(below);
    if (!isOnTheWay || place.size() < dir.size()) continue;
    // The list has places, too, over which something else is mounted by now.
    if (!OpenEntry(dirFd, place.substr(dir.size()), O_PATH) && errno == EXDEV) found.insert(place);
  }
  paths.insert(paths.end(), found.begin(), found.end());
  return 0;
}

int FindMountsBelow(int dirFd, std::vector<std::string>& paths) {
  return FindMounts(dirFd, {}, paths);
}

int FindNested(int dirFd, const std::string& path, std::vector<std::string>& paths) {
  if (!IsBtrfs(dirFd)) return 0;
  if (IsSubvolume(dirFd)) {
    std::vector<std::string> names;
    const int error = ListNested(dirFd, names);
    for (const std::string& name : names) paths.push_back(Joined(path, name));
    return error;
  }
  std::vector<std::string> names;
  if (const int error = ListDir(dirFd, names)) return error;
  for (const std::string& name : names) {
    const Fd dir = OpenDir(dirFd, name);
    if (!dir) {
      if (errno == ENOTDIR || errno == ELOOP || errno == EXDEV || errno == ENOENT) continue;
      return errno;
    }
    const std::string below = Joined(path, name);
    if (IsSubvolume(dir.Get())) paths.push_back(below);
    if (const int error = FindNested(dir.Get(), below, paths)) return error;
  }
  return 0;
}

std::string Listed(const std::vector<std::string>& paths) {
  std::string text;
  for (const std::string& each : paths) text += (text.empty() ? "" : ", ") + Quoted(each);
  return text;
}

Status MountedOn(const std::vector<std::string>& paths) {
  if (paths.empty()) return {};
  return {kErrUnsupported, "something is mounted on " + Listed(paths) +
                               ", and what is mounted there is not the target's; unmount it and "
                               "run it again"};
}

Status CheckStillAt(int dirFd, const std::string& path) {
  struct stat open, now;
  if (fstat(dirFd, &open) != 0) return StatusOfErrno(errno, path);
  const bool isThere = stat(path.c_str(), &now) == 0;
  if (!isThere && errno != ENOENT && errno != ENOTDIR) return StatusOfErrno(errno, path);
  if (isThere && now.st_dev == open.st_dev && now.st_ino == open.st_ino) return {};
  return {kErrVolumeMissing, Quoted(path) +
                                 " is not what it was when the call began: its volume was "
                                 "unmounted or moved; mount it again and run it again"};
}

Status CheckNoMountsBelow(int dirFd) {
  std::vector<std::string> mounts;
  const int error = FindMountsBelow(dirFd, mounts);
  return error == 0 ? MountedOn(mounts) : StatusOfErrno(error, {});
}

Status NestedIn(const std::vector<std::string>& paths) {
  if (paths.empty()) return {};
  return {kErrUnsupported,
          "it has nested subvolumes, which no snapshot has and a restore would lose: " +
              Listed(paths) + "; move them out of it, or make folders of them, and run it again"};
}

Fd OpenWithoutMounts(int dirFd) {
  const Fd bare(static_cast<int>(
      syscall(SYS_open_tree, dirFd, "", AT_EMPTY_PATH | OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC)));
  return bare ? OpenDir(bare.Get(), ".") : Fd();
}

}  // namespace VrelDR::Local
