#include "command/confirm.h"

#include <unistd.h>

#include <iostream>
#include <sstream>

#include "output/console.h"
#include "output/failure.h"

namespace drgroupctl {

namespace {

// Whoever cannot be asked has the same lines to decide by.
Failure NobodyToAsk(const std::string& loss, const std::string& details) {
  Failure failure(ExitCode::kRefused,
                  "this would " + loss + ": run it with --yes to go on without being asked");
  failure.is_unconfirmed = true;
  std::istringstream lines(details);
  for (std::string line; std::getline(lines, line);) {
    failure.report.AddText(line);
    failure.details["losses"].append(line);
  }
  return failure;
}

}  // namespace

void Confirm(const Arguments& args, const std::string& loss, const std::string& details) {
  if (args.Has("--yes")) {
    PrintOnTerminal(details);
    return;
  }
  if (isatty(STDIN_FILENO) == 0 || isatty(STDERR_FILENO) == 0) {
    throw NobodyToAsk(loss, details);
  }
  PrintOnTerminal(details + "This will " + loss + ". Go on? [y/N] ");
  std::string answer;
  std::getline(std::cin, answer);
  if (answer != "y" && answer != "Y" && answer != "yes") {
    Failure failure(ExitCode::kRefused, "not confirmed: nothing was changed");
    failure.is_unconfirmed = true;
    throw failure;
  }
}

}  // namespace drgroupctl
