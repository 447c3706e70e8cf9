#pragma once

#include <chrono>
#include <cstdint>

#include "base/status.h"
#include "engine/watcher.h"

namespace VrelDR {

// A watcher that can be turned to as often as one likes: it is really told and asked at most every
// tenth of a second. Knows since when the call has made no progress.
class Watch {
 public:
  explicit Watch(Watcher& watcher)
      : watcher_(watcher), patience_(watcher.GetPatience()), moved_(Clock::now()) {}

  // A step was made; whether there shall be another.
  bool GoesOn();

  // No step was made. kErrStopped when there is nothing to wait for any more, and kErrUnreachable
  // when it has been so for too long.
  Status Wait();

  // Tells how far the call is, and returns what Wait would. It has made progress when that has
  // changed, or `activity` has, which is of the programs that work for it.
  Status Tell(std::uint64_t done, std::uint64_t total, std::uint64_t sent, std::uint64_t activity);

  // Tells it at once.
  void TellNow(std::uint64_t done, std::uint64_t total, std::uint64_t sent) {
    watcher_.Tell(done, total, sent);
  }

  static Status Stopped() { return {kErrStopped, "stopped, as was asked for"}; }

 private:
  using Clock = std::chrono::steady_clock;

  bool IsDue(Clock::time_point now);
  Status Judge(Clock::time_point now) const;

  Watcher& watcher_;
  std::chrono::milliseconds patience_;
  bool goes_on_ = true;
  std::uint64_t told_ = 0;  // a sum that changes with progress
  Clock::time_point moved_;
  Clock::time_point due_;
};

}  // namespace VrelDR
