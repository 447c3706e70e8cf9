#include <vreldr/report.h>
#include <vreldr/target_operation.h>
#include <vreldrgroup/record/target_group.h>
#include <vreldrgroup/replication/replica_op.h>
#include <vreldrgroup/snapshot/gsnap_sync.h>
#include <vreldrgroup/snapshot/gsnap_utils.h>

#include <algorithm>

#include "action/plans.h"
#include "groups/catalogue.h"
#include "groups/catalogue_view.h"
#include "groups/group_store.h"
#include "groups/gsnap_cut.h"
#include "host/host.h"
#include "output/console.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

// The last snapshot that has arrived for a target. Throws when there is none: the library would
// only tell that it could not finish.
std::string RequireArrived(const std::string& target) {
  const VrelDR::DRPlan plan = RequireOnePlan(target);
  // While a sync goes from target to target, what has arrived does not belong together.
  VrelDR::SiteOPJournal journal;
  if (VrelDR::SiteOPJournalReporter(plan.GetPlanId()).ReadReport(journal) &&
      journal.GetState() == VrelDR::OPState::kRunning) {
    throw Failure(ExitCode::kBusy, Quote(VrelDR::Utils::ToString(journal.GetOPStatus())) +
                                       " runs on target " + Quote(target) +
                                       ": run it again when that has ended");
  }
  std::string snapId;
  VrelDRGroup::Operation::ReplicaLastSnapIdGet(target, snapId);
  if (snapId.empty()) {
    throw Failure(ExitCode::kNotFound, "nothing has arrived for target " + Quote(target) +
                                           " yet: run \"drgroupctl sync\" for the group that has "
                                           "target " +
                                           Quote(plan.GetSourceTargetId()));
  }
  return snapId;
}

// From every target to the other copy of its plan.
Json::Value ReplicaMap(const Group& group) {
  Json::Value map(Json::objectValue);
  for (const VrelDR::Target& each : group.targets) {
    const VrelDR::DRPlan plan = RequireOnePlan(each.GetId());
    map[each.GetId()] = each.GetId() == plan.GetProtectedTargetId() ? plan.GetDRTargetId()
                                                                    : plan.GetProtectedTargetId();
  }
  return map;
}

// A group snapshot is called after the time of its first target snapshot: recorded once more, the
// same snapshots would be in the catalogue twice.
void RequireNews(const Group& group) {
  for (const VrelDR::Target& each : group.targets) RequireArrived(each.GetId());
  const VrelDR::Target& first = group.targets.front();
  const std::string snapId = RequireArrived(first.GetId());
  const VrelDR::TargetOperation operation(first);
  const VrelDR::Operation::Snapshot snapshot = operation.GetSnapshot(snapId);
  if (snapshot.snap_id.empty()) {
    if (operation.GetErrCode() != 0) ThrowHostError(operation);
    throw Failure(ExitCode::kNotFound, "target " + Quote(first.GetId()) + " has no snapshot " +
                                           Quote(snapId) +
                                           ", which arrived last: sync its group again");
  }
  const std::string id = VrelDRGroup::Utils::ToGsnapId(group.id, snapshot.create_time);
  const std::vector<std::string> known = ListGsnapIds(group.id);
  if (std::find(known.begin(), known.end(), id) != known.end()) {
    throw Failure(ExitCode::kRefused, "group snapshot " + Quote(id) +
                                          " is recorded already: nothing newer has arrived");
  }
}

// What the group snapshot is going to have.
VrelDRGroup::GsnapshotInfo ArrivedTogether(const Group& group) {
  VrelDRGroup::GsnapshotInfo info("");
  for (const VrelDR::Target& each : group.targets) {
    info.target_snapshots.emplace_back(each, RequireArrived(each.GetId()));
  }
  return info;
}

Report RunSnapshotSync(const Arguments& args, Warnings& /*warnings*/) {
  const std::string groupId = args.Text("GROUP");
  const GroupLock lock(groupId);
  const Group group = LoadGroup(groupId);
  RequireCatalogue(groupId, Access::kWrite);
  RequireNews(group);

  const VrelDRGroup::TargetList targets(group.targets, groupId);
  const GsnapCut cut = CutOf(ArrivedTogether(group));
  const VrelDRGroup::GsnapMeta meta(args.Text("--description"), args.Has("--lock"),
                                    ConsistencyOf(cut));
  const Json::Value replicas = ReplicaMap(group);
  VrelDRGroup::Operation::GsnapshotSync operation(targets, meta, group.directory, replicas);
  std::string said;
  bool recorded = false;
  {
    const StderrCapture capture;
    recorded = operation.Run();
    said = capture.FirstLine();
  }
  if (!recorded) {
    // What the host refuses has a message; what the catalogue refuses has none.
    if (operation.GetErrMsg().isNull()) {
      throw CatalogueFailure(groupId, "no group snapshot was recorded", said);
    }
    throw Failure(
        FromHostError(operation.GetErrCode()),
        "group " + Quote(groupId) + ": no group snapshot was recorded: " + HostMessage(operation));
  }

  const VrelDRGroup::GsnapshotInfo info = RequireGsnap(operation.GetGsnapshot().gsnap_id);
  const Json::Value row = GsnapRow(info);
  Report report;
  report.AddText("Recorded group snapshot " + Quote(info.gsnap_id) + ".");
  report.AddField({"gsnap_id", "Snapshot"}, row["gsnap_id"]);
  report.AddField({"group_id", "Group"}, groupId);
  report.AddField({"name", "Name"}, row["name"]);
  report.AddField({"consistency", "Consistency"}, row["consistency"]);
  AddCut(cut, info.cw_type, report);
  report.AddTable({"targets", "Targets"}, TargetSnapshotColumns(), TargetSnapshotRows(info));
  return report;
}

}  // namespace

Verb SnapshotSync() {
  return {"snapshot sync",
          "record what replication brought as a group snapshot",
          {"Takes no snapshot: looks up the last snapshot that has arrived for every target of the "
           "group, which is usually the group of the DR copies, and records them as one group "
           "snapshot, with which target is replicated to which. Refused while nothing newer than "
           "the last recorded one has arrived.",
           "The consistency that is recorded is that of the cut in which all of them were taken, "
           "and unspecified when that was not one cut.",
           "After a failure rows of some targets may stay in the catalogue without a group "
           "snapshot; \"snapshot repair\" removes them."},
          "Adds a group snapshot to the catalogue.",
          {GroupArgument("the group")},
          {Description(), Flag("--lock", "lock it against deletion")},
          RunSnapshotSync};
}

}  // namespace drgroupctl
