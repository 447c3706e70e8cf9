#pragma once

namespace VrelDR::Local {

// What the programs at both ends come from, how often whoever waits for them looks, and what a pipe
// to them may hold, as any user may have it.
inline constexpr const char* kStreamPackage = "btrfs-progs";
inline constexpr int kStreamTickMs = 100;
inline constexpr int kStreamPipeSize = 1 << 20;

}  // namespace VrelDR::Local
