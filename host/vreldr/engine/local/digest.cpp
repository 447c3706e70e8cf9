#include "engine/local/digest.h"

#include <xxhash.h>
#ifdef VREL_HAS_XXHASH_DISPATCH
#include <xxh_x86dispatch.h>  // takes the place of the calls
#endif

#include <algorithm>
#include <cstring>
#include <new>

namespace VrelDR::Local {

namespace {

constexpr std::array<char, 4096> kZeros = {};

// The same bytes on every machine.
Digest ToDigest(XXH128_hash_t hash) {
  XXH128_canonical_t canonical;
  XXH128_canonicalFromHash(&canonical, hash);
  Digest digest;
  static_assert(sizeof(canonical.digest) == sizeof(digest.bytes));
  std::memcpy(digest.bytes.data(), canonical.digest, sizeof(canonical.digest));
  return digest;
}

}  // namespace

Digest DigestOf(const void* bytes, std::size_t count) {
  return ToDigest(XXH3_128bits(bytes, count));
}

void RunningDigest::Freer::operator()(XXH3_state_s* state) const {
  XXH3_freeState(state);
}

RunningDigest::RunningDigest() : state_(XXH3_createState()) {
  if (!state_) throw std::bad_alloc();
  Reset();
}

void RunningDigest::Reset() {
  XXH3_128bits_reset(state_.get());
}

void RunningDigest::Add(const void* bytes, std::size_t count) {
  XXH3_128bits_update(state_.get(), bytes, count);
}

void RunningDigest::AddZeros(std::uint64_t count) {
  while (count > 0) {
    const auto piece = static_cast<std::size_t>(std::min<std::uint64_t>(count, kZeros.size()));
    Add(kZeros.data(), piece);
    count -= piece;
  }
}

Digest RunningDigest::Get() const {
  return ToDigest(XXH3_128bits_digest(state_.get()));
}

Digest DigestOfZeros(std::uint32_t count) {
  RunningDigest digest;
  digest.AddZeros(count);
  return digest.Get();
}

}  // namespace VrelDR::Local
