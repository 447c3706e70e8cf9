#include "host/arrived.h"

#include <vreldr/target_operation.h>

#include <ctime>

#include "output/text.h"

namespace drgroupctl {

Arrived ToArrived(const VrelDR::ArrivedSnapshots& found, const std::string& problem) {
  Arrived arrived;
  arrived.recorded = found.recorded_id;
  arrived.is_going_back = found.is_going_back;
  if (problem.empty()) {
    arrived.presence = found.is_gone ? Presence::kMissing : Presence::kPresent;
    arrived.snap_id = found.newest.snap_id;
    arrived.time = found.newest.create_time;
  } else {
    arrived.presence = Presence::kUnknown;
    arrived.problem = Printable(problem);
    arrived.snap_id = found.recorded_id;
    arrived.time = found.recorded_time;
  }
  return arrived;
}

Arrived LookAtArrived(const VrelDR::DRPlan& plan) {
  VrelDR::ArrivedSnapshots found;
  const VrelDR::ArrivedReporter reporter(plan.GetPlanId());
  const bool isKnown = reporter.Read(found);
  Arrived arrived = ToArrived(found, isKnown ? "" : HostMessage(reporter));
  const int code = reporter.GetErrCode();
  arrived.is_recorded_known =
      !arrived.recorded.empty() || (code != VrelDR::kErrStore && code != VrelDR::kErrBusy);
  return arrived;
}

std::uint32_t TimeOfSnapshot(const VrelDR::DRPlan& plan, const std::string& snapId) {
  for (const std::string& id : {plan.GetReplicaTargetId(), plan.GetSourceTargetId()}) {
    const std::uint32_t time =
        VrelDR::TargetOperation(plan.GetProtectedTargetType(), id).GetSnapshot(snapId).create_time;
    if (time != 0) return time;
  }
  return 0;
}

std::string ArrivedProblem(const VrelDR::DRPlan& plan, const Arrived& arrived) {
  const std::string named = "the last snapshot that arrived, " + Quote(arrived.recorded) + ",";
  const std::string replica = "target " + Quote(plan.GetReplicaTargetId());
  if (!arrived.is_recorded_known) {
    return "which snapshots have arrived at " + replica + " cannot be told: " + arrived.problem;
  }
  if (arrived.recorded.empty() || arrived.presence == Presence::kPresent) return {};
  if (arrived.presence == Presence::kUnknown) {
    return "whether " + named + " is still at " + replica + " cannot be told";
  }
  const std::string newest = arrived.snap_id.empty()
                                 ? "has no other"
                                 : "the newest that it has is " + Quote(arrived.snap_id) + " of " +
                                       FormatTime(arrived.time);
  return named + " is gone from " + replica + ", " +
         (arrived.snap_id.empty() ? "which " + newest : newest);
}

void SetAge(std::uint32_t time, Json::Value& row) {
  // Snapshots of one second are dated one second after the other, with a clock that is right.
  constexpr std::int64_t kCloselyTaken = 60;
  std::int64_t age = static_cast<std::int64_t>(std::time(nullptr)) - time;
  if (age < 0 && age >= -kCloselyTaken) age = 0;
  row["age_seconds"] = time == 0 ? Json::Value() : Json::Value(Json::Int64(age));
  row["is_time_ahead"] = time != 0 && age < 0;
}

}  // namespace drgroupctl
