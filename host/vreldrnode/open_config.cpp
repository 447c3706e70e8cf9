#include "vreldrnode/open_config.h"

#include <unistd.h>

#include <mutex>
#include <optional>

namespace VrelHost {

namespace {

struct Kept {
  std::mutex mutex;
  int keepers = 0;
  pid_t pid = 0;  // of the process that keeps it
  std::optional<Config> config;
};

// Empty as long as nobody asks for more.
Kept& TheKept() {
  static Kept kept;
  return kept;
}

// The lock is held.
bool IsKept(const Kept& kept) {
  return kept.keepers > 0 && kept.pid == getpid();
}

}  // namespace

VrelDR::Status OpenConfig(Config& config) {
  Kept& kept = TheKept();
  const std::lock_guard lock(kept.mutex);
  const bool isKept = IsKept(kept);
  if (isKept && kept.config) {
    config = *kept.config;
    return {};
  }
  std::string problem;
  if (!ReadConfig(config, problem)) return {VrelDR::kErrConfig, problem};
  if (isKept) kept.config = config;
  return {};
}

void KeepConfig() {
  Kept& kept = TheKept();
  const std::lock_guard lock(kept.mutex);
  if (!IsKept(kept)) {
    kept.keepers = 0;
    kept.pid = getpid();
    kept.config.reset();
  }
  ++kept.keepers;
}

void DropConfig() {
  Kept& kept = TheKept();
  const std::lock_guard lock(kept.mutex);
  if (IsKept(kept) && --kept.keepers == 0) kept.config.reset();
}

bool IsConfigKept() {
  Kept& kept = TheKept();
  const std::lock_guard lock(kept.mutex);
  return IsKept(kept);
}

}  // namespace VrelHost
