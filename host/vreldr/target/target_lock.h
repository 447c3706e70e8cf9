#pragma once

#include <string>

#include "base/held_file.h"
#include "base/status.h"

namespace VrelDR {

// The right to change one target, held until the object goes or the process ends however it ends.
// Different targets do not wait for each other; readers need no lock.
class TargetLock {
 public:
  // Takes the lock, kept below `stateDir`. kErrBusy at once when somebody else has it.
  Status Acquire(const std::string& stateDir, const std::string& targetId);

 private:
  HeldFile file_;
};

}  // namespace VrelDR
