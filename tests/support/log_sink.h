#pragma once

#include <mutex>
#include <vector>

#include "log_capture.h"

namespace test_support {

// Where the program's own syslog puts its lines: one per program, as syslog is.
class LogSink {
 public:
  static LogSink& Get();

  // Starts over, empty; stops and forgets.
  void Open();
  void Close();

  void Add(LogEntry entry);
  std::vector<LogEntry> Copy() const;

 private:
  mutable std::mutex mutex_;
  bool open_ = false;
  std::vector<LogEntry> entries_;
};

}  // namespace test_support
