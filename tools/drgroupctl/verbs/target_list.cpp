#include "action/removal.h"
#include "host/host.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

Report RunTargetList(const Arguments& /*args*/, Warnings& /*warnings*/) {
  Json::Value rows(Json::arrayValue);
  for (const VrelDR::TargetEntry& entry : ListTargets()) {
    Json::Value row(Json::objectValue);
    row["target_id"] = entry.target.GetId();
    row["type"] = TypeName(entry.target.GetType());
    row["volume"] = entry.volume;
    row["exists"] = ExistsValue(entry);
    row["snapshot_count"] = SnapshotCountValue(entry);
    row["path"] = entry.path;
    row["is_being_removed"] = false;
    row["problem"] = entry.problem;
    rows.append(row);
  }
  for (const VrelDR::TargetRemains& each : ListRemains()) {
    Json::Value row(Json::objectValue);
    row["target_id"] = each.target.GetId();
    row["type"] = TypeName(each.target.GetType());
    row["volume"] = each.volume;
    row["exists"] = false;
    row["snapshot_count"] = Json::Value();
    row["path"] = "";
    row["is_being_removed"] = true;
    row["problem"] = RemainsText(each);
    rows.append(row);
  }
  Report report;
  report.AddTable({"targets", "Targets"},
                  {{"target_id", "TARGET"},
                   {"type", "TYPE"},
                   {"volume", "VOLUME"},
                   {"exists", "EXISTS"},
                   {"snapshot_count", "SNAPSHOTS"},
                   {"path", "PATH"},
                   {"problem", "PROBLEM", Shown::kIfAny}},
                  rows);
  return report;
}

}  // namespace

Verb TargetList() {
  return {"target list",
          "list the targets of this host",
          {"Shows for each target its kind and volume, whether its bytes are there, how many "
           "snapshots it has and where it is. A question mark, null in JSON, stands for what the "
           "host cannot find out, as on a volume that is not mounted. What is left of one whose "
           "removal has begun is named, too."},
          "Nothing.",
          {},
          {},
          RunTargetList};
}

}  // namespace drgroupctl
