#include "host.h"
#include "verb_functions.h"

namespace drgroupctl {

Report VolumeList(const Arguments&) {
  Json::Value rows(Json::arrayValue);
  for (const VrelDR::VolumeInfo& volume : ListVolumes()) {
    Json::Value row(Json::objectValue);
    row["name"] = volume.name;
    row["engine"] = volume.engine;
    row["method"] = volume.method;
    row["is_atomic"] = volume.is_atomic;
    row["is_immutable"] = volume.is_immutable;
    row["size_bytes"] = Json::UInt64(volume.size_bytes);
    row["free_bytes"] = Json::UInt64(volume.free_bytes);
    row["where"] = volume.where;
    row["problem"] = volume.problem;
    rows.append(row);
  }
  Report report;
  report.AddTable({"volumes", "Volumes"},
                  {{"name", "NAME"},
                   {"engine", "ENGINE"},
                   {"method", "METHOD"},
                   {"is_atomic", "ATOMIC"},
                   {"is_immutable", "IMMUTABLE"},
                   {"size_bytes", "SIZE", Shown::kBytes},
                   {"free_bytes", "FREE", Shown::kBytes},
                   {"where", "WHERE"},
                   {"problem", "PROBLEM", Shown::kIfAny}},
                  rows);
  return report;
}

}  // namespace drgroupctl
