#include "action/tree_diff.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <system_error>
#include <vector>

#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

constexpr std::uint64_t kPiece = std::uint64_t{1} << 20U;
constexpr std::uint64_t kBlock = 4096;

[[noreturn]] void ThrowUnread(const std::string& top, const std::string& path, int error) {
  const std::string advice = error == ENOENT ? ": it changes while it is compared, run it again"
                                             : "; see to it and run it again";
  throw Failure(ExitCode::kStorage, "cannot read " + Quote(top + "/" + path) + ": " +
                                        std::generic_category().message(error) + advice);
}

// Reads up to kPiece bytes; fewer only at the end of the file. -1 with an errno.
std::int64_t ReadPiece(int fd, std::uint64_t offset, std::vector<char>& piece) {
  std::size_t done = 0;
  while (done < kPiece) {
    const ssize_t got =
        pread(fd, piece.data() + done, kPiece - done, static_cast<off_t>(offset + done));
    if (got == -1 && errno == EINTR) continue;
    if (got == -1) return -1;
    if (got == 0) break;
    done += static_cast<std::size_t>(got);
  }
  return static_cast<std::int64_t>(done);
}

// Where the file has bytes next, `size` when it has none any more; `offset` where that cannot be
// told.
std::uint64_t NextData(int fd, std::uint64_t offset, std::uint64_t size) {
  const off_t found = lseek(fd, static_cast<off_t>(offset), SEEK_DATA);
  if (found != -1) return std::min(size, static_cast<std::uint64_t>(found));
  return errno == ENXIO ? size : offset;
}

// Joins runs that touch before they are told.
class Runs {
 public:
  using Tell = std::function<bool(std::uint64_t, std::uint64_t)>;
  explicit Runs(const Tell& tell) : tell_(tell) {}

  // False when no more is wanted.
  bool Add(std::uint64_t begin, std::uint64_t end) {
    if (begin == end) return true;
    if (begin == end_ && end_ != begin_) {
      end_ = end;
      return true;
    }
    const bool goesOn = Flush();
    begin_ = begin;
    end_ = end;
    return goesOn;
  }
  bool Flush() {
    const bool goesOn = begin_ == end_ || tell_(begin_, end_ - begin_);
    begin_ = end_ = 0;
    return goesOn;
  }

 private:
  const Tell& tell_;
  std::uint64_t begin_ = 0;
  std::uint64_t end_ = 0;
};

bool AddBlocks(const std::vector<char>& one, const std::vector<char>& other, std::uint64_t offset,
               std::uint64_t size, Runs& runs) {
  if (std::memcmp(one.data(), other.data(), size) == 0) return true;
  for (std::uint64_t at = 0; at < size; at += kBlock) {
    const std::uint64_t length = std::min(kBlock, size - at);
    if (std::memcmp(one.data() + at, other.data() + at, length) == 0) continue;
    if (!runs.Add(offset + at, offset + at + length)) return false;
  }
  return true;
}

