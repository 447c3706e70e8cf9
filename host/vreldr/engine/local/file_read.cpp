#include "engine/local/file_read.h"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <string>
#include <utility>

#include "engine/local/directory.h"
#include "engine/support/open_entry.h"

namespace VrelDR::Local {

int FindData(int fd, std::uint64_t at, std::uint64_t end, std::uint64_t& data) {
  const off_t found = lseek(fd, static_cast<off_t>(at), SEEK_DATA);
  if (found < 0 && errno != ENXIO && errno != EINVAL) return errno;
  // No such address: there are holes only.
  data = found >= 0 ? std::min(static_cast<std::uint64_t>(found), end) : errno == ENXIO ? end : at;
  return 0;
}

int FindHole(int fd, std::uint64_t at, std::uint64_t end, std::uint64_t& hole) {
  const off_t found = lseek(fd, static_cast<off_t>(at), SEEK_HOLE);
  if (found < 0 && errno != ENXIO && errno != EINVAL) return errno;
  hole = found >= 0 ? std::min(static_cast<std::uint64_t>(found), end) : end;
  return 0;
}

int DataFinder::Find(std::uint64_t at, std::uint64_t end, std::uint64_t& data,
                     std::uint64_t& dataEnd) {
  if (at < from_ || at >= data_end_) {
    // Not only up to `end`: the next one asked for may be behind that.
    constexpr auto kAll = static_cast<std::uint64_t>(std::numeric_limits<off_t>::max());
    from_ = at;
    int error = FindData(fd_, at, kAll, data_);
    data_end_ = data_;
    if (error == 0 && data_ < kAll) error = FindHole(fd_, data_, kAll, data_end_);
    if (error != 0) {
      data_end_ = 0;
      return error;
    }
  }
  data = std::min(std::max(at, data_), end);
  dataEnd = std::min(data_end_, end);
  return 0;
}

int ReadFully(int fd, std::uint64_t at, std::span<char> bytes) {
  while (!bytes.empty()) {
    const ssize_t got = pread(fd, bytes.data(), bytes.size(), static_cast<off_t>(at));
    if (got == 0) return ESTALE;
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return errno;
    bytes = bytes.subspan(static_cast<std::size_t>(got));
    at += static_cast<std::uint64_t>(got);
  }
  return 0;
}

int WriteFully(int fd, std::uint64_t at, std::span<const char> bytes) {
  while (!bytes.empty()) {
    const ssize_t done = pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(at));
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) return errno;
    bytes = bytes.subspan(static_cast<std::size_t>(done));
    at += static_cast<std::uint64_t>(done);
  }
  return 0;
}

namespace {

// Opens by `open`, which is given flags; only a file's owner may have O_NOATIME.
template <class Open>
Fd Quietly(int flags, const Open& open) {
  Fd fd = open(flags | O_NOATIME);
  return !fd && errno == EPERM ? open(flags) : std::move(fd);
}

}  // namespace

Fd OpenQuietly(int dirFd, const std::string& name, int flags) {
  return Quietly(O_RDONLY | O_NONBLOCK | flags,
                 [&](int all) { return OpenEntry(dirFd, name, all); });
}

Fd ReopenQuietly(int fd) {
  return Quietly(O_RDONLY | O_NONBLOCK, [&](int all) { return Reopen(fd, all); });
}

}  // namespace VrelDR::Local
