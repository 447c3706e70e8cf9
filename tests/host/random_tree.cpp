#include "random_tree.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>

namespace host_test {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kKiB = 1024;

// "user 1234 may read", or "write", in the kernel's own form.
std::string AccessList(bool mayWrite) {
  struct Part {
    std::uint16_t tag, permissions;
    std::uint32_t id;
  };
  constexpr std::uint32_t kNobody = 0xffffffff;
  const std::uint32_t version = 2;
  const auto permissions = static_cast<std::uint16_t>(mayWrite ? 6 : 4);
  const std::array<Part, 5> parts{{{0x01, 7, kNobody},
                                   {0x02, permissions, 1234},
                                   {0x04, 5, kNobody},
                                   {0x10, 7, kNobody},
                                   {0x20, 0, kNobody}}};
  std::string bytes(sizeof version + sizeof parts, '\0');
  std::memcpy(bytes.data(), &version, sizeof version);
  std::memcpy(bytes.data() + sizeof version, parts.data(), sizeof parts);
  return bytes;
}

void PutBackTimes(const std::string& path, const struct stat& st) {
  const struct timespec times[] = {st.st_atim, st.st_mtim};
  EXPECT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

}  // namespace

void RandomTree::Change(int count) {
  for (int i = 0; i < count; ++i) ChangeOnce();
}

void RandomTree::List(std::vector<std::string>& all, std::vector<std::string>& files,
                      std::vector<std::string>& dirs) const {
  dirs.push_back(root_);
  for (const auto& each : fs::recursive_directory_iterator(root_)) {
    all.push_back(each.path());
    if (each.is_symlink()) continue;
    if (each.is_directory()) dirs.push_back(each.path());
    if (each.is_regular_file()) files.push_back(each.path());
  }
  // The order of directories is the file system's affair.
  for (auto* each : {&all, &files, &dirs}) std::sort(each->begin(), each->end());
}

std::string RandomTree::NewName() {
  static const std::array<const char*, 8> kNames = {
      "plain", "two\nlines", "-dash", "a b \\ $x", "\xff\xfe\t", "*", "...dots", "dir"};
  return kNames[Below(kNames.size())] + std::to_string(Below(6));
}

std::string RandomTree::Bytes(std::size_t count) {
  // Some that compress, and some that do not.
  std::string bytes(count, static_cast<char>('a' + Below(26)));
  if (Below(2) == 0) return bytes;
  for (char& each : bytes) each = static_cast<char>(random_());
  return bytes;
}

void RandomTree::WriteInto(const std::string& path) {
  const int fd = open(path.c_str(), O_RDWR);
  ASSERT_NE(fd, -1) << path;
  struct stat st;
  ASSERT_EQ(fstat(fd, &st), 0);
  const std::size_t size = static_cast<std::size_t>(st.st_size);
  const std::size_t at = Below(size + 40 * kKiB);
  const std::size_t length = 1 + Below(Below(3) == 0 ? 100 * kKiB : 5 * kKiB);
  const auto from = static_cast<off_t>(at);
  switch (Below(8)) {
    case 0:
      EXPECT_EQ(ftruncate(fd, from), 0);
      break;
    case 1:
      EXPECT_EQ(ftruncate(fd, static_cast<off_t>(size / 2)), 0);
      EXPECT_EQ(ftruncate(fd, static_cast<off_t>(size + at)), 0);
      break;
    case 2:
      EXPECT_EQ(fallocate(fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, from,
                          static_cast<off_t>(length)),
                0);
      break;
    case 3:
      EXPECT_EQ(
          fallocate(fd, Below(2) == 0 ? 0 : FALLOC_FL_KEEP_SIZE, from, static_cast<off_t>(length)),
          0);
      break;
    case 4:
      // Far away, so that there is a hole.
      EXPECT_EQ(pwrite(fd, "far", 3, from + static_cast<off_t>(4000 * kKiB)), 3);
      break;
    default: {
      const std::string bytes = Bytes(length);
      EXPECT_EQ(pwrite(fd, bytes.data(), bytes.size(), from), static_cast<ssize_t>(bytes.size()));
    }
  }
  close(fd);
  if (Below(2) == 0) PutBackTimes(path, st);
}

void RandomTree::ChangeAttributes(const std::string& path) {
  struct stat st;
  ASSERT_EQ(lstat(path.c_str(), &st), 0);
  const bool isLink = S_ISLNK(st.st_mode);
  const bool hasList = S_ISDIR(st.st_mode) || S_ISREG(st.st_mode);
  const std::string list = AccessList(Below(2) == 0);
  const std::string value = Bytes(Below(200));
  static const std::array<mode_t, 6> kModes = {0, 0600, 0755, 04711, 02775, 01777};
  const auto owner = static_cast<uid_t>(Below(3) * 1000);
  switch (Below(7)) {
    case 0:
      EXPECT_EQ(lchown(path.c_str(), owner, owner + 7), 0);
      break;
    case 1:
      if (!isLink) {
        EXPECT_EQ(chmod(path.c_str(), kModes[Below(kModes.size())]), 0);
      }
      break;
    case 2:
      if (hasList) {
        EXPECT_EQ(setxattr(path.c_str(), "user.x", value.data(), value.size(), 0), 0);
      }
      break;
    case 3:
      (void)lremovexattr(path.c_str(), "user.x");
      EXPECT_EQ(lsetxattr(path.c_str(), "trusted.y", value.data(), value.size(), 0), 0);
      break;
    case 4:
      if (hasList) {
        EXPECT_EQ(setxattr(path.c_str(), "system.posix_acl_access", list.data(), list.size(), 0),
                  0);
      }
      break;
    case 5:
      if (S_ISDIR(st.st_mode)) {
        EXPECT_EQ(setxattr(path.c_str(), "system.posix_acl_default", list.data(), list.size(), 0),
                  0);
      }
      break;
    default: {
      struct stat other = st;
      other.st_mtim = {static_cast<time_t>(Below(2'000'000'000)),
                       static_cast<long>(Below(1'000'000'000))};
      PutBackTimes(path, other);
    }
  }
}

void RandomTree::MakeEntry(const std::string& path) {
  switch (Below(12)) {
    case 0:
    case 1:
      EXPECT_EQ(mkdir(path.c_str(), 0755), 0);
      break;
    case 2:
      EXPECT_EQ(symlink(Bytes(1 + Below(300)).c_str(), path.c_str()), 0) << path;
      break;
    case 3:
      EXPECT_EQ(mkfifo(path.c_str(), 0640), 0);
      break;
    case 4:
      EXPECT_EQ(mknod(path.c_str(), (Below(2) == 0 ? S_IFCHR : S_IFBLK) | 0600,
                      makedev(Below(300), Below(70000))),
                0);
      break;
    default: {
      const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644);
      ASSERT_NE(fd, -1) << path;
      const std::string bytes = Bytes(Below(4) == 0 ? Below(200 * kKiB) : Below(3000));
      EXPECT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
      close(fd);
    }
  }
}

void RandomTree::ChangeOnce() {
  std::vector<std::string> all;
  std::vector<std::string> files;
  std::vector<std::string> dirs;
  List(all, files, dirs);
  const std::string fresh = OneOf(dirs) + "/" + NewName();
  struct stat st;
  const bool isThere = lstat(fresh.c_str(), &st) == 0;
  const std::size_t what = all.size() < 15 ? 0 : Below(20);
  if (what < 6) {
    // Also in the place of something else.
    if (isThere) fs::remove_all(fresh);
    MakeEntry(fresh);
  } else if (what < 12) {
    if (!files.empty()) WriteInto(OneOf(files));
  } else if (what < 15) {
    ChangeAttributes(OneOf(all));
  } else if (what == 15) {
    fs::remove_all(OneOf(all));
  } else if (what == 16 && !isThere && !files.empty()) {
    fs::create_hard_link(OneOf(files), fresh);
  } else if (what == 17 && files.size() > 1) {
    // One takes the place of another.
    std::error_code same;
    fs::rename(files[Below(files.size())], OneOf(files), same);
  } else if (what == 18 && !isThere) {
    std::error_code belowItself;
    fs::rename(OneOf(all), fresh, belowItself);
  } else {
    ChangeAttributes(OneOf(dirs));
  }
}

}  // namespace host_test
