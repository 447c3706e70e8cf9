#include "engine/local/settle.h"

#include <cerrno>
#include <cstdio>

#include "base/kill_point.h"
#include "engine/local/directory.h"
#include "engine/local/freeze.h"
#include "engine/local/subvolume.h"

namespace VrelDR::Local {

Status BeginSettling(int fromFd, const std::string& name, int toFd, const SettleSteps& steps,
                     const std::string& path, Below below) {
  const Fd copy = OpenDir(fromFd, name);
  int error = copy ? 0 : errno;
  if (copy && IsSubvolume(copy.Get())) {
    // A read-only subvolume cannot be moved. A read-only snapshot of it is the same to btrfs, also
    // as the base of what is sent next.
    error = SnapshotSubvolume(copy.Get(), toFd, name, Access::kReadOnly);
  } else if (copy) {
    if (below == Below::kLoose) error = FreezeBelow(copy.Get());
    if (error == 0) KillPoint(steps.frozen);
    // What was synced and what was frozen is on disk before this is: they are kept in order.
    if (error == 0 && renameat(fromFd, name.c_str(), toFd, name.c_str()) != 0) error = errno;
  }
  if (error != 0) return StatusOfErrno(error, path);
  KillPoint(steps.renamed);
  return {};
}

Status FinishSettling(int toFd, const std::string& name, WriteBack& writeBack,
                      const std::string& path) {
  const Fd copy = OpenDir(toFd, name);
  int error = copy ? 0 : errno;
  // A subvolume was read-only from the beginning.
  if (copy && !IsSubvolume(copy.Get())) error = SetFrozen(copy.Get(), true);
  return error == 0 ? writeBack.Sync() : StatusOfErrno(error, path);
}

}  // namespace VrelDR::Local
