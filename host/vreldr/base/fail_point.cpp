#include "base/fail_point.h"

#include <cstdlib>

namespace VrelDR {

Status FailPoint(std::string_view step, const std::string& targetId) {
  const char* named = std::getenv("VRELDR_FAIL_POINT");
  if (named == nullptr) return {};
  const std::string wanted = "," + std::string(step) + "@" + targetId + ",";
  if (("," + std::string(named) + ",").find(wanted) == std::string::npos) return {};
  return {kErrIo,
          "failure at " + std::string(step) + " of target " + Quoted(targetId) + " asked for"};
}

}  // namespace VrelDR
