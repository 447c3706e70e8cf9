#include "host.h"
#include "verb_functions.h"

namespace drgroupctl {

Report TargetList(const Arguments&) {
  Json::Value rows(Json::arrayValue);
  for (const VrelDR::TargetEntry& entry : ListTargets()) {
    Json::Value row(Json::objectValue);
    row["target_id"] = entry.target.GetId();
    row["type"] = TypeName(entry.target.GetType());
    row["volume"] = entry.volume;
    row["exists"] = entry.is_existed;
    row["snapshot_count"] = Json::UInt64(entry.snapshots);
    row["path"] = entry.path;
    rows.append(row);
  }
  Report report;
  report.AddTable({"targets", "Targets"},
                  {{"target_id", "TARGET"},
                   {"type", "TYPE"},
                   {"volume", "VOLUME"},
                   {"exists", "EXISTS"},
                   {"snapshot_count", "SNAPSHOTS"},
                   {"path", "PATH"}},
                  rows);
  return report;
}

}  // namespace drgroupctl
