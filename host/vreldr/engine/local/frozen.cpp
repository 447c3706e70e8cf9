#include "engine/local/frozen.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>

#include "engine/local/area.h"
#include "engine/local/directory.h"
#include "engine/local/freeze.h"
#include "foundation/durable.h"

namespace VrelDR::Local {

using VrelHost::SyncFd;

namespace {

constexpr const char* kFile = "immutable";
constexpr const char* kNewFile = "immutable.new";

// The inode of the directory comes first: what a restore that was interrupted left is of another
// one.
std::string Header(int dirFd) {
  struct stat st;
  return fstat(dirFd, &st) == 0 ? std::to_string(st.st_ino) : std::string();
}

int ReadAll(int fd, std::string& text) {
  std::array<char, 65536> piece;
  for (;;) {
    const ssize_t got = read(fd, piece.data(), piece.size());
    if (got == 0) return 0;
    if (got < 0 && errno != EINTR) return errno;
    if (got > 0) text.append(piece.data(), static_cast<std::size_t>(got));
  }
}

}  // namespace

int KeepUsersFlags(int ownFd, const TargetPlace& target, int dirFd) {
  bool found = false;
  std::set<std::string> paths;
  if (const int error = FindUsersFlags(ownFd, target, dirFd, found, paths)) return error;
  if (found) return 0;
  // All of it is immutable: earlier versions made it so, and wrote nothing down.
  if (!IsWhollyFrozen(dirFd)) {
    const int error = FindFrozen(dirFd, paths);
    if (error != 0 && error != EACCES) return error;  // who may not look sets no flags either
  }
  std::string text = Header(dirFd) + '\0';
  for (const std::string& path : paths) text += path + '\0';
  const Fd area = OpenOrMakeArea(ownFd, kFrozen, target);
  if (!area) return errno;
  const Fd file(openat(area.Get(), kNewFile, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  if (!file) return errno;
  if (const int error = VrelHost::WriteAndSync(file.Get(), text)) return error;
  if (renameat(area.Get(), kNewFile, area.Get(), kFile) != 0) return errno;
  const Fd parent = OpenDir(ownFd, kFrozen);
  int error = parent ? SyncFd(area.Get()) : errno;
  if (error == 0) error = SyncFd(parent.Get());
  return error == 0 ? SyncFd(ownFd) : error;
}

int FindUsersFlags(int ownFd, const TargetPlace& target, int dirFd, bool& found,
                   std::set<std::string>& paths) {
  found = false;
  const Fd area = OpenArea(ownFd, kFrozen, target);
  const Fd file = area ? OpenEntry(area.Get(), kFile, O_RDONLY) : Fd();
  if (!file) return errno == ENOENT ? 0 : errno;
  std::string text;
  if (const int error = ReadAll(file.Get(), text)) return error;
  std::string_view rest = text;
  const auto next = [&rest] {
    const std::string_view part = rest.substr(0, rest.find('\0'));
    rest.remove_prefix(std::min(part.size() + 1, rest.size()));
    return std::string(part);
  };
  found = next() == Header(dirFd);
  while (found && !rest.empty()) paths.insert(next());
  return 0;
}

int DropUsersFlags(int ownFd, const TargetPlace& target) {
  const Fd area = OpenArea(ownFd, kFrozen, target);
  if (!area) return errno == ENOENT ? 0 : errno;
  if (unlinkat(area.Get(), kFile, 0) != 0) return errno == ENOENT ? 0 : errno;
  return SyncFd(area.Get());
}

}  // namespace VrelDR::Local
