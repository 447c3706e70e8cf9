#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>

#include "engine/local/digest.h"

// How the digests of a snapshot's files stand in their file. Never change a value: files of this
// version are on disks. All numbers begin with their lowest byte.
//
//   header   magic, version, algorithm, size of a chunk
//   records  of each name of a file, in any order, each with its tag
//     kTagFile  length of the path (4), size of the file (8), path; then blocks until all chunks of
//               the file are covered: a word (4), whose highest bit says that so many chunks as the
//               rest of it are zeros, all of full size, or else that so many digests follow
//     kTagName  length of the path (4), length of the other (4), path, other: the path is one more
//               name of the file that stands under the other, which is of kTagFile
//   end      kTagEnd (1), number of names (8), the digest of everything before that
//
// Paths are below the snapshot's top, their bytes as the file system has them.
namespace VrelDR::Local {

inline constexpr std::array<char, 8> kDigestMagic = {'v', 'r', 'd', 'i', 'g', 'e', 's', 't'};
inline constexpr std::uint32_t kDigestVersion = 1;
inline constexpr std::uint32_t kDigestAlgorithm = 1;  // XXH3 of 128 bits, no seed, canonical
inline constexpr std::size_t kDigestHeaderSize = 8 + 4 + 4 + 4;
inline constexpr std::size_t kDigestEndSize = 1 + 8 + sizeof(Digest);

inline constexpr std::uint8_t kTagEnd = 0;
inline constexpr std::uint8_t kTagFile = 1;
inline constexpr std::uint8_t kTagName = 2;

inline constexpr std::uint32_t kZeroBlock = 0x80000000;
inline constexpr std::uint32_t kMostChunksInBlock = kZeroBlock - 1;

// What a reader takes for a size of chunks.
inline constexpr std::uint32_t kSmallestChunk = 4096;
inline constexpr std::uint32_t kLargestChunk = 16 * 1024 * 1024;

// Longer than any path that the system takes in pieces; a longer one is of a torn file.
inline constexpr std::uint32_t kLongestPath = 1024 * 1024;

template <class Number>
std::array<char, sizeof(Number)> ToBytes(Number number) {
  static_assert(std::is_unsigned_v<Number>);
  std::array<char, sizeof(Number)> bytes;
  for (std::size_t i = 0; i < sizeof(Number); ++i) {
    bytes[i] = static_cast<char>(static_cast<unsigned char>(number >> (8 * i)));
  }
  return bytes;
}

template <class Number>
Number ToNumber(const char* bytes) {
  static_assert(std::is_unsigned_v<Number>);
  Number number = 0;
  for (std::size_t i = 0; i < sizeof(Number); ++i) {
    number = static_cast<Number>(
        number | static_cast<Number>(Number{static_cast<unsigned char>(bytes[i])} << (8 * i)));
  }
  return number;
}

// How many chunks a file of that size has.
constexpr std::uint64_t CountChunks(std::uint64_t size, std::uint32_t chunkSize) {
  return size / chunkSize + (size % chunkSize != 0 ? 1 : 0);
}

}  // namespace VrelDR::Local
