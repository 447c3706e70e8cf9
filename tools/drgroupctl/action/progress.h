#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

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

// Shows how far an action is while its operations run in another thread: as a bar on a terminal,
// which is cleared at the end, as a line every few seconds elsewhere, and with --json not at all.
// While it lives, SIGINT and SIGTERM ask a running sync to stop, which ends it with what has
// arrived kept; a second one ends the process.
class Progress {
 public:
  Progress(const Prepared& prepared, const Arguments& args);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  // The failure to end with when a signal has asked for a stop.
  std::optional<Failure> FindStop() const;

  // While it lives, the operation of a target runs.
  class Scope {
   public:
    Scope(Progress& progress, const std::string& target) : progress_(progress) {
      progress_.Begin(target);
    }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    ~Scope() { progress_.End(); }

   private:
    Progress& progress_;
  };

 private:
  enum class Mode { kNone, kLines, kBar };

  void Begin(const std::string& target);
  void End();
  void Watch();
  std::string PlanOf(const std::string& target) const;
  void Show(const std::string& target, const std::string& planId, std::size_t index);

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
  std::string target_;     // empty while none runs
  std::size_t begun_ = 0;  // how many targets
  bool is_over_ = false;

  std::thread thread_;
};

}  // namespace drgroupctl
