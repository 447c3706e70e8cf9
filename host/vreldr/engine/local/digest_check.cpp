#include "engine/local/digest_check.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace VrelDR::Local {

Status DigestCheck::Changed(std::uint64_t offset) const {
  return {
      kErrIo,
      Quoted(path_ + "/" + name_) + " is not what it was when the snapshot was taken, " +
          "from byte " + std::to_string(offset) +
          " on: somebody has changed it, and it is not sent; give its shipment up (\"drgroupctl "
          "plan drop-shipment\") and take another"};
}

Status DigestCheck::Unreadable(int error) const {
  return StatusOfErrno(error, "the digests of " + path_);
}

Status DigestCheck::BeginFile(const std::string& path, std::uint64_t size) {
  name_ = path;
  size_ = size;
  chunk_at_ = at_ = 0;
  is_whole_ = false;
  const int error = kept_.Find(path, cursor_);
  if (error != 0) return Unreadable(error);
  if (!cursor_) return Changed(0);
  return cursor_->GetSize() == size ? Status() : Changed(std::min(size, cursor_->GetSize()));
}

void DigestCheck::GoTo(std::uint64_t offset) {
  if (offset != at_) is_whole_ = false;
  at_ = offset;
}

std::uint64_t DigestCheck::EndOfChunk() const {
  const std::uint64_t chunk = kept_.GetChunkSize();
  const std::uint64_t begin = at_ - at_ % chunk;
  return size_ - begin > chunk ? begin + chunk : size_;
}

Status DigestCheck::Data(std::uint64_t offset, std::span<const char> bytes) {
  GoTo(offset);
  while (!bytes.empty()) {
    const std::uint64_t left = EndOfChunk() - at_;
    const auto piece = static_cast<std::size_t>(std::min<std::uint64_t>(left, bytes.size()));
    const bool isAtBegin = at_ % kept_.GetChunkSize() == 0;
    Status status;
    if (isAtBegin && piece == left) {
      status = Check(DigestOf(bytes.data(), piece));
    } else {
      if (isAtBegin) running_.Reset();
      is_whole_ = is_whole_ || isAtBegin;
      if (is_whole_) running_.Add(bytes.data(), piece);
      if (is_whole_ && piece == left) status = Check(running_.Get());
    }
    if (!status.IsOk()) return status;
    at_ += piece;
    bytes = bytes.subspan(piece);
  }
  return {};
}

Status DigestCheck::Hole(std::uint64_t offset, std::uint64_t length) {
  GoTo(offset);
  const std::uint64_t chunk = kept_.GetChunkSize();
  while (length > 0) {
    const std::uint64_t left = EndOfChunk() - at_;
    const bool isAtBegin = at_ % chunk == 0;
    std::uint64_t piece = std::min(left, length);
    Status status;
    if (isAtBegin && piece == chunk) {
      piece = length - length % chunk;
      status = CheckZeros(piece / chunk);
    } else {
      if (isAtBegin) running_.Reset();
      is_whole_ = is_whole_ || isAtBegin;
      if (is_whole_) running_.AddZeros(piece);
      if (is_whole_ && piece == left) status = Check(running_.Get());
    }
    if (!status.IsOk()) return status;
    at_ += piece;
    length -= piece;
  }
  return {};
}

Status DigestCheck::Check(const Digest& digest) {
  const std::uint64_t wanted = at_ / kept_.GetChunkSize();
  DigestCursor::Chunks chunks;
  int error = 0;
  while (error == 0 && chunk_at_ < wanted) {
    error = cursor_->Next(wanted - chunk_at_, chunks);
    chunk_at_ += chunks.count;
    if (error == 0 && chunks.count == 0) error = EBADMSG;
  }
  if (error == 0) error = cursor_->Next(1, chunks);
  if (error == 0 && chunks.count != 1) error = EBADMSG;
  if (error != 0) return Unreadable(error);
  ++chunk_at_;
  const unsigned char* kept = chunks.digests == nullptr ? zeros_.bytes.data() : chunks.digests;
  const bool isSame = std::memcmp(kept, digest.bytes.data(), digest.bytes.size()) == 0;
  return isSame ? Status() : Changed(wanted * kept_.GetChunkSize());
}

Status DigestCheck::CheckZeros(std::uint64_t chunks) {
  // The first as any other; it takes the cursor there.
  Status status = Check(zeros_);
  for (--chunks; status.IsOk() && chunks > 0;) {
    DigestCursor::Chunks next;
    const int error = cursor_->Next(chunks, next);
    if (error != 0 || next.count == 0) return Unreadable(error != 0 ? error : EBADMSG);
    if (next.digests != nullptr) return Changed(chunk_at_ * kept_.GetChunkSize());
    chunk_at_ += next.count;
    chunks -= next.count;
  }
  return status;
}

Status DigestKeeper::BeginFile(const std::string& path, std::uint64_t size) {
  writer_.BeginFile(path, size);
  return {};
}

Status DigestKeeper::Data(std::uint64_t offset, std::span<const char> bytes) {
  writer_.AddData(offset, bytes.data(), bytes.size());
  return {};
}

Status DigestKeeper::EndFile() {
  writer_.EndFile();
  return {};
}

Status DigestKeeper::Name(const std::string& path, const std::string& first) {
  writer_.AddName(path, first);
  return {};
}

}  // namespace VrelDR::Local
