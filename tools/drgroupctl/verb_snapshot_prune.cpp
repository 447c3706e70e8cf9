#include <vreldr/report.h>
#include <vreldr/target_operation.h>

#include <set>

#include "action/group_action.h"
#include "action/plans.h"
#include "catalogue.h"
#include "console.h"
#include "failure.h"
#include "group_store.h"
#include "host.h"
#include "known_snapshots.h"
#include "text.h"
#include "verb_functions.h"

namespace drgroupctl {

namespace {

using VrelDR::Operation::Snapshot;

// What the snapshots say that actions take.
constexpr char kTakenByActions[] = "By vreldrgroup";

// A snapshot to be deleted.
struct Surplus {
  VrelDR::Target target;
  Snapshot snapshot;
};

// Every target snapshot that any group's catalogue records. Throws when one cannot be read: what it
// records could not be spared.
std::set<std::string> AllRecorded() {
  std::set<std::string> ids;
  for (const std::string& groupId : ListGroupIds()) {
    RequireCatalogue(groupId, Access::kRead);
    for (const auto& each : RecordedSnapshots(groupId)) ids.insert(each.tsnap_id);
  }
  return ids;
}

// Those that a plan holds or is going to send.
void AddNeeded(const VrelDR::DRPlan& plan, std::set<std::string>& needed) {
  VrelDR::RetentionLockReport held;
  VrelDR::RetentionLockReporter(plan.GetPlanId()).ReadReport(held);
  needed.insert(held.GetSnapshots().begin(), held.GetSnapshots().end());
  VrelDR::PendingSnapReport pending;
  VrelDR::PendingSnapReporter(plan.GetPlanId()).ReadReport(pending);
  needed.insert(pending.GetSnapshots().begin(), pending.GetSnapshots().end());
}

std::vector<Surplus> FindSurplus(const Group& group) {
  std::set<std::string> needed = AllRecorded();
  std::vector<VrelDR::DRPlan> plans;
  for (const VrelDR::Target& each : group.targets) {
    plans.push_back(RequireOnePlan(each.GetId()));
    AddNeeded(plans.back(), needed);
  }
  std::vector<Surplus> surplus;
  for (std::size_t i = 0; i < plans.size(); ++i) {
    for (const std::string& id : {plans[i].GetProtectedTargetId(), plans[i].GetDRTargetId()}) {
      const VrelDR::Target target(id, group.targets[i].GetType());
      const VrelDR::TargetOperation operation(target);
      const std::vector<Snapshot> snapshots = operation.ListSnapshots();
      if (operation.GetErrCode() != 0) ThrowHostError(operation);
      for (const Snapshot& each : snapshots) {
        if (each.meta.description == kTakenByActions && needed.count(each.snap_id) == 0) {
          surplus.push_back({target, each});
        }
      }
    }
  }
  return surplus;
}

Json::Value Rows(const std::vector<Surplus>& surplus, std::size_t deleted) {
  Json::Value rows(Json::arrayValue);
  for (std::size_t i = 0; i < surplus.size(); ++i) {
    Json::Value row(Json::objectValue);
    row["target_id"] = surplus[i].target.GetId();
    row["snap_id"] = surplus[i].snapshot.snap_id;
    row["time"] = surplus[i].snapshot.create_time;
    row["is_deleted"] = i < deleted;
    rows.append(row);
  }
  return rows;
}

Report PruneReport(const Group& group, const std::string& sentence,
                   const std::vector<Surplus>& surplus, std::size_t deleted) {
  Report report;
  report.AddText(sentence);
  report.AddField({"group_id", "Group"}, group.id);
  report.AddField({"deleted_count", "Deleted"}, Json::UInt64(deleted));
  report.AddTable({"snapshots", "Snapshots"},
                  {{"target_id", "TARGET"},
                   {"snap_id", "SNAPSHOT"},
                   {"time", "TIME", Shown::kTime},
                   {"is_deleted", "DELETED"}},
                  Rows(surplus, deleted));
  return report;
}

}  // namespace

Report SnapshotPrune(const Arguments& args) {
  const ActionLock lock(args.Text("GROUP"), args);
  const Group group = LoadGroup(args.Text("GROUP"));
  const std::vector<Surplus> surplus = FindSurplus(group);
  const std::string count = Count(surplus.size(), "snapshot");
  if (args.Has("--dry-run")) {
    return PruneReport(group, "Would delete " + count + " of group " + Quote(group.id) + ".",
                       surplus, 0);
  }
  if (!surplus.empty()) {
    Confirm(args, "delete " + count + " that syncs of group " + Quote(group.id) + " have taken");
  }
  std::size_t deleted = 0;
  for (const Surplus& each : surplus) {
    const VrelDR::TargetOperation operation(each.target);
    if (!operation.DeleteSnapshot(each.snapshot.snap_id)) {
      Failure failure(FromHostError(operation.GetErrCode()),
                      "group " + Quote(group.id) + ": " + std::to_string(deleted) + " of " + count +
                          " deleted, the same command goes on: " + HostMessage(operation));
      failure.details["target_id"] = each.target.GetId();
      failure.details["snapshots"] = Rows(surplus, deleted);
      throw failure;
    }
    ++deleted;
  }
  return PruneReport(group, "Deleted " + count + " of group " + Quote(group.id) + ".", surplus,
                     deleted);
}

}  // namespace drgroupctl
