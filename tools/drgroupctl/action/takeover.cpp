#include "action/takeover.h"

#include <vreldr/target_operation.h>

#include <algorithm>
#include <ctime>

#include "action/plans.h"
#include "failure.h"
#include "host.h"
#include "text.h"

namespace drgroupctl {

namespace {

// The target snapshot that the group snapshot has of either copy of the plan.
VrelDRGroup::TargetSnapshot FindSnapshot(const VrelDRGroup::GsnapshotInfo& gsnap,
                                         const VrelDR::DRPlan& plan) {
  for (const VrelDRGroup::TargetSnapshot& each : gsnap.target_snapshots) {
    const std::string& id = each.target.GetId();
    if (id == plan.GetProtectedTargetId() || id == plan.GetDRTargetId()) return each;
  }
  throw Failure(ExitCode::kNotFound, "group snapshot " + Quote(gsnap.gsnap_id) +
                                         " has no snapshot of target " +
                                         Quote(plan.GetProtectedTargetId()) +
                                         ": name one that has, or leave --snapshot out");
}

// When the snapshot was taken, as either copy tells it.
std::uint32_t TimeOf(const VrelDR::DRPlan& plan, const std::string& snapId) {
  for (const std::string& id : {plan.GetReplicaTargetId(), plan.GetSourceTargetId()}) {
    const std::uint32_t time =
        VrelDR::TargetOperation(plan.GetProtectedTargetType(), id).GetSnapshot(snapId).create_time;
    if (time != 0) return time;
  }
  return 0;
}

void LookAtSource(Takeover& takeover) {
  const VrelDR::TargetOperation source(takeover.plan.GetProtectedTargetType(),
                                       takeover.plan.GetSourceTargetId());
  takeover.is_source_alive = source.IsExisted();
  const std::vector<VrelDR::Operation::Snapshot> snapshots = source.ListSnapshots();
  takeover.is_source_known = source.GetErrCode() == 0;
  const auto found = std::find_if(snapshots.begin(), snapshots.end(), [&](const auto& each) {
    return each.snap_id == takeover.snap_id;
  });
  for (const VrelDR::Operation::Snapshot& each : snapshots) {
    const bool isNewer =
        found != snapshots.end() ? each > *found : each.create_time > takeover.snap_time;
    if (isNewer) takeover.newer.push_back(each.snap_id);
  }
}

Json::Value AgeOf(const Takeover& takeover) {
  if (takeover.snap_time == 0) return {};
  return Json::UInt64(std::max<std::int64_t>(std::time(nullptr) - takeover.snap_time, 0));
}

}  // namespace

std::vector<Takeover> PlanTakeover(const Group& group,
                                   const std::optional<VrelDRGroup::GsnapshotInfo>& gsnap) {
  std::vector<Takeover> takeovers;
  for (const VrelDR::Target& target : group.targets) {
    Takeover takeover;
    takeover.target = target.GetId();
    takeover.plan = RequireOnePlan(takeover.target);
    if (gsnap) {
      const VrelDRGroup::TargetSnapshot snapshot = FindSnapshot(*gsnap, takeover.plan);
      takeover.driven = snapshot.target.GetId();
      takeover.snap_id = snapshot.tsnap_id;
    } else {
      takeover.driven = takeover.target;
      takeover.snap_id = LastArrived(takeover.plan.GetPlanId());
    }
    if (takeover.snap_id.empty()) {
      throw Failure(ExitCode::kNotFound,
                    "failover of group " + Quote(group.id) + " is refused: target " +
                        Quote(takeover.target) + ": no snapshot of it has arrived at its replica " +
                        Quote(takeover.plan.GetReplicaTargetId()) +
                        " yet, which has nothing to take over with: run \"drgroupctl sync\" first");
    }
    takeover.snap_time = TimeOf(takeover.plan, takeover.snap_id);
    LookAtSource(takeover);
    takeovers.push_back(takeover);
  }
  return takeovers;
}

std::string LostText(const Takeover& takeover) {
  std::string text =
      "everything written since " + (takeover.snap_time == 0
                                         ? "the snapshot was taken"
                                         : FormatTime(takeover.snap_time) + " (" +
                                               FormatAge(AgeOf(takeover).asUInt64()) + " ago)");
  if (!takeover.is_source_known) {
    text += "; which newer snapshots the other side has cannot be told";
  } else if (!takeover.newer.empty()) {
    text += "; " + Count(takeover.newer.size(), "newer snapshot") +
            " of the other side: " + Printable(Join(takeover.newer, ", "));
  }
  return text;
}

void AddTakeover(Report& report, const std::vector<Takeover>& takeovers) {
  Json::Value rows(Json::arrayValue);
  for (const Takeover& each : takeovers) {
    Json::Value row(Json::objectValue);
    row["target_id"] = each.target;
    row["working_target_id"] = each.plan.GetReplicaTargetId();
    row["snap_id"] = each.snap_id;
    row["snap_time"] = each.snap_time;
    row["age_seconds"] = AgeOf(each);
    row["newer_snapshots"] = Json::Value(Json::arrayValue);
    for (const std::string& id : each.newer) row["newer_snapshots"].append(id);
    row["is_source_alive"] = each.is_source_alive;
    row["lost"] = LostText(each);
    rows.append(row);
  }
  report.AddTable({"takeover", "Takeover"},
                  {{"target_id", "TARGET"},
                   {"working_target_id", "TAKES OVER"},
                   {"snap_id", "SNAPSHOT"},
                   {"age_seconds", "AGE", Shown::kAge},
                   {"lost", "WHAT IT HAS NOT"}},
                  rows);
}

}  // namespace drgroupctl
