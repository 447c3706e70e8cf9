#include "action/driver.h"

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <utility>

#include "action/crew.h"
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

// The operations of an action while they run.
class Drivers {
 public:
  Drivers(const Prepared& prepared, Progress& progress, const Abreast& abreast, Course& course)
      : prepared_(prepared),
        progress_(progress),
        abreast_(abreast),
        course_(course),
        crew_(std::min(abreast.most, course.outcomes.size())) {
    for (std::size_t i = 0; i < course.outcomes.size(); ++i) waiting_.push_back(i);
  }

  void Run() {
    for (;;) {
      const auto next = FindNext();
      if (next != waiting_.end()) {
        course_.failure = progress_.FindStop();
        if (course_.failure) continue;
        const std::size_t index = *next;
        waiting_.erase(next);
        Begin(index);
      } else if (!running_.empty()) {
        End(crew_.AwaitEnd());
      } else {
        return;
      }
    }
  }

 private:
  struct Running {
    std::unique_ptr<VrelDR::DROperation> operation;
    bool is_good = false;
  };
  using Waiting = std::vector<std::size_t>;

  std::string LaneOf(std::size_t index) const {
    const auto found = abreast_.lanes.find(course_.outcomes[index].target);
    return found == abreast_.lanes.end() ? std::string() : found->second;
  }

  // The first that may be begun now.
  Waiting::iterator FindNext() {
    if (course_.failure || running_.size() >= abreast_.most) return waiting_.end();
    return std::find_if(waiting_.begin(), waiting_.end(), [this](std::size_t index) {
      const std::string lane = LaneOf(index);
      return lane.empty() || std::none_of(running_.begin(), running_.end(), [&](const auto& each) {
               return LaneOf(each.first) == lane;
             });
    });
  }

  void Begin(std::size_t index) {
    Outcome& outcome = course_.outcomes[index];
    try {
      Step step = MakeStep(prepared_, outcome.target);
      if (step.failure) {
        Fail(outcome, *step.failure);
      } else if (!step.operation) {
        outcome.result = Result::kNothingToDo;
        outcome.problem = step.nothing;
      } else {
        Running& running = running_[index];
        running.operation = std::move(step.operation);
        progress_.Begin(outcome.target);
        crew_.Start(index, [&running] { running.is_good = running.operation->Run(false); });
      }
    } catch (const Failure& failure) {
      Fail(outcome, failure);
    }
  }

  void End(std::size_t index) {
    Outcome& outcome = course_.outcomes[index];
    progress_.End(outcome.target);
    const auto ended = running_.extract(index);
    if (ended.mapped().is_good) {
      outcome.result = Result::kDone;
    } else {
      Fail(outcome, OperationFailure(*ended.mapped().operation, outcome.target));
    }
  }

  void Fail(Outcome& outcome, const Failure& failure) {
    outcome.result = Result::kFailed;
    outcome.problem = failure.message;
    if (course_.failure) return;
    course_.failure = failure;
    course_.failed_target = outcome.target;
  }

  const Prepared& prepared_;
  Progress& progress_;
  const Abreast& abreast_;
  Course& course_;
  Waiting waiting_;
  std::map<std::size_t, Running> running_;
  Crew crew_;  // goes first, when nothing runs any more
};

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

Course Drive(const Prepared& prepared, Progress& progress, const Abreast& abreast) {
  Course course;
  std::map<std::string, Plans> before;
  for (const std::string& target : prepared.targets) {
    course.outcomes.push_back({target, Result::kNotStarted, {}, {}});
    if (prepared.is_reverted) before[target] = Look(target);
  }
  Drivers(prepared, progress, abreast, course).Run();
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
    if (each.target == course.failed_target) {
      failure.details["target_id"] = each.target;
    } else {
      others.push_back("target " + Quote(each.target) + ": " + NameOf(each.result) +
                       (each.result == Result::kFailed ? " (" + each.problem + ")" : ""));
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
