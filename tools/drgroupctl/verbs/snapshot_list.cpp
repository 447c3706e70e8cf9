#include <map>
#include <set>
#include <utility>

#include "groups/catalogue.h"
#include "groups/catalogue_rows.h"
#include "groups/catalogue_view.h"
#include "groups/gsnap_completeness.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

// A definition that was written by hand may name one twice.
std::size_t CountOf(const std::vector<VrelDR::Target>& targets) {
  std::set<std::string> ids;
  for (const VrelDR::Target& each : targets) ids.insert(each.GetId());
  return ids.size();
}

Report RunSnapshotList(const Arguments& args, Warnings& warnings) {
  const std::string groupId = args.Text("GROUP");
  RequireCatalogue(groupId, Access::kRead);
  const auto defined = DefinedTargets(warnings, groupId);
  const std::vector<VrelDR::Target> targets = defined.value_or(std::vector<VrelDR::Target>());
  const std::size_t targetCount = CountOf(targets);
  const bool isLatest = args.Has("--latest");
  const CatalogueRows catalogue(groupId);
  std::map<std::string, PartCount> counts;
  if (!isLatest) counts = catalogue.CountParts(targets);
  Json::Value rows(Json::arrayValue);
  for (const VrelDRGroup::Gsnapshot& gsnap : ListGsnaps(groupId, isLatest)) {
    const PartCount count =
        isLatest ? catalogue.CountPartsOf(gsnap.gsnap_id, targets) : counts[gsnap.gsnap_id];
    Json::Value row = GsnapRow(gsnap);
    if (defined) row["status"] = ShownStatus(gsnap, count.targets < targetCount);
    row["target_count"] = Json::UInt64(count.parts);
    rows.append(std::move(row));
  }
  Report report;
  report.AddTable({"snapshots", "Snapshots"}, GsnapColumns(), std::move(rows));
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
