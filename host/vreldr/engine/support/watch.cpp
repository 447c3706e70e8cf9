#include "engine/support/watch.h"

#include <cmath>

namespace VrelDR {

bool Watch::IsDue(Clock::time_point now) {
  if (!goes_on_ || now < due_) return false;
  due_ = now + std::chrono::milliseconds(100);
  return true;
}

Status Watch::Judge(Clock::time_point now) const {
  if (!goes_on_) return Stopped();
  if (now - moved_ < patience_) return {};
  const double seconds = std::chrono::duration<double>(patience_).count();
  return {kErrUnreachable, "nothing has moved for " + std::to_string(std::lround(seconds)) +
                               " s; look at the storage and run it again"};
}

bool Watch::GoesOn() {
  moved_ = Clock::now();
  if (IsDue(moved_)) goes_on_ = watcher_.GoesOn();
  return goes_on_;
}

Status Watch::Wait() {
  const Clock::time_point now = Clock::now();
  if (IsDue(now)) goes_on_ = watcher_.GoesOn();
  return Judge(now);
}

Status Watch::Tell(std::uint64_t done, std::uint64_t total, std::uint64_t sent,
                   std::uint64_t activity) {
  const Clock::time_point now = Clock::now();
  const std::uint64_t sum = done + sent + activity;
  if (sum != told_) moved_ = now;
  told_ = sum;
  if (IsDue(now)) {
    watcher_.Tell(done, total, sent);
    goes_on_ = watcher_.GoesOn();
  }
  return Judge(now);
}

}  // namespace VrelDR
