#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace drgroupctl {

// Runs jobs side by side, each with a number by which its end is told. Its threads are made when
// they are first needed and work on until it goes: what the host keeps open for each thread is not
// opened for each job. A job may not throw.
class Crew {
 public:
  // At most so many run at a time, fewer where the system has no more threads. A crew of one has no
  // thread of its own: its jobs run in the one that starts them.
  explicit Crew(std::size_t most) : most_(most) {}
  // Returns when all that was started has ended.
  ~Crew();
  Crew(const Crew&) = delete;
  Crew& operator=(const Crew&) = delete;

  void Start(std::size_t number, std::function<void()> job);
  // Waits until a job has ended whose end was not told yet; one such has to have been started.
  std::size_t AwaitEnd();

 private:
  struct Job {
    std::size_t number;
    std::function<void()> run;
  };

  // Whether somebody is there to run what is queued.
  bool HasThread();
  void Work();

  const std::size_t most_;
  std::vector<std::thread> threads_;

  std::mutex mutex_;  // for what follows
  std::condition_variable changed_;
  std::deque<Job> queue_;
  std::deque<std::size_t> ended_;
  std::size_t idle_ = 0;
  bool is_over_ = false;
};

}  // namespace drgroupctl
