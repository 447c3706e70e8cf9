#include "engine/local/change_source.h"

#include <fcntl.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "base/kill_point.h"
#include "engine/local/change_attributes.h"
#include "engine/local/change_compare.h"
#include "engine/local/directory.h"
#include "engine/local/place.h"
#include "engine/local/run_list.h"

namespace VrelDR::Local {

namespace {

constexpr std::uint64_t kPiece = std::uint64_t{512} * 1024;

// Appends a name to a path for as long as the object lives.
class Descent {
 public:
  Descent(std::string& path, const std::string& name) : path_(path), length_(path.size()) {
    if (!path.empty()) path += '/';
    path += name;
  }
  ~Descent() { path_.resize(length_); }
  Descent(const Descent&) = delete;
  Descent& operator=(const Descent&) = delete;

 private:
  std::string& path_;
  std::size_t length_;
};

// Whether the base has nothing of a kind under a name, or what somebody has mounted there.
bool IsNoBase(int error) {
  return error == ENOENT || error == ENOTDIR || error == ELOOP || error == EXDEV;
}

int ReadLinkText(int fd, std::string& text) {
  for (text.resize(256);; text.resize(text.size() * 2)) {
    const ssize_t length = readlinkat(fd, "", text.data(), text.size());
    if (length < 0) return errno;
    if (static_cast<std::size_t>(length) == text.size()) continue;
    text.resize(static_cast<std::size_t>(length));
    return 0;
  }
}

}  // namespace

// A file of the snapshot, and that of the same path in the base, if there is one.
struct ChangeSource::File {
  Fd fd, base;
  std::uint64_t size = 0, base_size = 0;
};

Status ChangeSource::Fail(int error) {
  if (error == ECANCELED) return Watch::Stopped();
  error_ = error;
  const std::string path = below_.empty() ? path_ : path_ + "/" + below_;
  if (error == EXDEV) return MountedOn({path});
  if (error == ESTALE) {
    return {kErrIo, Quoted(path) +
                        " was changed while it was sent, which nobody may do to a "
                        "snapshot; take another one"};
  }
  return StatusOfErrno(error, path);
}

Status ChangeSource::End(std::uint64_t size) {
  ++ended_;
  return progress_.EndEntry(size);
}

Status ChangeSource::Tell(ChangeSink& sink) {
  sink_ = &sink;
  Status status = sink.Begin(point_);
  if (status.IsOk()) status = TellContent(snapshot_fd_, base_fd_);
  if (!status.IsOk()) return status;
  struct stat st;
  int error = fstat(snapshot_fd_, &st) == 0 ? 0 : errno;
  if (error == 0) error = ReadAttributes(snapshot_fd_, st, attributes_);
  return error == 0 ? sink.End(attributes_) : Fail(error);
}

Status ChangeSource::TellContent(int dirFd, int baseFd) {
  std::vector<std::string> names;
  if (const int error = ListDir(dirFd, names)) return Fail(error);
  // The order in which they are told is kept from call to call.
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) {
    const Descent below(below_, name);
    Status status = TellEntry(dirFd, baseFd, name);
    if (!status.IsOk()) return status;
  }
  return {};
}

