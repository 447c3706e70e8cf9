#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdarg>
#include <vector>

#include "vrelcore/vlibc.h"

extern char** environ;

// posix_spawn, not fork: a service of many gigabytes pays for copying its page tables otherwise.
int VLIBCExec(const char* prog, ...) {
  std::vector<char*> argv{const_cast<char*>(prog)};
  va_list args;
  va_start(args, prog);
  for (char* arg = va_arg(args, char*); arg != nullptr; arg = va_arg(args, char*)) {
    argv.push_back(arg);
  }
  va_end(args);
  argv.push_back(nullptr);

  pid_t pid = 0;
  if (posix_spawn(&pid, prog, nullptr, nullptr, argv.data(), environ) != 0) return -1;

  int status = 0;
  while (waitpid(pid, &status, 0) == -1) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
