#include "engine/local/local_engine.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <vector>

#include "base/fail_point.h"
#include "base/kill_point.h"
#include "engine/local/area.h"
#include "engine/local/arrival.h"
#include "engine/local/content.h"
#include "engine/local/directory.h"
#include "engine/local/file_data.h"
#include "engine/local/flags.h"
#include "engine/local/freeze.h"
#include "engine/local/frozen.h"
#include "engine/local/place.h"
#include "engine/local/settle.h"
#include "engine/local/subvolume.h"
#include "engine/local/tree_copy.h"
#include "engine/local/tree_remove.h"
#include "engine/local/write_back.h"
#include "engine/support/watch.h"
#include "foundation/durable.h"
#include "vreldrcore/json.h"

namespace VrelDR {

using namespace Local;  // the parts of this engine
using VrelHost::SyncFd;

Status LocalEngine::Missing(const std::string& path) const {
  return {kErrVolumeMissing, Quoted(path) +
                                 " is missing, so the volume is not there; mount it or "
                                 "correct its path in the configuration"};
}

Status LocalEngine::Open(Fd& volume) const {
  Status status = OpenAny(volume);
  return status.IsOk() && expected_ ? CheckIdentity(volume.Get()) : status;
}

Status LocalEngine::OpenAny(Fd& volume) const {
  volume = Fd(open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (volume) return {};
  return errno == ENOENT || errno == ENOTDIR ? Missing(path_) : StatusOfErrno(errno, path_);
}

LocalEngine::Opened LocalEngine::Open() const {
  Opened opened;
  opened.status = Open(opened.volume);
  if (!opened.status.IsOk()) return opened;
  opened.own = OpenDir(opened.volume.Get(), kOwnDir);
  if (opened.own) return opened;
  const std::string path = path_ + "/" + kOwnDir;
  opened.status = errno == ENOENT ? Missing(path) : StatusOfErrno(errno, path);
  return opened;
}

LocalEngine::Opened LocalEngine::Open(std::string_view failPoint, const Target& target) const {
  Opened failed;
  failed.status = FailPoint(failPoint, target.GetId());
  return failed.status.IsOk() ? Open() : std::move(failed);
}

Status LocalEngine::Describe(VolumeDescription& description) const {
  Fd volume;
  Status status = Open(volume);
  if (!status.IsOk()) return status;
  struct statvfs info;
  if (fstatvfs(volume.Get(), &info) != 0) return StatusOfErrno(errno, path_);
  description.size_bytes = std::uint64_t{info.f_blocks} * info.f_frsize;
  description.free_bytes = std::uint64_t{info.f_bavail} * info.f_frsize;
  if (IsBtrfs(volume.Get())) {
    description.method = "btrfs";
    description.is_atomic = true;
    description.is_immutable = true;
  } else {
    description.method = CanShareBlocks(volume.Get()) ? "reflink" : "copy";
    description.is_immutable = CanFreeze(volume.Get());
  }
  return CheckWritable();
}

Status LocalEngine::CheckWritable() const {
  Fd volume;
  Status status = Open(volume);
  if (!status.IsOk()) return status;
  const bool writable = faccessat(volume.Get(), ".", W_OK, AT_EACCESS) == 0;
  return writable ? Status() : StatusOfErrno(errno, path_);
}

std::string LocalEngine::GetTargetPath(const Target& target) const {
  const std::string dir = path_ + "/" + target.GetId();
  return target.GetType() == kTargetLun ? dir + "/" + kDiskImage : dir;
}

std::string LocalEngine::SnapshotDir(const Target& target, const std::string& snapId) const {
  return path_ + "/" + kOwnDir + "/" + kSnapshots + "/" + target.GetId() + "/" + snapId;
}

std::string LocalEngine::GetSnapshotPath(const Target& target, const std::string& snapId) const {
  const std::string dir = SnapshotDir(target, snapId);
  return target.GetType() == kTargetLun ? dir + "/" + kDiskImage : dir;
}

Status LocalEngine::PreparePlace(const Target& target) const {
  Fd volume;
  Status status = Open(volume);
  if (!status.IsOk()) return status;
  if (!OpenOrMakeDir(volume.Get(), kOwnDir)) return StatusOfErrno(errno, path_ + "/" + kOwnDir);
  struct stat st;
  if (fstatat(volume.Get(), target.GetId().c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) {
    return {kErrExists, Quoted(path_ + "/" + target.GetId()) +
                            " is there already; move it away or choose another identifier"};
  }
  return errno == ENOENT ? Status() : StatusOfErrno(errno, path_ + "/" + target.GetId());
}

Status LocalEngine::CreateTarget(const Target& target, const TargetContent& content) const {
  auto [volume, own, status] = Open(kFailCreate, target);
  if (!status.IsOk()) return status;
  WriteBack writeBack(volume.Get(), path_);
  const Fd tmp = OpenOrMakeArea(own.Get(), kTmp, target);
  if (!tmp) return AreaFailure(errno, own.Get(), kTmp, target);
  int error = 0;
  if (IsBtrfs(tmp.Get())) {
    error = MakeSubvolume(tmp.Get(), kNewTarget);
  } else if (mkdirat(tmp.Get(), kNewTarget, 0700) != 0) {
    error = errno;
  }
  if (error != 0) return StatusOfErrno(error, path_);
  const Fd dir = OpenDir(tmp.Get(), kNewTarget);
  if (!dir || fchmod(dir.Get(), 0755) != 0) return StatusOfErrno(errno, path_);
  status = FillTarget(target, content, path_, dir.Get());
  if (!status.IsOk()) return status;
  KillPoint(kCreateCopied);
  status = writeBack.Sync();
  if (!status.IsOk()) return status;
  KillPoint(kCreateSynced);
  return Publish(volume.Get(), own.Get(), tmp.Get(), target);
}

Status LocalEngine::Publish(int volumeFd, int ownFd, int tmpFd, const Target& target,
                            unsigned topFlags) const {
  if (renameat(tmpFd, kNewTarget, volumeFd, target.GetId().c_str()) != 0) {
    return StatusOfErrno(errno, path_ + "/" + target.GetId());
  }
  KillPoint(kCreateRenamed);
  int error = SyncFd(volumeFd);
  if (error != 0) {
    (void)RemoveTree(volumeFd, target.GetId());
    return StatusOfErrno(error, path_);
  }
  if (topFlags != 0) {
    const Fd dir = OpenDir(volumeFd, target.GetId());
    error = dir ? AddFlags(dir.Get(), topFlags) : errno;
    if (error == 0) error = SyncFd(dir.Get());
  }
  if (error == 0) error = RemoveArea(ownFd, kTmp, target);
  return error == 0 ? Status() : StatusOfErrno(error, path_);
}

Status LocalEngine::CheckUnmounted(int volumeFd, const std::string& path) const {
  std::vector<std::string> mounts;
  const int error = Local::FindMounts(volumeFd, path, mounts);
  return error == 0 ? MountedOn(mounts) : StatusOfErrno(error, path_);
}

Status LocalEngine::AreaFailure(int error, int ownFd, const char* area,
                                const Target& target) const {
  Status status;
  if (error == EXDEV) status = CheckUnmounted(ownFd, std::string(area) + "/" + target.GetId());
  return status.IsOk() ? StatusOfErrno(error, path_) : status;
}

Status LocalEngine::CheckArea(int ownFd, const char* area, const Target& target) const {
  const std::string where = std::string(area) + "/" + target.GetId();
  Status status = CheckUnmounted(ownFd, where);
  const Fd dir = status.IsOk() ? OpenArea(ownFd, area, target) : Fd();
  if (!dir) return !status.IsOk() || errno == ENOENT ? status : StatusOfErrno(errno, path_);
  std::vector<std::string> names;
  std::vector<std::string> nested;
  const std::string path = path_ + "/" + kOwnDir + "/" + where + "/";
  int error = ListDir(dir.Get(), names);
  for (const std::string& name : names) {
    const Fd entry = error == 0 ? OpenDir(dir.Get(), name) : Fd();
    if (entry) error = FindNested(entry.Get(), path + name, nested);
  }
  return error == 0 ? NestedIn(nested) : StatusOfErrno(error, path_);
}

Status LocalEngine::FindMounts(const Target& target, std::vector<std::string>& paths) const {
  auto [volume, own, status] = Open();
  if (!status.IsOk()) return status;
  const int error = Local::FindMounts(volume.Get(), target.GetId(), paths);
  return error == 0 ? Status() : StatusOfErrno(error, path_);
}

Status LocalEngine::CheckPlace(const Target& target, PlaceUse use) const {
  auto [volume, own, status] = Open();
  if (!status.IsOk()) return status;
  const std::string path = path_ + "/" + target.GetId();
  std::vector<const char*> areas;
  if (use == PlaceUse::kReplacement) areas = {kTmp};
  if (use == PlaceUse::kRemoval) areas = {kTmp, kSnapshots, kIncoming};
  if (!areas.empty()) status = CheckUnmounted(volume.Get(), target.GetId());
  for (const char* area : areas) {
    if (status.IsOk()) status = CheckArea(own.Get(), area, target);
  }
  if (!status.IsOk()) return status;
  const Fd dir = OpenDir(volume.Get(), target.GetId());
  if (!dir && errno == ENOENT && use == PlaceUse::kRemoval) return {};
  if (!dir) return errno == EXDEV ? MountedOn({path}) : StatusOfErrno(errno, path);
  std::vector<std::string> nested;
  const int error = use == PlaceUse::kDemotion ? 0 : FindNested(dir.Get(), path, nested);
  if (error != 0) return StatusOfErrno(error, path);
  status = NestedIn(nested);
  if (!status.IsOk() || use == PlaceUse::kRemoval) return status;
  return CheckImage(target, dir.Get(), path,
                    use == PlaceUse::kSnapshot ? Missing::kRefused : Missing::kAllowed);
}

Status LocalEngine::FindTarget(const Target& target, bool& found) const {
  found = false;
  auto [volume, own, status] = Open();
  if (!status.IsOk()) return status;
  struct stat st;
  if (fstatat(volume.Get(), target.GetId().c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) {
    found = S_ISDIR(st.st_mode);
    return {};
  }
  return errno == ENOENT ? Status() : StatusOfErrno(errno, path_ + "/" + target.GetId());
}

Status LocalEngine::RemoveTarget(const Target& target) const {
  auto [volume, own, status] = Open(kFailRemove, target);
  if (status.IsOk()) status = CheckPlace(target, PlaceUse::kRemoval);
  if (!status.IsOk()) return status;
  int error = RemoveArea(own.Get(), kSnapshots, target);
  KillPoint(kForgetSnapshotsGone);
  if (error == 0) error = RemoveTree(volume.Get(), target.GetId());
  if (error == 0) error = SyncFd(volume.Get());
  if (error == 0) error = RemoveArea(own.Get(), kTmp, target);
  if (error == 0) error = RemoveIncoming(own.Get(), target);
  if (error == 0) error = RemoveArea(own.Get(), kFrozen, target);
  return error == 0 ? Status() : StatusOfErrno(error, path_ + "/" + target.GetId());
}

Status LocalEngine::TakeSnapshot(const Target& target, const std::string& snapId,
                                 Watcher* watcher) const {
  auto [volume, own, status] = Open(kFailTake, target);
  if (status.IsOk()) status = CheckPlace(target, PlaceUse::kSnapshot);
  if (!status.IsOk()) return status;
  // What was written before and never reached the disk would be missing from the snapshot.
  WriteBack writeBack(volume.Get(), path_);
  const Fd source = OpenDir(volume.Get(), target.GetId());
  if (!source) return StatusOfErrno(errno, path_ + "/" + target.GetId());
  const Fd snapshots = OpenOrMakeArea(own.Get(), kSnapshots, target);
  if (!snapshots) return AreaFailure(errno, own.Get(), kSnapshots, target);
  if (!IsSubvolume(source.Get())) {
    return CopySnapshot(target, snapId, source.Get(), own.Get(), snapshots.Get(), writeBack,
                        watcher);
  }
  const int error = SnapshotSubvolume(source.Get(), snapshots.Get(), snapId, Access::kReadOnly);
  if (error != 0) return StatusOfErrno(error, {});
  // Somebody may have nested one meanwhile.
  status = CheckPlace(target, PlaceUse::kSnapshot);
  if (status.IsOk()) status = writeBack.Sync();
  if (!status.IsOk()) (void)RemoveSubvolume(snapshots.Get(), snapId);
  return status;
}

Status LocalEngine::CopySnapshot(const Target& target, const std::string& snapId, int sourceFd,
                                 int ownFd, int snapshotsFd, WriteBack& writeBack,
                                 Watcher* watcher) const {
  const Fd tmp = OpenOrMakeArea(ownFd, kTmp, target);
  if (!tmp) return AreaFailure(errno, ownFd, kTmp, target);
  if (mkdirat(tmp.Get(), snapId.c_str(), 0700) != 0) return StatusOfErrno(errno, {});
  const Fd copy = OpenDir(tmp.Get(), snapId);
  if (!copy) return StatusOfErrno(errno, {});
  Watch watch(watcher);
  TreeCopier copier(copy.Get(), Strictness::kAll, TreeCopier::FlagsOf::kTarget, &watch);
  copier.LeaveOutMounts();
  bool isFrozen = false;
  std::set<std::string> immutable;
  int error = FindUsersFlags(ownFd, target, sourceFd, isFrozen, immutable);
  if (error != 0) return StatusOfErrno(error, path_);
  if (isFrozen) copier.SetImmutable(&immutable);
  // The target's own bytes are also those over which something is mounted, where they can be seen.
  const Fd bare = OpenWithoutMounts(sourceFd);
  Status status = copier.CopyContent(bare ? bare.Get() : sourceFd, path_ + "/" + target.GetId());
  // What is below something that was mounted meanwhile could not be made immutable.
  if (status.IsOk()) status = CheckNoMountsBelow(copy.Get());
  if (!status.IsOk()) return status;
  KillPoint(kTakeCopied);
  status = writeBack.Sync();
  if (!status.IsOk()) return status;
  KillPoint(kTakeSynced);
  status = Settle(tmp.Get(), snapId, snapshotsFd, {kTakeFrozen, kTakeRenamed}, writeBack, path_);
  if (!status.IsOk()) return status;
  error = RemoveArea(ownFd, kTmp, target);
  return error == 0 ? Status() : StatusOfErrno(error, {});
}

Status LocalEngine::ListSnapshots(const Target& target, std::set<std::string>& snapIds) const {
  auto [volume, own, status] = Open();
  if (!status.IsOk()) return status;
  const Fd snapshots = OpenArea(own.Get(), kSnapshots, target);
  std::vector<std::string> names;
  int error = 0;
  if (snapshots) {
    error = ListDir(snapshots.Get(), names);
  } else if (errno != ENOENT) {
    error = errno;
  }
  snapIds.insert(names.begin(), names.end());
  return error == 0 ? Status() : StatusOfErrno(error, path_ + "/" + kOwnDir + "/" + kSnapshots);
}

Status LocalEngine::RemoveSnapshot(const Target& target, const std::string& snapId) const {
  auto [volume, own, status] = Open();
  if (!status.IsOk()) return status;
  const Fd snapshots = OpenArea(own.Get(), kSnapshots, target);
  if (!snapshots && errno == ENOENT) return {};
  if (!snapshots) return AreaFailure(errno, own.Get(), kSnapshots, target);
  status = CheckUnmounted(snapshots.Get(), snapId);
  if (!status.IsOk()) return status;
  int error = RemoveTree(snapshots.Get(), snapId);
  if (error == 0) error = SyncFd(snapshots.Get());
  return error == 0 ? Status() : StatusOfErrno(error, {});
}

Status LocalEngine::CleanUp(const Target& target) const {
  auto [volume, own, status] = Open();
  if (status.IsOk()) status = CheckArea(own.Get(), kTmp, target);
  if (!status.IsOk()) return status;
  const int error = RemoveArea(own.Get(), kTmp, target);
  return error == 0 ? Status() : StatusOfErrno(error, {});
}

Status MakeLocalEngine(const VrelHost::VolumeConfig& volume,
                       std::unique_ptr<StorageEngine>& engine) {
  const std::string about = "volume " + Quoted(volume.name);
  for (const std::string& member : volume.settings.getMemberNames()) {
    if (member != "name" && member != "engine" && member != "path") {
      return {kErrConfig, about + " has an unknown member " + Quoted(member) +
                              "; a local volume has \"name\", \"engine\" and \"path\""};
    }
  }
  const std::string path =
      VrelDRCore::JsonUtil::AsText(VrelDRCore::JsonUtil::Member(volume.settings, "path"));
  if (path.empty() || path.front() != '/') {
    return {kErrConfig, about + " needs an absolute \"path\"; correct it"};
  }
  // Two ways to write one path must not make two volumes.
  std::string plain = std::filesystem::path(path).lexically_normal().string();
  while (plain.size() > 1 && plain.back() == '/') plain.pop_back();
  engine = std::make_unique<LocalEngine>(plain);
  return {};
}

}  // namespace VrelDR
