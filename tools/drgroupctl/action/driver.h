#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "action/prepared.h"
#include "action/progress.h"
#include "output/report.h"

namespace drgroupctl {

// What became of a target.
enum class Result {
  kNotStarted,
  kNothingToDo,
  kDone,
  kFailed,
  kReverted,
  kNotReverted,  // it should have been
};

struct Outcome {
  std::string target;
  Result result = Result::kNotStarted;
  std::string problem;  // why it failed; why there was nothing to do
  std::string state;    // how its plan stands at the end
};

// What became of an action.
struct Course {
  std::vector<Outcome> outcomes;   // of every target, in their order
  std::optional<Failure> failure;  // of the first target that failed, or why it was ended
  std::string failed_target;       // that target; empty when it was none
};

// Which operations of an action may run at the same time; without more, none.
struct Abreast {
  std::size_t most = 1;
  // What the operation of a target keeps for itself: of two that name the same, one runs after the
  // other. A target that is not there is in nobody's way.
  std::map<std::string, std::string> lanes = {};
};

// Runs the action's operation of each target, begun in their order as far as their lanes let them:
// made, and told of, in this thread. After the first failure none is begun, and those that run go
// to their end; then the action's revert is run for those that are done, and what is true of each
// target is found out from its plans.
Course Drive(const Prepared& prepared, Progress& progress, const Abreast& abreast = {});

// Throws the course's failure, if it has one, with what became of every target.
void RequireDone(const Prepared& prepared, const Course& course);

// How many targets were done.
std::size_t CountDone(const Course& course);

// Adds what became of every target to a report: the table "targets".
void AddOutcomes(Report& report, const Course& course);

}  // namespace drgroupctl
