#include "host/host.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

Report RunVolumeList(const Arguments& /*args*/, Warnings& /*warnings*/) {
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

}  // namespace

Verb VolumeList() {
  return {"volume list",
          "list the volumes of this host",
          {"For each volume: its engine and how it makes snapshots; whether a snapshot is of one "
           "instant although somebody writes (atomic); whether the system refuses to change a "
           "snapshot's bytes (immutable); its size, and why it cannot be used if it cannot."},
          "Nothing.",
          {},
          {},
          RunVolumeList};
}

}  // namespace drgroupctl
