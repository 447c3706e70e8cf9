#pragma once

#include <vreldr/plan.h>

#include <map>
#include <string>

#include "output/report.h"

namespace drgroupctl {

// How the plans of this host stand at this moment, read once: what they are and the number that the
// library gives for each on this node.
struct PlanSight {
  std::map<std::string, std::vector<VrelDR::DRPlan>> by_target;  // by either copy, oldest first
  std::map<std::string, VrelDR::DRSiteStatus> statuses;          // by plan
};

// Reads them for the plans that have one of these targets.
PlanSight LookAtPlans(const std::vector<std::string>& targets);

// How a plan stands, as a row: its state and direction, its last snapshot that arrived, what runs
// or ran last, what waits to be sent and what is wrong.
Json::Value StatusRow(const VrelDR::DRPlan& plan, VrelDR::DRSiteStatus status);
// The same for a target without a plan.
Json::Value UnprotectedRow();

// The columns of such rows behind the target's.
std::vector<Column> StatusColumns();

}  // namespace drgroupctl
