#include "engine/local/area.h"

#include <cerrno>
#include <vector>

#include "engine/local/directory.h"
#include "engine/local/tree_remove.h"
#include "foundation/durable.h"

namespace VrelDR::Local {

Fd OpenArea(int ownFd, const char* area, const Target& target) {
  const Fd parent = OpenDir(ownFd, area);
  return parent ? OpenDir(parent.Get(), target.GetId()) : Fd();
}

Fd OpenOrMakeArea(int ownFd, const char* area, const Target& target) {
  const Fd parent = OpenOrMakeDir(ownFd, area);
  return parent ? OpenOrMakeDir(parent.Get(), target.GetId()) : Fd();
}

int RemoveArea(int ownFd, const char* areaName, const Target& target) {
  const Fd parent = OpenDir(ownFd, areaName);
  if (!parent) return errno == ENOENT ? 0 : errno;
  const Fd area = OpenDir(parent.Get(), target.GetId());
  if (!area && errno != ENOENT) return errno;
  std::vector<std::string> names;
  if (area) {
    if (const int error = ListDir(area.Get(), names)) return error;
  }
  for (const std::string& name : names) {
    if (const int error = RemoveTree(area.Get(), name)) return error;
  }
  if (const int error = RemoveTree(parent.Get(), target.GetId())) return error;
  return VrelHost::SyncFd(parent.Get());
}

}  // namespace VrelDR::Local
