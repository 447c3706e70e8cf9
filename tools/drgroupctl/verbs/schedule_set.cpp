#include <algorithm>
#include <ctime>
#include <optional>

#include "groups/group_store.h"
#include "host/calendar.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

// The kinds that the command line names, each by the option of its name.
std::vector<std::string> KindsOf(const Arguments& args) {
  std::vector<std::string> kinds;
  for (const std::string& kind : ScheduledKinds()) {
    if (args.Has("--" + kind)) kinds.push_back(kind);
  }
  return kinds;
}

// It begins now. Whoever runs the kind at this moment finds that it has changed.
void BeginMark(const Group& group, const std::string& kind, std::int64_t now, std::int64_t next) {
  if (!LockSchedule(group.directory, kind)) return;
  ScheduleMark mark;
  mark.calendar = group.schedule.at(kind);
  mark.last = now;
  mark.next = next;
  WriteMark(group.directory, kind, mark);
}

Report ScheduleReport(const Group& group) {
  Json::Value rows(Json::arrayValue);
  for (const auto& [kind, calendar] : group.schedule) {
    Json::Value row(Json::objectValue);
    row["kind"] = kind;
    row["calendar"] = calendar;
    rows.append(row);
  }
  Report report;
  report.AddField({"group_id", "Group"}, group.id);
  report.AddTable({"schedule", "Schedule"}, {{"kind", "KIND"}, {"calendar", "CALENDAR"}}, rows);
  return report;
}

Report RunScheduleSet(const Arguments& args, Warnings& /*warnings*/) {
  const std::vector<std::string> kinds = KindsOf(args);
  if (kinds.empty()) {
    throw Failure(ExitCode::kUsage,
                  "nothing is to be scheduled: give --snapshot, --sync or --prune with a calendar");
  }
  const std::int64_t now = std::time(nullptr);
  Calendar calendar;
  for (const std::string& kind : kinds) {
    const std::string expression = args.Text("--" + kind);
    if (calendar.Next(expression, now) != 0) continue;
    throw Failure(ExitCode::kUsage, "calendar " + Quote(expression) +
                                        " has nothing to come: give one that elapses again");
  }
  const GroupLock lock(args.Text("GROUP"));
  Group group = LoadGroup(args.Text("GROUP"));
  const Schedule before = group.schedule;
  for (const std::string& kind : kinds) {
    const std::string expression = args.Text("--" + kind);
    group.schedule[kind] = expression;
    const auto old = before.find(kind);
    if (old != before.end() && old->second == expression) continue;
    BeginMark(group, kind, now, calendar.Next(expression, now));
  }
  WriteDefinition(group);
  return ScheduleReport(group);
}

Report RunScheduleRemove(const Arguments& args, Warnings& /*warnings*/) {
  const GroupLock lock(args.Text("GROUP"));
  Group group = LoadGroup(args.Text("GROUP"));
  std::vector<std::string> kinds = KindsOf(args);
  if (kinds.empty()) kinds = ScheduledKinds();
  for (const std::string& kind : kinds) group.schedule.erase(kind);
  WriteDefinition(group);
  Report report = ScheduleReport(group);
  if (group.schedule.empty()) report.AddText("Nothing is done by the calendar.");
  return report;
}

Parameter CalendarOption(const char* name, const char* summary) {
  return {name, Value::kText, "CALENDAR", summary};
}

}  // namespace

Verb ScheduleSet() {
  return {
      "schedule set",
      "set what is done with a group by the calendar",
      {"A calendar is an expression of the service manager, such as hourly, daily, \"*:0/15\" or "
       "\"Mon..Fri 22:30\", which \"man systemd.time\" tells of; without a time zone it is of "
       "this host's. Kinds that are not named stay as they are. What elapsed before does not "
       "count.",
       "\"schedule run\" does what is due; the timer drgroupctl-schedule.timer calls it every "
       "minute when it is enabled. A pruning deletes what \"snapshot prune GROUP --yes\" "
       "would."},
      "What is done with the group by the calendar.",
      {GroupArgument("the group")},
      {CalendarOption("--snapshot", "when a group snapshot is taken"),
       CalendarOption("--sync", "when what changed is sent"),
       CalendarOption("--prune", "when what the group's rule lets go is deleted")},
      RunScheduleSet};
}

Verb ScheduleRemove() {
  return {"schedule remove",
          "do nothing more with a group by the calendar",
          {"Removes the named kinds from the schedule, or all of it when none is named. What runs "
           "goes on to its end."},
          "What is done with the group by the calendar.",
          {GroupArgument("the group")},
          {Flag("--snapshot", "only the snapshots"), Flag("--sync", "only the syncs"),
           Flag("--prune", "only the prunings")},
          RunScheduleRemove};
}

}  // namespace drgroupctl
