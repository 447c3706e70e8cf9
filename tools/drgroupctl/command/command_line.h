#pragma once

#include <string>
#include <vector>

#include "command/verb.h"

namespace drgroupctl {

// What a command line asks for: a verb to run, or a text to print.
struct Command {
  const Verb* verb = nullptr;  // null when `text` is all that is wanted
  Arguments arguments;
  std::string text;
  Json::Value document = {};  // what programs get in the place of `text`
};

// Whether --json is on a command line, which matters before anything else of it is understood.
bool WantsJson(const std::vector<std::string>& words);

// Understands the words behind the program's name. Throws a usage failure, and checks every value.
Command ParseCommandLine(const std::vector<std::string>& words);

}  // namespace drgroupctl
