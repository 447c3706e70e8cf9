#include "action/gsnap_recording.h"

#include <vreldr/report.h>
#include <vreldr/target_operation.h>
#include <vreldrgroup/record/target_group.h>
#include <vreldrgroup/replication/replica_op.h>
#include <vreldrgroup/snapshot/gsnap_delete.h>
#include <vreldrgroup/snapshot/gsnap_sync.h>
#include <vreldrgroup/snapshot/gsnap_utils.h>

#include "action/plans.h"
#include "groups/catalogue.h"
#include "groups/catalogue_rows.h"
#include "groups/catalogue_view.h"
#include "host/host.h"
#include "output/console.h"
#include "output/failure.h"
#include "output/text.h"

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

// A recording that was interrupted has left rows without a group snapshot: recorded once more, the
// parts would be there twice.
void RemoveHalfRecorded(const Group& group, const std::string& gsnapId) {
  if (!CatalogueRows(group.id).HasParts(gsnapId)) return;
  VrelDRGroup::Operation::GsnapshotDelete(gsnapId).Run();
}

}  // namespace

ArrivedGsnap FindArrivedGsnap(const Group& group) {
  ArrivedGsnap arrived;
  for (const VrelDR::Target& each : group.targets) {
    arrived.info.target_snapshots.emplace_back(each, RequireArrived(each.GetId()));
  }
  // A group snapshot is called after the time of its first target snapshot.
  const VrelDRGroup::TargetSnapshot& first = arrived.info.target_snapshots.front();
  const VrelDR::TargetOperation operation(first.target);
  const VrelDR::Operation::Snapshot snapshot = operation.GetSnapshot(first.tsnap_id);
  if (snapshot.snap_id.empty()) {
    if (operation.GetErrCode() != 0) ThrowHostError(operation);
    throw Failure(ExitCode::kNotFound, "target " + Quote(first.target.GetId()) +
                                           " has no snapshot " + Quote(first.tsnap_id) +
                                           ", which arrived last: sync its group again");
  }
  arrived.info.gsnap_time = snapshot.create_time;
  arrived.info.gsnap_id = VrelDRGroup::Utils::ToGsnapId(group.id, arrived.info.gsnap_time);
  arrived.cut = CutOf(arrived.info);
  arrived.is_recorded = CatalogueRows(group.id).IsListed(arrived.info.gsnap_id);
  return arrived;
}

void RequireTogether(const Group& group, const ArrivedGsnap& arrived) {
  if (group.targets.size() == 1 || arrived.cut.kind == GsnapCut::Kind::kOne) return;
  const std::string arrivedLast = "the snapshots that arrived last ";
  std::string why = arrivedLast + "were not taken together, they are ";
  if (arrived.cut.kind == GsnapCut::Kind::kUnknown) {
    why = "whether " + arrivedLast + "were taken together " + arrived.cut.text;
  } else {
    why += arrived.cut.kind == GsnapCut::Kind::kMixed ? arrived.cut.text : "of no cut";
  }
  throw Failure(ExitCode::kRefused,
                "group " + Quote(group.id) + ": no group snapshot was recorded: " + why +
                    ": sync the group again, or add --mixed to record them all the same");
}

VrelDRGroup::GsnapshotInfo RecordArrived(const Group& group, const ArrivedGsnap& arrived,
                                         const std::string& description, bool isLocked) {
  RemoveHalfRecorded(group, arrived.info.gsnap_id);
  const VrelDRGroup::TargetList targets(group.targets, group.id);
  const VrelDRGroup::GsnapMeta meta(description, isLocked, ConsistencyOf(arrived.cut));
  const Json::Value replicas = ReplicaMap(group);
  VrelDRGroup::Operation::GsnapshotSync operation(targets, meta, group.directory, replicas);
  std::string said;
  bool isRecorded = false;
  {
    const StderrCapture capture;
    isRecorded = operation.Run();
    said = capture.FirstLine();
  }
  if (isRecorded) return RequireGsnap(operation.GetGsnapshot().gsnap_id);
  // What the host refuses has a message; what the catalogue refuses has none.
  if (operation.GetErrMsg().isNull()) {
    throw CatalogueFailure(group.id, "no group snapshot was recorded", said);
  }
  throw Failure(
      FromHostError(operation.GetErrCode()),
      "group " + Quote(group.id) + ": no group snapshot was recorded: " + HostMessage(operation));
}

// The library's own recording knows only what has arrived last. The rows are those that it writes,
// in its order: without the last one nobody takes them for a group snapshot.
void RecordEarlier(const Group& group, const VrelDRGroup::GsnapshotInfo& gsnap) {
  namespace Rows = VrelDRGroup::Utils;
  RequireCatalogue(group.id, Access::kWrite);
  RemoveHalfRecorded(group, gsnap.gsnap_id);
  const Json::Value replicas = ReplicaMap(group);
  bool isGood = true;
  for (const VrelDRGroup::TargetSnapshot& each : gsnap.target_snapshots) {
    const std::string& id = each.target.GetId();
    const VrelDRGroup::TargetReplica replica(id, replicas[id].asString());
    isGood = isGood && Rows::SetTargetSnapshotRecord(each, gsnap.gsnap_id, group.directory) &&
             Rows::SetTargetReplicaRecord(replica, gsnap.gsnap_id, group.directory);
  }
  int err = 0;
  if (isGood && Rows::SetGroupSnapRecord(gsnap, group.directory, err)) return;
  throw CatalogueFailure(group.id, "group snapshot " + Quote(gsnap.gsnap_id) + " was not recorded");
}

}  // namespace drgroupctl
