#include "action/takeover.h"

#include <vreldr/snapshot_history.h>
#include <vreldr/target_operation.h>

#include <algorithm>
#include <ctime>
#include <map>
#include <set>

#include "action/plans.h"
#include "host/host.h"
#include "output/console.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

// The target snapshot that the group snapshot has of either copy of the plan; null when it has
// none.
const VrelDRGroup::TargetSnapshot* LookForSnapshot(const VrelDRGroup::GsnapshotInfo& gsnap,
                                                   const VrelDR::DRPlan& plan) {
  for (const VrelDRGroup::TargetSnapshot& each : gsnap.target_snapshots) {
    const std::string& id = each.target.GetId();
    if (id == plan.GetProtectedTargetId() || id == plan.GetDRTargetId()) return &each;
  }
  return nullptr;
}

// The same; throws when it has none.
VrelDRGroup::TargetSnapshot FindSnapshot(const VrelDRGroup::GsnapshotInfo& gsnap,
                                         const VrelDR::DRPlan& plan) {
  if (const VrelDRGroup::TargetSnapshot* found = LookForSnapshot(gsnap, plan)) return *found;
  throw Failure(ExitCode::kNotFound, "group snapshot " + Quote(gsnap.gsnap_id) +
                                         " has no snapshot of target " +
                                         Quote(plan.GetProtectedTargetId()) +
                                         ": name one that has, or leave --snapshot out");
}

Takeover GoingBack(Takeover takeover) {
  takeover.is_going_back = true;
  takeover.is_source_known = true;
  takeover.is_source_alive = true;
  return takeover;
}

// The target that works afterwards.
const std::string& WorksAfter(const Takeover& takeover) {
  return takeover.is_going_back ? takeover.plan.GetSourceTargetId()
                                : takeover.plan.GetReplicaTargetId();
}

// When it takes over with nothing, why.
std::string NothingThere(const Takeover& takeover) {
  const std::string& replica = takeover.plan.GetReplicaTargetId();
  const std::string gone = ArrivedProblem(takeover.plan, takeover.arrived);
  if (!gone.empty()) return gone + ": run \"drgroupctl sync\" first";
  return "no snapshot of it has arrived at its replica " + Quote(replica) +
         " yet, which has nothing to take over with: run \"drgroupctl sync\" first";
}

}  // namespace

void LookAtSource(Takeover& takeover) {
  const VrelDR::TargetOperation source(takeover.plan.GetProtectedTargetType(),
                                       takeover.plan.GetSourceTargetId());
  takeover.is_source_alive = source.IsExisted();
  const std::vector<VrelDR::Operation::Snapshot> snapshots = source.ListSnapshots();
  takeover.is_source_known = source.GetErrCode() == 0;
  takeover.newer =
      VrelDR::SnapshotHistory::NewerThan(snapshots, takeover.snap_id, takeover.snap_time);
}

Takeover PlanTakeoverToLast(const std::string& what, const std::string& target,
                            const VrelDR::DRPlan& plan, bool isForced) {
  Takeover takeover;
  takeover.target = target;
  takeover.driven = target;
  takeover.plan = plan;
  takeover.arrived = LookAtArrived(plan);
  if (isForced && takeover.arrived.is_going_back) return GoingBack(takeover);
  takeover.snap_id = takeover.arrived.snap_id;
  takeover.snap_time = takeover.arrived.time;
  // One that cannot be asked is refused for that.
  if (takeover.snap_id.empty() && takeover.arrived.presence != Presence::kUnknown) {
    throw Failure(ExitCode::kNotFound,
                  what + " is refused: target " + Quote(target) + ": " + NothingThere(takeover));
  }
  LookAtSource(takeover);
  return takeover;
}

