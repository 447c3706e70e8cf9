#include "engine/local/change_apply.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>

#include "base/kill_point.h"
#include "engine/local/change_attributes.h"
#include "engine/local/directory.h"
#include "engine/local/file_read.h"
#include "engine/local/freeze.h"
#include "engine/local/tree_remove.h"

namespace VrelDR::Local {

namespace {

const std::string kSelf = ".";

// Makes the new entry `name` of a directory by `make`, which answers as mkdirat does; what an
// interrupted call has left there gives way. 0 or an errno.
template <class Make>
int MakeNew(int dirFd, const std::string& name, const Make& make) {
  if (make()) return 0;
  if (errno != EEXIST) return errno;
  if (const int error = RemoveTree(dirFd, name)) return error;
  return make() ? 0 : errno;
}

}  // namespace

ChangeApply::ChangeApply(Place place, ChangeMark& mark, DataListener* listener,
                         ChangeProgress& progress)
    : place_(std::move(place)), mark_(mark), progress_(progress) {
  maker_ = {[this](int error) { return Fail(error); },
            [this](std::uint64_t offset) { return Reach(offset); }, listener};
}

Status ChangeApply::Fail(int error) {
  error_ = error;
  const bool isOfVolume = error == ENOSPC || error == EROFS || error == EDQUOT;
  if (isOfVolume) return StatusOfErrno(error, place_.volume_path);
  return StatusOfErrno(error, place_.path + "/" + PathOf(name_));
}

Status ChangeApply::Reach(std::uint64_t offset) {
  if (can_go_on_) mark_.Reach({ended_, offset});
  return progress_.Reach(offset);
}

Status ChangeApply::EndEntry() {
  ++ended_;
  if (ended_ > resumed_.ended) mark_.Reach({ended_, 0});
  return {};
}

Status ChangeApply::Begin(ChangePoint& point) {
  point = resumed_ = mark_.GetReached();
  name_ = kSelf;
  const int error = MakeAsNew(place_.top_fd);
  return error == 0 ? Status() : Fail(error);
}

Status ChangeApply::Skip(const std::string& name) {
  name_ = name;
  struct stat st;
  if (const int error = StatEntry(Dir(), name, st)) return Fail(error);
  if (maker_.listener != nullptr && S_ISREG(st.st_mode)) {
    if (st.st_nlink > 1) {
      const auto [place, isFirst] = heard_.emplace(st.st_ino, PathOf(name));
      Status status = isFirst ? Status() : maker_.listener->Name(PathOf(name), place->second);
      if (!isFirst) return status.IsOk() ? EndEntry() : status;
    }
    const Fd file = OpenQuietly(Dir(), name, 0);
    if (!file) return Fail(errno);
    const auto size = static_cast<std::uint64_t>(st.st_size);
    Status status = maker_.listener->BeginFile(PathOf(name), size);
    if (status.IsOk()) status = Hear(file.Get(), 0, size, *maker_.listener, maker_.fail);
    if (status.IsOk()) status = maker_.listener->EndFile();
    if (!status.IsOk()) return status;
  }
  return EndEntry();
}

Status ChangeApply::BeginDirectory(const std::string& name) {
  name_ = name;
  Level level{{}, {}, below_.size()};
  int error = 0;
  if (ended_ >= resumed_.ended && !IsInHand()) {
    error = MakeNew(Dir(), name, [&] { return mkdirat(Dir(), name.c_str(), S_IRWXU) == 0; });
  }
  if (error != 0) return Fail(error);
  level.dir = OpenDir(Dir(), name);
  if (!level.dir) return Fail(errno);
  error = MakeAsNew(level.dir.Get());
  if (error != 0) return Fail(error);
  if (Base() != -1) level.base = OpenDir(Base(), name);
  if (Base() != -1 && !level.base && errno != ENOENT && errno != ENOTDIR && errno != ELOOP) {
    return Fail(errno);
  }
  below_ = PathOf(name);
  levels_.push_back(std::move(level));
  return {};
}

Status ChangeApply::EndDirectory(const EntryAttributes& attributes) {
  if (levels_.empty()) return Fail(EBADMSG);
  name_ = kSelf;
  const int fd = Dir();
  int error = WriteAttributes({fd, kSelf}, fd, attributes);
  if (error == 0 && place_.is_frozen) error = SetFrozen(fd, true);
  if (error != 0) return Fail(error);
  below_.resize(levels_.back().length);
  levels_.pop_back();
  return EndEntry();
}

Status ChangeApply::OpenFile(const std::string& name, Fd& file) {
  name_ = name;
  can_go_on_ = true;
  int error = 0;
  if (IsInHand()) {
    const Fd begun = OpenQuietly(Dir(), name, 0);
    error = begun ? SetFrozen(begun.Get(), false) : errno;
    if (error == 0) file = Reopen(begun.Get(), O_RDWR);
    if (error == 0 && !file) error = errno;
  } else {
    constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    error = MakeNew(Dir(), name, [&] {
      file = Fd(openat(Dir(), name.c_str(), kFlags, 0600));
      return static_cast<bool>(file);
    });
  }
  return error == 0 ? Status() : Fail(error);
}

Status ChangeApply::BeginFile(const std::string& name, std::uint64_t size) {
  const std::uint64_t from = IsInHand() ? resumed_.offset : 0;
  Fd file;
  Status status = OpenFile(name, file);
  if (status.IsOk() && maker_.listener != nullptr) {
    status = maker_.listener->BeginFile(PathOf(name), size);
  }
  if (!status.IsOk()) return status;
  file_ = std::make_unique<ChangedFile>(maker_, std::move(file), size);
  return file_->BeginNew(from);
}

Status ChangeApply::BeginFileOnBase(const std::string& name, std::uint64_t size,
                                    std::uint64_t baseSize) {
  const std::uint64_t from = IsInHand() ? resumed_.offset : 0;
  name_ = name;
  struct stat st;
  if (Base() == -1) return Fail(ESTALE);
  Fd base;
  const bool isFound =
      fstatat(Base(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(st.st_mode);
  if (isFound) base = OpenQuietly(Base(), name, 0);
  const bool isAsTold = base && fstat(base.Get(), &st) == 0 && S_ISREG(st.st_mode) &&
                        static_cast<std::uint64_t>(st.st_size) == baseSize;
  if (!isAsTold) return Fail(ESTALE);
  Fd file;
  Status status = OpenFile(name, file);
  if (status.IsOk() && maker_.listener != nullptr) {
    status = maker_.listener->BeginFile(PathOf(name), size);
  }
  if (!status.IsOk()) return status;
  file_ = std::make_unique<ChangedFile>(maker_, std::move(file), size);
  return file_->BeginOnBase(std::move(base), baseSize, place_.shares_blocks, from, can_go_on_);
}

Status ChangeApply::Data(std::uint64_t offset, std::span<const char> bytes) {
  return file_ ? file_->Data(offset, bytes) : Fail(EBADMSG);
}

Status ChangeApply::Hole(std::uint64_t offset, std::uint64_t length) {
  return file_ ? file_->Hole(offset, length) : Fail(EBADMSG);
}

Status ChangeApply::EndFile(const EntryAttributes& attributes) {
  if (!file_) return Fail(EBADMSG);
  Status status = file_->End();
  if (status.IsOk() && maker_.listener != nullptr) status = maker_.listener->EndFile();
  if (!status.IsOk()) return status;
  const int error = WriteAttributes({Dir(), name_}, file_->GetFd(), attributes);
  status = error == 0 ? Freeze(attributes, file_->GetFd(), PathOf(name_)) : Fail(error);
  file_.reset();
  if (!status.IsOk()) return status;
  KillPoint(kCopyFile);
  return EndEntry();
}

Status ChangeApply::Freeze(const EntryAttributes& attributes, int fd, const std::string& path) {
  if (!place_.is_frozen) return {};
  if (attributes.has_more_names) {
    several_names_.push_back(path);
    return {};
  }
  const int error = SetFrozen(fd, true);
  return error == 0 ? Status() : Fail(error);
}

Status ChangeApply::HardLink(const std::string& name, const std::string& path) {
  name_ = name;
  const auto link = [&] {
    return linkat(place_.top_fd, path.c_str(), Dir(), name.c_str(), 0) == 0;
  };
  int error = MakeNew(Dir(), name, link);
  if (error == EPERM) {
    // An earlier call came as far as to freeze it.
    const Fd first = OpenQuietly(place_.top_fd, path, 0);
    error = first ? SetFrozen(first.Get(), false) : errno;
    if (error == 0) error = MakeNew(Dir(), name, link);
  }
  if (error != 0) return Fail(error);
  if (maker_.listener != nullptr) {
    Status status = maker_.listener->Name(PathOf(name), path);
    if (!status.IsOk()) return status;
  }
  return EndEntry();
}

Status ChangeApply::SymbolicLink(const std::string& name, const std::string& text,
                                 const EntryAttributes& attributes) {
  name_ = name;
  int error =
      MakeNew(Dir(), name, [&] { return symlinkat(text.c_str(), Dir(), name.c_str()) == 0; });
  if (error == 0) error = WriteAttributes({Dir(), name}, -1, attributes);
  return error == 0 ? EndEntry() : Fail(error);
}

Status ChangeApply::Special(const std::string& name, std::uint32_t major, std::uint32_t minor,
                            const EntryAttributes& attributes) {
  name_ = name;
  const mode_t mode = (attributes.mode & S_IFMT) | S_IRUSR | S_IWUSR;
  int error = MakeNew(
      Dir(), name, [&] { return mknodat(Dir(), name.c_str(), mode, makedev(major, minor)) == 0; });
  if (error == 0) error = WriteAttributes({Dir(), name}, -1, attributes);
  return error == 0 ? EndEntry() : Fail(error);
}

Status ChangeApply::FreezeRest() {
  if (!place_.is_frozen) return {};
  int error = 0;
  // Which of them an earlier call made is not known.
  if (resumed_.ended > 0) error = FreezeBelow(place_.top_fd);
  for (const std::string& path : several_names_) {
    const Fd file = error == 0 ? OpenQuietly(place_.top_fd, path, 0) : Fd();
    if (error == 0) error = file ? SetFrozen(file.Get(), true) : errno;
  }
  return error == 0 ? Status() : Fail(error);
}

Status ChangeApply::End(const EntryAttributes& attributes) {
  name_ = kSelf;
  if (!levels_.empty() || file_) return Fail(EBADMSG);
  const int error = WriteAttributes({place_.top_fd, kSelf}, place_.top_fd, attributes);
  return error == 0 ? FreezeRest() : Fail(error);
}

}  // namespace VrelDR::Local
