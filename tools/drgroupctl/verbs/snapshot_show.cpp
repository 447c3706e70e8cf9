#include <vreldrgroup/snapshot/gsnap_utils.h>

#include "groups/catalogue_view.h"
#include "groups/gsnap_completeness.h"
#include "groups/gsnap_cut.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

Report RunSnapshotShow(const Arguments& args, Warnings& warnings) {
  const VrelDRGroup::GsnapshotInfo info = RequireGsnap(args.Text("GSNAP"));
  const Json::Value row = GsnapRow(info);
  const auto defined = DefinedGroup(warnings, VrelDRGroup::Utils::ParseGroupId(info.gsnap_id));
  const std::vector<std::string> missing =
      defined ? MissingTargets(*defined, info.gsnap_time, PartsOf(info))
              : std::vector<std::string>();
  Json::Value missingRows(Json::arrayValue);
  for (const std::string& each : missing) missingRows.append(each);
  Report report;
  report.AddField({"gsnap_id", "Snapshot"}, row["gsnap_id"]);
  report.AddField({"group_id", "Group"}, info.tag);
  report.AddField({"name", "Name"}, row["name"]);
  report.AddField({"time", "Time"}, row["time"]);
  report.AddField({"status", "Status"}, ShownStatus(info, !missing.empty()));
  report.AddField({"is_locked", "Locked"}, row["is_locked"]);
  report.AddField({"consistency", "Consistency"}, row["consistency"]);
  report.AddField({"description", "Description"}, row["description"]);
  AddCut(CutOf(info), info.cw_type, report);
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

}  // namespace

Verb SnapshotShow() {
  return {
      "snapshot show",
      "show a group snapshot and its target snapshots",
      {"Shows what the catalogue says, and for each target snapshot whether it really exists "
       "and where its bytes can be read. A question mark, null in JSON, stands for one that "
       "the host cannot find out about, such as on a volume that is not mounted. An incomplete "
       "one is shown with the targets that it lacks.",
       "Shows also how the snapshots were made, as the host has it: in one cut, and whether that "
       "proved to be of one instant or writers were held for it; in different cuts; or that "
       "this was not recorded. A consistency that says something else was said by hand."},
      "Nothing.",
      {Gsnap()},
      {},
      RunSnapshotShow};
}

}  // namespace drgroupctl
