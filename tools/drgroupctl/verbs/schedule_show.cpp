#include <ctime>
#include <set>

#include "action/group_action.h"
#include "action/plan_status.h"
#include "action/scheduled_run.h"
#include "groups/group_store.h"
#include "output/console.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

constexpr std::int64_t kPatience = 300;  // seconds: the timer comes every minute

std::vector<Group> GroupsOf(const Arguments& args, Warnings& warnings) {
  if (args.Has("GROUP")) return {LoadGroup(args.Text("GROUP"))};
  std::vector<Group> groups;
  for (const std::string& id : ListGroupIds()) {
    try {
      groups.push_back(LoadGroup(id));
    } catch (const Failure& failure) {  // one bad group does not hide the others
      warnings.Print(failure.message);
    }
  }
  return groups;
}

// What whoever looks has to know beside when it is due.
std::string NoteOn(const Group& group, const std::string& kind, const ScheduleMark& mark,
                   const PlanSight& sight, bool isRunning, std::int64_t now) {
  std::string passedOver = WhyPassedOver(TargetIds(group), kind, sight);
  if (!passedOver.empty()) return passedOver;
  if (mark.last > now) {
    return "the last one lies " + FormatAge(mark.last - now) +
           " ahead of this host's clock, and is not run again";
  }
  if (IsDue(mark, now) && now - mark.next > kPatience && !isRunning) {
    return "overdue by " + FormatAge(now - mark.next) +
           ": is drgroupctl-schedule.timer enabled, or \"schedule run\" called by another?";
  }
  return {};
}

Json::Value TimeValue(std::int64_t time) {
  return time == 0 ? Json::Value() : Json::Value(Json::Int64(time));
}

Json::Value RowOf(const Group& group, const std::string& kind, const PlanSight& sight,
                  std::int64_t now) {
  Json::Value row(Json::objectValue);
  row["group_id"] = group.id;
  row["kind"] = kind;
  row["calendar"] = group.schedule.at(kind);
  ScheduleMark mark;
  std::string problem;
  try {
    mark = ReadMark(group.directory, kind).value_or(ScheduleMark());
  } catch (const Failure& failure) {
    problem = failure.message;
  }
  const bool isRunning = mark.result == "running" && IsScheduleRunning(group.directory, kind);
  const bool isKnown = mark.calendar == group.schedule.at(kind);
  row["next_time"] = TimeValue(isKnown ? mark.next : 0);
  row["last_time"] = TimeValue(mark.begin_time);
  row["last_result"] = mark.result == "running" && !isRunning ? "interrupted" : mark.result;
  row["last_message"] = mark.result == "skipped" ? "" : mark.message;  // the note says it
  row["note"] = problem.empty() ? NoteOn(group, kind, mark, sight, isRunning, now) : problem;
  return row;
}

Report RunScheduleShow(const Arguments& args, Warnings& warnings) {
  const std::vector<Group> groups = GroupsOf(args, warnings);
  std::vector<std::string> targets;
  for (const Group& group : groups) {
    if (group.schedule.empty()) continue;
    for (const std::string& id : TargetIds(group)) targets.push_back(id);
  }
  const PlanSight sight = targets.empty() ? PlanSight() : LookAtPlans(targets);
  const std::int64_t now = std::time(nullptr);
  Json::Value rows(Json::arrayValue);
  for (const Group& group : groups) {
    for (const std::string& kind : ScheduledKinds()) {
      if (group.schedule.count(kind) != 0) rows.append(RowOf(group, kind, sight, now));
    }
  }
  Report report;
  report.AddTable({"schedule", "Schedule"},
                  {{"group_id", "GROUP"},
                   {"kind", "KIND"},
                   {"calendar", "CALENDAR"},
                   {"next_time", "NEXT", Shown::kTime},
                   {"last_time", "LAST", Shown::kTime},
                   {"last_result", "RESULT"},
                   {"last_message", "MESSAGE", Shown::kIfAny},
                   {"note", "NOTE", Shown::kIfAny}},
                  rows);
  return report;
}

}  // namespace

Verb ScheduleShow() {
  return {
      "schedule show",
      "show what is done with groups by the calendar",
      {"Shows for each kind its calendar, when it is due next, when it was run last and how that "
       "ended. A note tells what is passed over, as snapshots and syncs are where the group's "
       "copies do not work, and what should have been run and was not."},
      "Nothing.",
      {AnyGroup()},
      {},
      RunScheduleShow};
}

}  // namespace drgroupctl
