#include "peak_memory.h"

#include <malloc.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <vector>

#include "measure.h"

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

// The KiB that `what` takes in a process of its own; negative when it failed.
long PeakInChild(const std::function<bool()>& what) {
  int ends[2];
  if (pipe(ends) != 0) return -1;
  const pid_t pid = fork();
  if (pid == 0) {
    malloc_trim(0);  // what is free would hide what is used
    // The peak is counted from here on.
    std::ofstream("/proc/self/clear_refs") << 5;
    const long before = CurrentMemory();
    const long taken = what() ? PeakSince(before) : -1;
    const bool isTold = write(ends[1], &taken, sizeof taken) == sizeof taken;
    _exit(isTold ? 0 : 1);
  }
  close(ends[1]);
  long taken = -1;
  if (read(ends[0], &taken, sizeof taken) != sizeof taken) taken = -1;
  close(ends[0]);
  if (pid > 0) waitpid(pid, nullptr, 0);
  return taken;
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

void MeasurePeak(benchmark::State& state, const std::function<bool()>& what, long mostKiB) {
  std::vector<double> taken;
  for (auto iteration : state) {
    (void)iteration;
    taken.push_back(static_cast<double>(PeakInChild(what)));
    if (taken.back() < 0) {
      state.SkipWithError("what was to be measured failed in a process of its own");
      return;
    }
    state.SetIterationTime(1);
  }
  const auto most = static_cast<double>(mostKiB);
  Report(state, Median(taken), most, Median(taken) / most, 1);
}

}  // namespace bench
