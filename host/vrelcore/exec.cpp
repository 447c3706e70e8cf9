#include <sys/wait.h>
#include <unistd.h>

#include <cstdarg>
#include <vector>

#include "process/process.h"
#include "vrelcore/vlibc.h"

int VLIBCExec(const char* prog, ...) {
  std::vector<char*> argv{const_cast<char*>(prog)};
  va_list args;
  va_start(args, prog);
  for (char* arg = va_arg(args, char*); arg != nullptr; arg = va_arg(args, char*)) {
    argv.push_back(arg);
  }
  va_end(args);
  argv.push_back(nullptr);

  VrelHost::ProcessSpec spec;
  spec.path = prog;
  spec.argv = argv.data();
  spec.envp = environ;
  VrelHost::Process process;
  if (process.Start(spec) != 0) return -1;
  const int status = process.Wait();
  if (status == -1) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
