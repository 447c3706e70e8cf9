#pragma once

#include <sys/types.h>

#include <memory>

#include "process/on_the_side.h"

namespace VrelHost {

// What a program is started with.
struct ProcessSpec {
  static constexpr int kAsIs = kAsIsFd;  // the program has that descriptor as this process has it
  static constexpr int kNull = kNullFd;  // it is /dev/null

  const char* path = nullptr;  // absolute: PATH is not searched
  char* const* argv = nullptr;
  char* const* envp = nullptr;
  // What becomes the program's descriptors 0 to 3.
  int fds[4] = {kAsIs, kAsIs, kAsIs, kAsIs};
  // Whether the program leads a process group, and is killed when the thread that started it ends.
  bool is_bound = false;
};

// A program that runs beside this process. How it ends is known even where this process ignores
// SIGCHLD, or where somebody else in it waits for every child: the program's parent is a keeper, a
// process of this memory that such a wait does not find. Nothing is changed of how this process
// handles signals, and none is sent to it. The program starts with no signal blocked, and with
// SIGCHLD and SIGPIPE not ignored.
class Process {
 public:
  Process();
  // Waits for the program, if one runs.
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  // Starts the program: 0 once it runs, or an errno. It does not fork: a service of many gigabytes
  // would pay for copying its page tables.
  int Start(const ProcessSpec& spec);
  // The program's identifier, which nobody else gets before Wait; -1 when none was started.
  pid_t GetPid() const;
  // Waits for the program's end. Its status, as waitpid gives it; -1 when that is not known.
  int Wait();

 private:
  struct Keeper;
  std::unique_ptr<Keeper> keeper_;
};

}  // namespace VrelHost
