#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "action/prepared.h"
#include "command/verb.h"

namespace drgroupctl {

// How far one operation is.
struct Reading {
  int percent = 0;
  std::uint64_t done = 0;   // bytes of a sync
  std::uint64_t total = 0;  // 0 when there are none to tell
};

// How far an action is, as one line of at most `width` columns with a bar.
std::string ProgressBar(const std::string& title, int percent, const std::string& details,
                        std::size_t width);

// Shows how far an action is while its operations run in other threads than its own: as a bar on a
// terminal, which is cleared at the end, as a line for each of them every few seconds elsewhere,
// and with --json not at all. While it lives, SIGINT and SIGTERM ask all syncs that run to stop,
// which ends them with what has arrived kept; a second one ends the process.
class Progress {
 public:
  Progress(const Prepared& prepared, const Arguments& args);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  // The failure to end with when a signal has asked for a stop.
  std::optional<Failure> FindStop() const;

  // The operation of a target begins to run, and has ended.
  void Begin(const std::string& target);
  void End(const std::string& target);

 private:
  enum class Mode { kNone, kLines, kBar };

  // An operation that runs.
  struct Running {
    std::string target;
    std::string plan;
    std::size_t number;  // of how many were begun, from 1
  };

  void Watch();
  std::string PlanOf(const std::string& target) const;
  static void Stop(const std::vector<Running>& running);
  void Show(const std::vector<Running>& running, std::size_t ended);

  // Only read once the thread runs.
  const std::string task_;
  const std::string group_;
  const Prepared& prepared_;
  const bool is_sync_;
  Mode mode_ = Mode::kNone;

  // The thread's own.
  int percent_ = 0;
  std::uint64_t last_line_ = 0;  // when, in milliseconds

  std::mutex mutex_;  // for what follows
  std::condition_variable changed_;
  std::vector<Running> running_;  // without their plans
  std::size_t begun_ = 0;         // how many targets
  bool is_over_ = false;

  std::thread thread_;
};

}  // namespace drgroupctl
