// The library of the tests that says where what is shipped ends or fails: what the environment
// names.
#include <csignal>
#include <cstdlib>
#include <string>
#include <string_view>

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED void VreldrTestKillPoint(const char* step, std::size_t stepLength) {
  const char* named = std::getenv("VRELDR_KILL_POINT");
  if (named != nullptr && std::string_view(step, stepLength) == named) std::raise(SIGKILL);
}

EXPORTED bool VreldrTestFailPoint(const char* step, std::size_t stepLength, const char* target,
                                  std::size_t targetLength) {
  const char* named = std::getenv("VRELDR_FAIL_POINT");
  if (named == nullptr) return false;
  const std::string wanted =
      "," + std::string(step, stepLength) + "@" + std::string(target, targetLength) + ",";
  return ("," + std::string(named) + ",").find(wanted) != std::string::npos;
}