void KeepCovered(Warnings& warnings, Group& group, const VrelDRGroup::GsnapshotInfo& gsnap) {
  std::vector<VrelDR::Target> covered;
  std::vector<std::string> others;
  for (const VrelDR::Target& each : group.targets) {
    if (LookForSnapshot(gsnap, RequireOnePlan(each.GetId())) != nullptr) {
      covered.push_back(each);
    } else {
      others.push_back(Quote(each.GetId()));
    }
  }
  if (covered.empty() || others.empty()) return;
  group.targets = covered;
  warnings.Print("target " + Join(others, ", ") + " stays as it is, as group snapshot " +
                 Quote(gsnap.gsnap_id) +
                 " has nothing of it: \"drgroupctl plan promote\" lets its replica take over with "
                 "the last snapshot that arrived");
}

std::vector<Takeover> PlanTakeover(const Group& group,
                                   const std::optional<VrelDRGroup::GsnapshotInfo>& gsnap,
                                   bool isForced) {
  std::vector<Takeover> takeovers;
  for (const VrelDR::Target& target : group.targets) {
    const std::string& id = target.GetId();
    const VrelDR::DRPlan plan = RequireOnePlan(id);
    if (!gsnap) {
      takeovers.push_back(
          PlanTakeoverToLast("failover of group " + Quote(group.id), id, plan, isForced));
      continue;
    }
    Takeover takeover;
    takeover.target = id;
    takeover.plan = plan;
    const VrelDRGroup::TargetSnapshot snapshot = FindSnapshot(*gsnap, plan);
    takeover.driven = snapshot.target.GetId();
    if (isForced && LookAtArrived(plan).is_going_back) {
      takeovers.push_back(GoingBack(takeover));
      continue;
    }
    takeover.snap_id = snapshot.tsnap_id;
    takeover.snap_time = TimeOfSnapshot(plan, takeover.snap_id);
    LookAtSource(takeover);
    takeovers.push_back(takeover);
  }
  return takeovers;
}

bool IsGoingBack(const std::vector<Takeover>& takeovers) {
  return std::all_of(takeovers.begin(), takeovers.end(),
                     [](const Takeover& each) { return each.is_going_back; });
}

std::string HalfWayAdvice(const std::vector<Takeover>& takeovers) {
  std::vector<std::string> done;
  std::vector<std::string> commands;
  std::set<VrelDR::DRPlanDirection> doneDirections;
  std::set<VrelDR::DRPlanDirection> directions;
  for (const Takeover& each : takeovers) {
    const VrelDR::TargetOperation replica(each.plan.GetProtectedTargetType(),
                                          each.plan.GetReplicaTargetId());
    const bool isDone = each.is_source_alive && !replica.IsExisted();
    (isDone ? doneDirections : directions).insert(each.plan.GetDirection());
    if (isDone) {
      done.push_back("of target " + Quote(each.target) + " the copy " +
                     Quote(each.plan.GetSourceTargetId()));
    } else {
      commands.push_back("\"drgroupctl plan promote " + Printable(each.target) + "\"");
    }
  }
  const bool isHalfWay =
      doneDirections.size() == 1 && directions.size() == 1 && doneDirections != directions;
  if (!isHalfWay) return {};
  return Join(done, ", ") +
         " works already, as after a switchover that ended half way: let each of the others "
         "take over with " +
         Join(commands, ", ");
}

std::string BothSidesAdvice(const std::string& groupId, const std::vector<Takeover>& takeovers) {
  std::map<VrelDR::DRPlanDirection, std::vector<std::string>> working;
  std::map<VrelDR::DRPlanDirection, std::vector<std::string>> commands;
  for (const Takeover& each : takeovers) {
    if (each.plan.GetStatus() != VrelDR::kPlanNormal || each.is_going_back) continue;
    const VrelDR::DRPlanDirection direction = each.plan.GetDirection();
    working[direction].push_back(Quote(each.plan.GetSourceTargetId()));
    commands[direction].push_back("\"drgroupctl plan promote " + Printable(each.target) + "\"");
  }
  if (working.size() < 2) return {};
  return "on the main side " + Join(working[VrelDR::kMainToDR], ", ") + " works, on the DR side " +
         Join(working[VrelDR::kDRToMain], ", ") +
         ", as after a switchover that ended half way: bring them together with \"drgroupctl "
         "switchover " +
         Printable(groupId) + "\"; where a side is lost, on the DR side with " +
         Join(commands[VrelDR::kMainToDR], ", ") + ", on the main side with " +
         Join(commands[VrelDR::kDRToMain], ", ");
}

