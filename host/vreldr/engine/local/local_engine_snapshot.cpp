// What the local engine does to take, list and remove snapshots.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <vector>

#include "base/fail_point.h"
#include "base/kill_point.h"
#include "engine/local/area.h"
#include "engine/local/digest_writer.h"
#include "engine/local/directory.h"
#include "engine/local/freeze.h"
#include "engine/local/frozen.h"
#include "engine/local/kept_digests.h"
#include "engine/local/local_engine.h"
#include "engine/local/place.h"
#include "engine/local/settle.h"
#include "engine/local/subvolume.h"
#include "engine/local/tree_copy.h"
#include "engine/local/tree_remove.h"
#include "engine/local/write_back.h"
#include "engine/support/watch.h"
#include "foundation/durable.h"

namespace VrelDR {

using namespace Local;  // the parts of this engine
using VrelHost::SyncFd;

namespace {

// The name of a snapshot whose bytes are going. No identifier begins with a dot.
std::string GoingName(const std::string& snapId) {
  return ".going." + snapId;
}

// Makes a snapshot none from before its bytes go, which they do piece by piece. 0 or an errno.
int BeginRemoval(int snapshotsFd, const std::string& snapId) {
  const Fd snapshot = OpenDir(snapshotsFd, snapId);
  if (!snapshot) return errno == ENOENT ? 0 : errno;
  if (IsSubvolume(snapshot.Get())) return 0;  // goes at once
  const int error = ClearGuards(snapshot.Get());
  if (error != 0) return error;
  if (renameat(snapshotsFd, snapId.c_str(), snapshotsFd, GoingName(snapId).c_str()) != 0) {
    return errno == ENOSPC ? 0 : errno;  // there may be room for its removal alone
  }
  KillPoint(kDeleteRenamed);
  return SyncFd(snapshotsFd);
}

}  // namespace

Status LocalEngine::TakeSnapshot(const TargetPlace& target, const std::string& snapId,
                                 Watcher& watcher) const {
  auto [volume, own, status] = dir_.Open(kFailTake, target, watcher);
  if (status.IsOk()) status = CheckPlace(target, PlaceUse::kSnapshot, watcher);
  if (!status.IsOk()) return status;
  // What was written before and never reached the disk would be missing from the snapshot.
  WriteBack writeBack(volume.Get(), dir_.GetPath());
  const Fd source = OpenDir(volume.Get(), target.locator);
  if (!source) return StatusOfErrno(errno, dir_.PathOf(target));
  const Fd snapshots = OpenOrMakeArea(own.Get(), kSnapshots, target);
  if (!snapshots) return dir_.AreaFailure(errno, own.Get(), kSnapshots, target);
  if (!IsSubvolume(source.Get())) {
    status = CopyBytes(target, snapId, source.Get(), own.Get(), watcher);
    if (status.IsOk()) status = writeBack.Sync();
    if (!status.IsOk()) return status;
    KillPoint(kTakeSynced);
    return SettleCopy(target, snapId, own.Get(), snapshots.Get(), writeBack);
  }
  const int error = SnapshotSubvolume(source.Get(), snapshots.Get(), snapId, Access::kReadOnly);
  if (error != 0) return StatusOfErrno(error, {});
  // Somebody may have nested one meanwhile.
  status = CheckPlace(target, PlaceUse::kSnapshot, watcher);
  if (status.IsOk()) status = writeBack.Sync();
  if (!status.IsOk()) (void)RemoveSubvolume(snapshots.Get(), snapId);
  return status;
}

Status LocalEngine::CopyBytes(const TargetPlace& target, const std::string& snapId, int sourceFd,
                              int ownFd, Watcher& watcher) const {
  const Fd tmp = OpenOrMakeArea(ownFd, kTmp, target);
  if (!tmp) return dir_.AreaFailure(errno, ownFd, kTmp, target);
  // Of a snapshot of that name that did not come to be.
  int error = RemoveDigests(ownFd, target, snapId);
  if (error != 0) return StatusOfErrno(error, dir_.GetPath());
  DigestWriter digests(tmp.Get(), DigestsName(snapId));
  Status status = CopyTree(target, snapId, sourceFd, ownFd, tmp.Get(), &digests, watcher);
  if (status.code == kErrNoSpace && digests.GiveUp()) {
    // Perhaps it fits without them.
    error = RemoveTree(tmp.Get(), snapId);
    if (error != 0) return StatusOfErrno(error, {});
    status = CopyTree(target, snapId, sourceFd, ownFd, tmp.Get(), nullptr, watcher);
  }
  if (!status.IsOk()) return status;
  KillPoint(kTakeCopied);
  if (digests.Finish()) KillPoint(kTakeDigested);
  return {};
}

Status LocalEngine::CopyTree(const TargetPlace& target, const std::string& snapId, int sourceFd,
                             int ownFd, int tmpFd, DigestWriter* digests, Watcher& watcher) const {
  if (mkdirat(tmpFd, snapId.c_str(), 0700) != 0) return StatusOfErrno(errno, {});
  const Fd copy = OpenDir(tmpFd, snapId);
  if (!copy) return StatusOfErrno(errno, {});
  Watch watch(watcher);
  TreeCopier copier(copy.Get(), Strictness::kAll, TreeCopier::FlagsOf::kTarget, watch);
  copier.LeaveOutMounts();
  copier.TellDigests(digests);
  bool isFrozen = false;
  std::set<std::string> immutable;
  const int error = FindUsersFlags(ownFd, target, sourceFd, isFrozen, immutable);
  if (error != 0) return StatusOfErrno(error, dir_.GetPath());
  if (isFrozen) copier.SetImmutable(&immutable);
  // The target's own bytes are also those over which something is mounted, where they can be seen.
  const Fd bare = OpenWithoutMounts(sourceFd);
  Status status = copier.CopyContent(bare ? bare.Get() : sourceFd, dir_.PathOf(target));
  // What is below something that was mounted meanwhile could not be made immutable.
  return status.IsOk() ? CheckNoMountsBelow(copy.Get()) : status;
}

Status LocalEngine::SettleCopy(const TargetPlace& target, const std::string& snapId, int ownFd,
                               int snapshotsFd, WriteBack& writeBack) const {
  const Fd tmp = OpenArea(ownFd, kTmp, target);
  if (!tmp) return dir_.AreaFailure(errno, ownFd, kTmp, target);
  PlaceDigests(tmp.Get(), ownFd, target, snapId);
  KillPoint(kTakeDigestsPlaced);
  Status status = BeginSettling(tmp.Get(), snapId, snapshotsFd, {kTakeFrozen, kTakeRenamed},
                                dir_.GetPath(), Below::kLoose);
  if (!status.IsOk()) return status;
  if (const int error = RemoveEmptyArea(ownFd, kTmp, target)) return StatusOfErrno(error, {});
  return FinishSettling(snapshotsFd, snapId, writeBack, dir_.GetPath());
}

Status LocalEngine::ListSnapshots(const TargetPlace& target, SnapshotIds& snapIds,
                                  Watcher& watcher) const {
  auto [volume, own, status] = dir_.Open(target, watcher);
  if (!status.IsOk()) return status;
  const Fd snapshots = OpenArea(own.Get(), kSnapshots, target);
  std::vector<std::string> names;
  int error = 0;
  if (snapshots) {
    error = ListDir(snapshots.Get(), names);
  } else if (errno != ENOENT) {
    error = errno;
  }
  snapIds.reserve(snapIds.size() + names.size());
  for (std::string& name : names) {
    if (IsSnapshotName(name)) snapIds.insert(std::move(name));
  }
  return error == 0 ? Status()
                    : StatusOfErrno(error, dir_.GetPath() + "/" + kOwnDir + "/" + kSnapshots);
}

Status LocalEngine::RemoveSnapshot(const TargetPlace& target, const std::string& snapId,
                                   Watcher& watcher) const {
  auto [volume, own, status] = dir_.Open(target, watcher);
  if (!status.IsOk()) return status;
  // Of a cut, one that is a copy waits there.
  const Fd tmp = OpenArea(own.Get(), kTmp, target);
  if (!tmp && errno != ENOENT) return dir_.AreaFailure(errno, own.Get(), kTmp, target);
  int error = tmp ? RemoveTree(tmp.Get(), snapId) : 0;
  if (tmp && error == 0) error = RemoveTree(tmp.Get(), DigestsName(snapId));
  if (error != 0) return StatusOfErrno(error, {});
  const Fd snapshots = OpenArea(own.Get(), kSnapshots, target);
  if (!snapshots && errno != ENOENT) {
    return dir_.AreaFailure(errno, own.Get(), kSnapshots, target);
  }
  if (!snapshots) {
    error = RemoveDigests(own.Get(), target, snapId);
    return error == 0 ? Status() : StatusOfErrno(error, {});
  }
  status = dir_.CheckUnmounted(snapshots.Get(), snapId);
  if (!status.IsOk()) return status;
  error = BeginRemoval(snapshots.Get(), snapId);
  if (error == 0) error = RemoveDigests(own.Get(), target, snapId);
  if (error == 0) KillPoint(kDeleteDigestsGone);
  if (error == 0) error = RemoveTree(snapshots.Get(), GoingName(snapId));
  if (error == 0) error = RemoveTree(snapshots.Get(), snapId);
  if (error == 0) error = RemoveTree(snapshots.Get(), CutName(snapId));
  if (error == 0) error = SyncFd(snapshots.Get());
  return error == 0 ? Status() : StatusOfErrno(error, {});
}

Status LocalEngine::CleanUp(const TargetPlace& target, Watcher& watcher) const {
  auto [volume, own, status] = dir_.Open(target, watcher);
  if (status.IsOk()) status = CheckArea(own.Get(), kTmp, target);
  if (!status.IsOk()) return status;
  const int error = RemoveArea(own.Get(), kTmp, target);
  return error == 0 ? Status() : StatusOfErrno(error, {});
}

}  // namespace VrelDR
