#pragma once

#include <cstddef>
#include <functional>
#include <mutex>
#include <vector>

#include "base/status.h"
#include "engine/watcher.h"

namespace VrelDR {

// A watcher that several threads turn to for one who expects a single one. Once told to stop it
// does not go on, whatever the other says.
class SharedWatcher : public Watcher {
 public:
  explicit SharedWatcher(Watcher& watcher) : watcher_(watcher) {}

  bool GoesOn() override;
  std::chrono::milliseconds GetPatience() const override { return watcher_.GetPatience(); }
  void Stop();

 private:
  Watcher& watcher_;
  std::mutex mutex_;
  bool is_stopped_ = false;
};

// Runs all jobs, up to `most` of them at a time, the caller's thread among those that work; fewer
// where the system has no more threads. Returns when all have ended: what failed first, after which
// the others are told to stop and those that had not begun are not.
using Job = std::function<Status(Watcher&)>;
Status RunSideBySide(const std::vector<Job>& jobs, std::size_t most, Watcher& watcher);

}  // namespace VrelDR
