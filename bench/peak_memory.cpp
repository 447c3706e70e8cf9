#include "peak_memory.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace bench {

namespace {

// A line of /proc/self/status, in KiB.
long Status(const std::string& key) {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    long value = 0;
    if (word == key + ":" && status >> value) return value;
  }
  return 0;
}

}  // namespace

long CurrentMemory() {
  return Status("VmRSS");
}

long PeakSince(long since) {
  return Status("VmHWM") - since;
}

long NumberFromSelf(const std::string& argument) {
  int ends[2];
  if (pipe(ends) != 0) return -1;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_addclose(&actions, ends[0]);
  std::string name = "report";
  std::string copy = argument;
  char* const arguments[] = {name.data(), copy.data(), nullptr};
  pid_t pid = 0;
  const int failed = posix_spawn(&pid, "/proc/self/exe", &actions, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  char text[32] = {};
  const ssize_t length = failed == 0 ? read(ends[0], text, sizeof(text) - 1) : 0;
  close(ends[0]);
  int status = 1;
  if (failed == 0) waitpid(pid, &status, 0);
  return status == 0 && length > 0 ? std::strtol(text, nullptr, 10) : -1;
}

}  // namespace bench
