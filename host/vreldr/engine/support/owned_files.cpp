#include "engine/support/owned_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>

#include "engine/support/open_entry.h"
#include "engine/support/proc_file.h"

namespace VrelDR {

namespace {

constexpr const char* kGone = " (deleted)";  // the system writes it behind a name that is none

std::string DeviceText(dev_t device) {
  return std::to_string(major(device)) + ":" + std::to_string(minor(device));
}

std::string AsDirectory(const std::string& path) {
  return path.ends_with('/') ? path : path + "/";
}

// What of `path` is below the directory `dir`; empty when it is not.
std::string Below(const std::string& dir, const std::string& path) {
  const std::string top = AsDirectory(dir);
  return path.starts_with(top) ? path.substr(top.size()) : std::string();
}

bool IsSame(const struct stat& st, const FileUse& use) {
  return st.st_dev == use.device && st.st_ino == use.inode;
}

// Opens the file itself, by the file system that `volumeFd` is on: its name is told then as seen
// through that mount.
Fd OpenByHandle(int volumeFd, const std::string& link) {
  // Room for the largest handle there is.
  struct alignas(file_handle) Handle {
    std::array<char, sizeof(file_handle) + MAX_HANDLE_SZ> bytes;
  } room;
  auto* handle = reinterpret_cast<file_handle*>(room.bytes.data());
  handle->handle_bytes = MAX_HANDLE_SZ;
  int mountId = 0;
  if (name_to_handle_at(AT_FDCWD, link.c_str(), handle, &mountId, AT_SYMLINK_FOLLOW) != 0) {
    return Fd();
  }
  return Fd(open_by_handle_at(volumeFd, handle, O_PATH | O_CLOEXEC));
}

}  // namespace

int OwnedFiles::Open() {
  path_ = WhereIs(volume_fd_);
  if (path_.empty()) return errno;
  struct stat volume;
  if (fstat(volume_fd_, &volume) != 0) return errno;
  std::vector<Mount> mounts;
  if (const int error = ReadMounts("/proc/self/mountinfo", mounts)) return error;
  const FdInfo info = ReadFdInfo("/proc/self/fdinfo/" + std::to_string(volume_fd_));
  const auto found = std::find_if(mounts.begin(), mounts.end(),
                                  [&](const Mount& each) { return each.id == info.mount_id; });
  if (found != mounts.end()) {
    mount_ = *found;
  } else {  // of a process whose root hides it
    mount_.device = DeviceText(volume.st_dev);
    seen_.unseen.insert("mounts of what is in " + Quoted(path_) +
                        ", which is not in this process's list of mounts");
  }
  for (const OwnedTree& each : trees_) {
    Place place = {};
    if (fstat(each.dir.Get(), &place.dir) != 0) return errno;
    place.path = WhereIs(each.dir.Get());
    if (place.path.empty()) return errno;
    if (!each.file.empty()) {
      const Fd file = OpenEntry(each.dir.Get(), each.file, O_PATH);
      if (file ? fstat(file.Get(), &place.file) != 0 : errno != ENOENT) return errno;
    }
    if (found != mounts.end()) {
      place.inside = AsDirectory(mount_.root) + Below(mount_.place, place.path);
    }
    places_.push_back(std::move(place));
  }
  return 0;
}

bool OwnedFiles::MayHave(dev_t device, ino_t inode) const {
  if (others_.count({device, inode}) != 0) return false;
  for (std::size_t i = 0; i < trees_.size(); ++i) {
    const Place& place = places_[i];
    const bool isAny = trees_[i].file.empty();
    if (isAny ? place.dir.st_dev == device
              : place.file.st_dev == device && place.file.st_ino == inode) {
      return true;
    }
  }
  return false;
}

bool OwnedFiles::IsAt(std::size_t tree, const std::string& path, const FileUse& use) const {
  const std::string rest = Below(places_[tree].path, path);
  struct stat st;
  const Fd entry = rest.empty() ? Fd() : OpenEntry(trees_[tree].dir.Get(), rest, O_PATH);
  return entry && fstat(entry.Get(), &st) == 0 && IsSame(st, use);
}

bool OwnedFiles::Identify(FileUse& use) const {
  const std::string rest = Below(path_, use.path);
  struct stat st;
  const Fd entry = rest.empty() ? Fd() : OpenEntry(volume_fd_, rest, O_PATH);
  if (!entry || fstat(entry.Get(), &st) != 0 || !S_ISREG(st.st_mode)) return false;
  use.device = st.st_dev;
  use.inode = st.st_ino;
  use.links = st.st_nlink;
  return true;
}

bool OwnedFiles::IsElsewhere(const std::string& path, const FileUse& use) const {
  FileUse there;
  there.path = path;
  return Identify(there) && there.device == use.device && there.inode == use.inode &&
         there.links == 1;
}

std::string OwnedFiles::FindPath(const FileUse& use) const {
  const Fd file = use.link.empty() ? Fd() : OpenByHandle(volume_fd_, use.link);
  std::string path = file ? WhereIs(file.Get()) : std::string();
  return path == "/" ? std::string() : path;  // the system has forgotten its name
}

void OwnedFiles::Add(std::size_t tree, FileUse use, const std::string& path) {
  use.user.path = path;
  std::vector<TargetUser>& users = seen_.users[trees_[tree].target_id];
  for (TargetUser& each : users) {
    if (each.kind != use.user.kind || each.pid != use.user.pid || each.path != path ||
        each.through != use.user.through) {
      continue;
    }
    each.is_writer = each.is_writer || use.user.is_writer;
    return;
  }
  users.push_back(std::move(use.user));
}

void OwnedFiles::Tell(FileUse use) {
  bool isShared = false;
  for (std::size_t i = 0; i < trees_.size(); ++i) {
    const Place& place = places_[i];
    if (!trees_[i].file.empty()) {
      if (place.file.st_ino != 0 && IsSame(place.file, use)) {
        return Add(i, std::move(use), place.path + "/" + trees_[i].file);
      }
    } else if (trees_[i].is_device_its_own) {
      if (place.dir.st_dev != use.device) continue;
      const std::string path = FindPath(use);
      return Add(i, use, path.empty() ? use.path : path);
    } else if (place.dir.st_dev == use.device) {
      isShared = true;
    }
  }
  if (!isShared) return;
  const std::string found = FindPath(use);
  const std::string path = found.empty() ? use.path : found;
  for (std::size_t i = 0; i < trees_.size(); ++i) {
    if (trees_[i].file.empty() && IsAt(i, path, use)) return Add(i, std::move(use), path);
  }
  const bool isNamed = !found.empty() && use.links == 1 && !found.ends_with(kGone);
  const Number number = {use.device, use.inode};
  if (isNamed || IsElsewhere(path, use)) {
    others_.insert(number);
  } else {
    open_[number].push_back(std::move(use));
  }
}

void OwnedFiles::TellMount(const Mount& mount, const TargetUser& viewer) {
  if (mount.device != mount_.device) return;
  for (std::size_t i = 0; i < trees_.size(); ++i) {
    const std::string& inside = places_[i].inside;
    if (inside.empty() || !AsDirectory(mount.root).starts_with(AsDirectory(inside))) continue;
    FileUse use{viewer};
    use.user.kind = TargetUser::Kind::kMount;
    use.user.is_writer = !mount.is_read_only;
    use.user.through = mount.place;
    Add(i, std::move(use), places_[i].path + mount.root.substr(inside.size()));
  }
}

Status OwnedFiles::Walk(std::size_t tree, int dirFd, const std::string& path, Watch& watch) {
  if (!watch.GoesOn()) return Watch::Stopped();
  struct Closer {
    void operator()(DIR* dir) const { closedir(dir); }
  };
  Fd own = OpenEntry(dirFd, ".", O_RDONLY | O_DIRECTORY);
  const std::unique_ptr<DIR, Closer> dir(own ? fdopendir(own.Get()) : nullptr);
  if (!dir) return StatusOfErrno(errno, path);
  own.Release();
  for (;;) {
    errno = 0;
    const struct dirent* entry = readdir(dir.get());
    if (entry == nullptr) return errno == 0 ? Status() : StatusOfErrno(errno, path);
    const std::string name = entry->d_name;
    const std::string below = PathIn(path, name);
    if (name == "." || name == "..") continue;
    const auto found = open_.find({places_[tree].dir.st_dev, entry->d_ino});
    if (found != open_.end()) {
      for (const FileUse& use : found->second) Add(tree, use, below);
    }
    if (entry->d_type != DT_DIR && entry->d_type != DT_UNKNOWN) continue;
    const Fd sub = OpenEntry(dirFd, name, O_RDONLY | O_DIRECTORY);
    if (!sub && (errno == ENOTDIR || errno == ELOOP || errno == EXDEV || errno == ENOENT)) continue;
    Status status = sub ? Walk(tree, sub.Get(), below, watch) : StatusOfErrno(errno, below);
    if (!status.IsOk()) return status;
  }
}

Status OwnedFiles::Finish(Watch& watch) {
  Status status;
  for (std::size_t i = 0; i < trees_.size() && !open_.empty(); ++i) {
    if (!trees_[i].file.empty() || trees_[i].is_device_its_own) continue;
    if (status.IsOk()) status = Walk(i, trees_[i].dir.Get(), places_[i].path, watch);
  }
  const auto rank = [](const TargetUser& user) { return user.is_writer ? 0 : 1; };
  for (auto& [id, users] : seen_.users) {
    std::stable_sort(users.begin(), users.end(),
                     [&](const auto& a, const auto& b) { return rank(a) < rank(b); });
  }
  return status;
}

}  // namespace VrelDR
