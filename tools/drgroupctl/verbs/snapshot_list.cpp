#include <map>
#include <set>

#include "groups/catalogue.h"
#include "groups/catalogue_view.h"
#include "groups/gsnap_completeness.h"
#include "groups/known_snapshots.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

Report RunSnapshotList(const Arguments& args, Warnings& warnings) {
  const std::string groupId = args.Text("GROUP");
  RequireCatalogue(groupId, Access::kRead);
  const auto counts = CountTargetSnapshots(groupId);
  const auto defined = DefinedTargets(warnings, groupId);
  std::map<std::string, std::set<std::string>> parts;
  for (const auto& each : RecordedSnapshots(groupId)) {
    parts[each.gsnap_id].insert(each.target.GetId());
  }
  Json::Value rows(Json::arrayValue);
  for (const VrelDRGroup::Gsnapshot& gsnap : ListGsnaps(groupId, args.Has("--latest"))) {
    Json::Value row = GsnapRow(gsnap);
    if (defined) {
      row["status"] = ShownStatus(gsnap, MissingTargets(*defined, parts[gsnap.gsnap_id]));
    }
    const auto count = counts.find(gsnap.gsnap_id);
    row["target_count"] = Json::UInt64(count == counts.end() ? 0 : count->second);
    rows.append(row);
  }
  Report report;
  report.AddTable({"snapshots", "Snapshots"}, GsnapColumns(), rows);
  return report;
}

}  // namespace

Verb SnapshotList() {
  return {"snapshot list",
          "list the group snapshots of a group",
          {"In the order in which they were taken, with how many target snapshots each has. The "
           "status is that of the catalogue, or incomplete when the group snapshot has no part of "
           "a target that the group's definition names."},
          "Nothing.",
          {GroupArgument("the group")},
          {Flag("--latest", "only the newest one")},
          RunSnapshotList};
}

}  // namespace drgroupctl
