#pragma once

#include <string>
#include <utility>
#include <vector>

#include "hold/guard.h"

namespace VrelDR {

// Variables for a program: those of this process, with the directories of system tools in PATH.
class Environment {
 public:
  Environment();
  // Gives a variable another value.
  void Set(const std::string& name, const std::string& value);
  // Valid until Set is called and as long as this object is.
  char* const* Get();

 private:
  std::vector<std::string> variables_;
  std::vector<char*> pointers_;
};

// A program with its arguments, as it is executed; made before that is needed.
class Runnable {
 public:
  Runnable() = default;
  // args[0] is an absolute path.
  explicit Runnable(std::vector<std::string> args) : args_(std::move(args)) {}
  // Without a path when there are no arguments. Valid as long as this object is and the
  // environment.
  GuardProgram Prepare(char* const* environment);

 private:
  std::vector<std::string> args_;
  std::vector<char*> argv_;
};

}  // namespace VrelDR
