#include <vreldrgroup/snapshot/gsnap_utils.h>

#include "catalogue_view.h"
#include "gsnap_completeness.h"
#include "verb_functions.h"

namespace drgroupctl {

Report SnapshotShow(const Arguments& args) {
  const VrelDRGroup::GsnapshotInfo info = RequireGsnap(args.Text("GSNAP"));
  const Json::Value row = GsnapRow(info);
  const auto defined = DefinedTargets(VrelDRGroup::Utils::ParseGroupId(info.gsnap_id));
  const std::vector<std::string> missing =
      defined ? MissingTargets(*defined, PartsOf(info)) : std::vector<std::string>();
  Json::Value missingRows(Json::arrayValue);
  for (const std::string& each : missing) missingRows.append(each);
  Report report;
  report.AddField({"gsnap_id", "Snapshot"}, row["gsnap_id"]);
  report.AddField({"group_id", "Group"}, info.tag);
  report.AddField({"name", "Name"}, row["name"]);
  report.AddField({"time", "Time"}, row["time"]);
  report.AddField({"status", "Status"}, ShownStatus(info, missing));
  report.AddField({"is_locked", "Locked"}, row["is_locked"]);
  report.AddField({"consistency", "Consistency"}, row["consistency"]);
  report.AddField({"description", "Description"}, row["description"]);
  // Null when it cannot be told.
  report.AddField({"missing_targets", "Lacks target"}, defined ? missingRows : Json::Value());
  report.AddTable({"targets", "Targets"}, TargetSnapshotColumns(), TargetSnapshotRows(info));
  Json::Value replicas(Json::arrayValue);
  for (const VrelDRGroup::TargetReplica& each : info.target_replicas) {
    replicas.append(each.ToJson());
  }
  report.AddTable({"replicas", "Replicas"},
                  {{"src_target_id", "SOURCE"}, {"dst_target_id", "DESTINATION"}}, replicas);
  return report;
}

}  // namespace drgroupctl
