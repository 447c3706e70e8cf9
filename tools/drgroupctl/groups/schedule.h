#pragma once

#include <json/value.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "groups/range_lock.h"

// What is done with a group by the calendar. When it was done last stands in a file of its own for
// each kind, beside the group's definition, so that a run that takes long is in nobody's way.
namespace drgroupctl {

// Calendar expressions by the kind of run: "snapshot", "sync", "prune".
using Schedule = std::map<std::string, std::string>;

// Every kind that can be scheduled, in the order in which they are run when all are due.
const std::vector<std::string>& ScheduledKinds();

Json::Value ToJson(const Schedule& schedule);
// False, with what is wrong in `problem`, when it is no schedule.
bool ReadSchedule(const Json::Value& json, Schedule& schedule, std::string& problem);

// How far a group's schedule has come with one kind.
struct ScheduleMark {
  std::string calendar;         // that `next` was found by
  std::int64_t last = 0;        // up to here the calendar's elapses are dealt with
  std::int64_t next = 0;        // the first one after that; 0 when there is none
  std::int64_t begin_time = 0;  // of the last run; 0 before the first
  std::string result;           // of the last run, and why: "done", "failed", "skipped", "busy"...
  std::string message;
};

// Nothing when there is none. Throws when it cannot be read.
std::optional<ScheduleMark> ReadMark(const std::string& dir, const std::string& kind);
// On disk when it returns; throws when it cannot be written.
void WriteMark(const std::string& dir, const std::string& kind, const ScheduleMark& mark);

// Held by whoever runs the kind by the group's schedule. Nothing when somebody else does; throws
// when it cannot be had.
std::optional<RangeLock> LockSchedule(const std::string& dir, const std::string& kind);
bool IsScheduleRunning(const std::string& dir, const std::string& kind);

// The files of a group's schedule; whoever deletes the group removes them.
std::vector<std::string> ScheduleFiles(const std::string& dir);

}  // namespace drgroupctl
