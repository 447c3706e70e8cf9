#include "groups/kill_point.h"

#include <cstddef>

// As for the host's: defined by the library of the tests alone, and null without it.
extern "C" __attribute__((weak)) void VreldrTestKillPoint(const char* step, std::size_t stepLength);

namespace drgroupctl {

void KillPoint(std::string_view step) {
  if (VreldrTestKillPoint != nullptr) VreldrTestKillPoint(step.data(), step.size());
}

}  // namespace drgroupctl
