#include "write_record.h"

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <mutex>

namespace test_support {
namespace {

struct Collection {
  std::mutex mutex;
  std::string prefix;  // empty when nobody collects
  std::vector<WriteStep> steps;
};

Collection& TheCollection() {
  static Collection collection;
  return collection;
}

// Notes what a call did to an open file, if that is one of those asked for.
void Note(int fd, WriteStep::Kind kind, std::uint64_t offset = 0, std::string bytes = {}) {
  Collection& all = TheCollection();
  const std::lock_guard lock(all.mutex);
  if (all.prefix.empty()) return;
  char path[4096];
  struct stat st;
  const ssize_t length =
      readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path, sizeof(path));
  if (length <= 0 || fstat(fd, &st) != 0 || st.st_nlink == 0) return;
  const std::string name(path, static_cast<std::size_t>(length));
  const bool isDir =
      kind == WriteStep::Kind::kSync && name == all.prefix.substr(0, all.prefix.find_last_of('/'));
  if (!isDir && !name.starts_with(all.prefix)) return;
  all.steps.push_back({isDir ? WriteStep::Kind::kSyncDir : kind, name, offset, std::move(bytes)});
}

void Begin(const std::string& prefix) {
  Collection& all = TheCollection();
  const std::lock_guard lock(all.mutex);
  all.prefix = prefix;
  all.steps.clear();
}

}  // namespace

WriteRecord::WriteRecord(const std::string& prefix) {
  Begin(prefix);
}

WriteRecord::~WriteRecord() {
  Begin({});
}

std::size_t WriteRecord::Count() const {
  const std::lock_guard lock(TheCollection().mutex);
  return TheCollection().steps.size();
}

std::vector<WriteStep> WriteRecord::Steps() const {
  const std::lock_guard lock(TheCollection().mutex);
  return TheCollection().steps;
}

}  // namespace test_support

// In the executable, where shared libraries find them first.
#define TAKEN_OVER extern "C" __attribute__((visibility("default")))
using test_support::Note;
using test_support::WriteStep;

TAKEN_OVER ssize_t pwrite64(int fd, const void* bytes, std::size_t count, off64_t offset) {
  const ssize_t done = syscall(SYS_pwrite64, fd, bytes, count, offset);
  if (done > 0) {
    Note(fd, WriteStep::Kind::kWrite, static_cast<std::uint64_t>(offset),
         std::string(static_cast<const char*>(bytes), static_cast<std::size_t>(done)));
  }
  return done;
}

TAKEN_OVER int ftruncate64(int fd, off64_t size) noexcept {
  const auto result = static_cast<int>(syscall(SYS_ftruncate, fd, size));
  if (result == 0) Note(fd, WriteStep::Kind::kSize, static_cast<std::uint64_t>(size));
  return result;
}

TAKEN_OVER int fdatasync(int fd) {
  const auto result = static_cast<int>(syscall(SYS_fdatasync, fd));
  if (result == 0) Note(fd, WriteStep::Kind::kSync);
  return result;
}

TAKEN_OVER int fsync(int fd) {
  const auto result = static_cast<int>(syscall(SYS_fsync, fd));
  if (result == 0) Note(fd, WriteStep::Kind::kSync);
  return result;
}

TAKEN_OVER int unlink(const char* path) noexcept {
  const auto result = static_cast<int>(syscall(SYS_unlink, path));
  auto& all = test_support::TheCollection();
  const std::lock_guard lock(all.mutex);
  if (result == 0 && !all.prefix.empty() && std::string(path).starts_with(all.prefix)) {
    all.steps.push_back({WriteStep::Kind::kRemove, path, 0, {}});
  }
  return result;
}
