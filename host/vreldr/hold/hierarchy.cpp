#include "hold/hierarchy.h"

#include <fcntl.h>
#include <mntent.h>

#include <algorithm>
#include <cstdio>
#include <memory>

namespace VrelDR {

namespace {

bool HasOption(const struct mntent& mount, const char* option) {
  return hasmntopt(&mount, option) != nullptr;
}

}  // namespace

std::vector<Hierarchy> ListHierarchies() {
  std::vector<Hierarchy> found;
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(setmntent("/proc/self/mounts", "re"),
                                                             endmntent);
  if (!file) return found;
  struct mntent mount = {};
  std::vector<char> buffer(std::size_t{16} * 1024);
  while (getmntent_r(file.get(), &mount, buffer.data(), static_cast<int>(buffer.size())) !=
         nullptr) {
    const std::string type = mount.mnt_type;
    if (type == "cgroup2") {
      found.push_back({Hierarchy::Kind::kV2, mount.mnt_dir});
    } else if (type == "cgroup" && HasOption(mount, "freezer")) {
      found.push_back({Hierarchy::Kind::kFreezer, mount.mnt_dir});
    } else if (type == "cgroup" && HasOption(mount, "name")) {
      found.push_back({Hierarchy::Kind::kOther, mount.mnt_dir});
    }
  }
  return found;
}

std::vector<Fd> OpenHierarchyRoots() {
  std::vector<Fd> roots;
  for (const Hierarchy& each : ListHierarchies()) {
    Fd fd(open((each.mount_point + "/cgroup.procs").c_str(), O_WRONLY | O_CLOEXEC));
    if (fd) roots.push_back(std::move(fd));
  }
  return roots;
}

std::vector<std::string> PlacesOfControlGroup(const std::string& name) {
  std::vector<std::string> places;
  for (const Hierarchy::Kind kind : {Hierarchy::Kind::kV2, Hierarchy::Kind::kFreezer}) {
    for (const Hierarchy& each : ListHierarchies()) {
      if (each.kind == kind) places.push_back(each.mount_point + name);
    }
  }
  return places;
}

}  // namespace VrelDR
