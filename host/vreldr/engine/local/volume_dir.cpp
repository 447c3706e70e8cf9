#include "engine/local/volume_dir.h"

#include <fcntl.h>

#include <cerrno>
#include <vector>

#include "base/fail_point.h"
#include "engine/local/area.h"
#include "engine/local/content.h"
#include "engine/local/directory.h"
#include "engine/local/place.h"
#include "engine/support/watch.h"

namespace VrelDR::Local {

using VrelHost::kIdentityFile;

namespace {

Status VolumeMissing(const std::string& path) {
  return {kErrVolumeMissing, Quoted(path) +
                                 " is missing, so the volume is not there; mount it or "
                                 "correct its path in the configuration"};
}

}  // namespace

Status VolumeDir::Open(Fd& volume, Watcher& watcher) const {
  Status status = OpenAny(volume, watcher);
  return status.IsOk() && expected_ ? CheckIdentity(volume.Get()) : status;
}

Status VolumeDir::OpenAny(Fd& volume, Watcher& watcher) const {
  Status status = Watch(watcher).Wait();
  if (!status.IsOk()) return status;
  volume = Fd(open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (volume) return {};
  return errno == ENOENT || errno == ENOTDIR ? VolumeMissing(path_) : StatusOfErrno(errno, path_);
}

VolumeDir::Opened VolumeDir::Open(Watcher& watcher) const {
  Opened opened;
  opened.status = Open(opened.volume, watcher);
  if (!opened.status.IsOk()) return opened;
  opened.own = OpenDir(opened.volume.Get(), kOwnDir);
  if (opened.own) return opened;
  const std::string path = path_ + "/" + kOwnDir;
  opened.status = errno == ENOENT ? VolumeMissing(path) : StatusOfErrno(errno, path);
  return opened;
}

Status VolumeDir::CheckLocator(const TargetPlace& target) {
  // It becomes a name in directories, and what is below that may be removed.
  const std::string& name = target.locator;
  if (!name.empty() && name.front() != '.' && name.find('/') == std::string::npos) return {};
  return {kErrStore, "the record of target " + Quoted(target.id) +
                         " means nothing: nothing can be at " + Quoted(name) +
                         " of a volume; put back a copy of the host's records"};
}

VolumeDir::Opened VolumeDir::Open(const TargetPlace& target, Watcher& watcher) const {
  Opened failed;
  failed.status = CheckLocator(target);
  return failed.status.IsOk() ? Open(watcher) : std::move(failed);
}

VolumeDir::Opened VolumeDir::Open(std::string_view failPoint, const TargetPlace& target,
                                  Watcher& watcher) const {
  Opened failed;
  failed.status = FailPoint(failPoint, target.id);
  return failed.status.IsOk() ? Open(target, watcher) : std::move(failed);
}

std::string VolumeDir::AreaPath(const char* area, const TargetPlace& target) const {
  return path_ + "/" + kOwnDir + "/" + area + "/" + target.locator;
}

std::string VolumeDir::SnapshotPath(const TargetPlace& target, const std::string& snapId) const {
  return AreaPath(kSnapshots, target) + "/" + snapId;
}

Status VolumeDir::CheckUnmounted(int dirFd, const std::string& path) const {
  std::vector<std::string> mounts;
  const int error = FindMounts(dirFd, path, mounts);
  return error == 0 ? MountedOn(mounts) : StatusOfErrno(error, path_);
}

Status VolumeDir::AreaFailure(int error, int ownFd, const char* area,
                              const TargetPlace& target) const {
  Status status;
  if (error == EXDEV) status = CheckUnmounted(ownFd, std::string(area) + "/" + target.locator);
  return status.IsOk() ? StatusOfErrno(error, path_) : status;
}

Status VolumeDir::OpenSnapshot(const TargetPlace& target, const std::string& snapId, int ownFd,
                               Fd& snapshots, Fd& snapshot) const {
  snapshots = OpenArea(ownFd, kSnapshots, target);
  if (snapshots) {
    Status status = CheckUnmounted(snapshots.Get(), snapId);
    if (!status.IsOk()) return status;
    snapshot = OpenDir(snapshots.Get(), snapId);
  }
  if (snapshot) {
    return CheckImage(target, snapshot.Get(), SnapshotPath(target, snapId), Missing::kRefused);
  }
  const std::string path = BytesIn(SnapshotPath(target, snapId), target);
  if (errno != ENOENT) return StatusOfErrno(errno, path);
  return {kErrSnapshotMissing, Quoted(path) + " is missing; list the target's snapshots"};
}

void VolumeDir::Expect(const VolumeIdentity& identity) {
  expected_ = identity;
  expected_text_ = ToText(identity);
}

Status VolumeDir::CheckIdentity(int volumeFd) const {
  const VolumeIdentity& expected = *expected_;
  const Fd own = OpenDir(volumeFd, kOwnDir);
  std::string text;
  VolumeIdentity found;
  std::string fileSystem;
  int error = own ? VrelHost::ReadIdentity(own.Get(), text) : errno;
  if (error == 0) error = VrelHost::IdentifyFileSystem(volumeFd, fileSystem);
  if (error == 0 && text == expected_text_ && fileSystem == expected.file_system) return {};
  if (error == 0) {
    std::optional<VolumeIdentity> read = VrelHost::IdentityOf(text);
    error = read ? 0 : EBADMSG;
    if (read) found = std::move(*read);
  }
  std::string wrong;
  if (error == ENOENT) {
    wrong = "has no identity of a volume";
  } else if (error == EBADMSG) {
    wrong = "has a damaged identity of a volume";
  } else if (error != 0) {
    return StatusOfErrno(error, path_ + "/" + kOwnDir + "/" + kIdentityFile);
  } else if (found.node != expected.node) {
    wrong = "is a volume of another node, " + Quoted(found.node);
  } else if (found.name != expected.name) {
    wrong = "is volume " + Quoted(found.name);
  } else if (found.id != expected.id) {
    wrong = "is another volume of that name, with the identity " + Quoted(found.id);
  } else if (fileSystem != expected.file_system) {
    wrong = "is on another file system, " + Quoted(fileSystem) + " instead of " +
            Quoted(expected.file_system);
  } else {
    return {};
  }
  return {kErrVolumeMissing,
          Quoted(path_) + " " + wrong + ", so volume " + Quoted(expected.name) +
              " is not there; mount it, or, where its data has moved here for good, run "
              "\"drgroupctl volume init " +
              expected.name + " --adopt\""};
}

}  // namespace VrelDR::Local
