#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

struct XXH3_state_s;

namespace VrelDR::Local {

// What stands for the bytes of a chunk: two chunks of the same digest are taken for the same. It is
// made to tell accidents apart, not what somebody has made up to be mistaken for something else.
struct Digest {
  std::array<unsigned char, 16> bytes = {};

  bool operator==(const Digest&) const = default;
};

// Files are cut into chunks of this size from their beginning on, the last one may be shorter. A
// hundredth of the blocks of a disk, anywhere, touches one of 25 chunks, and their digests take up
// a thousandth of the bytes.
inline constexpr std::uint32_t kDigestChunk = 16 * 1024;

Digest DigestOf(const void* bytes, std::size_t count);

// The digest of bytes that come piece by piece.
class RunningDigest {
 public:
  RunningDigest();

  // Begins anew.
  void Reset();
  void Add(const void* bytes, std::size_t count);
  void AddZeros(std::uint64_t count);
  Digest Get() const;

 private:
  struct Freer {
    void operator()(XXH3_state_s* state) const;
  };
  std::unique_ptr<XXH3_state_s, Freer> state_;
};

// The digest of a chunk of nothing but zeros.
Digest DigestOfZeros(std::uint32_t count);

}  // namespace VrelDR::Local
