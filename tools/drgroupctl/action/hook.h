#pragma once

#include <string>
#include <vector>

#include "output/console.h"

namespace drgroupctl {

// What a group's hook is told.
struct HookEvent {
  std::string group_id;
  std::string kind;    // of the run, as its history calls it
  std::string result;  // "failed", or "recovered" for the first success after that
  int exit_code = 0;
  std::string message;
};

// Runs the command with the group, the kind and the result behind its own arguments, and all of the
// event in its environment. What it prints goes to standard error. It has a minute, then it is
// killed with all that it has started; what goes wrong with it is a warning.
void TellHook(const std::vector<std::string>& command, const HookEvent& event, Warnings& warnings);

}  // namespace drgroupctl
