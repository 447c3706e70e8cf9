#include "engine/local/flags.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string_view>
#include <vector>

#include "engine/local/directory.h"

namespace VrelDR::Local {

namespace {

// By the letters that lsattr has for them, which are what is written down: never change one.
struct Kept {
  char letter;
  unsigned flag;
};
constexpr std::array<Kept, 8> kKept{{{'A', FS_NOATIME_FL},
                                     {'D', FS_DIRSYNC_FL},
                                     {'S', FS_SYNC_FL},
                                     {'T', FS_TOPDIR_FL},
                                     {'a', FS_APPEND_FL},
                                     {'d', FS_NODUMP_FL},
                                     {'i', FS_IMMUTABLE_FL},
                                     {'j', FS_JOURNAL_DATA_FL}}};
constexpr char kBelow = '+';

bool IsRefusal(int error) {
  return error == EPERM || error == EACCES || error == ENOTTY || error == EOPNOTSUPP ||
         error == EINVAL || error == ENOSYS;
}

int Turn(int dirFd, bool isTop, unsigned& flags) {
  std::vector<std::string> names;
  if (const int error = ListDir(dirFd, names)) return error;
  for (const std::string& name : names) {
    struct stat st;
    if (const int error = StatEntry(dirFd, name, st)) return error;
    if (!S_ISDIR(st.st_mode) && !S_ISREG(st.st_mode)) continue;
    const Fd entry = OpenEntry(dirFd, name, O_RDONLY | O_NONBLOCK);
    if (!entry) return errno;
    unsigned own = 0;
    if (S_ISDIR(st.st_mode)) {
      if (const int error = Turn(entry.Get(), false, own)) return error;
      continue;
    }
    own = ReadRecordedFlags(entry.Get()).own;
    if (own == 0) continue;
    if (fremovexattr(entry.Get(), kFlagsXattr) != 0 && errno != ENODATA) {
      if (errno != EPERM) return errno;  // a file that cannot be changed has its flags already
      continue;
    }
    if (const int error = AddFlags(entry.Get(), own)) return error;
  }
  flags = ReadRecordedFlags(dirFd).own;
  if (fremovexattr(dirFd, kFlagsXattr) != 0 && errno != ENODATA && errno != EOPNOTSUPP)
    return errno;
  return isTop ? 0 : AddFlags(dirFd, flags);
}

}  // namespace

unsigned ReadFlags(int fd) {
  // The calls' numbers say "long", but what they read and write is an int.
  unsigned flags = 0;
  if (ioctl(fd, FS_IOC_GETFLAGS, &flags) != 0) return 0;
  unsigned kept = 0;
  for (const Kept& each : kKept) kept |= flags & each.flag;
  return kept;
}

int AddFlags(int fd, unsigned flags) {
  if (flags == 0) return 0;
  unsigned present = 0;
  if (ioctl(fd, FS_IOC_GETFLAGS, &present) != 0) return IsRefusal(errno) ? 0 : errno;
  const unsigned all = present | flags;
  if (all == present || ioctl(fd, FS_IOC_SETFLAGS, &all) == 0) return 0;
  if (!IsRefusal(errno)) return errno;
  // One that is not known here shall not take the others with it. Immutable comes last: nothing can
  // be changed after it.
  for (const bool immutable : {false, true}) {
    for (const Kept& each : kKept) {
      if ((flags & each.flag) == 0 || (each.flag == FS_IMMUTABLE_FL) != immutable) continue;
      const unsigned more = present | each.flag;
      if (ioctl(fd, FS_IOC_SETFLAGS, &more) == 0) {
        present = more;
      } else if (!IsRefusal(errno)) {
        return errno;
      }
    }
  }
  return 0;
}

bool IsImmutable(unsigned flags) {
  return (flags & FS_IMMUTABLE_FL) != 0;
}

unsigned WithImmutable(unsigned flags, bool immutable) {
  return immutable ? flags | FS_IMMUTABLE_FL : flags & ~static_cast<unsigned>(FS_IMMUTABLE_FL);
}

int RecordFlags(int fd, const RecordedFlags& flags) {
  std::string text;
  for (const Kept& each : kKept) {
    if ((flags.own & each.flag) != 0) text += each.letter;
  }
  if (flags.are_below) text += kBelow;
  if (text.empty() || fsetxattr(fd, kFlagsXattr, text.data(), text.size(), 0) == 0) return 0;
  return IsRefusal(errno) ? 0 : errno;
}

RecordedFlags ReadRecordedFlags(int fd) {
  std::array<char, kKept.size() + 1> text;
  const ssize_t length = fgetxattr(fd, kFlagsXattr, text.data(), text.size());
  if (length <= 0) return {};
  RecordedFlags recorded;
  for (const char letter : std::string_view(text.data(), static_cast<std::size_t>(length))) {
    unsigned flag = 0;
    for (const Kept& each : kKept) {
      if (each.letter == letter) flag = each.flag;
    }
    if (flag == 0 && letter != kBelow) return {};
    recorded.own |= flag;
    recorded.are_below = recorded.are_below || letter == kBelow;
  }
  return recorded;
}

int TurnRecordIntoFlags(int dirFd, unsigned& flags) {
  const RecordedFlags recorded = ReadRecordedFlags(dirFd);
  if (recorded.are_below) return Turn(dirFd, true, flags);
  flags = recorded.own;
  return flags == 0 || fremovexattr(dirFd, kFlagsXattr) == 0 ? 0 : errno;
}

}  // namespace VrelDR::Local
