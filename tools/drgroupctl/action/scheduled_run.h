#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "action/plan_status.h"
#include "groups/group_store.h"
#include "groups/schedule.h"
#include "host/calendar.h"

namespace drgroupctl {

// How far the group's schedule has come with a kind that it has, by the clock `now`: what was never
// looked at begins now, and what lies ahead of the clock by more than an interval does so again.
// Writes what that changes; throws when it cannot. The caller holds the lock of the kind.
ScheduleMark BringUpToDate(const Group& group, const std::string& kind, std::int64_t now,
                           Calendar& calendar);

// Whether something is to be run. What was missed counts once.
bool IsDue(const ScheduleMark& mark, std::int64_t now);

// Why a kind is not run now on the group, although it is due; empty when it is run.
std::string WhyPassedOver(const std::vector<std::string>& targets, const std::string& kind,
                          const PlanSight& sight);

}  // namespace drgroupctl
