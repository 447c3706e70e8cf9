#include "groups/retention.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <optional>
#include <utility>

#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

// The calendar's part that a time is in, by a number that grows with time, and its name for people.
struct Period {
  std::int64_t number = 0;
  std::string name;
};

std::chrono::sys_days DayOf(std::int64_t time) {
  return std::chrono::floor<std::chrono::days>(
      std::chrono::sys_seconds(std::chrono::seconds(time)));
}

std::string DayText(std::chrono::sys_days day) {
  const std::chrono::year_month_day date(day);
  char text[32];
  std::snprintf(text, sizeof text, "%04d-%02u-%02u", int(date.year()), unsigned(date.month()),
                unsigned(date.day()));
  return text;
}

Period HourOf(std::int64_t time) {
  const auto hour =
      std::chrono::floor<std::chrono::hours>(std::chrono::sys_seconds(std::chrono::seconds(time)));
  const std::int64_t ofDay = (hour - DayOf(time)).count();
  return {hour.time_since_epoch().count(),
          DayText(DayOf(time)) + (ofDay < 10 ? " 0" : " ") + std::to_string(ofDay) + ":00"};
}

Period CalendarDayOf(std::int64_t time) {
  return {DayOf(time).time_since_epoch().count(), DayText(DayOf(time))};
}

Period WeekOf(std::int64_t time) {
  const std::chrono::sys_days day = DayOf(time);
  const auto sinceMonday = std::chrono::weekday(day) - std::chrono::Monday;
  const std::chrono::sys_days monday = day - sinceMonday;
  return {monday.time_since_epoch().count(), "the week from " + DayText(monday)};
}

Period MonthOf(std::int64_t time) {
  const std::chrono::year_month_day date(DayOf(time));
  return {std::int64_t{int(date.year())} * 12 + unsigned(date.month()),
          DayText(DayOf(time)).substr(0, 7)};
}

struct Kind {
  const char* name;
  unsigned KeepRule::*count;
  Period (*period)(std::int64_t time);  // null where each snapshot is one for itself
};

constexpr Kind kKinds[] = {
    {"last", &KeepRule::last, nullptr},         {"hourly", &KeepRule::hourly, HourOf},
    {"daily", &KeepRule::daily, CalendarDayOf}, {"weekly", &KeepRule::weekly, WeekOf},
    {"monthly", &KeepRule::monthly, MonthOf},
};

Failure KeepFailure(const std::string& text, const std::string& what) {
  return {ExitCode::kUsage,
          "what to keep, " + Quote(text) + ", " + what +
              ": give it as in \"last=24,hourly=48,daily=30,weekly=8,monthly=12\""};
}

std::vector<std::string> PartsOf(const std::string& text) {
  std::vector<std::string> parts(1);
  for (const char c : text) {
    if (c == ',') {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  return parts;
}

// Lets those stay that one kind keeps, of snapshots that stand newest first.
void Keep(const Kind& kind, unsigned count, std::vector<Verdict>& verdicts) {
  std::optional<std::int64_t> seen;
  for (Verdict& each : verdicts) {
    std::string name;
    if (kind.period != nullptr) {
      const Period period = kind.period(each.time);
      if (seen == period.number) continue;
      seen = period.number;
      name = " (" + period.name + ")";
    }
    if (count == 0) return;
    --count;
    each.stays = true;
    each.reasons.push_back(kind.name + name);
  }
}

}  // namespace

KeepRule ParseKeep(const std::string& text) {
  KeepRule rule;
  std::vector<std::string> named;
  for (const std::string& part : PartsOf(text)) {
    const std::size_t equals = part.find('=');
    const std::string name = part.substr(0, equals);
    const auto kind =
        std::ranges::find_if(kKinds, [&](const Kind& each) { return each.name == name; });
    if (equals == std::string::npos || kind == std::end(kKinds)) {
      throw KeepFailure(text, "has " + Quote(part) + ", which says nothing of what stays");
    }
    if (std::ranges::find(named, name) != named.end()) {
      throw KeepFailure(text, "says " + Quote(name) + " twice");
    }
    named.push_back(name);
    const char* begin = part.data() + equals + 1;
    const char* end = part.data() + part.size();
    unsigned count = 0;
    const auto [at, error] = std::from_chars(begin, end, count);
    constexpr unsigned kMost = 1000000;
    if (error != std::errc() || at != end || count > kMost) {
      throw KeepFailure(text, "has no number from 0 to 1000000 in " + Quote(part));
    }
    rule.*kind->count = count;
  }
  if (rule.IsEmpty()) throw KeepFailure(text, "would keep nothing at all");
  return rule;
}

std::string ToText(const KeepRule& rule) {
  std::vector<std::string> parts;
  for (const Kind& each : kKinds) {
    const unsigned count = rule.*each.count;
    if (count != 0) parts.push_back(std::string(each.name) + "=" + std::to_string(count));
  }
  return Join(parts, ",");
}

std::vector<Verdict> Judge(const KeepRule& rule, std::vector<Candidate> candidates) {
  std::ranges::sort(candidates, [](const Candidate& a, const Candidate& b) {
    return std::pair(a.time, a.id) > std::pair(b.time, b.id);
  });
  std::vector<Verdict> verdicts;
  verdicts.reserve(candidates.size());
  for (Candidate& each : candidates) {
    const bool isClaimed = !each.claims.empty();
    verdicts.push_back({std::move(each.id), each.time, isClaimed, std::move(each.claims)});
  }
  for (const Kind& each : kKinds) Keep(each, rule.*each.count, verdicts);
  return verdicts;
}

}  // namespace drgroupctl
