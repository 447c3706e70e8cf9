#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace VrelDR {

// What stands in a file of /proc or /sys; empty with errno set on a failure.
std::string ReadSystemFile(const std::string& path);
// Its first line, without the end of it.
std::string ReadSystemLine(const std::string& path);

// The names in a directory of /proc or /sys that begin with `prefix`, without "." and "..". 0 or an
// errno.
int ListSystemDir(const std::string& path, const std::string& prefix,
                  std::vector<std::string>& names);
// Those that are numbers, as processes are.
int ListNumbers(const std::string& path, std::vector<std::string>& numbers);
// What such a name stands for.
int NumberOf(const std::string& name);

// What the system tells of a descriptor.
struct FdInfo {
  int flags = 0;  // of open
  std::uint64_t mount_id = 0;
};
FdInfo ReadFdInfo(const std::string& path);

}  // namespace VrelDR
