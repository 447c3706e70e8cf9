#include <clocale>
#include <csignal>

#include "tool.h"

int main(int argc, char** argv) {
  // A reader that went away is an error that can be told; a killed process cannot tell it.
  std::signal(SIGPIPE, SIG_IGN);
  // For the widths of characters only: messages and numbers stay as they are.
  std::setlocale(LC_CTYPE, "C.UTF-8");
  return drgroupctl::RunTool(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
}
