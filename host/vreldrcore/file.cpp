#include "vreldrcore/file.h"

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace VrelDRCore {

namespace {

bool IsDir(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace

bool File::CreateDir(const std::string& dir, int mode) {
  if (dir.empty()) return false;
  for (std::size_t end = dir.find('/', 1);; end = dir.find('/', end + 1)) {
    const std::string part = dir.substr(0, end);
    // Another process may make the same directory at the same time: only what stands there counts.
    if (mkdir(part.c_str(), static_cast<mode_t>(mode)) != 0 && !IsDir(part)) return false;
    if (end == std::string::npos) return true;
  }
}

bool File::RemoveDir(const std::string& dir) {
  if (dir.empty()) return false;
  std::error_code error;
  std::filesystem::remove_all(dir, error);
  return !error;
}

}  // namespace VrelDRCore
