// The library of the tests that says where what is shipped ends, waits or fails: what the
// environment names.
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED void VreldrTestKillPoint(const char* step, std::size_t stepLength) {
  const auto isNamedBy = [&](const char* variable) {
    const char* named = std::getenv(variable);
    return named != nullptr && std::string_view(step, stepLength) == named;
  };
  if (isNamedBy("VRELDR_KILL_POINT")) std::raise(SIGKILL);
  if (isNamedBy("VRELDR_SLOW_POINT")) {
    const struct timespec pause = {0, 125'000'000};
    nanosleep(&pause, nullptr);
  }
}

EXPORTED bool VreldrTestFailPoint(const char* step, std::size_t stepLength, const char* target,
                                  std::size_t targetLength) {
  const char* named = std::getenv("VRELDR_FAIL_POINT");
  if (named == nullptr) return false;
  const std::string all = "," + std::string(named) + ",";
  const std::string point = "," + std::string(step, stepLength) + "@";
  return all.find(point + std::string(target, targetLength) + ",") != std::string::npos ||
         all.find(point + "*,") != std::string::npos;
}
