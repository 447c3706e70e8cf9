#include "engine/local/tree_copy.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <vector>

#include "base/fd.h"
#include "base/kill_point.h"
#include "engine/local/digest_writer.h"
#include "engine/local/directory.h"
#include "engine/local/file_data.h"
#include "engine/local/file_read.h"
#include "engine/local/place.h"
#include "engine/local/subvolume.h"

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

const std::string kSelf = ".";

}  // namespace

Status TreeCopier::Fail(int error) const {
  if (error == ECANCELED) return Watch::Stopped();
  if (error == EXDEV) return MountedOn({from_path_});
  return StatusOfErrno(error, from_path_);
}

Status TreeCopier::CopyEntry(Fd from, const std::string& path, const std::string& toName) {
  from_path_ = path;
  to_path_ = toName;
  return Copy(std::move(from), {root_fd_, toName});
}

Status TreeCopier::CopyContent(int fromFd, const std::string& path) {
  from_path_ = path;
  to_path_.clear();
  struct stat st;
  if (fstat(fromFd, &st) != 0) return Fail(errno);
  Status status = CopyChildren(fromFd, root_fd_);
  if (status.IsOk()) status = Finish(fromFd, st, {root_fd_, kSelf});
  if (!status.IsOk()) return status;
  const int error = CopyTopFlags(fromFd, root_fd_);
  return error == 0 ? Status() : Fail(error);
}

Status TreeCopier::CopyChildren(int fromFd, int toFd) {
  std::vector<std::string> names;
  if (const int error = ListDir(fromFd, names)) return Fail(error);
  for (const std::string& name : names) {
    const Descent from(from_path_, name);
    const Descent to(to_path_, name);
    Status status = CopyChild(fromFd, toFd, name);
    if (!status.IsOk()) return status;
  }
  return {};
}

Status TreeCopier::CopyChild(int fromFd, int toFd, const std::string& name) {
  Fd entry = OpenEntry(fromFd, name, O_PATH);
  if (entry) return Copy(std::move(entry), {toFd, name});
  if (errno == ENOENT) return {};  // removed meanwhile
  return errno == EXDEV && leaves_out_mounts_ ? MakeEmpty(fromFd, toFd, name) : Fail(errno);
}

// What is mounted on a directory is one, and what is mounted on something else is none.
Status TreeCopier::MakeEmpty(int fromFd, int toFd, const std::string& name) {
  struct stat mounted;
  if (fstatat(fromFd, name.c_str(), &mounted, AT_SYMLINK_NOFOLLOW) != 0) return Fail(errno);
  const bool made = S_ISDIR(mounted.st_mode) ? mkdirat(toFd, name.c_str(), 0755) == 0
                                             : mknodat(toFd, name.c_str(), S_IFREG | 0644, 0) == 0;
  if (!made) return Fail(errno);
  if (digests_ != nullptr && !S_ISDIR(mounted.st_mode)) {
    digests_->BeginFile(to_path_, 0);
    digests_->EndFile();
  }
  return {};
}

Status TreeCopier::Copy(Fd from, const Entry& to) {
  struct stat st;
  if (fstat(from.Get(), &st) != 0) return Fail(errno);
  if (!watch_.GoesOn()) return Fail(ECANCELED);
  if (S_ISSOCK(st.st_mode)) return {};
  if (S_ISDIR(st.st_mode)) return CopyDir(std::move(from), st, to);

  const bool severalNames = st.st_nlink > 1;
  const std::pair<dev_t, ino_t> identity(st.st_dev, st.st_ino);
  if (severalNames) {
    const auto earlier = linked_.find(identity);
    if (earlier != linked_.end()) {
      if (linkat(root_fd_, earlier->second.c_str(), to.dir_fd, to.name.c_str(), 0) == 0) {
        if (digests_ != nullptr && S_ISREG(st.st_mode)) {
          digests_->AddName(to_path_, earlier->second);
        }
        return {};
      }
      // No such copy when that name was removed meanwhile: this one is then the first.
      if (errno != ENOENT) return Fail(errno);
    }
  }
  Status status;
  if (S_ISREG(st.st_mode)) {
    status = CopyFile(from.Get(), st, to);
  } else if (S_ISLNK(st.st_mode)) {
    status = CopyLink(from.Get(), st, to);
  } else if (mknodat(to.dir_fd, to.name.c_str(), st.st_mode & (S_IFMT | 0700), st.st_rdev) != 0) {
    status = Fail(errno);
  } else {
    status = Finish(from.Get(), st, to);
  }
  if (status.IsOk() && severalNames) linked_.insert_or_assign(identity, to_path_);
  return status;
}

