#include <vreldrgroup/snapshot/gsnap_clone.h>
#include <vreldrgroup/snapshot/gsnap_utils.h>

#include <map>

#include "catalogue_view.h"
#include "console.h"
#include "failure.h"
#include "group_store.h"
#include "gsnap_check.h"
#include "gsnap_completeness.h"
#include "host.h"
#include "text.h"
#include "verb_functions.h"

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

}  // namespace

Report SnapshotClone(const Arguments& args) {
  const std::string gsnapId = args.Text("GSNAP");
  const GroupLock lock(VrelDRGroup::Utils::ParseGroupId(gsnapId));
  const VrelDRGroup::GsnapshotInfo info = RequireGsnap(gsnapId);
  CheckUsable(info);
  RequireComplete(info, "cloned", args.Has("--force"));
  if (info.status == VrelDRGroup::kGsnapBad) {
    PrintWarning("group snapshot " + Quote(gsnapId) +
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

}  // namespace drgroupctl
