#pragma once

#include <syslog.h>
#include <unistd.h>

// The library's log lines: one syslog call each. A source file that logs defines `kUnit`, the path
// of its source unit. The message is a literal; what callers gave is an argument, never a format.

// unit:line(function)[LEVEL][pid]: message
#define VRELDRGROUP_LOG_AS(priority, level, function, message, ...)                 \
  syslog(priority, "%s:%d(%s)[%s][%d]: " message, kUnit, __LINE__, function, level, \
         getpid() __VA_OPT__(, ) __VA_ARGS__)
#define LOG_LONG_ERR(message, ...) \
  VRELDRGROUP_LOG_AS(LOG_ERR, "ERR", __func__, message __VA_OPT__(, ) __VA_ARGS__)
#define LOG_LONG_WARN(message, ...) \
  VRELDRGROUP_LOG_AS(LOG_WARNING, "WARN", __func__, message __VA_OPT__(, ) __VA_ARGS__)
#define LOG_LONG_NOTICE(message, ...) \
  VRELDRGROUP_LOG_AS(LOG_NOTICE, "NOTICE", __func__, message __VA_OPT__(, ) __VA_ARGS__)

// unit:line message
#define LOG_SHORT_ERR(message, ...) \
  syslog(LOG_ERR, "%s:%d " message, kUnit, __LINE__ __VA_OPT__(, ) __VA_ARGS__)
