#include "command/confirm.h"

#include <unistd.h>

#include <iostream>

#include "output/console.h"
#include "output/failure.h"

namespace drgroupctl {

void Confirm(const Arguments& args, const std::string& loss, const std::string& details) {
  if (args.Has("--yes")) {
    PrintOnTerminal(details);
    return;
  }
  if (isatty(STDIN_FILENO) == 0 || isatty(STDERR_FILENO) == 0) {
    throw Failure(ExitCode::kRefused,
                  "this would " + loss + ": run it with --yes to go on without being asked");
  }
  PrintOnTerminal(details + "This will " + loss + ". Go on? [y/N] ");
  std::string answer;
  std::getline(std::cin, answer);
  if (answer != "y" && answer != "Y" && answer != "yes") {
    throw Failure(ExitCode::kRefused, "not confirmed: nothing was changed");
  }
}

}  // namespace drgroupctl