bool IsOlderThanRecorded(const std::vector<Takeover>& takeovers) {
  return std::any_of(takeovers.begin(), takeovers.end(), [](const Takeover& each) {
    return each.arrived.presence == Presence::kMissing && !each.is_going_back;
  });
}

GsnapCut CutOf(const std::vector<Takeover>& takeovers) {
  SnapshotsOfTargets snapshots;
  for (const Takeover& each : takeovers) {
    if (each.is_going_back) continue;
    const VrelDR::DRPlan& plan = each.plan;
    snapshots.emplace_back(VrelDR::Target(plan.GetReplicaTargetId(), plan.GetProtectedTargetType()),
                           each.snap_id);
  }
  return CutOf(snapshots);
}

std::string CutDetails(const GsnapCut& cut) {
  const std::string apart = "; what one has may depend on what is missing in another\n";
  switch (cut.kind) {
    case GsnapCut::Kind::kOne:
      if (cut.info.grade != VrelDR::CutGrade::kNone) return {};
      return "the snapshots are " + cut.text + ", but were taken within " +
             std::to_string(cut.info.skew_ms) + " ms" + apart;
    case GsnapCut::Kind::kMixed:
      return "the snapshots are " + cut.text + apart;
    default:
      return "whether the snapshots are of one instant is " + cut.text + "\n";
  }
}

std::string LossDetails(const std::vector<Takeover>& takeovers) {
  std::string text;
  for (const Takeover& each : takeovers) {
    text += "target " + Quote(each.target) + ": " + Quote(WorksAfter(each)) +
            (each.is_going_back ? " goes on working"
                                : " takes over with snapshot " + Printable(each.snap_id)) +
            "; lost is " + LostText(each) + "\n";
  }
  return text;
}

std::string LostText(const Takeover& takeover) {
  if (takeover.is_going_back) {
    return "nothing: nothing has been sent since the reprotection, which is taken back";
  }
  std::string text =
      "everything written since " +
      (takeover.snap_time == 0 ? "the snapshot was taken"
                               : FormatTime(takeover.snap_time) + " (" +
                                     FormatAgo(std::time(nullptr) - takeover.snap_time) + ")");
  if (!takeover.is_source_known) {
    text += "; which newer snapshots the other side has cannot be told";
  } else if (!takeover.newer.empty()) {
    text += "; " + Count(takeover.newer.size(), "newer snapshot") +
            " of the other side: " + Printable(Join(takeover.newer, ", "));
  }
  const std::string gone = ArrivedProblem(takeover.plan, takeover.arrived);
  if (!gone.empty()) text += "; " + gone;
  return text;
}

void AddTakeover(Report& report, const std::vector<Takeover>& takeovers) {
  Json::Value rows(Json::arrayValue);
  for (const Takeover& each : takeovers) {
    Json::Value row(Json::objectValue);
    row["target_id"] = each.target;
    row["working_target_id"] = WorksAfter(each);
    row["is_going_back"] = each.is_going_back;
    row["snap_id"] = each.snap_id;
    row["snap_time"] = each.snap_time;
    SetAge(each.snap_time, row);
    row["gone_snap_id"] =
        each.arrived.presence == Presence::kMissing ? each.arrived.recorded : std::string();
    row["newer_snapshots"] = Json::Value(Json::arrayValue);
    for (const std::string& id : each.newer) row["newer_snapshots"].append(id);
    row["is_source_alive"] = each.is_source_alive;
    row["lost"] = LostText(each);
    rows.append(row);
  }
  report.AddTable({"takeover", "Takeover"},
                  {{"target_id", "TARGET"},
                   {"working_target_id", "WORKS THEN"},
                   {"snap_id", "SNAPSHOT"},
                   {"age_seconds", "AGE", Shown::kAge},
                   {"lost", "WHAT IT HAS NOT"}},
                  rows);
}

}  // namespace drgroupctl
