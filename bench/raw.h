#pragma once

#include <sqlite3.h>
#include <vreldrgroup/record/gsnapshot.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

// The limit: what the library's calls do, with SQLite's C interface and nothing in between. Columns
// are named and read by their number, texts go straight into the records that the library gives.
namespace bench::raw {

// One row of "target_snap_list" or "gsnap_meta": open, insert, close, as durable as the library's.
bool InsertTargetSnapshot(const std::string& path, const VrelDRGroup::TargetSnapshot& tsnap,
                          const std::string& gsnapId);
bool InsertGsnapshot(const std::string& path, const VrelDRGroup::Gsnapshot& gsnap);

// One group snapshot with its target snapshots and replicas: open, three selects, close.
bool ReadInfo(const std::string& path, const std::string& gsnapId,
              VrelDRGroup::GsnapshotInfo& info);

// All group snapshots of a group with their target snapshots: open, two selects and a hash join,
// close.
bool ListInfo(const std::string& path, const std::string& groupId,
              std::vector<VrelDRGroup::GsnapshotInfo>& infos);

// What a repair has to read: the status of every group snapshot and the target snapshots of each.
struct RepairInput {
  std::map<std::string, int> statuses;
  std::map<std::string, std::vector<VrelDRGroup::TargetSnapshot>> parts;
};
// Open, two selects, close.
bool ReadForRepair(const std::string& path, RepairInput& input);

// Replaces a group's identifier wherever it is stored: open, one transaction, close.
bool Rename(const std::string& path, const std::string& from, const std::string& to);

}  // namespace bench::raw
