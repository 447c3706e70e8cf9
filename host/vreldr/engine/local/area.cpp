#include "engine/local/area.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "engine/local/directory.h"
#include "engine/local/tree_remove.h"
#include "foundation/durable.h"

namespace VrelDR::Local {

Fd OpenArea(int ownFd, const char* area, const TargetPlace& target) {
  const Fd parent = OpenDir(ownFd, area);
  return parent ? OpenDir(parent.Get(), target.locator) : Fd();
}

Fd OpenOrMakeArea(int ownFd, const char* area, const TargetPlace& target, bool* isMade) {
  const Fd parent = OpenOrMakeDir(ownFd, area);
  return parent ? OpenOrMakeDir(parent.Get(), target.locator, isMade) : Fd();
}

int RemoveArea(int ownFd, const char* areaName, const TargetPlace& target) {
  const Fd parent = OpenDir(ownFd, areaName);
  if (!parent) return errno == ENOENT ? 0 : errno;
  const Fd area = OpenDir(parent.Get(), target.locator);
  if (!area && errno != ENOENT) return errno;
  std::vector<std::string> names;
  if (area) {
    if (const int error = ListDir(area.Get(), names)) return error;
  }
  for (const std::string& name : names) {
    if (const int error = RemoveTree(area.Get(), name)) return error;
  }
  if (const int error = RemoveTree(parent.Get(), target.locator)) return error;
  return VrelHost::SyncFd(parent.Get());
}

int RemoveEmptyArea(int ownFd, const char* areaName, const TargetPlace& target) {
  const Fd parent = OpenDir(ownFd, areaName);
  if (!parent) return errno == ENOENT ? 0 : errno;
  if (unlinkat(parent.Get(), target.locator.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT) {
    return 0;
  }
  return errno == ENOTEMPTY || errno == EEXIST ? RemoveArea(ownFd, areaName, target) : errno;
}

}  // namespace VrelDR::Local
