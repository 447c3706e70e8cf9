#include "engine/local/digest_compare.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "engine/local/digest.h"
#include "engine/local/digest_format.h"

namespace VrelDR::Local {

namespace {

// A cursor gives at least so many digests, when there are as many.
constexpr std::uint64_t kMostAtOnce = 4096;

// Lengthens the last run when the new one follows it.
void Append(std::uint64_t offset, std::uint64_t end, std::vector<Run>& runs) {
  if (!runs.empty() && runs.back().offset + runs.back().length == offset) {
    runs.back().length = end - runs.back().offset;
  } else {
    runs.push_back({offset, end - offset});
  }
}

// The first file of `one` that is not the same in `other`.
int FindFirst(const DigestFile& one, const DigestFile& other,
              std::optional<DigestDifference>& difference) {
  return one.ForEachFile([&](const std::string& path) {
    if (difference) return 0;
    std::optional<DigestCursor> left;
    std::optional<DigestCursor> right;
    int error = one.Find(path, left);
    if (error == 0) error = other.Find(path, right);
    if (error != 0) return error;
    if (!left || !right) {
      difference = DigestDifference{path, 0};
      return 0;
    }
    std::vector<Run> runs;
    error = FindDifferences(*left, *right, one.GetChunkSize(), runs);
    if (!runs.empty()) {
      difference = DigestDifference{path, runs.front().offset};
    } else if (left->GetSize() != right->GetSize()) {
      difference = DigestDifference{path, std::min(left->GetSize(), right->GetSize())};
    }
    return error;
  });
}

}  // namespace

int FindDifferences(DigestCursor& one, DigestCursor& other, std::uint32_t chunkSize,
                    std::vector<Run>& runs) {
  const std::uint64_t size = std::min(one.GetSize(), other.GetSize());
  // A chunk in which only one of them ends has digests of different lengths of bytes.
  const bool endsAlike = one.GetSize() == other.GetSize() || size % chunkSize == 0;
  const std::uint64_t comparable = endsAlike ? CountChunks(size, chunkSize) : size / chunkSize;
  for (std::uint64_t at = 0; at < comparable;) {
    std::uint64_t ofOne = 0;
    std::uint64_t ofOther = 0;
    bool isOneZero = false;
    bool isOtherZero = false;
    int error = one.Peek(ofOne, isOneZero);
    if (error == 0) error = other.Peek(ofOther, isOtherZero);
    const std::uint64_t atOnce = isOneZero && isOtherZero ? comparable : kMostAtOnce;
    const std::uint64_t most = std::min({ofOne, ofOther, comparable - at, atOnce});
    DigestCursor::Chunks left;
    DigestCursor::Chunks right;
    if (error == 0) error = one.Next(most, left);
    if (error == 0) error = other.Next(left.count, right);
    if (error != 0) return error;
    if (left.count == 0 || left.count != right.count) return EBADMSG;
    const bool hasDigests = left.digests != nullptr && right.digests != nullptr;
    if (left.digests != right.digests && !hasDigests) {
      Append(at * chunkSize, std::min((at + left.count) * chunkSize, size), runs);
    }
    for (std::uint64_t i = 0; hasDigests && i < left.count; ++i) {
      const std::size_t place = static_cast<std::size_t>(i) * sizeof(Digest);
      if (std::memcmp(left.digests + place, right.digests + place, sizeof(Digest)) == 0) continue;
      Append((at + i) * chunkSize, std::min((at + i + 1) * chunkSize, size), runs);
    }
    at += left.count;
  }
  if (!endsAlike) Append(comparable * chunkSize, size, runs);
  return 0;
}

int CompareDigests(const DigestFile& one, const DigestFile& other,
                   std::optional<DigestDifference>& difference) {
  difference.reset();
  if (one.GetChunkSize() != other.GetChunkSize()) return EBADMSG;
  int error = FindFirst(one, other, difference);
  // What only the other one has is left when they do not have as many.
  if (error == 0 && !difference && one.CountFiles() != other.CountFiles()) {
    error = FindFirst(other, one, difference);
  }
  return error;
}

}  // namespace VrelDR::Local
