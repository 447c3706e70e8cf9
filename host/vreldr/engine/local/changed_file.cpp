#include "engine/local/changed_file.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace VrelDR::Local {

namespace {

constexpr std::uint64_t kPiece = std::uint64_t{512} * 1024;

// So much is let go to disk at a time, so that nobody waits for all of it at the end.
constexpr std::uint64_t kStart = std::uint64_t{16} * 1024 * 1024;

}  // namespace

Status ChangedFile::BeginNew(std::uint64_t from) {
  if (ftruncate(file_.Get(), static_cast<off_t>(size_)) != 0) return Fail(errno);
  at_ = from;
  if (maker_.listener == nullptr || from == 0) return {};
  return Hear(file_.Get(), 0, from, *maker_.listener, maker_.fail);
}

Status ChangedFile::BeginOnBase(Fd base, std::uint64_t baseSize, bool isShared, std::uint64_t from,
                                bool& canGoOn) {
  canGoOn = true;
  if (isShared && maker_.listener == nullptr) {
    has_blocks_ = from > 0 || baseSize == 0 || ioctl(file_.Get(), FICLONE, base.Get()) == 0;
    if (!has_blocks_ && errno != EINVAL && errno != EOPNOTSUPP && errno != EXDEV) {
      return Fail(errno);
    }
    canGoOn = has_blocks_;
  }
  if (!has_blocks_) {
    base_ = std::move(base);
    base_data_ = DataFinder(base_.Get());
    base_size_ = baseSize;
  }
  return BeginNew(from);
}

Status ChangedFile::Data(std::uint64_t offset, std::span<const char> bytes) {
  if (!IsWithin(offset, bytes.size())) return Fail(EBADMSG);
  Status status = GoTo(offset);
  if (!status.IsOk()) return status;
  if (const int error = WriteFully(file_.Get(), offset, bytes)) return Fail(error);
  at_ = offset + bytes.size();
  if (maker_.listener != nullptr) status = maker_.listener->Data(offset, bytes);
  return status.IsOk() ? maker_.reach(at_) : status;
}

Status ChangedFile::Hole(std::uint64_t offset, std::uint64_t length) {
  if (!IsWithin(offset, length)) return Fail(EBADMSG);
  Status status = GoTo(offset);
  if (!status.IsOk()) return status;
  constexpr int kPunch = FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE;
  if (has_blocks_ && length > 0 &&
      fallocate(file_.Get(), kPunch, static_cast<off_t>(offset), static_cast<off_t>(length)) != 0) {
    return Fail(errno);
  }
  at_ = offset + length;
  if (maker_.listener != nullptr) status = maker_.listener->Hole(offset, length);
  return status.IsOk() ? maker_.reach(at_) : status;
}

Status ChangedFile::End() {
  return GoTo(size_);
}

Status ChangedFile::GoTo(std::uint64_t offset) {
  const std::uint64_t end = base_ ? std::min(offset, base_size_) : at_;
  while (at_ < end) {
    std::uint64_t data = 0;
    std::uint64_t hole = 0;
    if (const int error = base_data_.Find(at_, end, data, hole)) return Fail(error);
    Status status;
    if (data > at_ && maker_.listener != nullptr) status = maker_.listener->Hole(at_, data - at_);
    if (status.IsOk() && data < end) status = CopyPiece(data, hole);
    if (!status.IsOk()) return status;
    at_ = data < end ? hole : end;
  }
  if (at_ >= offset) return {};
  Status status;
  if (maker_.listener != nullptr) status = maker_.listener->Hole(at_, offset - at_);
  at_ = offset;
  return status;
}

Status ChangedFile::CopyPiece(std::uint64_t begin, std::uint64_t end) {
  piece_.resize(kPiece);
  while (begin < end) {
    const std::span<char> piece(piece_.data(), std::min(end - begin, kPiece));
    int error = ReadFully(base_.Get(), begin, piece);
    if (error == 0) error = WriteFully(file_.Get(), begin, piece);
    if (error != 0) return Fail(error);
    Status status;
    if (maker_.listener != nullptr) status = maker_.listener->Data(begin, piece);
    begin += piece.size();
    if (begin >= started_ + kStart) {
      (void)sync_file_range(file_.Get(), static_cast<off_t>(started_),
                            static_cast<off_t>(begin - started_), SYNC_FILE_RANGE_WRITE);
      started_ = begin;
    }
    if (status.IsOk()) status = maker_.reach(begin);
    if (!status.IsOk()) return status;
  }
  return {};
}

Status Hear(int fd, std::uint64_t begin, std::uint64_t end, DataListener& listener,
            const std::function<Status(int)>& fail) {
  std::vector<char> piece(kPiece);
  while (begin < end) {
    std::uint64_t data = 0;
    std::uint64_t hole = 0;
    int error = FindData(fd, begin, end, data);
    if (error == 0 && data < end) error = FindHole(fd, data, end, hole);
    if (error != 0) return fail(error);
    Status status;
    if (data > begin) status = listener.Hole(begin, data - begin);
    for (begin = data; status.IsOk() && begin < hole;) {
      const std::span<char> part(piece.data(), std::min(hole - begin, kPiece));
      error = ReadFully(fd, begin, part);
      if (error != 0) return fail(error);
      status = listener.Data(begin, part);
      begin += part.size();
    }
    if (!status.IsOk()) return status;
  }
  return {};
}

}  // namespace VrelDR::Local
