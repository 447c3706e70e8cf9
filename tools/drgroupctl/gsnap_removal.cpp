#include "gsnap_removal.h"

#include <vreldrgroup/snapshot/gsnap_delete.h>
#include <vreldrgroup/snapshot/gsnap_op.h>

#include <algorithm>

#include "catalogue.h"
#include "catalogue_view.h"
#include "failure.h"
#include "host.h"
#include "text.h"

namespace drgroupctl {

namespace Op = VrelDRGroup::Operation;

void CheckReachable(const VrelDRGroup::GsnapshotInfo& info) {
  for (const VrelDRGroup::TargetSnapshot& each : info.target_snapshots) {
    const SnapshotState state = AskSnapshot(each.target, each.tsnap_id);
    if (state.presence == Presence::kUnknown) {
      throw Failure(ExitCode::kRefused,
                    "group snapshot " + Quote(info.gsnap_id) + ": its snapshot of target " +
                        Quote(each.target.GetId()) + " is out of reach (" + state.problem +
                        "): make it reachable, or forget it where it is with \"drgroupctl snapshot "
                        "delete --force\"");
    }
  }
}

Json::Value StillThere(const std::vector<VrelDRGroup::TargetSnapshot>& snapshots) {
  Json::Value left(Json::arrayValue);
  for (const VrelDRGroup::TargetSnapshot& each : snapshots) {
    if (AskSnapshot(each.target, each.tsnap_id).presence == Presence::kMissing) continue;
    Json::Value row(Json::objectValue);
    row["target_id"] = each.target.GetId();
    row["tsnap_id"] = each.tsnap_id;
    left.append(row);
  }
  return left;
}

void RemoveGsnap(const std::string& groupId, const VrelDRGroup::GsnapshotInfo& info) {
  const std::string named = "group snapshot " + Quote(info.gsnap_id);
  Op::GsnapshotDelete operation(info.gsnap_id);
  if (!operation.Run()) {
    // A code of its own, without a message, is about a row that names no target snapshot.
    const bool isHosts = !operation.GetErrMsg().isNull();
    Failure failure(
        isHosts ? FromHostError(operation.GetErrCode()) : ExitCode::kCatalogue,
        named + " was not deleted, at least not whole: " +
            (isHosts ? HostMessage(operation) : "one of its records names no target snapshot") +
            "; it stays listed, and deleting can be tried again");
    failure.details["left_snapshots"] = StillThere(info.target_snapshots);
    throw failure;
  }
  // The library counts what it could not remove from the catalogue as done.
  std::vector<std::string> ids;
  std::vector<VrelDRGroup::TargetReplica> replicas;
  const std::string what = named + ": its target snapshots are deleted, but not all of its records";
  if (!Op::GsnapshotIdList(groupId, ids) || !Op::TargetReplicaList(info.gsnap_id, replicas) ||
      std::find(ids.begin(), ids.end(), info.gsnap_id) != ids.end() || !replicas.empty() ||
      CountTargetSnapshots(groupId).count(info.gsnap_id) != 0) {
    throw CatalogueFailure(groupId, what);
  }
}

}  // namespace drgroupctl
