#include "log_sink.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

// <syslog.h> is not included: a hardened build defines syslog inline there.

namespace test_support {
namespace {

void Capture(int priority, const char* format, std::va_list arguments) {
  std::va_list again;
  va_copy(again, arguments);
  LogEntry entry;
  entry.priority = priority;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  if (length >= 0) {
    entry.text.resize(static_cast<std::size_t>(length));
    std::vsnprintf(entry.text.data(), entry.text.size() + 1, format, again);
  }
#pragma GCC diagnostic pop
  va_end(again);
  LogSink::Get().Add(std::move(entry));
}

}  // namespace

LogSink& LogSink::Get() {
  static LogSink sink;
  return sink;
}

void LogSink::Open() {
  const std::lock_guard lock(mutex_);
  open_ = true;
  entries_.clear();
}

void LogSink::Close() {
  const std::lock_guard lock(mutex_);
  open_ = false;
  entries_.clear();
}

void LogSink::Add(LogEntry entry) {
  const std::lock_guard lock(mutex_);
  if (open_) {
    entries_.push_back(std::move(entry));
  }
}

std::vector<LogEntry> LogSink::Copy() const {
  const std::lock_guard lock(mutex_);
  return entries_;
}

}  // namespace test_support

// The C library's four ways to write a log line, in the executable, where shared libraries find
// them first.
extern "C" {
__attribute__((visibility("default"), format(printf, 2, 3))) void syslog(int priority,
                                                                         const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  test_support::Capture(priority, format, arguments);
  va_end(arguments);
}

__attribute__((visibility("default"), format(printf, 3, 4))) void __syslog_chk(int priority,
                                                                               int /*flag*/,
                                                                               const char* format,
                                                                               ...) {
  std::va_list arguments;
  va_start(arguments, format);
  test_support::Capture(priority, format, arguments);
  va_end(arguments);
}

__attribute__((visibility("default"), format(printf, 2, 0))) void vsyslog(int priority,
                                                                          const char* format,
                                                                          std::va_list arguments) {
  test_support::Capture(priority, format, arguments);
}

__attribute__((visibility("default"), format(printf, 3, 0))) void __vsyslog_chk(
    int priority, int /*flag*/, const char* format, std::va_list arguments) {
  test_support::Capture(priority, format, arguments);
}
}
