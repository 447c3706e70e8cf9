#pragma once

#include <gmock/gmock.h>

#include <string>
#include <vector>

// What the library tells the system log. The test program itself defines syslog, so nothing reaches
// the log of the machine; lines come to the LogCapture that is alive, or are dropped without one.
namespace test_support {

struct LogEntry {
  int priority = 0;
  std::string text;
};

// Collects log lines from its construction on, of all threads. One at a time in a program.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<LogEntry> Entries() const;
  void Clear();
};

// A line's parts: "UNIT:LINE(FUNCTION)[LEVEL][PID]: MESSAGE" in the long form and
// "UNIT:LINE MESSAGE" in the short one.
struct LogLine {
  std::string unit;
  int line = 0;
  std::string function;
  std::string level;
  int pid = 0;
  std::string message;
};

// False, with `line` in an undefined state, when `text` does not have the form.
bool ParseLongLine(const std::string& text, LogLine& line);
bool ParseShortLine(const std::string& text, LogLine& line);

// Match one LogEntry in the long form, of this process and with a positive line number, whose parts
// are exactly these; the priority and the level word go together.
testing::Matcher<const LogEntry&> Err(const std::string& unit, const std::string& function,
                                      const std::string& message);
testing::Matcher<const LogEntry&> Warn(const std::string& unit, const std::string& function,
                                       const std::string& message);
testing::Matcher<const LogEntry&> Notice(const std::string& unit, const std::string& function,
                                         const std::string& message);

// The same for the short form, which is always at LOG_ERR.
testing::Matcher<const LogEntry&> ShortErr(const std::string& unit, const std::string& message);

void PrintTo(const LogEntry& entry, std::ostream* out);

}  // namespace test_support