Status TreeCopier::CopyDir(Fd from, const struct stat& st, const Entry& to) {
  from = ReopenQuietly(from.Get());
  if (!from) return Fail(errno);
  if (flags_of_ != FlagsOf::kForeign && IsSubvolume(from.Get())) return NestedIn({from_path_});
  if (mkdirat(to.dir_fd, to.name.c_str(), 0700) != 0) return Fail(errno);
  const Fd toFd = OpenDir(to.dir_fd, to.name);
  if (!toFd) return Fail(errno);
  Status status = CopyChildren(from.Get(), toFd.Get());
  if (status.IsOk()) status = Finish(from.Get(), st, to);
  if (!status.IsOk()) return status;
  const int error = CopyFlags(from.Get(), toFd.Get(), false);
  return error == 0 ? Status() : Fail(error);
}

Status TreeCopier::CopyFile(int fromFd, const struct stat& st, const Entry& to) {
  const Fd from = ReopenQuietly(fromFd);
  if (!from) return Fail(errno);
  const Fd toFd(
      openat(to.dir_fd, to.name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!toFd) return Fail(errno);
  struct stat now;
  if (fstat(from.Get(), &now) != 0) return Fail(errno);
  if (digests_ != nullptr) digests_->BeginFile(to_path_, static_cast<std::uint64_t>(now.st_size));
  if (const int error = CopyFileData(from.Get(), toFd.Get(), now.st_size, watch_, digests_)) {
    return Fail(error);
  }
  if (digests_ != nullptr) digests_->EndFile();
  Status status = Finish(from.Get(), now, to);
  if (status.IsOk()) {
    const int error = CopyFlags(from.Get(), toFd.Get(), st.st_nlink > 1);
    if (error != 0) status = Fail(error);
  }
  KillPoint(kCopyFile);
  return status;
}

Status TreeCopier::CopyLink(int fromFd, const struct stat& st, const Entry& to) {
  std::vector<char> text(256);
  for (;;) {
    const ssize_t length = readlinkat(fromFd, "", text.data(), text.size());
    if (length < 0) return Fail(errno);
    if (static_cast<std::size_t>(length) < text.size()) {
      text[static_cast<std::size_t>(length)] = '\0';
      break;
    }
    text.resize(text.size() * 2);
  }
  if (symlinkat(text.data(), to.dir_fd, to.name.c_str()) != 0) return Fail(errno);
  return Finish(fromFd, st, to);
}

Status TreeCopier::Finish(int fromFd, const struct stat& st, const Entry& to) {
  const int error = CopyAttributes(fromFd, st, to, strictness_, flags_of_ == FlagsOf::kArchived);
  return error == 0 ? Status() : Fail(error);
}

unsigned TreeCopier::FlagsOfSource(int fromFd) const {
  const unsigned flags = ReadFlags(fromFd);
  return immutable_ == nullptr ? flags : WithImmutable(flags, immutable_->count(to_path_) != 0);
}

int TreeCopier::CopyFlags(int fromFd, int toFd, bool hasSeveralNames) {
  RecordedFlags flags;
  if (flags_of_ == FlagsOf::kTarget) flags.own = FlagsOfSource(fromFd);
  if (flags_of_ == FlagsOf::kSnapshot) flags.own = ReadRecordedFlags(fromFd).own;
  if (flags.own == 0) return 0;
  have_flags_ = true;
  if (flags_of_ == FlagsOf::kTarget) return RecordFlags(toFd, flags);
  if (!hasSeveralNames) return AddFlags(toFd, flags.own);
  later_.emplace_back(to_path_, flags.own);
  return 0;
}

int TreeCopier::CopyTopFlags(int fromFd, int toFd) {
  if (flags_of_ == FlagsOf::kTarget) return RecordFlags(toFd, {FlagsOfSource(fromFd), have_flags_});
  if (flags_of_ != FlagsOf::kSnapshot) return 0;
  top_flags_ = ReadRecordedFlags(fromFd).own;
  for (const auto& [path, flags] : later_) {
    const Fd file = OpenEntry(toFd, path, O_RDONLY | O_NONBLOCK);
    if (!file) return errno;
    if (const int error = AddFlags(file.Get(), flags)) return error;
  }
  return 0;
}

}  // namespace VrelDR::Local
