#pragma once

#include <chrono>
#include <cstdint>

#include "base/status.h"
#include "engine/engine.h"

namespace VrelDR {

// A watcher that can be turned to as often as one likes: it is really told and asked at most every
// tenth of a second.
class Watch {
 public:
  // `watcher` may be null: nobody ends the call then.
  explicit Watch(Watcher* watcher) : watcher_(watcher) {}

  // Whether to go on.
  bool GoesOn() {
    if (IsDue()) goes_on_ = watcher_->GoesOn();
    return goes_on_;
  }

  // Tells how far the call is, and says whether to go on.
  bool Tell(std::uint64_t done, std::uint64_t total, std::uint64_t sent) {
    if (IsDue()) {
      watcher_->Tell(done, total, sent);
      goes_on_ = watcher_->GoesOn();
    }
    return goes_on_;
  }

  // Tells it in any case.
  void TellNow(std::uint64_t done, std::uint64_t total, std::uint64_t sent) {
    if (watcher_ != nullptr) watcher_->Tell(done, total, sent);
  }

  static Status Stopped() { return {kErrStopped, "stopped, as was asked for"}; }

 private:
  bool IsDue() {
    const auto now = std::chrono::steady_clock::now();
    if (watcher_ == nullptr || !goes_on_ || now < due_) return false;
    due_ = now + std::chrono::milliseconds(100);
    return true;
  }

  Watcher* watcher_;
  bool goes_on_ = true;
  std::chrono::steady_clock::time_point due_;
};

}  // namespace VrelDR
