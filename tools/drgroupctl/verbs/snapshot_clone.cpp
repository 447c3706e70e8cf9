#include <vreldrgroup/snapshot/gsnap_clone.h>
#include <vreldrgroup/snapshot/gsnap_utils.h>

#include <map>

#include "groups/catalogue_view.h"
#include "groups/group_store.h"
#include "groups/gsnap_check.h"
#include "groups/gsnap_completeness.h"
#include "host/host.h"
#include "output/console.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

using Clones = std::map<VrelDR::Target, std::string>;

Failure CloneFailure(const VrelDRGroup::GsnapshotInfo& info,
                     const VrelDRGroup::Operation::GsnapshotClone& operation) {
  const Clones& clones = operation.GetClones();
  Failure failure(FromHostError(operation.GetErrCode()),
                  "group snapshot " + Quote(info.gsnap_id) + " was not cloned: ");
  // Targets are cloned in their order: the first one without a clone has failed.
  for (const VrelDRGroup::TargetSnapshot& each : info.target_snapshots) {
    if (clones.count(each.target) != 0) continue;
    failure.details["target_id"] = each.target.GetId();
    failure.message += "target " + Quote(each.target.GetId()) + ": ";
    break;
  }
  failure.message += HostMessage(operation);
  std::vector<std::string> ids;
  failure.details["left_clones"] = Json::Value(Json::arrayValue);
  for (const auto& [target, cloneId] : clones) {
    if (cloneId.empty()) continue;
    ids.push_back(Quote(cloneId) + " of target " + Quote(target.GetId()));
    Json::Value row(Json::objectValue);
    row["target_id"] = target.GetId();
    row["clone_id"] = cloneId;
    failure.details["left_clones"].append(row);
  }
  failure.message += ids.empty() ? "; no clone of it is left"
                                 : "; these clones could not be removed again, remove them with "
                                   "\"drgroupctl target remove\": " +
                                       Join(ids, ", ");
  return failure;
}

Json::Value CloneRows(const VrelDRGroup::GsnapshotInfo& info, const Clones& clones) {
  Json::Value rows(Json::arrayValue);
  for (const VrelDRGroup::TargetSnapshot& each : info.target_snapshots) {
    const VrelDR::TargetEntry entry = RequireTarget(clones.at(each.target));
    Json::Value row(Json::objectValue);
    row["target_id"] = each.target.GetId();
    row["clone_id"] = entry.target.GetId();
    row["type"] = TypeName(entry.target.GetType());
    row["path"] = entry.path;
    rows.append(row);
  }
  return rows;
}

Report RunSnapshotClone(const Arguments& args, Warnings& warnings) {
  const std::string gsnapId = args.Text("GSNAP");
  const GroupLock lock(VrelDRGroup::Utils::ParseGroupId(gsnapId));
  const VrelDRGroup::GsnapshotInfo info = RequireGsnap(gsnapId);
  CheckUsable(info);
  RequireComplete(warnings, info, "cloned", args.Has("--force"));
  if (info.status == VrelDRGroup::kGsnapBad) {
    warnings.Print("group snapshot " + Quote(gsnapId) +
                   " is bad: one of its target snapshots was gone when the catalogue was last "
                   "repaired");
  }
  VrelDRGroup::Operation::GsnapshotClone operation(gsnapId);
  if (!operation.Run()) throw CloneFailure(info, operation);

  Report report;
  report.AddText("Cloned group snapshot " + Quote(gsnapId) + ".");
  report.AddField({"gsnap_id", "Snapshot"}, gsnapId);
  report.AddTable(
      {"clones", "Clones"},
      {{"target_id", "TARGET"}, {"clone_id", "CLONE"}, {"type", "TYPE"}, {"path", "PATH"}},
      CloneRows(info, operation.GetClones()));
  return report;
}

}  // namespace

Verb SnapshotClone() {
  return {
      "snapshot clone",
      "make new targets from a group snapshot",
      {"Makes a new, independent target of every target snapshot, on the same volume and with a "
       "UUID for an identifier, and reports which target it comes from. The new targets belong to "
       "no group.",
       "All or nothing: when one fails, the clones made before are removed again, and the message "
       "names any that could not be. What an interruption leaves whole is in \"drgroupctl target "
       "list\". Refused without --force when the group snapshot is incomplete."},
      "Adds targets to this host. A failure leaves nothing of them.",
      {Gsnap()},
      {Flag("--force", "clone it although it is incomplete")},
      RunSnapshotClone};
}

}  // namespace drgroupctl
