#include "engine/local/kept_digests.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <vector>

#include "base/fd.h"
#include "engine/local/area.h"
#include "engine/local/arrival.h"
#include "engine/local/directory.h"
#include "engine/local/tree_remove.h"
#include "foundation/durable.h"

namespace VrelDR::Local {

std::string DigestsName(const std::string& snapId) {
  return ".digests." + snapId;
}

void PlaceDigests(int fromFd, int ownFd, const TargetPlace& target, const std::string& snapId) {
  const std::string name = DigestsName(snapId);
  struct stat st;
  if (fstatat(fromFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return;
  const Fd area = OpenOrMakeArea(ownFd, kDigests, target);
  if (area && renameat(fromFd, name.c_str(), area.Get(), snapId.c_str()) == 0) return;
  (void)RemoveTree(fromFd, name);
}

int RemoveDigests(int ownFd, const TargetPlace& target, const std::string& snapId) {
  const Fd area = OpenArea(ownFd, kDigests, target);
  if (!area) return errno == ENOENT ? 0 : errno;
  struct stat st;
  if (fstatat(area.Get(), snapId.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno == ENOENT ? 0 : errno;
  }
  const int error = RemoveTree(area.Get(), snapId);
  return error == 0 ? VrelHost::SyncFd(area.Get()) : error;
}

int RemoveStrayDigests(int ownFd, const TargetPlace& target, const std::string& keepSnapId) {
  const Fd area = OpenArea(ownFd, kDigests, target);
  if (!area) return errno == ENOENT ? 0 : errno;
  const Fd snapshots = OpenArea(ownFd, kSnapshots, target);
  if (!snapshots && errno != ENOENT) return errno;
  std::vector<std::string> names;
  int error = ListDir(area.Get(), names);
  bool isChanged = false;
  for (const std::string& name : names) {
    bool isThere = name == keepSnapId;
    if (error == 0 && !isThere && snapshots) error = FindEntry(snapshots.Get(), name, isThere);
    if (error != 0) return error;
    if (isThere) continue;
    error = RemoveTree(area.Get(), name);
    isChanged = true;
  }
  return error == 0 && isChanged ? VrelHost::SyncFd(area.Get()) : error;
}

int OpenDigests(int ownFd, const TargetPlace& target, const std::string& snapId,
                std::optional<DigestFile>& digests) {
  digests.reset();
  const Fd area = OpenArea(ownFd, kDigests, target);
  const int error = area ? DigestFile::Open(area.Get(), snapId, digests) : errno;
  return error == ENOENT || error == EBADMSG ? 0 : error;
}

}  // namespace VrelDR::Local
