#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "base/fd.h"
#include "base/status.h"
#include "process/process.h"

namespace VrelDR {

// What a child uses of its parent; -1 stands for /dev/null.
struct ChildStreams {
  int in = -1;
  int out = -1;
  // A descriptor to hold for as long as the child or a child of it lives, such as one with a lock.
  int held = -1;
};

// A program that runs beside this one, with all the processes that it starts. They die with this
// object, and with the thread that made it; none of them outlives Stop or Finish.
class Child {
 public:
  Child() = default;
  ~Child() { (void)Stop(0); }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  // Starts args[0], a program of PATH that `package` brings, in the C locale. kErrUnsupported when
  // it is not installed.
  Status Start(const std::vector<std::string>& args, const std::string& package,
               const ChildStreams& streams);

  // Takes in what the program complains of. False once all its processes have ended. For poll:
  // readable whenever there is something to take in.
  bool IsRunning();
  bool HasComplained() const { return !errors_.empty(); }
  int GetErrorFd() const { return errors_fd_.Get(); }
  pid_t GetPid() const { return process_.GetPid(); }
  // A number that changes as long as the program does something. It is found out every second.
  std::uint64_t GetActivity();

  // Waits for all processes. Good when the program succeeded; otherwise its first complaint, with
  // the code that fits, and with what to do where that is known.
  Status Finish();

  // Asks the processes to end, and kills those that are still there after `graceMs`. Returns what
  // Finish would.
  Status Stop(int graceMs = 300);

 private:
  Status Explain(int status) const;
  void WaitForEnd(int timeoutMs);

  std::string name_;
  VrelHost::Process process_;
  Fd errors_fd_;
  std::string errors_;
  std::uint64_t activity_ = 0;
  std::chrono::steady_clock::time_point next_activity_;
};

// A pipe whose ends are closed in children; -1 with errno set in both on a failure.
struct Pipe {
  Pipe();
  Fd read_end;
  Fd write_end;
};

// Waits until one of the descriptors can be read, or an error or the end of its file is there.
void WaitReadable(const std::vector<int>& fds, int timeoutMs);

// Keeps a write to a pipe that nobody reads any more from ending this process.
class NoPipeSignal {
 public:
  NoPipeSignal();
  ~NoPipeSignal();
  NoPipeSignal(const NoPipeSignal&) = delete;
  NoPipeSignal& operator=(const NoPipeSignal&) = delete;

 private:
  bool was_blocked_;
  bool was_pending_;
};

}  // namespace VrelDR
