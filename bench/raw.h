#pragma once

#include <sqlite3.h>
#include <vreldrgroup/record/gsnapshot.h>

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

}  // namespace bench::raw
