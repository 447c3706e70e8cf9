// Which side of a plan the bytes are: those of a replica are not to be written.
#include <unistd.h>

#include <cerrno>
#include <set>

#include "base/fail_point.h"
#include "base/kill_point.h"
#include "engine/local/directory.h"
#include "engine/local/freeze.h"
#include "engine/local/frozen.h"
#include "engine/local/local_engine.h"
#include "engine/local/subvolume.h"
#include "engine/local/write_back.h"

namespace VrelDR {

using namespace Local;  // the parts of this engine

namespace {

// Puts back what the user had made immutable.
int MakeWritable(int ownFd, const TargetPlace& target, int dirFd) {
  if (IsSubvolume(dirFd)) return SetAccess(dirFd, Access::kWritable);
  bool isFrozen = false;
  std::set<std::string> kept;
  if (const int error = FindUsersFlags(ownFd, target, dirFd, isFrozen, kept)) return error;
  // All of it is immutable: earlier versions made it so, and wrote nothing down.
  if (!isFrozen && !IsWhollyFrozen(dirFd)) return 0;
  // The top last: as long as it is frozen the target is one of which nothing has been written.
  int error = ThawBelow(dirFd, &kept);
  if (error == 0 && kept.count(std::string()) == 0) error = SetFrozen(dirFd, false);
  if (error == 0 && syncfs(dirFd) != 0) error = errno;
  return error == 0 ? DropUsersFlags(ownFd, target) : error;
}

int MakeUnwritable(int ownFd, const TargetPlace& target, int dirFd) {
  if (IsSubvolume(dirFd)) return SetAccess(dirFd, Access::kReadOnly);
  if (const int error = KeepUsersFlags(ownFd, target, dirFd)) return error;
  KillPoint(kQuiesceKept);
  // The top first: what is below it then stays where it is while it is gone through.
  if (const int error = SetFrozen(dirFd, true)) return error;
  return FreezeBelow(dirFd);
}

}  // namespace

Status LocalEngine::Quiesce(const TargetPlace& target, Watcher& watcher) const {
  auto [volume, own, status] = dir_.Open(kFailQuiesce, target, watcher);
  if (status.IsOk()) status = CheckPlace(target, PlaceUse::kDemotion, watcher);
  if (!status.IsOk()) return status;
  WriteBack writeBack(volume.Get(), dir_.GetPath());
  const Fd dir = OpenDir(volume.Get(), target.locator);
  const int error = dir ? MakeUnwritable(own.Get(), target, dir.Get()) : errno;
  if (error != 0) return StatusOfErrno(error, dir_.PathOf(target));
  status = writeBack.Sync();
  if (status.IsOk()) KillPoint(kQuiesceDone);
  return status;
}

// A quiet target and a replica are the same here.
Status LocalEngine::Demote(const TargetPlace& target, Watcher& watcher) const {
  return dir_.Open(target, watcher).status;
}

Status LocalEngine::Promote(const TargetPlace& target, const std::string& snapId, Manner /*manner*/,
                            Watcher& watcher) const {
  Status status = FailPoint(kFailPromote, target.id);
  if (!status.IsOk()) return status;
  if (!snapId.empty()) {
    // The snapshot's bytes come as new ones, which anybody may write.
    status = RestoreSnapshot(target, snapId, watcher);
  } else {
    auto [volume, own, opened] = dir_.Open(target, watcher);
    if (!opened.IsOk()) return opened;
    WriteBack writeBack(volume.Get(), dir_.GetPath());
    const Fd dir = OpenDir(volume.Get(), target.locator);
    const int error = dir ? MakeWritable(own.Get(), target, dir.Get()) : errno;
    status = error == 0 ? writeBack.Sync() : StatusOfErrno(error, dir_.PathOf(target));
  }
  if (status.IsOk()) KillPoint(kPromoteDone);
  return status;
}

Status LocalEngine::Rejoin(const TargetPlace& target, const std::string& keptId,
                           Watcher& watcher) const {
  SnapshotIds existing;
  Status status = Quiesce(target, watcher);
  if (status.IsOk()) status = ListSnapshots(target, existing, watcher);
  if (!status.IsOk() || existing.count(keptId) != 0) return status;
  return TakeSnapshot(target, keptId, watcher);
}

}  // namespace VrelDR
