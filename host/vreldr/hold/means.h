#pragma once

#include <string>

#include "base/status.h"
#include "hold/guardian.h"
#include "vreldr/quiesce.h"

// The means of holding a writer that stand above control groups, a file for each. Each function
// looks whether the writer could be held and prepares it; kErrNotHeld, with one line that names the
// writer, what is wrong and what to do, when it could not.
namespace VrelDR {

// Both programs of a command have to be there.
Status OpenCommand(const QuiesceCommand& command, HeldWriter& writer);

// A virtual machine has to run. Where an agent in it answers, its file systems are frozen by that,
// else all of it stands still.
Status OpenDomain(const std::string& domain, HeldWriter& writer);

// A unit has to run. Its control group is what is frozen.
Status OpenUnit(const std::string& unit, HeldWriter& writer);

}  // namespace VrelDR
