#include "control_groups.h"

#include <mntent.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace host_test {

namespace fs = std::filesystem;

std::string FindHierarchy(const std::string& kind, const std::string& scratch, std::string& why) {
  const bool isV2 = kind == "v2";
  std::FILE* mounts = setmntent("/proc/self/mounts", "re");
  std::string found;
  for (struct mntent* each; (each = getmntent(mounts)) != nullptr;) {
    if (isV2
            ? std::strcmp(each->mnt_type, "cgroup2") == 0
            : std::strcmp(each->mnt_type, "cgroup") == 0 && hasmntopt(each, "freezer") != nullptr) {
      found = each->mnt_dir;
    }
  }
  endmntent(mounts);
  if (!found.empty()) return found;
  const std::string dir = scratch + "/" + kind;
  fs::create_directory(dir);
  if (mount("none", dir.c_str(), isV2 ? "cgroup2" : "cgroup", 0, isV2 ? "" : "freezer") == 0) {
    return dir;
  }
  why = "no hierarchy of control groups of this kind can be mounted here: " +
        std::string(std::strerror(errno)) + "; run it as root where there is one";
  fs::remove(dir);
  return {};
}

}  // namespace host_test
