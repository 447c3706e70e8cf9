#pragma once

#include <set>
#include <string>
#include <vector>

#include "step.h"

namespace torture {

// A cut of the power: what was acknowledged before it, and what was on its way.
struct Moment {
  std::string name;   // of the disks that were kept
  std::string about;  // for people
  Step step;
  bool is_acknowledged = false;  // the step had ended well
  Sight before, after;  // as seen by a running host; `after` the step, or the step run again
  // Targets that were written without a sync: what they hold themselves is promised by nobody.
  std::set<std::string> unsynced;
  // The step had ended well, and made other things than those of `after`, under other names.
  bool is_done = false;
  // Whether the host is to go on after the look: syncs, takes over, and so on.
  bool lives_on = true;
};

// What of a host, as it is seen after a cut, breaks a promise: something acknowledged that is gone
// or other than it was, something damaged or half done that looks whole. Empty when all is well.
std::vector<std::string> Judge(const Moment& moment, const Sight& seen);

// The same after the interrupted step was run again.
std::vector<std::string> JudgeAgain(const Moment& moment, const Sight& seen, const Sight& again);

}  // namespace torture