Status ChangeSource::TellEntry(int dirFd, int baseFd, const std::string& name) {
  struct stat st;
  if (fstatat(dirFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return Fail(errno);
  if (S_ISDIR(st.st_mode)) return TellDirectory(dirFd, baseFd, name);
  return S_ISREG(st.st_mode) ? TellFile(dirFd, baseFd, name) : TellOther(dirFd, name, st);
}

Status ChangeSource::TellDirectory(int dirFd, int baseFd, const std::string& name) {
  const Fd dir = OpenQuietly(dirFd, name, O_DIRECTORY);
  if (!dir) return Fail(errno);
  const Fd base = baseFd == -1 ? Fd() : OpenQuietly(baseFd, name, O_DIRECTORY);
  if (baseFd != -1 && !base && !IsNoBase(errno)) return Fail(errno);
  Status status = sink_->BeginDirectory(name);
  if (status.IsOk()) status = TellContent(dir.Get(), base.Get());
  if (!status.IsOk()) return status;
  // Read as late as this, so that nothing that is written down for it waits on every level.
  struct stat st;
  int error = fstat(dir.Get(), &st) == 0 ? 0 : errno;
  if (error == 0) error = ReadAttributes(dir.Get(), st, attributes_);
  if (error != 0) return Fail(error);
  status = sink_->EndDirectory(attributes_);
  return status.IsOk() ? End(0) : status;
}

Status ChangeSource::TellName(const struct stat& st, const std::string& name, bool& isTold) {
  isTold = false;
  if (st.st_nlink < 2) return {};
  const auto [place, isFirst] = linked_.emplace(st.st_ino, below_);
  if (isFirst) return {};
  isTold = true;
  Status status = IsBefore() ? sink_->Skip(name) : sink_->HardLink(name, place->second);
  if (!status.IsOk()) return status;
  return End(S_ISREG(st.st_mode) ? static_cast<std::uint64_t>(st.st_size) : 0);
}

Status ChangeSource::TellOther(int dirFd, const std::string& name, const struct stat& found) {
  const Fd entry = OpenEntry(dirFd, name, O_PATH);
  struct stat st;
  if (!entry || fstat(entry.Get(), &st) != 0) return Fail(errno);
  if ((st.st_mode & S_IFMT) != (found.st_mode & S_IFMT)) return Fail(ESTALE);
  bool isTold = false;
  Status status = TellName(st, name, isTold);
  if (!status.IsOk() || isTold) return status;
  if (IsBefore()) {
    status = sink_->Skip(name);
    return status.IsOk() ? End(0) : status;
  }
  const bool isLink = S_ISLNK(st.st_mode);
  std::string text;
  int error = ReadAttributes(entry.Get(), st, attributes_);
  if (error == 0 && isLink) error = ReadLinkText(entry.Get(), text);
  if (error != 0) return Fail(error);
  status = isLink ? sink_->SymbolicLink(name, text, attributes_)
                  : sink_->Special(name, major(st.st_rdev), minor(st.st_rdev), attributes_);
  return status.IsOk() ? End(0) : status;
}

int ChangeSource::OpenBase(int baseFd, const std::string& name, File& file) const {
  struct stat st;
  // Only a file is opened: a device may do something then.
  if (baseFd == -1) return 0;
  if (fstatat(baseFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno == ENOENT ? 0 : errno;
  }
  if (!S_ISREG(st.st_mode)) return 0;
  file.base = OpenQuietly(baseFd, name, 0);
  if (!file.base) return IsNoBase(errno) ? 0 : errno;
  if (fstat(file.base.Get(), &st) != 0) return errno;
  file.base_size = static_cast<std::uint64_t>(st.st_size);
  return 0;
}

int ChangeSource::FindChanges(const File& file, std::vector<Run>& runs) {
  const std::uint64_t both = std::min(file.size, file.base_size);
  bool isKnown = false;
  int error = both == 0 ? 0 : finder_.Find(below_, file.base.Get(), file.fd.Get(), isKnown, runs);
  if (error == 0 && !isKnown) {
    runs.clear();
    error = CompareData(file.base.Get(), file.fd.Get(), both, progress_.GetWatch(), runs);
  }
  if (error == 0 && file.size > both) AppendRun(runs, both, file.size);
  return error;
}

Status ChangeSource::TellFile(int dirFd, int baseFd, const std::string& name) {
  File file;
  file.fd = OpenQuietly(dirFd, name, 0);
  struct stat st;
  if (!file.fd || fstat(file.fd.Get(), &st) != 0) return Fail(errno);
  if (!S_ISREG(st.st_mode)) return Fail(ESTALE);
  file.size = static_cast<std::uint64_t>(st.st_size);
  bool isTold = false;
  Status status = TellName(st, name, isTold);
  if (!status.IsOk() || isTold) return status;
  if (IsBefore()) {
    status = sink_->Skip(name);
    return status.IsOk() ? End(file.size) : status;
  }
  int error = OpenBase(baseFd, name, file);
  std::vector<Run> runs;
  if (error == 0 && file.base) error = FindChanges(file, runs);
  if (error != 0) return Fail(error);
  if (!file.base && file.size > 0) runs.push_back({0, file.size});
  status = file.base ? sink_->BeginFileOnBase(name, file.size, file.base_size)
                     : sink_->BeginFile(name, file.size);
  if (status.IsOk() && !runs.empty()) status = TellData(file, runs);
  if (!status.IsOk()) return status;
  // Reading it may have changed its time of access, which `st` has as it was.
  error = ReadAttributes(file.fd.Get(), st, attributes_);
  if (error != 0) return Fail(error);
  status = sink_->EndFile(attributes_);
  return status.IsOk() ? End(file.size) : status;
}

Status ChangeSource::TellData(const File& file, const std::vector<Run>& runs) {
  Status status;
  if (listener_ != nullptr) status = listener_->BeginFile(below_, file.size);
  // Of the first file that is not before it the point may say that some was told.
  const std::uint64_t told = ended_ == point_.ended ? point_.offset : 0;
  DataFinder finder(file.fd.Get());
  for (const Run& run : runs) {
    const std::uint64_t begin = std::max(run.offset, told);
    const std::uint64_t end = std::min(run.offset + run.length, file.size);
    if (status.IsOk() && begin < end) status = TellRun(file.fd.Get(), finder, begin, end);
  }
  if (status.IsOk() && listener_ != nullptr) status = listener_->EndFile();
  return status;
}

Status ChangeSource::TellRun(int fd, DataFinder& finder, std::uint64_t begin, std::uint64_t end) {
  while (begin < end) {
    std::uint64_t data = 0;
    std::uint64_t hole = 0;
    if (const int error = finder.Find(begin, end, data, hole)) return Fail(error);
    Status status;
    if (data > begin) {
      status = sink_->Hole(begin, data - begin);
      if (status.IsOk() && listener_ != nullptr) status = listener_->Hole(begin, data - begin);
    }
    if (data == end || !status.IsOk()) return status;
    status = TellPieces(fd, data, hole);
    if (!status.IsOk()) return status;
    begin = hole;
  }
  return {};
}

Status ChangeSource::TellPieces(int fd, std::uint64_t begin, std::uint64_t end) {
  piece_.resize(kPiece);
  while (begin < end) {
    const std::span<char> piece(piece_.data(), std::min(end - begin, kPiece));
    const int error = ReadFully(fd, begin, piece);
    if (error != 0) return Fail(error);
    Status status;
    if (listener_ != nullptr) status = listener_->Data(begin, piece);
    if (status.IsOk()) status = sink_->Data(begin, piece);
    if (status.IsOk()) status = progress_.Send(piece.size());
    begin += piece.size();
    if (status.IsOk()) status = progress_.Reach(begin);
    if (!status.IsOk()) return status;
    KillPoint(kShipPiece);
  }
  return {};
}

}  // namespace VrelDR::Local
