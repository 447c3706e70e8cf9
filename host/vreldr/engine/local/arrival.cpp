#include "engine/local/arrival.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "base/fd.h"
#include "engine/local/area.h"
#include "engine/local/change_mark.h"
#include "engine/local/directory.h"
#include "engine/local/kept_digests.h"
#include "engine/local/tree_remove.h"
#include "foundation/durable.h"

namespace VrelDR::Local {

using VrelHost::SyncFd;

namespace {

// No identifier begins with a dot.
constexpr const char* kMark = ".whole.";

std::string MarkOf(const std::string& snapId) {
  return kMark + snapId;
}

}  // namespace

int FindEntry(int dirFd, const std::string& name, bool& found) {
  struct stat st;
  found = fstatat(dirFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0;
  return found || errno == ENOENT ? 0 : errno;
}

int MarkWhole(int incomingFd, const std::string& snapId) {
  const Fd mark(openat(incomingFd, MarkOf(snapId).c_str(),
                       O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!mark) return errno;
  const int error = SyncFd(mark.Get());
  return error == 0 ? SyncFd(incomingFd) : error;
}

int IsMarkedWhole(int incomingFd, const std::string& snapId, bool& whole) {
  const int error = FindEntry(incomingFd, MarkOf(snapId), whole);
  return error == 0 && whole ? FindEntry(incomingFd, snapId, whole) : error;
}

int Unmark(int incomingFd, const std::string& snapId) {
  if (unlinkat(incomingFd, MarkOf(snapId).c_str(), 0) != 0 && errno != ENOENT) return errno;
  // Also when it is not there: whoever removed it may not have come to this.
  return SyncFd(incomingFd);
}

int RemoveMarks(int incomingFd, const std::string& snapId) {
  for (const std::string& name : {MarkOf(snapId), ChangeMark::NameOf(snapId)}) {
    if (unlinkat(incomingFd, name.c_str(), 0) != 0 && errno != ENOENT) return errno;
  }
  return 0;
}

int DropArrived(int incomingFd, const std::string& keepSnapId) {
  std::vector<std::string> names;
  int error = ListDir(incomingFd, names);
  const auto isKept = [&](const std::string& name) {
    return !keepSnapId.empty() &&
           (name == keepSnapId || name == MarkOf(keepSnapId) ||
            name == ChangeMark::NameOf(keepSnapId) || name == DigestsName(keepSnapId));
  };
  // The marks first: what is removed piece by piece is not whole any more.
  for (const std::string& name : names) {
    if (error != 0 || name.front() != '.' || isKept(name)) continue;
    error = RemoveTree(incomingFd, name);
  }
  if (error == 0) error = SyncFd(incomingFd);
  for (const std::string& name : names) {
    if (error == 0 && !isKept(name)) error = RemoveTree(incomingFd, name);
  }
  return error == 0 ? SyncFd(incomingFd) : error;
}

int RemoveIncoming(int ownFd, const TargetPlace& target) {
  const Fd incoming = OpenArea(ownFd, kIncoming, target);
  int error = incoming ? DropArrived(incoming.Get(), {}) : errno;
  if (error == ENOENT) error = 0;
  return error == 0 ? RemoveArea(ownFd, kIncoming, target) : error;
}

}  // namespace VrelDR::Local
