#include "action/precheck.h"

#include <algorithm>
#include <functional>

#include "output/text.h"

namespace drgroupctl {

namespace {

// Asks one operation; a checker is asked by running it, another only whether it would be refused.
Check Ask(const std::string& task, bool isChecker, const std::function<Step()>& make,
          const std::string& target) {
  Check check{target, task, true, {}, ExitCode::kDone};
  const auto refuse = [&check](const Failure& failure) {
    check.passed = false;
    check.evidence = failure.message;
    check.code = failure.code;
  };
  try {
    const Step step = make();
    if (step.failure) {
      refuse(*step.failure);
    } else if (!step.operation) {
      check.evidence = step.nothing;
    } else if (!step.operation->Run(!isChecker)) {
      refuse(OperationFailure(*step.operation, target));
    }
  } catch (const Failure& failure) {
    refuse(failure);
  }
  return check;
}

Json::Value Rows(const std::vector<Check>& checks) {
  Json::Value rows(Json::arrayValue);
  for (const Check& each : checks) {
    Json::Value row(Json::objectValue);
    row["target_id"] = each.target;
    row["check"] = each.check;
    row["passed"] = each.passed;
    row["evidence"] = each.evidence;
    rows.append(row);
  }
  return rows;
}

}  // namespace

std::vector<Check> CheckTargets(const Prepared& prepared) {
  std::vector<Check> checks;
  for (const std::string& target : prepared.targets) {
    const bool isPassedOver = prepared.passed_over.count(target) != 0;
    if (prepared.checker && !isPassedOver) {
      checks.push_back(Ask(
          prepared.checker->GetTaskName(), true,
          [&] { return MakeStep(*prepared.checker, false, target); }, target));
      // What the checker refuses the operation refuses for the same reason.
      if (!checks.back().passed) continue;
    }
    checks.push_back(Ask(
        prepared.name, prepared.is_checker, [&] { return MakeStep(prepared, target); }, target));
  }
  return checks;
}

void AddInUse(const InUse& inUse, std::vector<Check>& checks) {
  for (const InUse::Reason& each : inUse.Reasons()) {
    const bool passed = inUse.IsGoneOn();
    checks.push_back({each.target, "in_use", passed, each.text + (passed ? "" : kInUseAdvice),
                      passed ? ExitCode::kDone : each.code});
  }
}

std::optional<Failure> RefusalOf(const std::string& title, const std::vector<Check>& checks) {
  const auto isBad = [](const Check& each) { return !each.passed; };
  const auto first = std::find_if(checks.begin(), checks.end(), isBad);
  if (first == checks.end()) return std::nullopt;
  const auto bad = static_cast<std::uint64_t>(std::count_if(checks.begin(), checks.end(), isBad));
  Failure failure(first->code, title + " is refused, nothing was done: " + first->evidence);
  if (bad > 1) failure.message += "; " + Count(bad - 1, "other target") + " would be refused too";
  failure.details["target_id"] = first->target;
  failure.details["checks"] = Rows(checks);
  AddChecks(failure.report, checks);
  return failure;
}

void AddChecks(Report& report, const std::vector<Check>& checks) {
  report.AddTable(
      {"checks", "Checks"},
      {{"target_id", "TARGET"}, {"check", "CHECK"}, {"passed", "PASSED"}, {"evidence", "EVIDENCE"}},
      Rows(checks));
}

}  // namespace drgroupctl
