// What the local engine makes of snapshots.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "../../kill_point.h"
#include "area.h"
#include "directory.h"
#include "freeze.h"
#include "local_engine.h"
#include "subvolume.h"
#include "tree_copy.h"
#include "tree_remove.h"

namespace VrelDR {

using namespace Local;  // the parts of this engine

namespace {

// Makes two entries change places in one step, on disk when it returns. 0 or an errno; after an
// error they are where they were.
int Exchange(int oneDir, const char* one, int otherDir, const char* other) {
  if (renameat2(oneDir, one, otherDir, other, RENAME_EXCHANGE) != 0) return errno;
  KillPoint(kRestoreExchanged);
  if (fsync(otherDir) == 0 && fsync(oneDir) == 0) return 0;
  const int error = errno;
  (void)renameat2(oneDir, one, otherDir, other, RENAME_EXCHANGE);
  return error;
}

}  // namespace

Status LocalEngine::OpenSnapshot(const Target& target, const std::string& snapId, int ownFd,
                                 Fd& snapshots, Fd& snapshot) const {
  snapshots = OpenArea(ownFd, kSnapshots, target);
  if (snapshots) snapshot = OpenDir(snapshots.Get(), snapId);
  if (snapshot) return {};
  const std::string path = GetSnapshotPath(target, snapId);
  if (errno != ENOENT) return StatusOfErrno(errno, path);
  return {kErrSnapshotMissing, Quoted(path) + " is missing; list the target's snapshots"};
}

Status LocalEngine::CopyFromSnapshot(const Target& target, const std::string& snapId, int ownFd,
                                     int toFd, const char* name) const {
  Fd snapshots;
  Fd snapshot;
  Status status = OpenSnapshot(target, snapId, ownFd, snapshots, snapshot);
  if (!status.IsOk()) return status;
  if (IsSubvolume(snapshot.Get())) {
    const int error = SnapshotSubvolume(snapshot.Get(), toFd, name, Access::kWritable);
    return error == 0 ? Status() : StatusOfErrno(error, path_);
  }
  if (mkdirat(toFd, name, 0700) != 0) return StatusOfErrno(errno, path_);
  const Fd copy = OpenDir(toFd, name);
  if (!copy) return StatusOfErrno(errno, path_);
  TreeCopier copier(copy.Get(), Strictness::kAll);
  return copier.CopyContent(snapshot.Get(), SnapshotDir(target, snapId));
}

Status LocalEngine::RestoreSnapshot(const Target& target, const std::string& snapId) const {
  Fd volume;
  Fd own;
  Status status = Open(volume, own);
  if (!status.IsOk()) return status;
  const Fd tmp = OpenOrMakeArea(own.Get(), kTmp, target);
  if (!tmp) return StatusOfErrno(errno, path_);
  if (const int error = RemoveTree(tmp.Get(), kRestored)) return StatusOfErrno(error, path_);
  status = CopyFromSnapshot(target, snapId, own.Get(), tmp.Get(), kRestored);
  if (!status.IsOk()) return status;
  KillPoint(kRestoreCopied);
  const Fd restored = OpenDir(tmp.Get(), kRestored);
  struct stat st;
  if (!restored || fstat(restored.Get(), &st) != 0 || syncfs(tmp.Get()) != 0) {
    return StatusOfErrno(errno, path_);
  }
  KillPoint(kRestoreSynced);
  // Neither a read-only subvolume nor a frozen directory can be moved.
  const Fd old = OpenDir(volume.Get(), target.GetId());
  int error = !old                     ? errno
              : IsSubvolume(old.Get()) ? SetAccess(old.Get(), Access::kWritable)
                                       : SetFrozen(old.Get(), false);
  if (error == 0) error = Exchange(tmp.Get(), kRestored, volume.Get(), target.GetId().c_str());
  if (error != 0) return StatusOfErrno(error, path_ + "/" + target.GetId());
  // Some file systems take the move for a change of the directory.
  const struct timespec times[] = {st.st_atim, st.st_mtim};
  (void)futimens(restored.Get(), times);
  // The target is restored. Old bytes that cannot be removed now go with its next change.
  (void)RemoveArea(own.Get(), kTmp, target);
  KillPoint(kRestoreDone);
  return {};
}

Status LocalEngine::CloneSnapshot(const Target& target, const std::string& snapId,
                                  const Target& clone) const {
  Fd volume;
  Fd own;
  Status status = Open(volume, own);
  if (!status.IsOk()) return status;
  const Fd tmp = OpenOrMakeArea(own.Get(), kTmp, clone);
  if (!tmp) return StatusOfErrno(errno, path_);
  status = CopyFromSnapshot(target, snapId, own.Get(), tmp.Get(), kNewTarget);
  if (!status.IsOk()) return status;
  KillPoint(kCreateCopied);
  if (syncfs(tmp.Get()) != 0) return StatusOfErrno(errno, path_);
  KillPoint(kCreateSynced);
  return Publish(volume.Get(), own.Get(), tmp.Get(), clone);
}

}  // namespace VrelDR
