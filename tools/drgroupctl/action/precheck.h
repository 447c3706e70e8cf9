#pragma once

#include <optional>
#include <string>
#include <vector>

#include "action/prepared.h"
#include "host/in_use.h"
#include "output/report.h"

namespace drgroupctl {

// One thing that was found out about one target before an action.
struct Check {
  std::string target;
  std::string check;  // the task that was asked
  bool passed = false;
  std::string evidence;             // of a check that passed, why there is nothing to do, if so
  ExitCode code = ExitCode::kDone;  // of one that did not
};

// Asks the action's checker and the action's own operation of every target whether it would be
// refused, in the order of the targets. Changes nothing.
std::vector<Check> CheckTargets(const Prepared& prepared);

// Adds a check "in_use" for each target that somebody is in the way of.
void AddInUse(const InUse& inUse, std::vector<Check>& checks);

// What the first check that did not pass makes of the whole action, with all of them in its details
// and its report; nothing when all passed.
std::optional<Failure> RefusalOf(const std::string& title, const std::vector<Check>& checks);

// Adds the checks to a report: the table "checks".
void AddChecks(Report& report, const std::vector<Check>& checks);

}  // namespace drgroupctl
