#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace drgroupctl {

// What calendar expressions mean, such as "hourly" or "Mon..Fri 22:30": the program systemd-analyze
// tells, and is asked once for each question. Times are seconds since the epoch; an expression
// without a time zone is of this host's.
class Calendar {
 public:
  // The first `count` elapses after `base`; fewer when there are no more. Throws when the
  // expression is none, or the program cannot be run.
  std::vector<std::int64_t> After(const std::string& expression, std::int64_t base, int count);
  // The first one; 0 when there is none.
  std::int64_t Next(const std::string& expression, std::int64_t base);

 private:
  std::map<std::pair<std::string, std::int64_t>, std::vector<std::int64_t>> known_;
};

}  // namespace drgroupctl
