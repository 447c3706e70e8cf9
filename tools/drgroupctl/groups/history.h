#pragma once

#include <vreldrcore/sqlite_db.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "groups/range_lock.h"

// What was done with a group: a bounded list beside its definition. It is for people and monitors;
// nothing that acts on the group goes by it, and what cannot be written to it is not done any less.
namespace drgroupctl {

// Kept on disk: never change a value. One that runs has none there.
enum class RunResult {
  kDone = 0,
  kFailed = 1,
  kStopped = 2,      // somebody stopped it
  kInterrupted = 3,  // its process ended before it did
  kRunning = 4,
};

const char* ToText(RunResult result);

struct HistoryRun {
  long id = 0;
  std::string kind;     // "sync"
  long begin_time = 0;  // seconds since the epoch
  std::optional<long> duration_ms;
  RunResult result = RunResult::kRunning;
  int exit_code = 0;
  std::string message;              // why it failed, else empty
  std::string gsnap_id;             // that it made or used; may be empty
  std::optional<long> sent_bytes;   // nothing when that is not known, or nothing is sent
  std::optional<long> lag_seconds;  // of what has arrived, when a sync was done
};

// The files of a group's history in the group's directory; whoever deletes the group removes them.
std::vector<std::string> HistoryFiles(const std::string& dir);

class History {
 public:
  // How much stays, and in any case the newest of each kind with each result.
  static constexpr int kMostRuns = 10000;
  static constexpr int kMostDays = 400;

  explicit History(const std::string& dir);

  // The newest runs, the newest first: all, or those that failed or were interrupted. None where
  // nothing was ever recorded. Throws when it cannot be read.
  std::vector<HistoryRun> Newest(std::size_t count, bool onlyFailed) const;

  // The newest of each kind with each result, in no order. Throws when it cannot be read.
  std::vector<HistoryRun> NewestOfEach() const;

 private:
  friend class HistoryEntry;

  using Visit = std::function<bool(const HistoryRun&)>;
  void Ask(VrelDRCore::SelectCommand& command, const Visit& visit) const;
  HistoryRun ToRun(const VrelDRCore::SqliteValueList& row) const;

  std::string lock_path_;
  VrelDRCore::SqliteDB db_;
};

// A run that is being recorded. Nothing here fails: what could not be written is told.
class HistoryEntry {
 public:
  // Records that it has begun, and of those before it which were interrupted.
  HistoryEntry(const std::string& dir, const std::string& kind);

  // How it ended: all of `run` but what it was and when it began.
  void End(const HistoryRun& run);
  // It was no run: nothing was begun.
  void Forget();

  // Whether the one of its kind before it that ended had failed.
  bool IsAfterFailure() const { return is_after_failure_; }
  // Why it is not, or may not be, in the history; empty when it is.
  const std::string& Problem() const { return problem_; }

 private:
  bool Open();
  bool Begin(const std::string& kind);
  void SettleInterrupted();
  void Note();

  History history_;
  long id_ = 0;  // 0 as long as nothing was recorded
  bool is_after_failure_ = false;
  std::optional<RangeLock> lock_;  // as long as it runs
  std::string problem_;
};

}  // namespace drgroupctl
