#include "base/fail_point.h"

#include "base/test_hook.h"

namespace VrelDR {

Status FailPoint(std::string_view step, const std::string& targetId) {
  if (VreldrTestFailPoint == nullptr ||
      !VreldrTestFailPoint(step.data(), step.size(), targetId.data(), targetId.size())) {
    return {};
  }
  return {kErrIo,
          "failure at " + std::string(step) + " of target " + Quoted(targetId) + " asked for"};
}

}  // namespace VrelDR
