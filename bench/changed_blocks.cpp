#include "changed_blocks.h"

#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace bench {

namespace {

class File {
 public:
  File(const std::string& path, int flags) : fd_(open(path.c_str(), flags | O_CLOEXEC)) {
    if (fd_ == -1) throw std::runtime_error("cannot open " + path);
  }
  ~File() { close(fd_); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  int Get() const { return fd_; }

 private:
  int fd_;
};

struct Extent {
  std::uint64_t begin, end, place;
};

std::vector<Extent> ExtentsOf(const File& file) {
  constexpr std::size_t kRoom = 1000;
  std::vector<std::uint64_t> room((sizeof(struct fiemap) + kRoom * sizeof(struct fiemap_extent)) /
                                  sizeof(std::uint64_t));
  auto* map = reinterpret_cast<struct fiemap*>(room.data());
  std::vector<Extent> extents;
  for (std::uint64_t at = 0;; at = extents.back().end) {
    *map = {};
    map->fm_start = at;
    map->fm_length = FIEMAP_MAX_OFFSET - at;
    map->fm_extent_count = kRoom;
    if (ioctl(file.Get(), FS_IOC_FIEMAP, map) != 0) throw std::runtime_error("no extent map");
    for (std::size_t i = 0; i < map->fm_mapped_extents; ++i) {
      const struct fiemap_extent& each = map->fm_extents[i];
      extents.push_back({each.fe_logical, each.fe_logical + each.fe_length, each.fe_physical});
    }
    if (map->fm_mapped_extents < kRoom) return extents;
  }
}

void Copy(const File& from, const File& to, std::uint64_t begin, std::uint64_t end) {
  std::vector<char> bytes(end - begin);
  const auto at = static_cast<off_t>(begin);
  const auto count = static_cast<ssize_t>(bytes.size());
  if (pread(from.Get(), bytes.data(), bytes.size(), at) != count ||
      pwrite(to.Get(), bytes.data(), bytes.size(), at) != count) {
    throw std::runtime_error("cannot copy a block");
  }
}

}  // namespace

void CopyChangedBlocks(const std::string& before, const std::string& now, const std::string& to) {
  const File from(now, O_RDONLY);
  const File into(to, O_RDWR);
  const std::vector<Extent> old = ExtentsOf(File(before, O_RDONLY));
  auto each = old.begin();
  for (const Extent& extent : ExtentsOf(from)) {
    for (std::uint64_t at = extent.begin; at < extent.end;) {
      while (each != old.end() && each->end <= at) ++each;
      std::uint64_t next = extent.end;
      bool isSame = false;
      if (each != old.end() && each->begin <= at) {
        next = std::min(next, each->end);
        isSame = extent.place + (at - extent.begin) == each->place + (at - each->begin);
      } else if (each != old.end()) {
        next = std::min(next, each->begin);
      }
      if (!isSame) Copy(from, into, at, next);
      at = next;
    }
  }
}

}  // namespace bench
