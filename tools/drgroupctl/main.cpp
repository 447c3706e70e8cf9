#include <fcntl.h>
#include <unistd.h>

#include <clocale>
#include <csignal>

#include "tool.h"

namespace {

// A standard stream that is closed would give its number to the next file that is opened, and a
// report would end up in there. What takes its place refuses to be read or written instead.
void OccupyStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(stream, F_GETFD) == -1) {
      (void)open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  OccupyStandardStreams();
  // A reader that went away is an error that can be told; a killed process cannot tell it.
  std::signal(SIGPIPE, SIG_IGN);
  // For the widths of characters only: messages and numbers stay as they are.
  std::setlocale(LC_CTYPE, "C.UTF-8");
  return drgroupctl::RunTool(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
}
