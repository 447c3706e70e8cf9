#include "tree_copy.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <vector>

#include "../../fd.h"
#include "../../kill_point.h"
#include "directory.h"
#include "file_data.h"

namespace VrelDR::Local {

namespace {

// Appends a name to a path for as long as the object lives.
class Descent {
 public:
  Descent(std::string& path, std::string_view name) : path_(path), length_(path.size()) {
    if (!path.empty() && path.back() != '/') path += '/';
    path += name;
  }
  ~Descent() { path_.resize(length_); }
  Descent(const Descent&) = delete;
  Descent& operator=(const Descent&) = delete;

 private:
  std::string& path_;
  std::size_t length_;
};

// Reading should not change the times of access, but only a file's owner may say so.
Fd OpenToRead(const Entry& entry) {
  constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  Fd fd(openat(entry.dir_fd, entry.name.c_str(), kFlags | O_NOATIME));
  if (!fd && errno == EPERM) fd = Fd(openat(entry.dir_fd, entry.name.c_str(), kFlags));
  return fd;
}

}  // namespace

Status TreeCopier::CopyEntry(const Entry& from, const std::string& path,
                             const std::string& toName) {
  from_path_ = path;
  to_path_ = toName;
  return Copy(from, {root_fd_, toName});
}

Status TreeCopier::CopyContent(int fromFd, const std::string& path) {
  from_path_ = path;
  to_path_.clear();
  struct stat st;
  if (fstat(fromFd, &st) != 0) return Fail(errno);
  Status status = CopyChildren(fromFd, root_fd_);
  static const std::string kSelf = ".";
  return status.IsOk() ? Finish({fromFd, kSelf, fromFd}, st, {root_fd_, kSelf}) : status;
}

Status TreeCopier::CopyChildren(int fromFd, int toFd) {
  std::vector<std::string> names;
  if (const int error = ListDir(fromFd, names)) return Fail(error);
  for (const std::string& name : names) {
    const Descent from(from_path_, name);
    const Descent to(to_path_, name);
    Status status = Copy({fromFd, name}, {toFd, name});
    if (!status.IsOk()) return status;
  }
  return {};
}

Status TreeCopier::Copy(const Entry& from, const Entry& to) {
  struct stat st;
  if (fstatat(from.dir_fd, from.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno == ENOENT ? Status() : Fail(errno);  // removed meanwhile
  }
  if (watch_ != nullptr && !watch_->GoesOn()) return Fail(ECANCELED);
  if (S_ISSOCK(st.st_mode)) return {};
  if (S_ISDIR(st.st_mode)) return CopyDir(from, to);

  const bool severalNames = st.st_nlink > 1;
  const std::pair<dev_t, ino_t> identity(st.st_dev, st.st_ino);
  if (severalNames) {
    const auto earlier = linked_.find(identity);
    if (earlier != linked_.end()) {
      if (linkat(root_fd_, earlier->second.c_str(), to.dir_fd, to.name.c_str(), 0) == 0) return {};
      // No such copy when that name was removed meanwhile: this one is then the first.
      if (errno != ENOENT) return Fail(errno);
    }
  }
  Status status;
  if (S_ISREG(st.st_mode)) {
    status = CopyFile(from, to);
  } else if (S_ISLNK(st.st_mode)) {
    status = CopyLink(from, to);
  } else if (mknodat(to.dir_fd, to.name.c_str(), st.st_mode & (S_IFMT | 0700), st.st_rdev) != 0) {
    status = Fail(errno);
  } else {
    status = Finish(from, st, to);
  }
  if (status.IsOk() && severalNames) linked_.insert_or_assign(identity, to_path_);
  return status;
}

Status TreeCopier::CopyDir(const Entry& from, const Entry& to) {
  const Fd fromFd = OpenToRead(from);
  if (!fromFd) return errno == ENOENT ? Status() : Fail(errno);
  struct stat st;
  if (fstat(fromFd.Get(), &st) != 0) return Fail(errno);
  if (!S_ISDIR(st.st_mode)) return Fail(EBUSY);
  if (mkdirat(to.dir_fd, to.name.c_str(), 0700) != 0) return Fail(errno);
  const Fd toFd = OpenDir(to.dir_fd, to.name);
  if (!toFd) return Fail(errno);
  Status status = CopyChildren(fromFd.Get(), toFd.Get());
  return status.IsOk() ? Finish({from.dir_fd, from.name, fromFd.Get()}, st, to) : status;
}

Status TreeCopier::CopyFile(const Entry& from, const Entry& to) {
  const Fd fromFd = OpenToRead(from);
  if (!fromFd) return errno == ENOENT ? Status() : Fail(errno);
  struct stat st;
  if (fstat(fromFd.Get(), &st) != 0) return Fail(errno);
  if (!S_ISREG(st.st_mode)) return Fail(EBUSY);  // replaced by something else meanwhile
  {
    const Fd toFd(openat(to.dir_fd, to.name.c_str(),
                         O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!toFd) return Fail(errno);
    if (const int error = CopyFileData(fromFd.Get(), toFd.Get(), st.st_size, watch_))
      return Fail(error);
  }
  Status status = Finish({from.dir_fd, from.name, fromFd.Get()}, st, to);
  KillPoint(kCopyFile);
  return status;
}

Status TreeCopier::CopyLink(const Entry& from, const Entry& to) {
  std::vector<char> text(256);
  for (;;) {
    const ssize_t length = readlinkat(from.dir_fd, from.name.c_str(), text.data(), text.size());
    if (length < 0) return errno == ENOENT ? Status() : Fail(errno);
    if (static_cast<std::size_t>(length) < text.size()) {
      text[static_cast<std::size_t>(length)] = '\0';
      break;
    }
    text.resize(text.size() * 2);
  }
  struct stat st;
  if (fstatat(from.dir_fd, from.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return Fail(errno);
  if (symlinkat(text.data(), to.dir_fd, to.name.c_str()) != 0) return Fail(errno);
  return Finish(from, st, to);
}

Status TreeCopier::Finish(const Entry& from, const struct stat& st, const Entry& to) {
  const int error = CopyAttributes(from, st, to, strictness_);
  return error == 0 ? Status() : Fail(error);
}

}  // namespace VrelDR::Local