std::vector<std::string> NamesIn(int fd, const std::string& top, const std::string& path) {
  if (fd == -1) return {};
  const int own = openat(fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const std::unique_ptr<DIR, int (*)(DIR*)> dir(own == -1 ? nullptr : fdopendir(own), closedir);
  if (!dir) ThrowUnread(top, path, errno);
  std::vector<std::string> names;
  errno = 0;
  while (const dirent* entry = readdir(dir.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  if (errno != 0) ThrowUnread(top, path, errno);
  std::sort(names.begin(), names.end());
  return names;
}

std::string LinkTarget(int dirFd, const std::string& name) {
  std::array<char, 4096> text;
  const ssize_t size = readlinkat(dirFd, name.c_str(), text.data(), text.size());
  return size == -1 ? std::string() : std::string(text.data(), static_cast<std::size_t>(size));
}

bool IsSameTime(const timespec& one, const timespec& other) {
  return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

}  // namespace

int CompareFiles(int oldFd, int newFd,
                 const std::function<bool(std::uint64_t, std::uint64_t)>& tell) {
  struct stat before = {};
  struct stat after = {};
  if (fstat(oldFd, &before) != 0 || fstat(newFd, &after) != 0) return errno;
  const auto oldSize = static_cast<std::uint64_t>(before.st_size);
  const auto newSize = static_cast<std::uint64_t>(after.st_size);
  const std::uint64_t common = std::min(oldSize, newSize);
  std::vector<char> one(kPiece);
  std::vector<char> other(kPiece);
  Runs runs(tell);
  std::uint64_t at = 0;
  while (at < common) {
    const std::uint64_t next = std::min(NextData(oldFd, at, common), NextData(newFd, at, common));
    at = std::max(at, next / kBlock * kBlock);
    if (next >= common) break;
    const std::int64_t had = ReadPiece(oldFd, at, one);
    const std::int64_t has = had == -1 ? -1 : ReadPiece(newFd, at, other);
    if (has == -1) return errno;
    const std::uint64_t size =
        std::min({static_cast<std::uint64_t>(had), static_cast<std::uint64_t>(has), common - at});
    if (size == 0) return ESTALE;  // one of them has become shorter
    if (!AddBlocks(one, other, at, size, runs)) return 0;
    at += size;
  }
  if (!runs.Add(common, std::max(oldSize, newSize))) return 0;
  runs.Flush();
  return 0;
}

// An entry of both trees; a side that has none has no type.
struct TreeDiff::Pair {
  int old_dir, new_dir;
  const std::string& name;
  struct stat before = {};
  struct stat after = {};

  static bool Look(int dirFd, const std::string& name, struct stat& found) {
    if (dirFd == -1) return true;
    if (fstatat(dirFd, name.c_str(), &found, AT_SYMLINK_NOFOLLOW) != 0) return errno == ENOENT;
    if (S_ISSOCK(found.st_mode)) found = {};
    return true;
  }
};

void TreeDiff::Compare(int oldFd, const std::string& oldPath, int newFd,
                       const std::string& newPath) {
  old_path_ = oldPath;
  new_path_ = newPath;
  CompareEntry(oldFd, newFd, ".", "");
}

void TreeDiff::CompareContent(int oldFd, int newFd, const std::string& below) {
  const std::vector<std::string> before = NamesIn(oldFd, old_path_, below);
  const std::vector<std::string> after = NamesIn(newFd, new_path_, below);
  auto had = before.begin();
  auto has = after.begin();
  while (had != before.end() || has != after.end()) {
    const bool isOld = has == after.end() || (had != before.end() && *had <= *has);
    const bool isNew = had == before.end() || (has != after.end() && *has <= *had);
    CompareEntry(isOld ? oldFd : -1, isNew ? newFd : -1, isOld ? *had : *has, below);
    if (isOld) ++had;
    if (isNew) ++has;
  }
}

void TreeDiff::CompareEntry(int oldFd, int newFd, const std::string& name,
                            const std::string& below) {
  const std::string path = below.empty() ? name : below + "/" + name;
  Pair pair{oldFd, newFd, name};
  if (!Pair::Look(oldFd, name, pair.before)) ThrowUnread(old_path_, path, errno);
  if (!Pair::Look(newFd, name, pair.after)) ThrowUnread(new_path_, path, errno);
  if (pair.before.st_mode == 0 && pair.after.st_mode == 0) return;
  if (pair.before.st_mode == 0) {
    tell_(path, Change::kAdded, "");
  } else if (pair.after.st_mode == 0) {
    tell_(path, Change::kRemoved, "");
  } else if (const std::string what = WhatChanged(pair, path); !what.empty()) {
    tell_(path, Change::kChanged, what);
  }
  if (S_ISDIR(pair.before.st_mode) || S_ISDIR(pair.after.st_mode)) Descend(pair, path);
}

void TreeDiff::Descend(const Pair& pair, const std::string& path) {
  const auto open = [&](int dirFd, const struct stat& found, const std::string& top) {
    if (!S_ISDIR(found.st_mode)) return -1;
    struct stat parent = {};
    if (pair.name != "." && fstat(dirFd, &parent) == 0 && parent.st_dev != found.st_dev) {
      warn_("what is at " + Quote(top + "/" + path) + " is of another file system: passed over");
      return -1;
    }
    const int fd =
        openat(dirFd, pair.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd == -1) ThrowUnread(top, path, errno);
    return fd;
  };
  const OwnedFd before(open(pair.old_dir, pair.before, old_path_));
  const OwnedFd after(open(pair.new_dir, pair.after, new_path_));
  CompareContent(before.Get(), after.Get(), pair.name == "." ? "" : path);
}

std::string TreeDiff::WhatChanged(const Pair& pair, const std::string& path) const {
  const struct stat& before = pair.before;
  const struct stat& after = pair.after;
  if ((before.st_mode & S_IFMT) != (after.st_mode & S_IFMT)) return "type";
  std::vector<std::string> what;
  const bool isSameTime = IsSameTime(before.st_mtim, after.st_mtim);
  if (S_ISREG(before.st_mode)) {
    const bool isSameSize = before.st_size == after.st_size;
    if (!isSameSize) what.emplace_back("size");
    const bool isRead = isSameSize && (reads_all_ || !isSameTime);
    if (!isSameSize || (isRead && !HaveSameBytes(pair, path))) what.emplace_back("contents");
  }
  if (S_ISLNK(before.st_mode) &&
      LinkTarget(pair.old_dir, pair.name) != LinkTarget(pair.new_dir, pair.name)) {
    what.emplace_back("target");
  }
  const bool isDevice = S_ISCHR(before.st_mode) || S_ISBLK(before.st_mode);
  if (isDevice && before.st_rdev != after.st_rdev) what.emplace_back("device");
  if (before.st_mode != after.st_mode) what.emplace_back("mode");
  if (before.st_uid != after.st_uid || before.st_gid != after.st_gid) what.emplace_back("owner");
  if (!isSameTime) what.emplace_back("times");
  return Join(what, ", ");
}

bool TreeDiff::HaveSameBytes(const Pair& pair, const std::string& path) const {
  constexpr int kHow = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  const OwnedFd before(openat(pair.old_dir, pair.name.c_str(), kHow));
  if (before.Get() == -1) ThrowUnread(old_path_, path, errno);
  const OwnedFd after(openat(pair.new_dir, pair.name.c_str(), kHow));
  if (after.Get() == -1) ThrowUnread(new_path_, path, errno);
  bool isSame = true;
  const int error = CompareFiles(before.Get(), after.Get(), [&](std::uint64_t, std::uint64_t) {
    isSame = false;
    return false;
  });
  if (error != 0) ThrowUnread(new_path_, path, error);
  return isSame;
}

}  // namespace drgroupctl
