#include "settle.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "../../kill_point.h"
#include "directory.h"
#include "freeze.h"
#include "subvolume.h"

namespace VrelDR::Local {

int Settle(int fromFd, const std::string& name, int toFd, const SettleSteps& steps) {
  const Fd copy = OpenDir(fromFd, name);
  if (!copy || syncfs(copy.Get()) != 0) return errno;
  KillPoint(steps.synced);
  if (IsSubvolume(copy.Get())) {
    // A read-only subvolume cannot be moved. A read-only snapshot of it is the same to btrfs, also
    // as the base of what is sent next.
    const int error = SnapshotSubvolume(copy.Get(), toFd, name, Access::kReadOnly);
    KillPoint(steps.renamed);
    return error;
  }
  if (const int error = FreezeBelow(copy.Get())) return error;
  KillPoint(steps.frozen);
  if (renameat(fromFd, name.c_str(), toFd, name.c_str()) != 0) return errno;
  KillPoint(steps.renamed);
  return FinishSettling(toFd, name);
}

int FinishSettling(int toFd, const std::string& name) {
  const Fd copy = OpenDir(toFd, name);
  if (!copy) return errno;
  // A subvolume was read-only from the beginning.
  if (IsSubvolume(copy.Get())) return 0;
  if (const int error = SetFrozen(copy.Get(), true)) return error;
  return fsync(toFd) == 0 && fsync(copy.Get()) == 0 ? 0 : errno;
}

}  // namespace VrelDR::Local
