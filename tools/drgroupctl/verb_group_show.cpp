#include "catalogue.h"
#include "catalogue_view.h"
#include "group_store.h"
#include "host.h"
#include "verb_functions.h"

namespace drgroupctl {

Report GroupShow(const Arguments& args) {
  const Group group = LoadGroup(args.Text("GROUP"));
  RequireCatalogue(group.id, Access::kRead);
  const auto latest = ListGsnaps(group.id, true);

  Json::Value rows(Json::arrayValue);
  for (const VrelDR::Target& target : group.targets) {
    VrelDR::TargetEntry entry;
    const bool known = FindTarget(target.GetId(), entry);
    Json::Value row(Json::objectValue);
    row["target_id"] = target.GetId();
    row["type"] = TypeName(target.GetType());
    row["exists"] = ExistsValue(entry);
    row["volume"] = known ? entry.volume : "";
    row["path"] = known ? entry.path : "";
    row["problem"] = entry.problem;
    rows.append(row);
  }
  Report report;
  report.AddField({"group_id", "Group"}, group.id);
  report.AddField({"directory", "Directory"}, group.directory);
  report.AddField({"gsnap_count", "Snapshots"}, Json::UInt64(ListGsnapIds(group.id).size()));
  report.AddField({"latest_gsnap_id", "Latest"}, latest.empty() ? "" : latest.front().gsnap_id);
  report.AddTable({"targets", "Targets"},
                  {{"target_id", "TARGET"},
                   {"type", "TYPE"},
                   {"exists", "EXISTS"},
                   {"volume", "VOLUME"},
                   {"path", "PATH"},
                   {"problem", "PROBLEM", Shown::kIfAny}},
                  rows);
  return report;
}

}  // namespace drgroupctl
