#include "engine/local/digest_writer.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "engine/local/digest_format.h"
#include "engine/local/tree_remove.h"

namespace VrelDR::Local {

namespace {

constexpr std::size_t kBufferSize = std::size_t{256} * 1024;
constexpr std::size_t kMostDigests = 4096;

}  // namespace

DigestWriter::DigestWriter(int dirFd, std::string name, std::uint32_t chunkSize)
    : dir_fd_(dirFd),
      name_(std::move(name)),
      chunk_size_(chunkSize),
      zeros_(DigestOfZeros(chunkSize)) {
  Put(kDigestMagic.data(), kDigestMagic.size());
  PutNumber(kDigestVersion);
  PutNumber(kDigestAlgorithm);
  PutNumber(chunk_size_);
}

DigestWriter::~DigestWriter() {
  GiveUp();
}

bool DigestWriter::GiveUp() {
  const bool isThere = is_good_ && file_;
  is_good_ = false;
  file_ = Fd();
  if (isThere) (void)unlinkat(dir_fd_, name_.c_str(), 0);
  return isThere;
}

void DigestWriter::BeginFile(std::string_view path, std::uint64_t size) {
  if (!IsGood()) return;
  if (has_file_ || path.size() > kLongestPath) {
    GiveUp();
    return;
  }
  has_file_ = true;
  size_ = size;
  at_ = 0;
  ++names_;
  PutNumber(kTagFile);
  PutNumber(static_cast<std::uint32_t>(path.size()));
  PutNumber(size);
  Put(path.data(), path.size());
}

void DigestWriter::AddName(std::string_view path, std::string_view first) {
  if (!IsGood()) return;
  if (has_file_ || path.size() > kLongestPath || first.size() > kLongestPath) {
    GiveUp();
    return;
  }
  ++names_;
  PutNumber(kTagName);
  PutNumber(static_cast<std::uint32_t>(path.size()));
  PutNumber(static_cast<std::uint32_t>(first.size()));
  Put(path.data(), path.size());
  Put(first.data(), first.size());
}

std::uint64_t DigestWriter::EndOfChunk() const {
  const std::uint64_t begin = at_ - at_ % chunk_size_;
  return size_ - begin > chunk_size_ ? begin + chunk_size_ : size_;
}

void DigestWriter::AddData(std::uint64_t offset, const void* bytes, std::size_t count) {
  if (!IsGood()) return;
  if (!has_file_ || offset < at_ || offset > size_ || count > size_ - offset) {
    GiveUp();  // not the bytes of this file
    return;
  }
  AddZeros(offset - at_);
  const char* from = static_cast<const char*>(bytes);
  while (count > 0) {
    const std::uint64_t left = EndOfChunk() - at_;
    const auto piece = static_cast<std::size_t>(std::min<std::uint64_t>(left, count));
    if (at_ % chunk_size_ == 0 && piece == left) {
      AddDigest(DigestOf(from, piece));
    } else {
      if (at_ % chunk_size_ == 0) chunk_.Reset();
      chunk_.Add(from, piece);
      if (piece == left) AddDigest(chunk_.Get());
    }
    at_ += piece;
    from += piece;
    count -= piece;
  }
}

void DigestWriter::AddZeros(std::uint64_t count) {
  while (count > 0) {
    const std::uint64_t left = EndOfChunk() - at_;
    const bool isAtBegin = at_ % chunk_size_ == 0;
    std::uint64_t piece = std::min(left, count);
    if (isAtBegin && piece == chunk_size_) {
      const std::uint64_t chunks = count / chunk_size_;
      FlushDigests();
      zero_chunks_ += chunks;
      piece = chunks * chunk_size_;
    } else {
      if (isAtBegin) chunk_.Reset();
      chunk_.AddZeros(piece);
      if (piece == left) AddDigest(chunk_.Get());
    }
    at_ += piece;
    count -= piece;
  }
}

void DigestWriter::AddDigest(const Digest& digest) {
  // A shorter chunk has another digest, whatever is in it.
  if (digest == zeros_) {
    FlushDigests();
    ++zero_chunks_;
    return;
  }
  FlushZeros();
  digests_.push_back(digest);
  if (digests_.size() == kMostDigests) FlushDigests();
}

void DigestWriter::FlushZeros() {
  while (zero_chunks_ > 0) {
    const auto count =
        static_cast<std::uint32_t>(std::min<std::uint64_t>(zero_chunks_, kMostChunksInBlock));
    PutNumber(count | kZeroBlock);
    zero_chunks_ -= count;
  }
}

void DigestWriter::FlushDigests() {
  if (digests_.empty()) return;
  PutNumber(static_cast<std::uint32_t>(digests_.size()));
  Put(digests_.data(), digests_.size() * sizeof(Digest));
  digests_.clear();
}

void DigestWriter::EndFile() {
  if (!IsGood()) return;
  if (!has_file_) {
    GiveUp();
    return;
  }
  AddZeros(size_ - at_);
  FlushZeros();
  FlushDigests();
  has_file_ = false;
}

bool DigestWriter::Finish() {
  if (has_file_) GiveUp();
  if (!IsGood()) return false;
  PutNumber(kTagEnd);
  PutNumber(names_);
  Write();
  const Digest digest = all_.Get();
  Put(digest.bytes.data(), digest.bytes.size());
  Write();
  if (!IsGood()) return false;
  file_ = Fd();
  is_good_ = false;
  return true;
}

template <class Number>
void DigestWriter::PutNumber(Number number) {
  const auto bytes = ToBytes(number);
  Put(bytes.data(), bytes.size());
}

void DigestWriter::Put(const void* bytes, std::size_t count) {
  const char* from = static_cast<const char*>(bytes);
  buffer_.insert(buffer_.end(), from, from + count);
  if (buffer_.size() >= kBufferSize) Write();
}

bool DigestWriter::Make() {
  if (RemoveTree(dir_fd_, name_) != 0) return false;
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  file_ = Fd(openat(dir_fd_, name_.c_str(), kFlags, 0600));
  return static_cast<bool>(file_);
}

void DigestWriter::Write() {
  if (!IsGood()) return;
  if (!file_ && !Make()) GiveUp();
  all_.Add(buffer_.data(), buffer_.size());
  const char* from = buffer_.data();
  std::size_t left = buffer_.size();
  while (left > 0 && IsGood()) {
    const ssize_t done = write(file_.Get(), from, left);
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) {
      GiveUp();
      break;
    }
    from += done;
    left -= static_cast<std::size_t>(done);
  }
  buffer_.clear();
}

}  // namespace VrelDR::Local
