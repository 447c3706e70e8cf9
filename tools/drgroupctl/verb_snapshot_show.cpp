#include "catalogue_view.h"
#include "verb_functions.h"

namespace drgroupctl {

Report SnapshotShow(const Arguments& args) {
  const VrelDRGroup::GsnapshotInfo info = RequireGsnap(args.Text("GSNAP"));
  const Json::Value row = GsnapRow(info);
  Report report;
  report.AddField({"gsnap_id", "Snapshot"}, row["gsnap_id"]);
  report.AddField({"group_id", "Group"}, info.tag);
  report.AddField({"name", "Name"}, row["name"]);
  report.AddField({"time", "Time"}, row["time"]);
  report.AddField({"status", "Status"}, row["status"]);
  report.AddField({"is_locked", "Locked"}, row["is_locked"]);
  report.AddField({"consistency", "Consistency"}, row["consistency"]);
  report.AddField({"description", "Description"}, row["description"]);
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
