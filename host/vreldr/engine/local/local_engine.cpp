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
#include "engine/local/place.h"
#include "engine/local/subvolume.h"
#include "engine/local/tree_remove.h"
#include "engine/local/write_back.h"
#include "engine/support/watch.h"
#include "foundation/durable.h"
#include "vreldrcore/json.h"

namespace VrelDR {

using namespace Local;  // the parts of this engine
using VrelHost::SyncFd;

Status LocalEngine::Describe(VolumeDescription& description, Watcher& watcher) const {
  Fd volume;
  Status status = dir_.Open(volume, watcher);
  if (!status.IsOk()) return status;
  struct statvfs info;
  if (fstatvfs(volume.Get(), &info) != 0) return StatusOfErrno(errno, dir_.GetPath());
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
  return CheckWritable(watcher);
}

Status LocalEngine::CheckWritable(Watcher& watcher) const {
  Fd volume;
  Status status = dir_.Open(volume, watcher);
  if (!status.IsOk()) return status;
  const bool writable = faccessat(volume.Get(), ".", W_OK, AT_EACCESS) == 0;
  return writable ? Status() : StatusOfErrno(errno, dir_.GetPath());
}

std::string LocalEngine::GetTargetPath(const TargetPlace& target) const {
  return BytesIn(dir_.PathOf(target), target);
}

std::string LocalEngine::GetSnapshotPath(const TargetPlace& target,
                                         const std::string& snapId) const {
  return BytesIn(dir_.SnapshotPath(target, snapId), target);
}

Status LocalEngine::PreparePlace(const Target& target, std::string& locator,
                                 Watcher& watcher) const {
  locator = target.GetId();
  Fd volume;
  Status status = dir_.Open(volume, watcher);
  if (!status.IsOk()) return status;
  if (!OpenOrMakeDir(volume.Get(), kOwnDir))
    return StatusOfErrno(errno, dir_.GetPath() + "/" + kOwnDir);
  const std::string path = dir_.GetPath() + "/" + locator;
  struct stat st;
  if (fstatat(volume.Get(), locator.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) {
    return {kErrExists,
            Quoted(path) + " is there already; move it away or choose another identifier"};
  }
  return errno == ENOENT ? Status() : StatusOfErrno(errno, path);
}

Status LocalEngine::CreateTarget(const TargetPlace& target, const TargetContent& content,
                                 Watcher& watcher) const {
  auto [volume, own, status] = dir_.Open(kFailCreate, target, watcher);
  if (!status.IsOk()) return status;
  WriteBack writeBack(volume.Get(), dir_.GetPath());
  const Fd tmp = OpenOrMakeArea(own.Get(), kTmp, target);
  if (!tmp) return dir_.AreaFailure(errno, own.Get(), kTmp, target);
  int error = 0;
  if (IsBtrfs(tmp.Get())) {
    error = MakeSubvolume(tmp.Get(), kNewTarget);
  } else if (mkdirat(tmp.Get(), kNewTarget, 0700) != 0) {
    error = errno;
  }
  if (error != 0) return StatusOfErrno(error, dir_.GetPath());
  const Fd dir = OpenDir(tmp.Get(), kNewTarget);
  if (!dir || fchmod(dir.Get(), 0755) != 0) return StatusOfErrno(errno, dir_.GetPath());
  Watch watch(watcher);
  status = FillTarget(target, content, dir_.GetPath(), dir.Get(), watch);
  if (!status.IsOk()) return status;
  KillPoint(kCreateCopied);
  status = writeBack.Sync();
  if (!status.IsOk()) return status;
  KillPoint(kCreateSynced);
  return Publish(volume.Get(), own.Get(), tmp.Get(), target);
}

Status LocalEngine::Publish(int volumeFd, int ownFd, int tmpFd, const TargetPlace& target,
                            unsigned topFlags) const {
  if (renameat(tmpFd, kNewTarget, volumeFd, target.locator.c_str()) != 0) {
    return StatusOfErrno(errno, dir_.PathOf(target));
  }
  KillPoint(kCreateRenamed);
  int error = SyncFd(volumeFd);
  if (error != 0) {
    (void)RemoveTree(volumeFd, target.locator);
    return StatusOfErrno(error, dir_.GetPath());
  }
  if (topFlags != 0) {
    const Fd dir = OpenDir(volumeFd, target.locator);
    error = dir ? AddFlags(dir.Get(), topFlags) : errno;
    if (error == 0) error = SyncFd(dir.Get());
  }
  if (error == 0) error = RemoveArea(ownFd, kTmp, target);
  return error == 0 ? Status() : StatusOfErrno(error, dir_.GetPath());
}

Status LocalEngine::CheckArea(int ownFd, const char* area, const TargetPlace& target) const {
  const std::string where = std::string(area) + "/" + target.locator;
  Status status = dir_.CheckUnmounted(ownFd, where);
  const Fd dir = status.IsOk() ? OpenArea(ownFd, area, target) : Fd();
  if (!dir)
    return !status.IsOk() || errno == ENOENT ? status : StatusOfErrno(errno, dir_.GetPath());
  std::vector<std::string> names;
  std::vector<std::string> nested;
  const std::string path = dir_.GetPath() + "/" + kOwnDir + "/" + where + "/";
  int error = ListDir(dir.Get(), names);
  for (const std::string& name : names) {
    const Fd entry = error == 0 ? OpenDir(dir.Get(), name) : Fd();
    if (entry) error = FindNested(entry.Get(), path + name, nested);
  }
  return error == 0 ? NestedIn(nested) : StatusOfErrno(error, dir_.GetPath());
}

Status LocalEngine::FindLeftOut(const TargetPlace& target, std::vector<std::string>& paths,
                                Watcher& watcher) const {
  auto [volume, own, status] = dir_.Open(target, watcher);
  if (!status.IsOk()) return status;
  const int error = FindMounts(volume.Get(), target.locator, paths);
  return error == 0 ? Status() : StatusOfErrno(error, dir_.GetPath());
}

Status LocalEngine::CheckPlace(const TargetPlace& target, PlaceUse use, Watcher& watcher) const {
  auto [volume, own, status] = dir_.Open(target, watcher);
  if (!status.IsOk()) return status;
  const std::string path = dir_.PathOf(target);
  std::vector<const char*> areas;
  if (use == PlaceUse::kReplacement) areas = {kTmp};
  if (use == PlaceUse::kRemoval) areas = {kTmp, kSnapshots, kIncoming};
  if (!areas.empty()) status = dir_.CheckUnmounted(volume.Get(), target.locator);
  for (const char* area : areas) {
    if (status.IsOk()) status = CheckArea(own.Get(), area, target);
  }
  if (!status.IsOk()) return status;
  const Fd dir = OpenDir(volume.Get(), target.locator);
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

Status LocalEngine::FindTarget(const TargetPlace& target, bool& found, Watcher& watcher) const {
  std::vector<TargetSight> sights(1);
  sights.front().place = target;
  Status status = LookAtTargets(sights, watcher);
  found = sights.front().has_target;
  return status.IsOk() ? sights.front().status : status;
}

Status LocalEngine::LookAtTargets(std::vector<TargetSight>& sights, Watcher& watcher) const {
  auto [volume, own, status] = dir_.Open(watcher);
  if (!status.IsOk()) return status;
  const Fd all = OpenDir(own.Get(), kSnapshots);
  if (!all && errno != ENOENT) {
    return StatusOfErrno(errno, dir_.GetPath() + "/" + kOwnDir + "/" + kSnapshots);
  }
  for (TargetSight& sight : sights) {
    const TargetPlace& target = sight.place;
    sight.has_target = sight.has_snapshot = false;
    sight.status = VolumeDir::CheckLocator(target);
    if (!sight.status.IsOk()) continue;
    struct stat st;
    if (fstatat(volume.Get(), target.locator.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) {
      sight.has_target = S_ISDIR(st.st_mode);
    } else if (errno != ENOENT) {
      sight.status = StatusOfErrno(errno, dir_.PathOf(target));
      continue;
    }
    if (!all || !IsSnapshotName(sight.snap_id)) continue;
    const Fd snapshots = OpenDir(all.Get(), target.locator);
    if (snapshots &&
        fstatat(snapshots.Get(), sight.snap_id.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) {
      sight.has_snapshot = true;
    } else if (errno != ENOENT) {
      sight.status = StatusOfErrno(errno, dir_.SnapshotPath(target, sight.snap_id));
    }
  }
  return {};
}

Status LocalEngine::RemoveTarget(const TargetPlace& target, Watcher& watcher) const {
  auto [volume, own, status] = dir_.Open(kFailRemove, target, watcher);
  if (status.IsOk()) status = CheckPlace(target, PlaceUse::kRemoval, watcher);
  if (!status.IsOk()) return status;
  int error = RemoveArea(own.Get(), kSnapshots, target);
  if (error == 0) error = RemoveArea(own.Get(), kDigests, target);
  KillPoint(kForgetSnapshotsGone);
  if (error == 0) error = RemoveTree(volume.Get(), target.locator);
  if (error == 0) error = SyncFd(volume.Get());
  if (error == 0) error = RemoveArea(own.Get(), kTmp, target);
  if (error == 0) error = RemoveIncoming(own.Get(), target);
  if (error == 0) error = RemoveArea(own.Get(), kFrozen, target);
  return error == 0 ? Status() : StatusOfErrno(error, dir_.PathOf(target));
}

}  // namespace VrelDR
