#include "command/words.h"
#include "groups/catalogue.h"
#include "groups/catalogue_rows.h"
#include "groups/catalogue_view.h"
#include "groups/group_store.h"
#include "groups/writers.h"
#include "host/host.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

Report RunGroupShow(const Arguments& args, Warnings& /*warnings*/) {
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
  report.AddField({"gsnap_count", "Snapshots"},
                  Json::UInt64(CatalogueRows(group.id).CountGsnaps()));
  report.AddField({"latest_gsnap_id", "Latest"}, latest.empty() ? "" : latest.front().gsnap_id);
  report.AddTable({"targets", "Targets"},
                  {{"target_id", "TARGET"},
                   {"type", "TYPE"},
                   {"exists", "EXISTS"},
                   {"volume", "VOLUME"},
                   {"path", "PATH"},
                   {"problem", "PROBLEM", Shown::kIfAny}},
                  rows);
  report.AddField({"keep", "Keeps", Shown::kIfAny}, ToText(group.keep));
  const LastRestore& last = group.last_restore;
  report.AddField({"unfinished_restore", "Restore not finished", Shown::kIfAny},
                  last.is_unfinished ? last.gsnap_id : "");
  report.AddField({"unfinished_change", "Change not finished", Shown::kIfAny}, group.changing);
  report.AddField({"undo_gsnap_id", "Undoes the last restore", Shown::kIfAny}, last.before_id);
  report.AddField({"hook", "Told of failures", Shown::kIfAny}, JoinWords(group.hook));
  AddWriters(report, group.quiesce);
  return report;
}

}  // namespace

Verb GroupShow() {
  return {"group show",
          "show a group and its targets",
          {"Shows where its catalogue is, how many group snapshots it has, the latest of them, and "
           "whether each of its targets is there; a question mark, null in JSON, stands for one "
           "that the host cannot find out about. Also who is held while snapshots are taken; see "
           "\"group "
           "quiesce\"."},
          "Nothing.",
          {GroupArgument("the group")},
          {},
          RunGroupShow};
}

}  // namespace drgroupctl
