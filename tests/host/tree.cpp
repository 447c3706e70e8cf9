#include "tree.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

namespace host_test {

namespace fs = std::filesystem;

namespace {

std::string Xattrs(const std::string& path) {
  std::vector<char> names(4096);
  const ssize_t size = llistxattr(path.c_str(), names.data(), names.size());
  std::map<std::string, std::string> found;
  for (ssize_t at = 0; at < size; at += static_cast<ssize_t>(std::strlen(&names[at])) + 1) {
    std::string value(4096, '\0');
    const ssize_t length = lgetxattr(path.c_str(), &names[at], value.data(), value.size());
    // XFS shows access lists a second time, under names of its own.
    if (std::strncmp(&names[at], "trusted.SGI_ACL_", 16) == 0) continue;
    if (length >= 0) found[&names[at]] = value.substr(0, static_cast<std::size_t>(length));
  }
  std::string text;
  for (const auto& [name, value] : found) text += " " + name + "=" + value;
  return text;
}

std::string DescribeEntry(const std::string& path, std::map<ino_t, std::string>& firstNames) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0) return "cannot be looked at";
  std::ostringstream text;
  text << std::oct << st.st_mode << std::dec << " " << st.st_uid << ":" << st.st_gid << " changed "
       << st.st_mtim.tv_sec << "." << st.st_mtim.tv_nsec << Xattrs(path);
  if (S_ISREG(st.st_mode)) {
    const std::string bytes = ReadFile(path);
    text << " size " << st.st_size << " hash " << std::hash<std::string>()(bytes);
    if (bytes.size() < 100) text << " bytes " << bytes;
  } else if (S_ISLNK(st.st_mode)) {
    text << " -> " << fs::read_symlink(path).string();
  } else if (S_ISCHR(st.st_mode) || S_ISBLK(st.st_mode)) {
    text << " device " << major(st.st_rdev) << "," << minor(st.st_rdev);
  }
  if (!S_ISDIR(st.st_mode) && st.st_nlink > 1) {
    text << " same as " << firstNames.emplace(st.st_ino, fs::path(path).filename()).first->second;
  }
  return text.str();
}

void SetTime(const std::string& path, std::time_t seconds, long nanoseconds) {
  const struct timespec times[] = {{seconds, 5}, {seconds, nanoseconds}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

// "user 1234 may read" in the kernel's own form.
std::string AccessList() {
  struct Part {
    std::uint16_t tag, permissions;
    std::uint32_t id;
  };
  constexpr std::uint32_t kNobody = 0xffffffff;
  const std::uint32_t version = 2;
  const Part parts[] = {{0x01, 6, kNobody},
                        {0x02, 4, 1234},
                        {0x04, 4, kNobody},
                        {0x10, 4, kNobody},
                        {0x20, 0, kNobody}};
  std::string bytes(sizeof version + sizeof parts, '\0');
  std::memcpy(bytes.data(), &version, sizeof version);
  std::memcpy(bytes.data() + sizeof version, parts, sizeof parts);
  return bytes;
}

void MakeSparseFile(const std::string& path) {
  const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL, 0644);
  ASSERT_NE(fd, -1);
  constexpr off_t kMiB = 1024 * 1024;
  const std::string block(8192, 'd');
  EXPECT_EQ(pwrite(fd, block.data(), block.size(), 1 * kMiB), 8192);
  EXPECT_EQ(pwrite(fd, block.data(), 100, 5 * kMiB + 1), 100);
  EXPECT_EQ(ftruncate(fd, 9 * kMiB + 7), 0);
  close(fd);
}

}  // namespace

std::map<std::string, std::string> DescribeTree(const std::string& root) {
  // In the order of the names, so that the first name of a file is the same one in every tree.
  std::map<std::string, std::string> entries{{".", ""}};
  for (const auto& each : fs::recursive_directory_iterator(root)) {
    entries[fs::path(each).lexically_relative(root).string()] = "";
  }
  std::map<ino_t, std::string> firstNames;
  for (auto& [name, text] : entries) text = DescribeEntry(root + "/" + name, firstNames);
  return entries;
}

void MakeSampleTree(const std::string& root) {
  fs::create_directories(root + "/folder/below/deeper");
  fs::create_directory(root + "/private");
  fs::create_directory(root + "/sticky");
  WriteFile(root + "/plain", "some text\n");
  WriteFile(root + "/empty", "");
  WriteFile(root + "/read only", "r");
  WriteFile(root + "/program", "#!/bin/sh\n");
  WriteFile(root + "/folder/below/large", std::string(300 * 1000, 'x') + "end");
  WriteFile(root + "/folder/two names", "linked");
  WriteFile(root + "/odd \"name\"\n\xc3\xa4 'quoted'", "odd");
  MakeSparseFile(root + "/sparse");
  fs::create_hard_link(root + "/folder/two names", root + "/folder/below/deeper/its other name");
  fs::create_symlink("/etc/passwd", root + "/link out");
  fs::create_symlink("nowhere", root + "/dangling");
  fs::create_symlink("folder/below", root + "/link to folder");
  EXPECT_EQ(mkfifo((root + "/pipe").c_str(), 0620), 0);
  // Only root of the machine may make this one.
  (void)!mknod((root + "/device").c_str(), S_IFCHR | 0604, makedev(1, 3));

  // Owners that this user's namespace does not have are refused.
  (void)!chown((root + "/plain").c_str(), 1234, 4321);
  (void)!lchown((root + "/dangling").c_str(), 1234, 4321);
  (void)!chown((root + "/private").c_str(), 1234, 4321);
  (void)!setxattr((root + "/plain").c_str(), "user.note", "zero\0byte", 9, 0);
  (void)!setxattr((root + "/folder").c_str(), "user.kind", "folder", 6, 0);
  const std::string list = AccessList();
  (void)!setxattr((root + "/folder/two names").c_str(), "system.posix_acl_access", list.data(),
                  list.size(), 0);
  EXPECT_EQ(chmod((root + "/read only").c_str(), 0400), 0);
  EXPECT_EQ(chmod((root + "/program").c_str(), 04755), 0);
  EXPECT_EQ(chmod((root + "/private").c_str(), 0500), 0);
  EXPECT_EQ(chmod((root + "/sticky").c_str(), 01777), 0);
  SetTime(root + "/plain", 1000000000, 123456789);
  SetTime(root + "/dangling", 1100000000, 7);
  SetTime(root + "/folder/below", 1200000000, 999999999);
  SetTime(root, 1300000000, 1);
}

void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << bytes;
  out.close();
  ASSERT_TRUE(out) << "cannot write " << path;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  if (!in) return {};
  std::string bytes(static_cast<std::size_t>(in.tellg()), '\0');
  in.seekg(0);
  in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return bytes;
}

std::uint64_t AllocatedBytes(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? static_cast<std::uint64_t>(st.st_blocks) * 512 : 0;
}

}  // namespace host_test
