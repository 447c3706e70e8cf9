#pragma once

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
  std::optional<Failure> failure;  // of the first target that failed
};

// Runs the action's operation of one target after the other. The first failure ends it: then the
// action's revert is run for those before it, and what is true of each target is found out from its
// plans.
Course Drive(const Prepared& prepared, Progress& progress);

// Throws the course's failure, if it has one, with what became of every target.
void RequireDone(const Prepared& prepared, const Course& course);

// How many targets were done.
std::size_t CountDone(const Course& course);

// Adds what became of every target to a report: the table "targets".
void AddOutcomes(Report& report, const Course& course);

}  // namespace drgroupctl
