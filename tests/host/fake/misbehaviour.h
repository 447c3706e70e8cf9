#pragma once

namespace VrelDR::Fake {

// What a test lets a store do wrong: files of its directory ".fake". What is in them is of no
// account.
inline constexpr const char* kUnreachable = "unreachable";  // no call gets an answer
inline constexpr const char* kReadOnly = "read_only";
inline constexpr const char* kSlow = "slow";  // from the middle of what moves, nothing moves
inline constexpr const char* kLoseSecondHalf = "lose_second_half";  // of a shipment's bytes
inline constexpr const char* kNoReplication = "no_replication";     // of its targets

}  // namespace VrelDR::Fake
