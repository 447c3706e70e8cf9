#include "base/kill_point.h"

#include "base/test_hook.h"

namespace VrelDR {

void KillPoint(std::string_view step) {
  if (VreldrTestKillPoint != nullptr) VreldrTestKillPoint(step.data(), step.size());
}

}  // namespace VrelDR
