#include <map>
#include <set>

#include "catalogue.h"
#include "catalogue_view.h"
#include "gsnap_completeness.h"
#include "known_snapshots.h"
#include "verb_functions.h"

namespace drgroupctl {

Report SnapshotList(const Arguments& args) {
  const std::string groupId = args.Text("GROUP");
  RequireCatalogue(groupId, Access::kRead);
  const auto counts = CountTargetSnapshots(groupId);
  const auto defined = DefinedTargets(groupId);
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

}  // namespace drgroupctl
