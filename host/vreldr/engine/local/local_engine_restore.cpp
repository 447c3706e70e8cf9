// What the local engine makes of snapshots.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "../../kill_point.h"
#include "area.h"
#include "directory.h"
#include "local_engine.h"
#include "subvolume.h"
#include "tree_copy.h"

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

Status LocalEngine::CopyFromSnapshot(const Target& target, const std::string& snapId, int ownFd,
                                     int toFd, const char* name) const {
  const Fd snapshots = OpenArea(ownFd, kSnapshots, target);
  const Fd snapshot = snapshots ? OpenDir(snapshots.Get(), snapId) : Fd();
  if (!snapshot) return StatusOfErrno(errno, GetSnapshotPath(target, snapId));
  if (IsSubvolume(snapshot.Get())) {
    const int error = SnapshotSubvolume(snapshot.Get(), toFd, name, Access::kWritable);
    return error == 0 ? Status() : StatusOfErrno(error, path_);
  }
  if (mkdirat(toFd, name, 0700) != 0) return StatusOfErrno(errno, path_);
  const Fd copy = OpenDir(toFd, name);
  if (!copy) return StatusOfErrno(errno, path_);
  TreeCopier copier(copy.Get(), Strictness::kAll);
  return copier.CopyContent(snapshot.Get(), GetSnapshotPath(target, snapId));
}

Status LocalEngine::RestoreSnapshot(const Target& target, const std::string& snapId) const {
  Fd volume;
  Fd own;
  Status status = Open(volume, own);
  if (!status.IsOk()) return status;
  const Fd tmp = OpenOrMakeArea(own.Get(), kTmp, target);
  if (!tmp) return StatusOfErrno(errno, path_);
  status = CopyFromSnapshot(target, snapId, own.Get(), tmp.Get(), kRestored);
  if (!status.IsOk()) return status;
  KillPoint(kRestoreCopied);
  if (syncfs(tmp.Get()) != 0) return StatusOfErrno(errno, path_);
  KillPoint(kRestoreSynced);
  const int error = Exchange(tmp.Get(), kRestored, volume.Get(), target.GetId().c_str());
  if (error != 0) return StatusOfErrno(error, path_ + "/" + target.GetId());
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
