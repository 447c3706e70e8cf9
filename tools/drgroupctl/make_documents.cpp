#include <cstdio>
#include <cstring>
#include <string>

#include "command/completion.h"
#include "command/manual_page.h"
#include "groups/group_store.h"

// Run by the build: writes what is made from the table of verbs to standard output.
int main(int argc, char** argv) {
  std::string text;
  if (argc == 2 && std::strcmp(argv[1], "manual-page") == 0) {
    text = drgroupctl::ManualPage(drgroupctl::LinkPath("GROUP"));
  }
  if (argc == 2 && std::strcmp(argv[1], "bash-completion") == 0)
    text = drgroupctl::BashCompletion();
  if (text.empty()) {
    std::fputs("usage: drgroupctl_documents manual-page|bash-completion\n", stderr);
    return 2;
  }
  return std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0 ? 1 : 0;
}
