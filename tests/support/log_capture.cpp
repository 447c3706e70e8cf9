#include "log_capture.h"

#include <sys/syslog.h>
#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <ostream>
#include <string_view>

#include "log_sink.h"

namespace test_support {
namespace {

// Takes what stands before `end` off the front of `rest`, and `end` with it.
bool TakeUntil(std::string_view& rest, std::string_view end, std::string& part) {
  const auto at = rest.find(end);
  if (at == std::string_view::npos) {
    return false;
  }
  part = rest.substr(0, at);
  rest.remove_prefix(at + end.size());
  return true;
}

bool ToNumber(const std::string& text, int& number) {
  if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) {
    return false;
  }
  number = std::atoi(text.c_str());
  return true;
}

MATCHER_P5(IsLongLine, priority, unit, function, level, message,
           std::string(negation ? "is not" : "is") + " a line of " + unit + "(" + function + ")[" +
               level + "] at priority " + testing::PrintToString(priority) + ": " + message) {
  LogLine line;
  return ParseLongLine(arg.text, line) && arg.priority == priority && line.unit == unit &&
         line.line > 0 && line.function == function && line.level == level &&
         line.pid == getpid() && line.message == message;
}

MATCHER_P(IsShortLine, expected, "") {
  LogLine line;
  return ParseShortLine(arg.text, line) && arg.priority == LOG_ERR && line.unit == expected.unit &&
         line.line > 0 && line.message == expected.message;
}

}  // namespace

LogCapture::LogCapture() {
  LogSink::Get().Open();
}

LogCapture::~LogCapture() {
  LogSink::Get().Close();
}

std::vector<LogEntry> LogCapture::Entries() const {
  return LogSink::Get().Copy();
}

void LogCapture::Clear() {
  LogSink::Get().Open();
}

bool ParseLongLine(const std::string& text, LogLine& line) {
  std::string_view rest = text;
  std::string number;
  std::string pid;
  const bool parsed = TakeUntil(rest, ":", line.unit) && TakeUntil(rest, "(", number) &&
                      TakeUntil(rest, ")[", line.function) && TakeUntil(rest, "][", line.level) &&
                      TakeUntil(rest, "]: ", pid) && ToNumber(number, line.line) &&
                      ToNumber(pid, line.pid);
  line.message = rest;
  return parsed;
}

bool ParseShortLine(const std::string& text, LogLine& line) {
  std::string_view rest = text;
  std::string number;
  const bool parsed = TakeUntil(rest, ":", line.unit) && TakeUntil(rest, " ", number) &&
                      ToNumber(number, line.line);
  line.message = rest;
  return parsed;
}

testing::Matcher<const LogEntry&> Err(const std::string& unit, const std::string& function,
                                      const std::string& message) {
  return IsLongLine(LOG_ERR, unit, function, std::string("ERR"), message);
}

testing::Matcher<const LogEntry&> Warn(const std::string& unit, const std::string& function,
                                       const std::string& message) {
  return IsLongLine(LOG_WARNING, unit, function, std::string("WARN"), message);
}

testing::Matcher<const LogEntry&> Notice(const std::string& unit, const std::string& function,
                                         const std::string& message) {
  return IsLongLine(LOG_NOTICE, unit, function, std::string("NOTICE"), message);
}

testing::Matcher<const LogEntry&> ShortErr(const std::string& unit, const std::string& message) {
  LogLine expected;
  expected.unit = unit;
  expected.message = message;
  return IsShortLine(expected);
}

void PrintTo(const LogEntry& entry, std::ostream* out) {
  *out << "{priority " << entry.priority << ", \"" << entry.text << "\"}";
}

}  // namespace test_support
