#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace VrelDR {

struct Mount {
  std::uint64_t id = 0;  // the same in all mount namespaces
  std::string device;    // of the file system, "major:minor"
  std::string root;      // what of the file system is mounted, as a path from its top
  std::string place;
  bool is_read_only = false;
};

// Appends the mounts that a list of the system tells, such as /proc/self/mountinfo, also those over
// which something else is mounted by now. 0 or an errno.
int ReadMounts(const std::string& file, std::vector<Mount>& mounts);

}  // namespace VrelDR
