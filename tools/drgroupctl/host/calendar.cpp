#include "host/calendar.h"

#include <algorithm>
#include <ctime>
#include <optional>
#include <sstream>
#include <system_error>

#include "host/program.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

constexpr int kMostAsked = 2;

// "Sun 2026-11-22 23:00:00 UTC"; nothing of another zone.
std::optional<std::int64_t> ParseUtc(const std::string& text) {
  if (!text.ends_with(" UTC")) return std::nullopt;
  std::tm parts = {};
  const char* const date = text.c_str() + std::min(text.find(' '), text.size());
  if (strptime(date, " %Y-%m-%d %H:%M:%S", &parts) == nullptr) return std::nullopt;
  return timegm(&parts);
}

// The elapses, each on a line that is followed by one that begins with "(in UTC):" where this host
// has another zone.
std::vector<std::int64_t> ParseElapses(const std::string& output) {
  std::vector<std::int64_t> elapses;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t colon = line.find(": ");
    const std::size_t begin = line.find_first_not_of(' ');
    if (colon == std::string::npos || begin > colon) continue;
    const std::string name = line.substr(begin, colon - begin);
    if (name != "Next elapse" && !name.starts_with("Iter. ") && name != "(in UTC)") continue;
    if (const auto time = ParseUtc(line.substr(colon + 2))) elapses.push_back(*time);
  }
  return elapses;
}

}  // namespace

std::vector<std::int64_t> Calendar::After(const std::string& expression, std::int64_t base,
                                          int count) {
  const auto [place, isNew] = known_.try_emplace({expression, base});
  if (isNew) {
    std::string output;
    int error = 0;
    const std::optional<int> code =
        RunForOutput({{"systemd-analyze", "calendar", "--iterations=" + std::to_string(kMostAsked),
                       "--base-time=@" + std::to_string(base), "--", expression},
                      {"LC_ALL=C", "SYSTEMD_COLORS=0", "SYSTEMD_PAGER="}},
                     output, error);
    if (!code) {
      throw Failure(ExitCode::kConfiguration,
                    "cannot run the program systemd-analyze, which tells what calendars mean: " +
                        std::generic_category().message(error) + "; install the package systemd");
    }
    if (*code != 0) {
      throw Failure(ExitCode::kUsage,
                    "calendar " + Quote(expression) +
                        " is not understood: give it as in hourly, daily, \"*:0/15\" or \"Mon..Fri "
                        "22:30\"; \"man systemd.time\" tells all forms");
    }
    place->second = ParseElapses(output);
  }
  std::vector<std::int64_t> elapses = place->second;
  if (elapses.size() > static_cast<std::size_t>(count)) elapses.resize(count);
  return elapses;
}

std::int64_t Calendar::Next(const std::string& expression, std::int64_t base) {
  const std::vector<std::int64_t> elapses = After(expression, base, 1);
  return elapses.empty() ? 0 : elapses.front();
}

}  // namespace drgroupctl
