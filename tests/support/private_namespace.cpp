#include "private_namespace.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace test_support {
namespace {

namespace fs = std::filesystem;

std::string Failed(const std::string& step, const std::string& advice) {
  return step + ": " + std::strerror(errno) + "; " + advice;
}

bool WriteProc(const char* path, const std::string& text) {
  const int fd = open(path, O_WRONLY | O_CLOEXEC);
  if (fd < 0) {
    return false;
  }
  const bool written = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  close(fd);
  return written;
}

// Root may lack the right to mount, in a container for example; a user namespace may still be had.
bool Unshare(std::string& why) {
  if (geteuid() == 0 && unshare(CLONE_NEWNS) == 0) {
    return true;
  }
  const std::string uid = std::to_string(geteuid());
  const std::string gid = std::to_string(getegid());
  if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
    why = Failed("cannot make a mount namespace", "run the tests as root or allow user namespaces");
    return false;
  }
  if (!WriteProc("/proc/self/setgroups", "deny") ||
      !WriteProc("/proc/self/uid_map", "0 " + uid + " 1") ||
      !WriteProc("/proc/self/gid_map", "0 " + gid + " 1")) {
    why = Failed("cannot map this user to root of a user namespace", "run the tests as root");
    return false;
  }
  return true;
}

}  // namespace

bool EnterPrivateNamespace(std::string& why) {
  if (!Unshare(why)) {
    return false;
  }
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    why = Failed("cannot make the mounts private", "run the tests as root");
    return false;
  }
  if (mount("tmpfs", "/var", "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") != 0) {
    why = Failed("cannot mount a file system over /var", "run the tests as root");
    return false;
  }
  return true;
}

bool InstallDbScript(std::string& why) {
  const fs::path source = VRELDRGROUP_SBIN_DIR;
  const fs::path script = kDbScript;
  const fs::path dir = script.parent_path();
  std::error_code error;
  fs::remove_all(dir, error);
  fs::create_directories(dir, error);
  if (!error) {
    fs::copy(source, dir, fs::copy_options::recursive, error);
  }
  if (!error) {
    fs::permissions(script, fs::perms(0755), error);
  }
  if (error) {
    why = "cannot copy " + source.string() + " to " + dir.string() + ": " + error.message();
  }
  return !error;
}

}  // namespace test_support
