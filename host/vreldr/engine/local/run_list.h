#pragma once

#include "engine/local/change_finder.h"

namespace VrelDR::Local {

// Appends what is from `begin` to `end` to ascending runs; one that it goes on is made longer.
inline void AppendRun(std::vector<Run>& runs, std::uint64_t begin, std::uint64_t end) {
  if (!runs.empty() && runs.back().offset + runs.back().length == begin) {
    runs.back().length += end - begin;
  } else {
    runs.push_back({begin, end - begin});
  }
}

}  // namespace VrelDR::Local
