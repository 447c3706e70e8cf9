#include <vreldr/snapshot_history.h>
#include <vreldr/target_operation.h>
#include <vreldrgroup/replication/action_words.h>

#include <algorithm>
#include <optional>
#include <set>

#include "action/common_cut.h"
#include "action/group_action.h"
#include "action/plans.h"
#include "command/confirm.h"
#include "groups/group_store.h"
#include "groups/known_snapshots.h"
#include "host/host.h"
#include "output/console.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

using VrelDR::Operation::Snapshot;

// A snapshot to be deleted.
struct Surplus {
  VrelDR::Target target;
  Snapshot snapshot;
  bool is_deleted = false;
};

std::vector<Surplus> FindSurplus(Warnings& warnings, const Group& group) {
  std::set<std::string> needed = AllRecordedSnapshotIds();
  std::vector<VrelDR::DRPlan> plans;
  for (const VrelDR::Target& each : group.targets) {
    plans.push_back(RequireOnePlan(each.GetId()));
    AddNeeded(plans.back(), needed);
  }
  const NeededCuts cuts = FindNeededCuts(plans);
  if (cuts.are_all) {
    warnings.Print(
        "snapshots that were taken in cuts stay, as it cannot be told which of them a "
        "failover needs: " +
        cuts.problem);
  }
  std::vector<Surplus> surplus;
  for (std::size_t i = 0; i < plans.size(); ++i) {
    for (const std::string& id : {plans[i].GetProtectedTargetId(), plans[i].GetDRTargetId()}) {
      const VrelDR::Target target(id, group.targets[i].GetType());
      const VrelDR::TargetOperation operation(target);
      const std::vector<Snapshot> leftovers = VrelDR::SnapshotHistory::Leftovers(
          operation.ListSnapshots(), VrelDRGroup::ActionPolicy::kTakenByActions, needed);
      if (operation.GetErrCode() != 0) {  // the other copy may need the room all the more
        warnings.Print("target " + Quote(id) + " is passed over: " + HostMessage(operation));
      }
      for (const Snapshot& each : leftovers) {
        if (!cuts.Has(each.cut_id)) surplus.push_back({target, each, false});
      }
    }
  }
  return surplus;
}

Json::Value Rows(const std::vector<Surplus>& surplus) {
  Json::Value rows(Json::arrayValue);
  for (const Surplus& each : surplus) {
    Json::Value row(Json::objectValue);
    row["target_id"] = each.target.GetId();
    row["snap_id"] = each.snapshot.snap_id;
    row["time"] = each.snapshot.create_time;
    row["is_deleted"] = each.is_deleted;
    rows.append(row);
  }
  return rows;
}

std::size_t CountDeleted(const std::vector<Surplus>& surplus) {
  return static_cast<std::size_t>(std::count_if(surplus.begin(), surplus.end(),
                                                [](const auto& each) { return each.is_deleted; }));
}

Report PruneReport(const Group& group, const std::string& sentence,
                   const std::vector<Surplus>& surplus) {
  Report report;
  report.AddText(sentence);
  report.AddField({"group_id", "Group"}, group.id);
  report.AddField({"deleted_count", "Deleted"}, Json::UInt64(CountDeleted(surplus)));
  report.AddTable({"snapshots", "Snapshots"},
                  {{"target_id", "TARGET"},
                   {"snap_id", "SNAPSHOT"},
                   {"time", "TIME", Shown::kTime},
                   {"is_deleted", "DELETED"}},
                  Rows(surplus));
  return report;
}

Report RunSnapshotPrune(const Arguments& args, Warnings& warnings) {
  std::optional<GroupLock> lock;
  if (!args.Has("--dry-run")) lock.emplace(args.Text("GROUP"));
  const Group group = LoadGroup(args.Text("GROUP"));
  std::vector<Surplus> surplus = FindSurplus(warnings, group);
  const std::string count = Count(surplus.size(), "snapshot");
  if (args.Has("--dry-run")) {
    return PruneReport(group, "Would delete " + count + " of group " + Quote(group.id) + ".",
                       surplus);
  }
  if (!surplus.empty()) {
    Confirm(args, "delete " + count + " that syncs of group " + Quote(group.id) + " have taken");
  }
  for (Surplus& each : surplus) {
    const VrelDR::TargetOperation operation(each.target);
    each.is_deleted = operation.DeleteSnapshot(each.snapshot.snap_id);
    // One that a plan is in the middle of sending stays.
    if (each.is_deleted || operation.GetErrCode() == VrelDR::kErrLocked) continue;
    Failure failure(FromHostError(operation.GetErrCode()),
                    "group " + Quote(group.id) + ": " + std::to_string(CountDeleted(surplus)) +
                        " of " + count +
                        " deleted, the same command goes on: " + HostMessage(operation));
    failure.details["target_id"] = each.target.GetId();
    failure.details["snapshots"] = Rows(surplus);
    throw failure;
  }
  return PruneReport(
      group,
      "Deleted " + Count(CountDeleted(surplus), "snapshot") + " of group " + Quote(group.id) + ".",
      surplus);
}

}  // namespace

Verb SnapshotPrune() {
  return {
      "snapshot prune",
      "delete the snapshots that syncs have left behind",
      {"Every sync takes a snapshot of each target and needs only the last of them. Deletes, "
       "on both copies, those before it that no plan holds or is going to send and that no "
       "group's catalogue records. The newest cut that all replicas of a group have stays, also "
       "of another group with one of the targets; while a replica cannot be asked, all cuts do. "
       "Refused while the catalogue of any group cannot be read. A "
       "copy that is out of reach is passed over.",
       "What was deleted before a failure stays deleted, and the same command goes on."},
      "Snapshots that syncs have taken are lost.",
      {GroupArgument("the group")},
      {Flag("--dry-run", "only show what would be deleted"), Yes()},
      RunSnapshotPrune};
}

}  // namespace drgroupctl
