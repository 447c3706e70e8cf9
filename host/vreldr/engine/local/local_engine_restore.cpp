// What the local engine makes of snapshots.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "base/kill_point.h"
#include "engine/local/area.h"
#include "engine/local/content.h"
#include "engine/local/directory.h"
#include "engine/local/flags.h"
#include "engine/local/freeze.h"
#include "engine/local/frozen.h"
#include "engine/local/local_engine.h"
#include "engine/local/subvolume.h"
#include "engine/local/tree_copy.h"
#include "engine/local/tree_remove.h"
#include "engine/local/write_back.h"
#include "foundation/durable.h"

namespace VrelDR {

using namespace Local;  // the parts of this engine
using VrelHost::SyncFd;

namespace {

// Makes two entries change places in one step, on disk when it returns. 0 or an errno; after an
// error they are where they were.
int Exchange(int oneDir, const char* one, int otherDir, const char* other) {
  if (renameat2(oneDir, one, otherDir, other, RENAME_EXCHANGE) != 0) return errno;
  KillPoint(kRestoreExchanged);
  int error = SyncFd(otherDir);
  if (error == 0) error = SyncFd(oneDir);
  if (error != 0) (void)renameat2(oneDir, one, otherDir, other, RENAME_EXCHANGE);
  return error;
}

// Lets the restored directory and the target's change places, as Exchange does.
int ExchangeTops(int tmpFd, int volumeFd, const char* targetName) {
  // Neither a read-only subvolume nor a directory that is immutable can be moved.
  const Fd old = OpenDir(volumeFd, targetName);
  if (!old) return errno;
  const bool wasReadOnly = IsSubvolume(old.Get()) && IsReadOnly(old.Get());
  int error = wasReadOnly ? SetAccess(old.Get(), Access::kWritable) : 0;
  const unsigned flags = ReadFlags(old.Get());
  if (error == 0) error = ClearGuards(old.Get());
  if (error == 0) error = Exchange(tmpFd, kRestored, volumeFd, targetName);
  if (error == 0) return 0;
  (void)AddFlags(old.Get(), flags);
  if (wasReadOnly) (void)SetAccess(old.Get(), Access::kReadOnly);
  return error;
}

}  // namespace

Status LocalEngine::CopyFromSnapshot(const TargetPlace& target, const std::string& snapId,
                                     int ownFd, int toFd, const char* name, unsigned& topFlags,
                                     Watch& watch) const {
  Fd snapshots;
  Fd snapshot;
  Status status = dir_.OpenSnapshot(target, snapId, ownFd, snapshots, snapshot);
  if (!status.IsOk()) return status;
  if (IsSubvolume(snapshot.Get())) {
    int error = SnapshotSubvolume(snapshot.Get(), toFd, name, Access::kWritable);
    const Fd copy = error == 0 ? OpenDir(toFd, name) : Fd();
    if (error == 0 && !copy) error = errno;
    if (error != 0) return StatusOfErrno(error, dir_.GetPath());
    // A subvolume has flags of its own, and what came from another file system a record of them.
    const unsigned own = ReadFlags(copy.Get());
    error = ClearGuards(copy.Get());
    if (error == 0) error = TurnRecordIntoFlags(copy.Get(), topFlags);
    topFlags |= own;
    return error == 0 ? Status() : StatusOfErrno(error, dir_.GetPath());
  }
  if (mkdirat(toFd, name, 0700) != 0) return StatusOfErrno(errno, dir_.GetPath());
  const Fd copy = OpenDir(toFd, name);
  if (!copy) return StatusOfErrno(errno, dir_.GetPath());
  TreeCopier copier(copy.Get(), Strictness::kAll, TreeCopier::FlagsOf::kSnapshot, watch);
  status = copier.CopyContent(snapshot.Get(), dir_.SnapshotPath(target, snapId));
  topFlags = copier.GetTopFlags();
  return status;
}

Status LocalEngine::RestoreSnapshot(const TargetPlace& target, const std::string& snapId,
                                    Watcher& watcher) const {
  auto [volume, own, status] = dir_.Open(target, watcher);
  if (status.IsOk()) status = CheckPlace(target, PlaceUse::kReplacement, watcher);
  if (!status.IsOk()) return status;
  WriteBack writeBack(volume.Get(), dir_.GetPath());
  const Fd tmp = OpenOrMakeArea(own.Get(), kTmp, target);
  if (!tmp) return StatusOfErrno(errno, dir_.GetPath());
  if (const int error = RemoveTree(tmp.Get(), kRestored))
    return StatusOfErrno(error, dir_.GetPath());
  unsigned topFlags = 0;
  Watch watch(watcher);
  status = CopyFromSnapshot(target, snapId, own.Get(), tmp.Get(), kRestored, topFlags, watch);
  if (!status.IsOk()) return status;
  KillPoint(kRestoreCopied);
  const Fd restored = OpenDir(tmp.Get(), kRestored);
  struct stat st;
  if (!restored || fstat(restored.Get(), &st) != 0) return StatusOfErrno(errno, dir_.GetPath());
  status = writeBack.Sync();
  if (!status.IsOk()) return status;
  KillPoint(kRestoreSynced);
  // A copy takes its time: what was mounted meanwhile would go with the old bytes.
  status = CheckPlace(target, PlaceUse::kReplacement, watcher);
  if (!status.IsOk()) return status;
  int error = ExchangeTops(tmp.Get(), volume.Get(), target.locator.c_str());
  if (error != 0) return StatusOfErrno(error, dir_.PathOf(target));
  // Some file systems take the move for a change of the directory.
  const struct timespec times[] = {st.st_atim, st.st_mtim};
  (void)futimens(restored.Get(), times);
  if (topFlags != 0) error = AddFlags(restored.Get(), topFlags);
  if (error == 0 && topFlags != 0) error = SyncFd(restored.Get());
  // What was written down of the old bytes is not of these.
  if (error == 0) error = DropUsersFlags(own.Get(), target);
  if (error != 0) return StatusOfErrno(error, dir_.PathOf(target));
  // The target is restored. Old bytes that cannot be removed now go with its next change.
  (void)RemoveArea(own.Get(), kTmp, target);
  KillPoint(kRestoreDone);
  return {};
}

Status LocalEngine::CloneSnapshot(const TargetPlace& target, const std::string& snapId,
                                  const TargetPlace& clone, Watcher& watcher) const {
  auto [volume, own, status] = dir_.Open(target, watcher);
  if (!status.IsOk()) return status;
  WriteBack writeBack(volume.Get(), dir_.GetPath());
  const Fd tmp = OpenOrMakeArea(own.Get(), kTmp, clone);
  if (!tmp) return dir_.AreaFailure(errno, own.Get(), kTmp, clone);
  unsigned topFlags = 0;
  Watch watch(watcher);
  status = CopyFromSnapshot(target, snapId, own.Get(), tmp.Get(), kNewTarget, topFlags, watch);
  if (!status.IsOk()) return status;
  KillPoint(kCreateCopied);
  status = writeBack.Sync();
  if (!status.IsOk()) return status;
  KillPoint(kCreateSynced);
  return Publish(volume.Get(), own.Get(), tmp.Get(), clone, topFlags);
}

}  // namespace VrelDR
