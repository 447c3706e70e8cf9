#include "engine/support/open_entry.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <climits>

namespace VrelDR {

Fd OpenEntry(int parentFd, const std::string& name, int flags) {
  struct open_how how = {};
  how.flags = static_cast<__u64>(flags | O_NOFOLLOW | O_CLOEXEC);
  how.resolve = RESOLVE_NO_XDEV | RESOLVE_BENEATH;
  return Fd(static_cast<int>(syscall(SYS_openat2, parentFd, name.c_str(), &how, sizeof how)));
}

std::string PathOfFd(int fd) {
  return "/proc/self/fd/" + std::to_string(fd);
}

std::string PathIn(std::string dir, const std::string& name) {
  dir += '/';
  dir += name;
  return dir;
}

std::string ReadLink(const std::string& path) {
  std::array<char, PATH_MAX> text;
  const ssize_t length = readlink(path.c_str(), text.data(), text.size());
  return length < 0 ? std::string() : std::string(text.data(), static_cast<std::size_t>(length));
}

}  // namespace VrelDR
