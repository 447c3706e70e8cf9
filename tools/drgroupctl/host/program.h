#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace drgroupctl {

// What a program is started with. It has no descriptor of this process but standard error and the
// one for its output, and reads nothing.
struct ProgramSpec {
  std::vector<std::string> argv;              // a name without a slash is searched in PATH
  std::vector<std::string> environment = {};  // "NAME=value", in place of or beside this process's
  int out = -1;                               // its standard output; standard error when it is -1
  bool is_silent = false;                     // its standard output goes nowhere
  bool is_quiet = false;                      // its standard error goes nowhere
  bool is_grouped = false;  // it leads a process group, which goes with it when it is killed
};

// A program that runs beside this process, which waits for it at the latest when it goes.
class Program {
 public:
  Program() = default;
  Program(Program&& other) noexcept;
  Program& operator=(Program&&) = delete;
  Program(const Program&) = delete;
  ~Program();

  // 0 once it runs, or an error number.
  int Start(const ProgramSpec& spec);
  // Its end, if that comes within the time: its exit code, 128 and the signal when one ended it.
  std::optional<int> Wait(std::chrono::milliseconds time);
  int Wait();
  void Kill() const;

 private:
  pid_t pid_ = -1;
  bool is_grouped_ = false;
};

// Runs a program and waits for it; what it writes to standard output comes to `output`. Its exit
// code, or nothing and `error` when it could not be started.
std::optional<int> RunForOutput(ProgramSpec spec, std::string& output, int& error);

}  // namespace drgroupctl
