#pragma once

#include <vreldr/standing.h>

#include <map>
#include <string>
#include <vector>

#include "output/report.h"

namespace drgroupctl {

// How plans stand, oldest first, and which of them each target has on one of its sides.
struct PlanSight {
  std::vector<VrelDR::PlanStanding> standings;
  std::map<std::string, std::vector<const VrelDR::PlanStanding*>> by_target;
};

// Looks at the plans of these targets.
PlanSight LookAtPlans(const std::vector<std::string>& targets);

// How a plan stands, as a row: its state and direction, its last snapshot that arrived, what runs
// or ran last, what waits to be sent and what is wrong.
Json::Value StatusRow(const VrelDR::PlanStanding& standing);
// The same for a target without a plan.
Json::Value UnprotectedRow();

// The columns of such rows behind the target's.
std::vector<Column> StatusColumns();

}  // namespace drgroupctl
