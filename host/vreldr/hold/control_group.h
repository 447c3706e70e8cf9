#pragma once

#include <string>

#include "base/status.h"
#include "hold/guardian.h"

namespace VrelDR {

// Looks whether the control group with this directory can be frozen, and opens what that takes.
// Which of the two kinds it is, is seen from the directory. Refused are one that somebody else has
// frozen, for it would be thawed with the others, and one that holds this process or one that waits
// for it. `name` is what it is called in messages.
Status OpenControlGroup(const std::string& dir, const std::string& name, HeldWriter& writer);

}  // namespace VrelDR
