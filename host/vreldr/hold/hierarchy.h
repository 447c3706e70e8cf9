#pragma once

#include <string>
#include <vector>

#include "base/fd.h"

namespace VrelDR {

// A hierarchy of control groups that is mounted.
struct Hierarchy {
  enum class Kind { kV2, kFreezer, kOther };  // kFreezer: version 1, with its freezer
  Kind kind = Kind::kOther;
  std::string mount_point;
};

// Those of this process' mount namespace.
std::vector<Hierarchy> ListHierarchies();

// "cgroup.procs" of the roots of those that freeze control groups or by which a service manager
// knows its services, open for writing; without those that may not be written.
std::vector<Fd> OpenHierarchyRoots();

// All paths below which version 2, and then the freezer of version 1, have the control group that a
// service manager calls `name`, such as "/system.slice/db.service".
std::vector<std::string> PlacesOfControlGroup(const std::string& name);

}  // namespace VrelDR
