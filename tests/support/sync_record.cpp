#include "sync_record.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>

namespace test_support {
namespace {

struct Sink {
  std::mutex mutex;
  bool open = false;
  std::string failing;
  std::vector<std::string> paths;
};

Sink& TheSink() {
  static Sink sink;
  return sink;
}

// Whether the call is to fail.
bool WriteDown(int fd) {
  char path[4096];
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  const ssize_t length = readlink(link.c_str(), path, sizeof(path));
  if (length == -1) return false;
  const std::lock_guard lock(TheSink().mutex);
  if (!TheSink().open) return false;
  TheSink().paths.emplace_back(path, static_cast<std::size_t>(length));
  return TheSink().paths.back() == TheSink().failing;
}

void Reset(bool open) {
  const std::lock_guard lock(TheSink().mutex);
  TheSink().open = open;
  TheSink().failing.clear();
  TheSink().paths.clear();
}

}  // namespace

SyncRecord::SyncRecord() {
  Reset(true);
}
SyncRecord::~SyncRecord() {
  Reset(false);
}
void SyncRecord::Clear() {
  const std::lock_guard lock(TheSink().mutex);
  TheSink().paths.clear();
}
void SyncRecord::Fail(const std::string& path) {
  const std::lock_guard lock(TheSink().mutex);
  TheSink().failing = path;
}

std::vector<std::string> SyncRecord::Paths() const {
  const std::lock_guard lock(TheSink().mutex);
  return TheSink().paths;
}

}  // namespace test_support

// In the executable, where shared libraries find it first.
extern "C" __attribute__((visibility("default"))) int fsync(int fd) {
  if (test_support::WriteDown(fd)) {
    errno = EIO;
    return -1;
  }
  return static_cast<int>(syscall(SYS_fsync, fd));
}
