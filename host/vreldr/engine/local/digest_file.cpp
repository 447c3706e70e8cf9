#include "engine/local/digest_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>

#include "engine/local/digest_format.h"
#include "engine/support/open_entry.h"

namespace VrelDR::Local {

namespace {

// Most files are small: what is read for one of them is not much more than it has.
constexpr std::size_t kFirstPiece = 4096;
constexpr std::size_t kPiece = std::size_t{256} * 1024;

int ReadAt(int fd, std::uint64_t offset, char* bytes, std::size_t count) {
  while (count > 0) {
    const ssize_t got = pread(fd, bytes, count, static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return errno;
    if (got == 0) return EBADMSG;
    bytes += got;
    offset += static_cast<std::uint64_t>(got);
    count -= static_cast<std::size_t>(got);
  }
  return 0;
}

// The digest of the first `count` bytes of a file.
int DigestOfFile(int fd, std::uint64_t count, Digest& digest) {
  RunningDigest running;
  PieceReader reader(fd, 0, count);
  while (reader.GetOffset() < count) {
    const auto piece =
        static_cast<std::size_t>(std::min<std::uint64_t>(count - reader.GetOffset(), kPiece));
    const char* bytes = nullptr;
    if (const int error = reader.Get(piece, bytes)) return error;
    running.Add(bytes, piece);
  }
  digest = running.Get();
  return 0;
}

template <class Number>
int GetNumber(PieceReader& reader, Number& number) {
  const char* bytes = nullptr;
  const int error = reader.Get(sizeof(Number), bytes);
  if (error == 0) number = ToNumber<Number>(bytes);
  return error;
}

int GetText(PieceReader& reader, std::uint32_t length, std::string& text) {
  if (length > kLongestPath) return EBADMSG;
  const char* bytes = nullptr;
  const int error = reader.Get(length, bytes);
  if (error == 0) text.assign(bytes, length);
  return error;
}

bool IsChunkSize(std::uint32_t size) {
  return size >= kSmallestChunk && size <= kLargestChunk && std::has_single_bit(size);
}

}  // namespace

int PieceReader::Get(std::size_t count, const char*& bytes) {
  const std::size_t have = buffer_.size() - used_;
  if (have < count) {
    if (count - have > end_ - offset_) return EBADMSG;
    buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(used_));
    used_ = 0;
    const std::size_t wish = buffer_.capacity() == 0 ? kFirstPiece : kPiece;
    const auto more = static_cast<std::size_t>(
        std::min<std::uint64_t>(end_ - offset_, std::max(wish, count - have)));
    buffer_.resize(have + more);
    if (const int error = ReadAt(fd_, offset_, buffer_.data() + have, more)) {
      buffer_.resize(have);
      return error;
    }
    offset_ += more;
  }
  bytes = buffer_.data() + used_;
  used_ += count;
  return 0;
}

DigestCursor::DigestCursor(PieceReader reader, std::uint64_t size, std::uint32_t chunkSize)
    : reader_(std::move(reader)), size_(size), left_(CountChunks(size, chunkSize)) {}

int DigestCursor::Peek(std::uint64_t& count, bool& areZeros) {
  if (left_in_block_ == 0 && left_ > 0) {
    std::uint32_t word = 0;
    if (const int error = GetNumber(reader_, word)) return error;
    is_zero_block_ = (word & kZeroBlock) != 0;
    left_in_block_ = word & ~kZeroBlock;
    if (left_in_block_ == 0 || left_in_block_ > left_) return EBADMSG;
  }
  count = left_in_block_;
  areZeros = is_zero_block_;
  return 0;
}

int DigestCursor::Next(std::uint64_t most, Chunks& chunks) {
  bool areZeros = false;
  if (const int error = Peek(chunks.count, areZeros)) return error;
  chunks.digests = nullptr;
  chunks.count = std::min(chunks.count, most);
  if (!areZeros && chunks.count > 0) {
    chunks.count = std::min<std::uint64_t>(chunks.count, kPiece / sizeof(Digest));
    const char* bytes = nullptr;
    const int error = reader_.Get(static_cast<std::size_t>(chunks.count) * sizeof(Digest), bytes);
    if (error != 0) return error;
    chunks.digests = reinterpret_cast<const unsigned char*>(bytes);
  }
  left_ -= chunks.count;
  left_in_block_ -= chunks.count;
  return 0;
}

int DigestFile::Open(int dirFd, const std::string& name, std::optional<DigestFile>& file) {
  file.reset();
  DigestFile opened;
  opened.file_ = OpenEntry(dirFd, name, O_RDONLY | O_NONBLOCK);
  if (!opened.file_) return errno == ELOOP ? EBADMSG : errno;
  const int error = opened.Check();
  if (error == 0) file = std::move(opened);
  return error;
}

int DigestFile::Check() {
  struct stat st;
  if (fstat(file_.Get(), &st) != 0) return errno;
  if (!S_ISREG(st.st_mode)) return EBADMSG;
  byte_count_ = static_cast<std::uint64_t>(st.st_size);
  if (byte_count_ < kDigestHeaderSize + kDigestEndSize) return EBADMSG;
  // The digest first: only of what is whole can be believed how long things are.
  const std::uint64_t digestAt = byte_count_ - sizeof(Digest);
  Digest found, kept;
  int error = DigestOfFile(file_.Get(), digestAt, found);
  if (error == 0) {
    error = ReadAt(file_.Get(), digestAt, reinterpret_cast<char*>(kept.bytes.data()),
                   kept.bytes.size());
  }
  if (error != 0) return error;
  if (found != kept) return EBADMSG;

  PieceReader reader(file_.Get(), 0, digestAt);
  const char* magic = nullptr;
  std::uint32_t version = 0;
  std::uint32_t algorithm = 0;
  error = reader.Get(kDigestMagic.size(), magic);
  if (error == 0 && std::memcmp(magic, kDigestMagic.data(), kDigestMagic.size()) != 0) {
    error = EBADMSG;
  }
  if (error == 0) error = GetNumber(reader, version);
  if (error == 0) error = GetNumber(reader, algorithm);
  if (error == 0) error = GetNumber(reader, chunk_size_);
  if (error != 0) return error;
  if (version != kDigestVersion || algorithm != kDigestAlgorithm || !IsChunkSize(chunk_size_)) {
    return EBADMSG;
  }
  return CheckRecords(reader);
}

int DigestFile::CheckRecords(PieceReader& reader) {
  Record record;
  for (;;) {
    const std::uint64_t offset = reader.GetOffset();
    int error = ReadRecord(reader, record);
    if (error != 0) return error;
    if (record.tag == kTagEnd) break;
    names_.push_back({DigestOf(record.path.data(), record.path.size()), offset});
    if (record.tag == kTagName) continue;
    ++files_;
    error = PassOverBlocks(reader, record.size);
    if (error != 0) return error;
  }
  std::uint64_t count = 0;
  if (const int error = GetNumber(reader, count)) return error;
  if (count != names_.size() || reader.GetOffset() != byte_count_ - sizeof(Digest)) return EBADMSG;
  std::ranges::sort(names_, {}, [](const Name& each) { return each.path.bytes; });
  const auto isSame = [](const Name& one, const Name& other) { return one.path == other.path; };
  return std::ranges::adjacent_find(names_, isSame) == names_.end() ? 0 : EBADMSG;
}

int DigestFile::ReadRecord(PieceReader& reader, Record& record) const {
  int error = GetNumber(reader, record.tag);
  if (error != 0 || record.tag == kTagEnd) return error;
  if (record.tag != kTagFile && record.tag != kTagName) return EBADMSG;
  std::uint32_t pathLength = 0;
  std::uint32_t firstLength = 0;
  error = GetNumber(reader, pathLength);
  if (error == 0) {
    error =
        record.tag == kTagFile ? GetNumber(reader, record.size) : GetNumber(reader, firstLength);
  }
  if (error == 0) error = GetText(reader, pathLength, record.path);
  if (error == 0) error = GetText(reader, firstLength, record.first);
  return error;
}

int DigestFile::PassOverBlocks(PieceReader& reader, std::uint64_t size) const {
  std::uint64_t left = CountChunks(size, chunk_size_);
  while (left > 0) {
    std::uint32_t word = 0;
    if (const int error = GetNumber(reader, word)) return error;
    const bool areZeros = (word & kZeroBlock) != 0;
    std::uint64_t count = word & ~kZeroBlock;
    if (count == 0 || count > left) return EBADMSG;
    left -= count;
    // The last chunk, when it is shorter, is never one of these.
    if (areZeros && left == 0 && size % chunk_size_ != 0) return EBADMSG;
    while (!areZeros && count > 0) {
      const std::uint64_t piece = std::min<std::uint64_t>(count, kPiece / sizeof(Digest));
      const char* bytes = nullptr;
      const int error = reader.Get(static_cast<std::size_t>(piece) * sizeof(Digest), bytes);
      if (error != 0) return error;
      count -= piece;
    }
  }
  return 0;
}

const DigestFile::Name* DigestFile::FindName(std::string_view path) const {
  const Digest digest = DigestOf(path.data(), path.size());
  const auto found = std::ranges::lower_bound(names_, digest.bytes, {},
                                              [](const Name& each) { return each.path.bytes; });
  return found != names_.end() && found->path == digest ? &*found : nullptr;
}

int DigestFile::Find(std::string_view path, std::optional<DigestCursor>& cursor) const {
  cursor.reset();
  Record record;
  std::string name(path);
  for (int steps = 0; steps < 2; ++steps) {
    const Name* found = FindName(name);
    if (found == nullptr) return 0;
    PieceReader reader(file_.Get(), found->offset, byte_count_ - sizeof(Digest));
    if (const int error = ReadRecord(reader, record)) return error;
    if (record.path != name) return 0;
    if (record.tag == kTagFile) {
      cursor.emplace(std::move(reader), record.size, chunk_size_);
      return 0;
    }
    name = record.first;
  }
  return 0;
}

std::vector<std::uint64_t> DigestFile::GetOffsets() const {
  std::vector<std::uint64_t> offsets;
  offsets.reserve(names_.size());
  for (const Name& each : names_) offsets.push_back(each.offset);
  std::ranges::sort(offsets);
  return offsets;
}

int DigestFile::ReadPath(std::uint64_t offset, std::string& path, bool& isFile) const {
  PieceReader reader(file_.Get(), offset, byte_count_ - sizeof(Digest));
  Record record;
  const int error = ReadRecord(reader, record);
  isFile = record.tag == kTagFile;
  if (error == 0) path = std::move(record.path);
  return error;
}

}  // namespace VrelDR::Local
