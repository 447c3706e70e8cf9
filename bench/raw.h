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

// The rows of a table whose column holds this text: open, delete, close, as durable as the
// library's.
bool DeleteRows(const std::string& path, const std::string& table, const std::string& column,
                const std::string& value);

// All target snapshots of a catalogue by target: open, one select, close.
using TargetSnapshots =
    std::map<VrelDR::Target, std::vector<VrelDRGroup::TargetSnapshotRelationship>>;
bool ListTargetSnapshots(const std::string& path, TargetSnapshots& tsnaps);

// Adds a group snapshot of these target snapshots in one transaction, which need not be durable.
bool AddGroupSnapshot(const std::string& path, const VrelDRGroup::GsnapshotInfo& info);

// Replaces a group's identifier wherever it is stored: open, one transaction, close.
bool Rename(const std::string& path, const std::string& from, const std::string& to);

}  // namespace bench::raw
