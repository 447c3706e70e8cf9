#pragma once

#include <string>
#include <vector>

#include "base/status.h"

namespace VrelDR {

// Finds the program with this name in PATH, or at this path when it has a slash. kErrNotHeld, with
// `what` and what to do, when it is not there or cannot be run.
Status FindRunnable(const std::string& name, const std::string& what, std::string& path);

// Runs args[0], an absolute path, in the C locale and puts what it says into `answer`, without the
// line break at its end. kErrNotHeld, with the end of what it says, when it fails or takes longer
// than a few seconds; then it is killed.
Status Ask(std::vector<std::string> args, std::string& answer);

// The last line of a program's output that is not empty.
std::string LastLine(const std::string& text);
// How a program ended that did not succeed; `status` is as waitpid gives it.
std::string DescribeEnd(int status, const std::string& output);

}  // namespace VrelDR
