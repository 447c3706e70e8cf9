#include "action/crew.h"

#include <system_error>
#include <utility>

namespace drgroupctl {

Crew::~Crew() {
  {
    const std::lock_guard lock(mutex_);
    is_over_ = true;
  }
  changed_.notify_all();
  for (std::thread& each : threads_) each.join();
}

bool Crew::HasThread() {
  {
    const std::lock_guard lock(mutex_);
    if (idle_ > queue_.size()) return true;
  }
  if (most_ > 1 && threads_.size() < most_) {
    try {
      threads_.emplace_back([this] { Work(); });
    } catch (const std::system_error&) {  // those that there are do it
    }
  }
  return !threads_.empty();
}

void Crew::Start(std::size_t number, std::function<void()> job) {
  const bool isHandedOver = HasThread();
  if (!isHandedOver) job();
  {
    const std::lock_guard lock(mutex_);
    if (isHandedOver) {
      queue_.push_back({number, std::move(job)});
    } else {
      ended_.push_back(number);
    }
  }
  changed_.notify_all();
}

std::size_t Crew::AwaitEnd() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return !ended_.empty(); });
  const std::size_t number = ended_.front();
  ended_.pop_front();
  return number;
}

void Crew::Work() {
  std::unique_lock lock(mutex_);
  for (;;) {
    ++idle_;
    changed_.wait(lock, [this] { return is_over_ || !queue_.empty(); });
    --idle_;
    if (queue_.empty()) return;
    const Job job = std::move(queue_.front());
    queue_.pop_front();
    lock.unlock();
    job.run();
    lock.lock();
    ended_.push_back(job.number);
    changed_.notify_all();
  }
}

}  // namespace drgroupctl
