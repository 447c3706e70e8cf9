#pragma once

#include <sys/types.h>

#include <cstdint>

namespace VrelDR {

// A number that changes as long as a process, or one that it has started, computes, reads or
// writes, as far as the system tells that of them.
std::uint64_t ActivityOf(pid_t pid);

}  // namespace VrelDR
