#include "action/driver.h"

#include <algorithm>
#include <map>
#include <set>

#include "action/plans.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

using Plans = std::optional<std::vector<VrelDR::DRPlan>>;

// The plans of a target as far as they can be told.
Plans Look(const std::string& target) {
  try {
    return PlansOf(target);
  } catch (const Failure&) {
    return std::nullopt;
  }
}

bool IsSameSight(const Plans& a, const Plans& b) {
  return a && b && std::equal(a->begin(), a->end(), b->begin(), b->end(), IsSame);
}

std::string NameOf(Result result) {
  switch (result) {
    case Result::kNotStarted:
      return "not started";
    case Result::kNothingToDo:
      return "nothing to do";
    case Result::kDone:
      return "done";
    case Result::kFailed:
      return "failed";
    case Result::kReverted:
      return "reverted";
    default:
      return "failed to revert";
  }
}

// Runs the operation of one target.
void RunOne(const Prepared& prepared, Progress& progress, Outcome& outcome,
            std::optional<Failure>& failure) {
  try {
    const Step step = MakeStep(prepared, outcome.target);
    if (step.failure) {
      failure = step.failure;
    } else if (!step.operation) {
      outcome.result = Result::kNothingToDo;
      outcome.problem = step.nothing;
      return;
    } else {
      const Progress::Scope scope(progress, outcome.target);
      if (!step.operation->Run(false)) failure = OperationFailure(*step.operation, outcome.target);
    }
  } catch (const Failure& thrown) {
    failure = thrown;
  }
  outcome.result = failure ? Result::kFailed : Result::kDone;
  if (failure) outcome.problem = failure->message;
}

// Takes back what was done before a failure, if the action does that.
void Revert(const Prepared& prepared, const std::map<std::string, Plans>& before, Course& course) {
  std::set<std::string> done;
  std::set<std::string> targets;
  for (const Outcome& each : course.outcomes) {
    if (each.result == Result::kDone) done.insert(each.target);
    // An operation that fails leaves its plan as it was, unless even telling that it had ended
    // failed.
    if (each.result == Result::kFailed && prepared.is_reverted) {
      const Plans now = Look(each.target);
      if (now && !IsSameSight(now, before.at(each.target))) targets.insert(each.target);
    }
  }
  targets.insert(done.begin(), done.end());
  if (targets.empty()) return;
  prepared.action->Revert(targets);
  if (!prepared.is_reverted) return;
  for (Outcome& each : course.outcomes) {
    if (done.count(each.target) == 0) continue;
    const bool isUndone = IsSameSight(Look(each.target), before.at(each.target));
    each.result = isUndone ? Result::kReverted : Result::kNotReverted;
  }
}

Json::Value Rows(const Course& course) {
  Json::Value rows(Json::arrayValue);
  for (const Outcome& each : course.outcomes) {
    Json::Value row(Json::objectValue);
    row["target_id"] = each.target;
    row["result"] = NameOf(each.result);
    row["state"] = each.state;
    row["problem"] = each.problem;
    rows.append(row);
  }
  return rows;
}

}  // namespace

Course Drive(const Prepared& prepared, Progress& progress) {
  Course course;
  std::map<std::string, Plans> before;
  for (const std::string& target : prepared.targets) {
    course.outcomes.push_back({target, Result::kNotStarted, {}, {}});
    if (prepared.is_reverted) before[target] = Look(target);
  }
  for (Outcome& each : course.outcomes) {
    course.failure = progress.FindStop();
    if (course.failure) break;
    RunOne(prepared, progress, each, course.failure);
    if (course.failure) break;
  }
  if (course.failure) Revert(prepared, before, course);
  for (Outcome& each : course.outcomes) {
    const Plans now = Look(each.target);
    each.state = now ? DescribeState(*now) : "unknown";
  }
  return course;
}

void RequireDone(const Prepared& prepared, const Course& course) {
  if (!course.failure) return;
  std::vector<std::string> others;
  Failure failure(course.failure->code, prepared.title + " failed: " + course.failure->message);
  for (const Outcome& each : course.outcomes) {
    if (each.result == Result::kFailed) {
      failure.details["target_id"] = each.target;
    } else {
      others.push_back("target " + Quote(each.target) + ": " + NameOf(each.result));
    }
  }
  if (!others.empty()) failure.message += "; " + Join(others, "; ");
  failure.details["targets"] = Rows(course);
  AddOutcomes(failure.report, course);
  throw failure;
}

std::size_t CountDone(const Course& course) {
  return static_cast<std::size_t>(
      std::count_if(course.outcomes.begin(), course.outcomes.end(),
                    [](const Outcome& each) { return each.result == Result::kDone; }));
}

void AddOutcomes(Report& report, const Course& course) {
  report.AddTable({"targets", "Targets"},
                  {{"target_id", "TARGET"},
                   {"result", "RESULT"},
                   {"state", "STATE"},
                   {"problem", "PROBLEM", Shown::kIfAny}},
                  Rows(course));
}

}  // namespace drgroupctl
