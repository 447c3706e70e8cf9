#include "vreldrgroup/snapshot/gsnap_op.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "log.h"
#include "vreldrgroup/db.h"
#include "vreldrgroup/snapshot/gsnap_utils.h"

namespace VrelDRGroup::Operation {

namespace {

constexpr char kUnit[] = "snapshot/gsnap_op.cpp";

using VrelDRCore::SelectCommand;
using VrelDRCore::SqliteEqual;
using VrelDRCore::SqliteValueList;

// The target snapshots of one group snapshot, on their way to its record.
struct TargetSnapshots {
  std::vector<TargetSnapshot> list;
  const GsnapshotInfo* owner = nullptr;  // the record that has them already
};
// By identifiers that the records own.
using TargetSnapshotMap = std::unordered_map<std::string_view, TargetSnapshots>;

bool IsValid(const Gsnapshot& gsnap) {
  return !gsnap.gsnap_id.empty() && gsnap.gsnap_time > 0;
}

SelectCommand SelectFrom(const VrelDRCore::SqliteTableHandler& table) {
  SelectCommand command;
  command.SetTable(table);
  command.SelectAll();
  return command;
}

// Appends a copy of `empty` filled from every selected row to `out`. A row that cannot be read is
// passed over and makes the result false.
template <class Record, class Base>
bool ReadRecords(const DRGroupDB& db, const SelectCommand& command, const Base& empty,
                 std::vector<Record>& out) {
  bool readable = true;
  const bool selected = db.SelectEach(command, [&](const SqliteValueList& row) {
    out.emplace_back(empty);
    if (!out.back().FromSqliteValues(row)) {
      out.pop_back();
      readable = false;
    }
    return true;
  });
  return selected && readable;
}

template <class Record>
bool GsnapRecordList(const DRGroupDB& db, const std::string& groupId, std::vector<Record>& out,
                     bool latestOnly) {
  if (groupId.empty()) return false;
  // A group that never took a snapshot has an empty catalogue, not a broken one.
  if (!db.IsExisted()) return true;
  SelectCommand command = SelectFrom(GsnapMetadataSqliteTable());
  command.SetCondition(SqliteEqual("tag", groupId));
  if (latestOnly) {
    command.AddOrderField("gsnap_time");
    command.SetOrderByDESC();
    command.SetLimit(1);
  }
  if (!ReadRecords(db, command, Gsnapshot(""), out)) {
    LOG_LONG_ERR("Failed to list group snapshot of [%s]", groupId.c_str());
    return false;
  }
  return true;
}

bool GsnapshotGet(const DRGroupDB& db, const std::string& gsnapId, Gsnapshot& out) {
  if (gsnapId.empty()) {
    LOG_LONG_ERR("empty gsnap id");
    return false;
  }
  if (Utils::ParseGroupId(gsnapId).empty()) {
    LOG_LONG_ERR("Empty groupId from [%s]", gsnapId.c_str());
    return false;
  }
  SelectCommand command = SelectFrom(GsnapMetadataSqliteTable());
  command.SetCondition(SqliteEqual("gsnap_id", gsnapId));
  out.gsnap_id = gsnapId;
  SqliteValueList row;
  if (!db.SelectRecord(command, row) || !out.FromSqliteValues(row)) {
    LOG_LONG_ERR("gsnap[%s] is not existed", gsnapId.c_str());
    return false;
  }
  return IsValid(out);
}

// The rows of one group snapshot in a table of its parts. `function` is the caller's name.
template <class Record>
bool SelectParts(const DRGroupDB& db, const VrelDRCore::SqliteTableHandler& table,
                 const std::string& gsnapId, const Record& empty, const char* function,
                 std::vector<Record>& out) {
  if (gsnapId.empty()) {
    VRELDRGROUP_LOG_AS(LOG_ERR, "ERR", function, "Empty gsnapId");
    return false;
  }
  SelectCommand command = SelectFrom(table);
  command.SetCondition(SqliteEqual("gsnap_id", gsnapId));
  if (!ReadRecords(db, command, empty, out)) {
    VRELDRGROUP_LOG_AS(LOG_ERR, "ERR", function, "Failed to select snapshots with gsnapId[%s]",
                       gsnapId.c_str());
    return false;
  }
  return true;
}

bool GetTargetSnapshots(const DRGroupDB& db, const std::string& gsnapId,
                        std::vector<TargetSnapshot>& out) {
  return SelectParts(db, TargetSnapListSqliteTable(), gsnapId, TargetSnapshot(VrelDR::Target(), ""),
                     __func__, out);
}

bool GetTargetReplicas(const DRGroupDB& db, const std::string& gsnapId,
                       std::vector<TargetReplica>& out) {
  return SelectParts(db, TargetReplicaListSqliteTable(), gsnapId, TargetReplica("", ""), __func__,
                     out);
}

// Reads all target snapshots of the group and adds those of the group snapshots in `out` to it. The
// first row that cannot be read ends it.
bool ListTargetSnapshots(const DRGroupDB& db, const std::string& groupId, TargetSnapshotMap& out) {
  if (groupId.empty()) {
    LOG_LONG_ERR("Empty group Id");
    return false;
  }
  bool readable = true;
  std::string gsnapId;
  TargetSnapshot stray(VrelDR::Target(), "");  // for rows of no listed group snapshot
  // Rows of one group snapshot mostly follow each other: look up only when it changes.
  auto found = out.end();
  const bool selected =
      db.SelectEach(SelectFrom(TargetSnapListSqliteTable()), [&](const SqliteValueList& row) {
        readable = row.GetValue("gsnap_id", gsnapId);
        if (!readable) return false;
        if (found == out.end() || found->first != gsnapId) found = out.find(gsnapId);
        const bool isListed = found != out.end();
        TargetSnapshot& tsnap =
            isListed ? found->second.list.emplace_back(VrelDR::Target(), "") : stray;
        readable = tsnap.FromSqliteValues(row);
        return readable;
      });
  return selected && readable;
}

}  // namespace

bool GsnapshotList(const std::string& groupId, std::vector<Gsnapshot>& out, bool latestOnly) {
  return GsnapRecordList(DRGroupDB::GetRef(groupId), groupId, out, latestOnly);
}

bool GsnapshotIdList(const std::string& groupId, std::vector<std::string>& out) {
  if (groupId.empty()) return false;
  const DRGroupDB db = DRGroupDB::GetRef(groupId);
  if (!db.IsExisted()) return true;
  SelectCommand command;
  command.SetTable(GsnapMetadataSqliteTable());
  command.AddField("gsnap_id");
  bool readable = command.ListField().size() == 1;
  if (readable) {
    const std::string field = command.ListField().front();
    const bool selected = db.SelectEach(command, [&](const SqliteValueList& row) {
      std::string gsnapId;
      if (row.GetValue(field, gsnapId)) {
        out.push_back(std::move(gsnapId));
      } else {
        readable = false;
      }
      return true;
    });
    readable = readable && selected;
  }
  if (!readable) LOG_LONG_ERR("Failed to list group snapshot id of [%s]", groupId.c_str());
  return readable;
}

bool GsnapshotIdList(const std::string& groupId, std::set<std::string>& out) {
  std::vector<std::string> ids;
  if (!GsnapshotIdList(groupId, ids)) return false;
  out = std::set<std::string>(ids.begin(), ids.end());
  return true;
}

bool GsnapshotGet(const std::string& gsnapId, Gsnapshot& out) {
  return GsnapshotGet(DRGroupDB::GetRef(Utils::ParseGroupId(gsnapId)), gsnapId, out);
}

bool GsnapshotInfoGet(const std::string& gsnapId, GsnapshotInfo& out) {
  const DRGroupDB db = DRGroupDB::GetRef(Utils::ParseGroupId(gsnapId));
  const bool hasMeta = GsnapshotGet(db, gsnapId, out);
  const bool hasSnapshots = GetTargetSnapshots(db, gsnapId, out.target_snapshots);
  const bool hasReplicas = GetTargetReplicas(db, gsnapId, out.target_replicas);
  return hasMeta && hasSnapshots && hasReplicas && IsValid(out);
}

bool GsnapshotInfoList(const std::string& groupId, std::vector<GsnapshotInfo>& out) {
  const DRGroupDB db = DRGroupDB::GetRef(groupId);
  if (!GsnapRecordList(db, groupId, out, false)) {
    LOG_LONG_ERR("Failed to list snapshots of group[%s]", groupId.c_str());
    return false;
  }
  TargetSnapshotMap tsnaps;
  tsnaps.reserve(out.size());
  for (const GsnapshotInfo& info : out) tsnaps.try_emplace(info.gsnap_id);
  if (!ListTargetSnapshots(db, groupId, tsnaps)) {
    LOG_LONG_ERR("Failed to list target snapshots of group[%s]", groupId.c_str());
    return false;
  }
  for (GsnapshotInfo& info : out) {
    if (info.gsnap_id.empty()) {
      LOG_LONG_ERR("Empty gsnapId");
      continue;
    }
    TargetSnapshots& parts = tsnaps.find(info.gsnap_id)->second;
    if (parts.list.empty() && parts.owner == nullptr) {
      LOG_LONG_ERR("Failed to find target snapshots of group[%s]", info.gsnap_id.c_str());
      return false;
    }
    // Moved, for a catalogue of a million rows should be in memory once; a caller's list that holds
    // the same group snapshot twice gets it twice.
    if (parts.owner == nullptr) {
      info.target_snapshots = std::move(parts.list);
    } else {
      info.target_snapshots = parts.owner->target_snapshots;
    }
    parts.owner = &info;
  }
  return true;
}

bool TargetSnapList(const std::string& groupId,
                    std::map<VrelDR::Target, std::vector<TargetSnapshotRelationship>>& out) {
  if (groupId.empty()) {
    LOG_LONG_ERR("Empty group Id");
    return false;
  }
  // Put where they belong as they are read, for a catalogue of a million rows should be in memory
  // once; the caller's map gets them when all could be read.
  std::map<VrelDR::Target, std::vector<TargetSnapshotRelationship>> read;
  bool readable = true;
  const bool selected = DRGroupDB::GetRef(groupId).SelectEach(
      SelectFrom(TargetSnapListSqliteTable()), [&](const SqliteValueList& values) {
        TargetSnapshotRelationship row;
        if (row.FromSqliteValues(values)) {
          read[row.target].push_back(std::move(row));
        } else {
          readable = false;
        }
        return true;
      });
  if (!selected || !readable) return false;
  for (auto& [target, rows] : read) {
    std::vector<TargetSnapshotRelationship>& known = out[target];
    if (known.empty()) {
      known = std::move(rows);
    } else {
      std::move(rows.begin(), rows.end(), std::back_inserter(known));
    }
  }
  return true;
}

bool TargetReplicaList(const std::string& gsnapId, std::vector<TargetReplica>& out) {
  return GetTargetReplicas(DRGroupDB::GetRef(Utils::ParseGroupId(gsnapId)), gsnapId, out);
}

}  // namespace VrelDRGroup::Operation
