#pragma once

#include <vector>

namespace drgroupctl {

// What the tool ends with. Scripts compare these: never change a value.
enum class ExitCode : int {
  kDone = 0,
  kFailed = 1,
  kUsage = 2,
  kNotFound = 3,
  kRefused = 4,
  kCatalogue = 5,
  kBusy = 6,
  kConfiguration = 7,
  kStorage = 8,
  kStopped = 9,
};

struct ExitCodeInfo {
  ExitCode code;
  const char* name;     // as JSON error documents give it
  const char* meaning;  // for people
};

// Every exit code, in the order of their values.
const std::vector<ExitCodeInfo>& ExitCodes();

const ExitCodeInfo& Describe(ExitCode code);

// The exit code for an error code that a host's call recorded.
ExitCode FromHostError(int code);

}  // namespace drgroupctl
