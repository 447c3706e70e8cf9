#include "action/recorded_run.h"

#include <vreldrgroup/snapshot/gsnap_utils.h>

#include <algorithm>
#include <chrono>
#include <ctime>

#include "action/group_action.h"
#include "action/plan_status.h"
#include "action/task.h"
#include "groups/catalogue_view.h"
#include "host/arrived.h"
#include "output/console.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

using std::chrono::steady_clock;

// An action of the library goes by its own name, and one that only checks is no run.
std::string KindOf(const Verb& verb, const Arguments& args) {
  for (const char* look : {"--dry-run", "--explain"}) {
    if (args.Has(look)) return {};
  }
  if (!args.Has("TASK") || verb.kind.empty()) return verb.kind;
  const Task& task = FindTask(args.Text("TASK"));
  return task.is_checker ? "" : task.name;
}

std::string GroupOf(const Arguments& args) {
  if (args.Has("--undo")) return args.Text("--undo");
  return args.Has("GROUP") ? args.Text("GROUP")
                           : VrelDRGroup::Utils::ParseGroupId(args.Text("GSNAP"));
}

// Whether the command line names what there is not. What a run does not find, of all that the group
// should have, is a failure of the run.
bool IsMisnamed(const Arguments& args, const Failure& failure) {
  if (failure.code != ExitCode::kNotFound) return false;
  if (args.Has("TARGET")) return true;
  for (const char* name : {"GSNAP", "--snapshot"}) {
    if (!args.Has(name)) continue;
    try {
      RequireGsnap(args.Text(name));
    } catch (const Failure& missing) {
      return missing.code == ExitCode::kNotFound;
    }
  }
  return false;
}

// Nothing was begun: it was misunderstood, not agreed to, or somebody else was at work.
bool IsNoRun(const Arguments& args, const Failure& failure) {
  return failure.code == ExitCode::kUsage || failure.code == ExitCode::kBusy ||
         failure.is_unconfirmed || IsMisnamed(args, failure);
}

std::optional<long> SentBytes(const Report& report) {
  std::optional<long> sum;
  for (const Report::Part& part : report.Parts()) {
    if (part.kind != Report::Part::Kind::kTable) continue;
    for (const Json::Value& row : part.value) {
      if (row.isMember("sent_bytes")) {
        sum = sum.value_or(0) + static_cast<long>(row["sent_bytes"].asInt64());
      }
    }
  }
  return sum;
}

std::string GsnapOf(const Report& report, const Arguments& args) {
  for (const Report::Part& part : report.Parts()) {
    if (part.kind == Report::Part::Kind::kField && part.name.key == "gsnap_id") {
      return part.value.asString();
    }
  }
  return args.Has("GSNAP") ? args.Text("GSNAP") : args.Text("--snapshot");
}

// How old what the replicas of the group have is: the oldest of them, when all are known.
std::optional<long> LagOf(const std::string& groupId) {
  try {
    const PlanSight sight = LookAtPlans(TargetIds(LoadGroup(groupId)));
    std::int64_t oldest = INT64_MAX;
    for (const VrelDR::PlanStanding& each : sight.standings) {
      const Arrived arrived = ToArrived(each.arrived, each.arrived_problem);
      if (!each.is_recorded_known || arrived.time == 0) return std::nullopt;
      oldest = std::min(oldest, std::int64_t{arrived.time});
    }
    if (sight.standings.empty()) return std::nullopt;
    return static_cast<long>(std::time(nullptr) - oldest);
  } catch (const Failure&) {  // whoever wants to know how the group stands asks "status"
    return std::nullopt;
  }
}

}  // namespace

RecordedRun::RecordedRun(const Verb& verb, const Arguments& args, Warnings& warnings)
    : run_(verb.run), args_(args), warnings_(warnings), kind_(KindOf(verb, args)) {
  if (!kind_.empty()) group_id_ = GroupOf(args);
}

void RecordedRun::Begin() {
  if (kind_.empty()) return;
  try {
    Group group = LoadGroup(group_id_);
    entry_ = std::make_unique<HistoryEntry>(group.directory, kind_);
    hook_ = std::move(group.hook);
  } catch (const Failure&) {  // without a group there is no history; the verb tells of it
  }
}

RecordedRun::~RecordedRun() {
  if (event_ && !hook_.empty()) TellHook(hook_, *event_, warnings_);
}

void RecordedRun::End(const HistoryRun& run) {
  entry_->End(run);
  const bool hasFailed = run.result == RunResult::kFailed;
  const bool isRecovery = run.result == RunResult::kDone && entry_->IsAfterFailure();
  if (hasFailed || isRecovery) {
    event_ = {group_id_, kind_, hasFailed ? "failed" : "recovered", run.exit_code, run.message};
  }
}

Report RecordedRun::Run() {
  Begin();
  const steady_clock::time_point start = steady_clock::now();
  HistoryRun run;
  const auto stop = [&] {
    const auto taken = steady_clock::now() - start;
    run.duration_ms =
        static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(taken).count());
  };
  try {
    Report report = run_(args_, warnings_);
    stop();
    if (!entry_) return report;
    run.result = RunResult::kDone;
    run.sent_bytes = SentBytes(report);
    run.gsnap_id = GsnapOf(report, args_);
    if (run.sent_bytes) run.lag_seconds = LagOf(group_id_);
    End(run);
    if (!entry_->Problem().empty()) {
      warnings_.Print("the history of group " + Quote(group_id_) +
                      " does not have this: " + entry_->Problem());
    }
    return report;
  } catch (const Failure& failure) {
    stop();
    if (!entry_) throw;
    if (IsNoRun(args_, failure)) {
      entry_->Forget();
      throw;
    }
    run.result = failure.code == ExitCode::kStopped ? RunResult::kStopped : RunResult::kFailed;
    run.exit_code = static_cast<int>(failure.code);
    run.message = failure.message;
    run.gsnap_id = GsnapOf({}, args_);
    End(run);
    throw;
  }
}

}  // namespace drgroupctl
