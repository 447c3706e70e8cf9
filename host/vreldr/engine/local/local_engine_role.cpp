// Which side of a plan the bytes are: those of a replica are not to be written.
#include <cerrno>

#include "../../fail_point.h"
#include "../../kill_point.h"
#include "directory.h"
#include "freeze.h"
#include "local_engine.h"
#include "subvolume.h"

namespace VrelDR {

using namespace Local;  // the parts of this engine

namespace {

int MakeWritable(int dirFd) {
  if (IsSubvolume(dirFd)) return SetAccess(dirFd, Access::kWritable);
  // The top last: as long as it is frozen the target is one of which nothing has been written.
  if (const int error = ThawBelow(dirFd)) return error;
  return SetFrozen(dirFd, false);
}

int MakeUnwritable(int dirFd) {
  if (IsSubvolume(dirFd)) return SetAccess(dirFd, Access::kReadOnly);
  // The top first: what is below it then stays where it is while it is gone through.
  if (const int error = SetFrozen(dirFd, true)) return error;
  return FreezeBelow(dirFd);
}

}  // namespace

Status LocalEngine::Demote(const Target& target) const {
  Fd volume;
  Status status = FailPoint(kFailDemote, target.GetId());
  if (status.IsOk()) status = Open(volume);
  if (!status.IsOk()) return status;
  const Fd dir = OpenDir(volume.Get(), target.GetId());
  int error = dir ? MakeUnwritable(dir.Get()) : errno;
  if (error == 0 && syncfs(dir.Get()) != 0) error = errno;
  if (error != 0) return StatusOfErrno(error, path_ + "/" + target.GetId());
  KillPoint(kDemoteDone);
  return {};
}

Status LocalEngine::Promote(const Target& target, const std::string& snapId) const {
  Status status = FailPoint(kFailPromote, target.GetId());
  if (!status.IsOk()) return status;
  if (!snapId.empty()) {
    // The snapshot's bytes come as new ones, which anybody may write.
    status = RestoreSnapshot(target, snapId);
  } else {
    Fd volume;
    status = Open(volume);
    if (!status.IsOk()) return status;
    const Fd dir = OpenDir(volume.Get(), target.GetId());
    int error = dir ? MakeWritable(dir.Get()) : errno;
    if (error == 0 && syncfs(dir.Get()) != 0) error = errno;
    if (error != 0) status = StatusOfErrno(error, path_ + "/" + target.GetId());
  }
  if (status.IsOk()) KillPoint(kPromoteDone);
  return status;
}

}  // namespace VrelDR
