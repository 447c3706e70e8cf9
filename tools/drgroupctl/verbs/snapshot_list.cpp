#include <algorithm>
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

// How many of the targets came into the group after the group snapshot.
std::size_t LaterThan(const Group& group, const VrelDRGroup::Gsnapshot& gsnap) {
  return static_cast<std::size_t>(std::ranges::count_if(
      group.since, [&](const auto& each) { return each.second > gsnap.gsnap_time; }));
}

Report RunSnapshotList(const Arguments& args, Warnings& warnings) {
  const std::string groupId = args.Text("GROUP");
  RequireCatalogue(groupId, Access::kRead);
  const auto defined = DefinedGroup(warnings, groupId);
  const Group group = defined.value_or(Group());
  const std::vector<VrelDR::Target>& targets = group.targets;
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
    if (defined)
      row["status"] = ShownStatus(gsnap, count.targets < targetCount - LaterThan(group, gsnap));
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
