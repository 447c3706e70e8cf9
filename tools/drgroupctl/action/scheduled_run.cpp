#include "action/scheduled_run.h"

#include "output/text.h"

namespace drgroupctl {

namespace {

// Whether it lies ahead of the clock by so much that waiting for it would let more than one elapse
// pass: the clock was wrong then.
bool IsFarAhead(const ScheduleMark& mark, std::int64_t now, Calendar& calendar) {
  if (mark.last <= now) return false;
  const std::vector<std::int64_t> elapses = calendar.After(mark.calendar, now, 2);
  return elapses.size() == 2 && mark.last >= elapses[1];
}

}  // namespace

ScheduleMark BringUpToDate(const Group& group, const std::string& kind, std::int64_t now,
                           Calendar& calendar) {
  const std::string& expression = group.schedule.at(kind);
  ScheduleMark mark = ReadMark(group.directory, kind).value_or(ScheduleMark());
  if (mark.calendar == expression && !IsFarAhead(mark, now, calendar)) return mark;
  mark.calendar = expression;
  mark.last = now;
  mark.next = calendar.Next(expression, now);
  WriteMark(group.directory, kind, mark);
  return mark;
}

bool IsDue(const ScheduleMark& mark, std::int64_t now) {
  return mark.next != 0 && mark.last <= now && mark.next <= now;
}

std::string WhyPassedOver(const std::vector<std::string>& targets, const std::string& kind,
                          const PlanSight& sight) {
  // The catalogue of either side has its own rule.
  if (kind == "prune") return {};
  for (const std::string& target : targets) {
    const auto plans = sight.by_target.find(target);
    if (plans == sight.by_target.end()) continue;
    for (const VrelDR::PlanStanding* each : plans->second) {
      if (each->plan.GetWorkingTargetId() != target) {
        return "passed over as long as target " + Quote(target) + " is the copy that does not work";
      }
      if (kind == "sync" && each->plan.GetStatus() == VrelDR::kPlanFailover) {
        return "passed over as long as target " + Quote(target) +
               " is failed over and nothing is replicated";
      }
    }
  }
  return {};
}

}  // namespace drgroupctl
