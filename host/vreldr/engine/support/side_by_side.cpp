#include "engine/support/side_by_side.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <exception>
#include <system_error>
#include <thread>

namespace VrelDR {

bool SharedWatcher::GoesOn() {
  const std::lock_guard lock(mutex_);
  is_stopped_ = is_stopped_ || !watcher_.GoesOn();
  return !is_stopped_;
}

void SharedWatcher::Stop() {
  const std::lock_guard lock(mutex_);
  is_stopped_ = true;
}

Status RunSideBySide(const std::vector<Job>& jobs, std::size_t most, Watcher& watcher) {
  SharedWatcher shared(watcher);
  std::mutex mutex;
  Status first;
  std::atomic<std::size_t> next = 0;
  std::atomic<bool> hasFailed = false;
  const auto work = [&] {
    for (std::size_t at = 0; !hasFailed && (at = next++) < jobs.size();) {
      Status status;
      try {
        status = jobs[at](shared);
      } catch (const std::exception&) {  // out of memory is all that there is
        status = StatusOfErrno(ENOMEM, {});
      }
      if (status.IsOk()) continue;
      {
        const std::lock_guard lock(mutex);
        if (!hasFailed) first = std::move(status);
        hasFailed = true;
      }
      // Not before: that a job was stopped is not why.
      shared.Stop();
    }
  };
  std::vector<std::jthread> others;
  try {
    for (std::size_t i = 1; i < std::min(most, jobs.size()); ++i) others.emplace_back(work);
  } catch (const std::system_error&) {
    // Those that there are do it.
  }
  work();
  others.clear();
  return first;
}

}  // namespace VrelDR
