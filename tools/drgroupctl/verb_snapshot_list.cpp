#include "catalogue.h"
#include "catalogue_view.h"
#include "verb_functions.h"

namespace drgroupctl {

Report SnapshotList(const Arguments& args) {
  const std::string groupId = args.Text("GROUP");
  RequireCatalogue(groupId, Access::kRead);
  const auto counts = CountTargetSnapshots(groupId);
  Json::Value rows(Json::arrayValue);
  for (const VrelDRGroup::Gsnapshot& gsnap : ListGsnaps(groupId, args.Has("--latest"))) {
    Json::Value row = GsnapRow(gsnap);
    const auto count = counts.find(gsnap.gsnap_id);
    row["target_count"] = Json::UInt64(count == counts.end() ? 0 : count->second);
    rows.append(row);
  }
  Report report;
  report.AddTable({"snapshots", "Snapshots"}, GsnapColumns(), rows);
  return report;
}

}  // namespace drgroupctl
