#include "engine/local/extent_changes.h"

#include <linux/fiemap.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "engine/local/file_data.h"
#include "engine/local/run_list.h"
#include "engine/local/subvolume.h"

namespace VrelDR::Local {

namespace {

constexpr unsigned kXfsMagic = 0x58465342;  // which no header of the kernel has

// With any other flag an extent's position does not say what its bytes are.
constexpr std::uint32_t kPlainFlags =
    FIEMAP_EXTENT_LAST | FIEMAP_EXTENT_UNWRITTEN | FIEMAP_EXTENT_MERGED | FIEMAP_EXTENT_SHARED;

bool IsXfs(int fd) {
  struct statfs info;
  return fstatfs(fd, &info) == 0 && static_cast<unsigned>(info.f_type) == kXfsMagic;
}

// Whether the file's positions may be those of a second device, beside the first one's.
bool IsElsewhere(int fd) {
  struct fsxattr attributes = {};
  return IsXfs(fd) && (ioctl(fd, FS_IOC_FSGETXATTR, &attributes) != 0 ||
                       (attributes.fsx_xflags & FS_XFLAG_REALTIME) != 0);
}

}  // namespace

// Some extents of a file, one after the other.
class ExtentChanges::Page {
 public:
  // Reads those from `start` to `end`, as many as there is room for: what is beyond the end of the
  // file, which the file system may have reserved, is of no interest. What was written but is not
  // on disk is brought there first: until then the file system shows the blocks that it was to
  // replace, or none. For a file that is on disk, as those of snapshots are, that is nothing. 0 or
  // an errno.
  int Read(int fd, std::uint64_t start, std::uint64_t end);

  bool IsPlain() const {
    return std::all_of(Begin(), End(),
                       [](const auto& each) { return (each.fe_flags & ~kPlainFlags) == 0; });
  }
  // Up to where all extents are here; `most` when there was room for all.
  std::uint64_t GetEnd(std::uint64_t most) const {
    if (Head()->fm_mapped_extents < kRoom) return most;
    return std::min<std::uint64_t>(most, End()[-1].fe_logical + End()[-1].fe_length);
  }
  bool operator==(const Page& other) const {
    return std::equal(Begin(), End(), other.Begin(), other.End(), [](const auto& a, const auto& b) {
      return a.fe_logical == b.fe_logical && a.fe_physical == b.fe_physical &&
             a.fe_length == b.fe_length && a.fe_flags == b.fe_flags;
    });
  }

  const struct fiemap_extent* Begin() const { return Head()->fm_extents; }
  const struct fiemap_extent* End() const { return Begin() + Head()->fm_mapped_extents; }

 private:
  static constexpr std::size_t kRoom = 1000;

  struct fiemap* Head() {
    return reinterpret_cast<struct fiemap*>(room_.data());
  }
  const struct fiemap* Head() const { return reinterpret_cast<const struct fiemap*>(room_.data()); }

  std::vector<std::uint64_t> room_ = std::vector<std::uint64_t>(
      (sizeof(struct fiemap) + kRoom * sizeof(struct fiemap_extent)) / sizeof(std::uint64_t));
};

int ExtentChanges::Page::Read(int fd, std::uint64_t start, std::uint64_t end) {
  struct fiemap* head = Head();
  *head = {};
  head->fm_start = start;
  head->fm_length = end - start;
  head->fm_flags = FIEMAP_FLAG_SYNC;
  head->fm_extent_count = kRoom;
  return ioctl(fd, FS_IOC_FIEMAP, head) == 0 ? 0 : errno;
}

namespace {

// Goes along the extents of a page.
class Cursor {
 public:
  Cursor(const struct fiemap_extent* begin, const struct fiemap_extent* end)
      : at_(begin), end_(end) {}

  // Where the byte at `offset` is on disk, and nothing for a zero that has no place there; `next`
  // becomes the end of what goes on like that, unless it is less. No offset is less than the last.
  std::optional<std::uint64_t> Find(std::uint64_t offset, std::uint64_t& next) {
    while (at_ != end_ && at_->fe_logical + at_->fe_length <= offset) ++at_;
    if (at_ == end_) return std::nullopt;
    if (at_->fe_logical > offset) {
      next = std::min<std::uint64_t>(next, at_->fe_logical);
      return std::nullopt;
    }
    next = std::min<std::uint64_t>(next, at_->fe_logical + at_->fe_length);
    if ((at_->fe_flags & FIEMAP_EXTENT_UNWRITTEN) != 0) return std::nullopt;
    return at_->fe_physical + (offset - at_->fe_logical);
  }

 private:
  const struct fiemap_extent* at_;
  const struct fiemap_extent* end_;
};

}  // namespace

ExtentChanges::ExtentChanges()
    : base_(std::make_unique<Page>()),
      again_(std::make_unique<Page>()),
      snapshot_(std::make_unique<Page>()) {}

ExtentChanges::~ExtentChanges() = default;

bool ExtentChanges::CanTell(int dirFd) {
  return (IsXfs(dirFd) || IsBtrfs(dirFd)) && CanShareBlocks(dirFd);
}

int ExtentChanges::ReadBoth(int baseFd, int snapshotFd, std::uint64_t start, std::uint64_t end) {
  // One that moves is looked at again; bringing what was written to disk moves it, too.
  constexpr int kTries = 3;
  for (int i = 0; i < kTries; ++i) {
    int error = base_->Read(baseFd, start, end);
    if (error == 0) error = snapshot_->Read(snapshotFd, start, end);
    if (error == 0) error = again_->Read(baseFd, start, end);
    // Otherwise the base may have been moved away in between, and the snapshot to where it was.
    if (error != 0 || *base_ == *again_) return error;
  }
  return EAGAIN;
}

int ExtentChanges::Find(const std::string& /*path*/, int baseFd, int snapshotFd, bool& isKnown,
                        std::vector<Run>& changed) {
  isKnown = false;
  struct stat base, snapshot;
  if (fstat(baseFd, &base) != 0 || fstat(snapshotFd, &snapshot) != 0) return errno;
  const auto end = static_cast<std::uint64_t>(std::min(base.st_size, snapshot.st_size));
  if (IsElsewhere(baseFd) || IsElsewhere(snapshotFd)) return 0;
  for (std::uint64_t at = 0; at < end;) {
    if (const int error = ReadBoth(baseFd, snapshotFd, at, end)) {
      return error == EOPNOTSUPP || error == ENOTTY || error == EAGAIN ? 0 : error;
    }
    if (!base_->IsPlain() || !snapshot_->IsPlain()) return 0;
    Cursor before(base_->Begin(), base_->End());
    Cursor after(snapshot_->Begin(), snapshot_->End());
    const std::uint64_t stop = snapshot_->GetEnd(base_->GetEnd(end));
    if (stop <= at) return 0;
    while (at < stop) {
      std::uint64_t next = stop;
      const std::optional<std::uint64_t> old = before.Find(at, next);
      if (old != after.Find(at, next)) AppendRun(changed, at, next);
      at = next;
    }
  }
  isKnown = true;
  return 0;
}

}  // namespace VrelDR::Local
