#pragma once

#include <functional>
#include <string>

#include "plan/host_plan.h"

namespace VrelDR {

// An operation on a plan, as the one way of running operations needs it.
struct PlanWork {
  DRPlanOPStatus op = kOpNone;
  std::string what;  // "sync", "fail over", for "cannot ... plan"
  // Whether it would be refused. Changes nothing, and is called with and without the plan's lock.
  std::function<Status(HostPlan&)> check;
  // Does it. A failure is taken back by the caller as far as that is not said otherwise.
  std::function<Status(HostPlan&)> act;
  // Goes on although an interrupted operation cannot be settled.
  bool is_forced = false;
  std::string snap_id = {};  // a snapshot that goes when it is taken back
};

// Runs the operation on the plan as its only one: settles what another one left, checks, acts and
// keeps the journal. With `checkOnly` only checks.
Status RunPlanWork(const std::string& planId, bool checkOnly, const PlanWork& work);

}  // namespace VrelDR
