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

Status LocalEngine::OpenSnapshot(const Target& target, const std::string& snapId, int ownFd,
                                 Fd& snapshots, Fd& snapshot) const {
  snapshots = OpenArea(ownFd, kSnapshots, target);
  if (snapshots) {
    Status status = CheckUnmounted(snapshots.Get(), snapId);
    if (!status.IsOk()) return status;
    snapshot = OpenDir(snapshots.Get(), snapId);
  }
  if (snapshot) {
    return CheckImage(target, snapshot.Get(), SnapshotDir(target, snapId), Missing::kRefused);
  }
  const std::string path = GetSnapshotPath(target, snapId);
  if (errno != ENOENT) return StatusOfErrno(errno, path);
  return {kErrSnapshotMissing, Quoted(path) + " is missing; list the target's snapshots"};
}

Status LocalEngine::CopyFromSnapshot(const Target& target, const std::string& snapId, int ownFd,
                                     int toFd, const char* name, unsigned& topFlags) const {
  Fd snapshots;
  Fd snapshot;
  Status status = OpenSnapshot(target, snapId, ownFd, snapshots, snapshot);
  if (!status.IsOk()) return status;
  if (IsSubvolume(snapshot.Get())) {
    int error = SnapshotSubvolume(snapshot.Get(), toFd, name, Access::kWritable);
    const Fd copy = error == 0 ? OpenDir(toFd, name) : Fd();
    if (error == 0 && !copy) error = errno;
    if (error != 0) return StatusOfErrno(error, path_);
    // A subvolume has flags of its own, and what came from another file system a record of them.
    const unsigned own = ReadFlags(copy.Get());
    error = ClearGuards(copy.Get());
    if (error == 0) error = TurnRecordIntoFlags(copy.Get(), topFlags);
    topFlags |= own;
    return error == 0 ? Status() : StatusOfErrno(error, path_);
  }
  if (mkdirat(toFd, name, 0700) != 0) return StatusOfErrno(errno, path_);
  const Fd copy = OpenDir(toFd, name);
  if (!copy) return StatusOfErrno(errno, path_);
  TreeCopier copier(copy.Get(), Strictness::kAll, TreeCopier::FlagsOf::kSnapshot);
  status = copier.CopyContent(snapshot.Get(), SnapshotDir(target, snapId));
  topFlags = copier.GetTopFlags();
  return status;
}

Status LocalEngine::RestoreSnapshot(const Target& target, const std::string& snapId) const {
  auto [volume, own, status] = Open();
  if (status.IsOk()) status = CheckPlace(target, PlaceUse::kReplacement);
  if (!status.IsOk()) return status;
  WriteBack writeBack(volume.Get(), path_);
  const Fd tmp = OpenOrMakeArea(own.Get(), kTmp, target);
  if (!tmp) return StatusOfErrno(errno, path_);
  if (const int error = RemoveTree(tmp.Get(), kRestored)) return StatusOfErrno(error, path_);
  unsigned topFlags = 0;
  status = CopyFromSnapshot(target, snapId, own.Get(), tmp.Get(), kRestored, topFlags);
  if (!status.IsOk()) return status;
  KillPoint(kRestoreCopied);
  const Fd restored = OpenDir(tmp.Get(), kRestored);
  struct stat st;
  if (!restored || fstat(restored.Get(), &st) != 0) return StatusOfErrno(errno, path_);
  status = writeBack.Sync();
  if (!status.IsOk()) return status;
  KillPoint(kRestoreSynced);
  // A copy takes its time: what was mounted meanwhile would go with the old bytes.
  status = CheckPlace(target, PlaceUse::kReplacement);
  if (!status.IsOk()) return status;
  int error = ExchangeTops(tmp.Get(), volume.Get(), target.GetId().c_str());
  if (error != 0) return StatusOfErrno(error, path_ + "/" + target.GetId());
  // Some file systems take the move for a change of the directory.
  const struct timespec times[] = {st.st_atim, st.st_mtim};
  (void)futimens(restored.Get(), times);
  if (topFlags != 0) error = AddFlags(restored.Get(), topFlags);
  if (error == 0 && topFlags != 0) error = SyncFd(restored.Get());
  // What was written down of the old bytes is not of these.
  if (error == 0) error = DropUsersFlags(own.Get(), target);
  if (error != 0) return StatusOfErrno(error, path_ + "/" + target.GetId());
  // The target is restored. Old bytes that cannot be removed now go with its next change.
  (void)RemoveArea(own.Get(), kTmp, target);
  KillPoint(kRestoreDone);
  return {};
}

Status LocalEngine::CloneSnapshot(const Target& target, const std::string& snapId,
                                  const Target& clone) const {
  auto [volume, own, status] = Open();
  if (!status.IsOk()) return status;
  WriteBack writeBack(volume.Get(), path_);
  const Fd tmp = OpenOrMakeArea(own.Get(), kTmp, clone);
  if (!tmp) return AreaFailure(errno, own.Get(), kTmp, clone);
  unsigned topFlags = 0;
  status = CopyFromSnapshot(target, snapId, own.Get(), tmp.Get(), kNewTarget, topFlags);
  if (!status.IsOk()) return status;
  KillPoint(kCreateCopied);
  status = writeBack.Sync();
  if (!status.IsOk()) return status;
  KillPoint(kCreateSynced);
  return Publish(volume.Get(), own.Get(), tmp.Get(), clone, topFlags);
}

}  // namespace VrelDR
