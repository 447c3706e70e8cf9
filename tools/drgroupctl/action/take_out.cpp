#include "action/take_out.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <system_error>

#include "groups/file_write.h"
#include "groups/kill_point.h"
#include "groups/undo.h"
#include "host/owned_fd.h"
#include "host/program.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace fs = std::filesystem;

namespace {

Failure Cannot(ExitCode code, const std::string& what, int error) {
  return {code, "cannot " + what + ": " + std::generic_category().message(error)};
}

// The way to an entry: names without "." and "..".
fs::path Normalize(const std::string& path) {
  const fs::path relative = fs::path(path).relative_path();
  fs::path way;
  for (const fs::path& each : relative) {
    if (each.empty() || each == ".") continue;
    if (each == "..") {
      throw Failure(ExitCode::kUsage, "path " + Quote(path) +
                                          ": it goes up by \"..\"; name it from the top of the "
                                          "target");
    }
    way /= each;
  }
  if (way.empty()) {
    throw Failure(ExitCode::kUsage, "path " + Quote(path) +
                                        ": it is the target as a whole; name something in it, or "
                                        "clone the group snapshot");
  }
  return way;
}

// The directory that has the entry.
int OpenParent(const std::string& top, const fs::path& way) {
  const OwnedFd topFd(open(top.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (topFd.Get() == -1) throw Cannot(ExitCode::kStorage, "open " + Quote(top), errno);
  const std::string parent = way.has_parent_path() ? way.parent_path().string() : ".";
  open_how how = {};
  how.flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS | RESOLVE_NO_XDEV;
  const long fd = syscall(SYS_openat2, topFd.Get(), parent.c_str(), &how, sizeof how);
  if (fd != -1) return static_cast<int>(fd);
  const int error = errno;
  if (error == ELOOP) {
    throw Failure(ExitCode::kRefused, "path " + Quote(way.string()) +
                                          ": it leads through a symbolic link, which is not "
                                          "followed; name it without");
  }
  throw Cannot(error == ENOENT || error == ENOTDIR ? ExitCode::kNotFound : ExitCode::kStorage,
               "find " + Quote(way.string()) + " in " + Quote(top), error);
}

bool IsThere(const std::string& path) {
  struct stat found = {};
  if (lstat(path.c_str(), &found) == 0) return true;
  if (errno == ENOENT) return false;
  throw Cannot(ExitCode::kRefused, "look at " + Quote(path), errno);
}

// Where the copy is made, beside where it goes; removed with what is in there.
std::string MakeWorkplace(const fs::path& dest) {
  std::string dir = (dest.parent_path() / ".drgroupctl-get-XXXXXX").string();
  if (mkdtemp(dir.data()) == nullptr) {
    throw Cannot(ExitCode::kRefused, "make a directory beside " + Quote(dest.string()), errno);
  }
  return dir;
}

void Copy(int parentFd, const std::string& name, const std::string& to, const std::string& dest) {
  const std::string from =
      "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(parentFd) + "/" + name;
  Program copy;
  const int error = copy.Start({{"cp", "--archive", "--one-file-system", "--reflink=auto",
                                 "--sparse=auto", "--no-target-directory", "--", from, to}});
  if (error != 0) throw Cannot(ExitCode::kStorage, "run cp", error);
  if (copy.Wait() != 0) {
    throw Failure(ExitCode::kStorage, "the copy to " + Quote(dest) +
                                          " failed, as cp has said, and nothing of it is left: see "
                                          "to its file system and run it again");
  }
}

// A descriptor on the file system, from before anything is written: an error of that is told once.
int OpenWorkplace(const std::string& dir) {
  const int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd == -1) throw Cannot(ExitCode::kStorage, "open " + Quote(dir), errno);
  return fd;
}

// What was there before is in the workplace afterwards, if anything was.
int Place(const std::string& made, const std::string& dest, bool isReplaced) {
  if (renameat2(AT_FDCWD, made.c_str(), AT_FDCWD, dest.c_str(),
                isReplaced ? RENAME_EXCHANGE : RENAME_NOREPLACE) == 0) {
    return 0;
  }
  if (!isReplaced || errno != EINVAL) return errno;
  return rename(made.c_str(), dest.c_str()) == 0 ? 0 : errno;  // no exchange on that file system
}

}  // namespace

void TakeOut(const std::string& top, const std::string& path, const std::string& dest,
             bool isForced) {
  const fs::path way = Normalize(path);
  const OwnedFd parent(OpenParent(top, way));
  const std::string name = way.filename();
  struct stat found = {};
  if (fstatat(parent.Get(), name.c_str(), &found, AT_SYMLINK_NOFOLLOW) != 0) {
    throw Cannot(errno == ENOENT ? ExitCode::kNotFound : ExitCode::kStorage,
                 "find " + Quote(way.string()) + " in " + Quote(top), errno);
  }
  const fs::path place = fs::absolute(dest).lexically_normal();
  if (!place.has_filename()) {
    throw Failure(ExitCode::kUsage, "destination " + Quote(dest) +
                                        ": it ends with a slash; give the name that it gets");
  }
  const bool isReplaced = IsThere(place);
  if (isReplaced && !isForced) {
    throw Failure(ExitCode::kRefused, "destination " + Quote(dest) +
                                          " is there already: name one that is not, or add --force "
                                          "to replace it");
  }
  const std::string dir = MakeWorkplace(place);
  Undo undo;
  undo.Add([&dir] {
    std::error_code ignored;
    fs::remove_all(dir, ignored);
  });
  const OwnedFd workplace(OpenWorkplace(dir));
  const std::string made = dir + "/taken";
  Copy(parent.Get(), name, made, dest);
  if (syncfs(workplace.Get()) != 0) {
    throw Cannot(ExitCode::kStorage, "bring " + Quote(dest) + " to disk", errno);
  }
  KillPoint(kGetCopied);
  if (const int error = Place(made, place, isReplaced)) {
    throw Cannot(ExitCode::kStorage, "give the copy the name " + Quote(dest), error);
  }
  if (const int error = SyncDirectory(place.parent_path())) {
    throw Cannot(ExitCode::kStorage, "bring " + Quote(dest) + " to disk", error);
  }
}

}  // namespace drgroupctl
