#include "area.h"

#include <cerrno>

#include "directory.h"
#include "tree_remove.h"

namespace VrelDR::Local {

Fd OpenArea(int ownFd, const char* area, const Target& target) {
  const Fd parent = OpenDir(ownFd, area);
  return parent ? OpenDir(parent.Get(), target.GetId()) : Fd();
}

Fd OpenOrMakeArea(int ownFd, const char* area, const Target& target) {
  const Fd parent = OpenOrMakeDir(ownFd, area);
  return parent ? OpenOrMakeDir(parent.Get(), target.GetId()) : Fd();
}

int RemoveArea(int ownFd, const char* area, const Target& target) {
  const Fd parent = OpenDir(ownFd, area);
  if (!parent) return errno == ENOENT ? 0 : errno;
  return RemoveTree(parent.Get(), target.GetId());
}

}  // namespace VrelDR::Local
