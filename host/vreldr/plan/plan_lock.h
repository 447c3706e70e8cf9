#pragma once

#include <string>

#include "base/held_file.h"
#include "base/status.h"

namespace VrelDR {

// The right to work on one plan, held until the object goes or the process ends however it ends.
// Readers need no lock, and can see without taking it whether somebody has it.
class PlanLock {
 public:
  // Takes the lock, kept below `stateDir`. Good with `taken` false when somebody else has it.
  Status Acquire(const std::string& stateDir, const std::string& planId, bool& taken);
  static bool IsHeld(const std::string& stateDir, const std::string& planId);
  // Removes the lock's file. The plan's identifier is never used again, so that nobody misses it.
  static void Remove(const std::string& stateDir, const std::string& planId);

 private:
  HeldFile file_;
};

}  // namespace VrelDR
