// The tables of targets, of their snapshots, of cuts and of volumes.
#include <algorithm>

#include "store/record_sets.h"

namespace VrelDR {

using VrelDRCore::SqliteValueList;

namespace {

TargetRow ReadTarget(const SqliteValueList& values) {
  TargetRow row;
  row.target = Target(GetText(values, "id"), GetNumber<int>(values, "type"));
  row.volume = GetText(values, "volume");
  row.locator = GetText(values, "locator");
  row.state = GetNumber<RecordState>(values, "state");
  row.last_snap_time = GetNumber<std::uint32_t>(values, "last_snap_time");
  return row;
}

SnapshotRow ReadSnapshot(const SqliteValueList& values) {
  SnapshotRow row;
  Operation::Snapshot& snapshot = row.snapshot;
  snapshot.sequence = GetNumber<std::uint64_t>(values, "seq");
  snapshot.snap_id = GetText(values, "snap_id");
  values.GetValue("create_time", snapshot.create_time);
  snapshot.meta.description = GetText(values, "description");
  values.GetValue("is_locked", snapshot.meta.is_locked);
  values.GetValue("is_app_consistent", snapshot.meta.is_app_consistent);
  snapshot.meta.taken_by = GetText(values, "taken_by");
  snapshot.cut_id = GetText(values, "cut_id");
  snapshot.maker = GetText(values, "maker");
  row.state = GetNumber<RecordState>(values, "state");
  return row;
}

CutInfo ReadCut(const SqliteValueList& values) {
  CutInfo row;
  row.id = GetText(values, "id");
  row.members = GetNumber<int>(values, "members");
  row.grade = GetNumber<CutGrade>(values, "grade");
  values.GetValue("is_app_consistent", row.is_app_consistent);
  row.method = GetText(values, "method");
  values.GetValue("skew_ms", row.skew_ms);
  values.GetValue("held_ms", row.held_ms);
  values.GetValue("is_made_by_sync", row.is_made_by_sync);
  return row;
}

VolumeRow ReadVolume(const SqliteValueList& values) {
  return {GetText(values, "name"), GetText(values, "id"), GetText(values, "file_system")};
}

}  // namespace

std::vector<Operation::Snapshot> SnapshotsOf(const std::vector<SnapshotRow>& rows) {
  std::vector<Operation::Snapshot> snapshots;
  snapshots.reserve(rows.size());
  for (const SnapshotRow& each : rows) snapshots.push_back(each.snapshot);
  return snapshots;
}

bool TargetRecords::ListOfAnyState(std::vector<TargetRow>& rows) const {
  return List({}, "id", ReadTarget, rows);
}

bool TargetRecords::GetOfAnyState(const std::string& targetId,
                                  std::optional<TargetRow>& row) const {
  return Get({{"id", targetId}}, ReadTarget, row);
}

bool TargetRecords::Add(const TargetRow& row) const {
  return Insert({{"id", row.target.GetId()},
                 {"type", row.target.GetType()},
                 {"volume", row.volume},
                 {"locator", row.locator},
                 {"state", Number(row.state)}});
}

bool SnapshotRecords::ListOfAnyState(const std::string& targetId,
                                     std::vector<SnapshotRow>& rows) const {
  return List({{"target_id", targetId}}, "seq", ReadSnapshot, rows);
}

bool SnapshotRecords::GetOfAnyState(const std::string& targetId, const std::string& snapId,
                                    std::optional<SnapshotRow>& row) const {
  return Get({{"target_id", targetId}, {"snap_id", snapId}}, ReadSnapshot, row);
}

bool SnapshotRecords::ListUnfinished(const std::string& targetId,
                                     std::vector<SnapshotRow>& rows) const {
  if (!ListOfAnyState(targetId, rows)) return false;
  std::erase_if(rows, [](const SnapshotRow& each) { return each.state == RecordState::kWhole; });
  return true;
}

bool SnapshotRecords::CountWhole(const std::string& targetId, std::uint64_t& count) const {
  std::vector<SnapshotRow> rows;
  if (!ListOfAnyState(targetId, rows)) return false;
  count = static_cast<std::uint64_t>(std::ranges::count(
      rows, RecordState::kWhole, [](const SnapshotRow& each) { return each.state; }));
  return true;
}

bool SnapshotRecords::GetOneOfCut(const std::string& cutId, std::optional<SnapshotRow>& row) const {
  return Get({{"cut_id", cutId}}, ReadSnapshot, row);
}

bool SnapshotRecords::Add(const std::string& targetId, const Operation::Snapshot& snapshot,
                          RecordState state) const {
  return Insert({{"target_id", targetId},
                 {"snap_id", snapshot.snap_id},
                 {"create_time", Number(snapshot.create_time)},
                 {"state", Number(state)},
                 {"description", snapshot.meta.description},
                 {"is_locked", snapshot.meta.is_locked},
                 {"is_app_consistent", snapshot.meta.is_app_consistent},
                 {"taken_by", snapshot.meta.taken_by},
                 {"cut_id", snapshot.cut_id},
                 {"maker", snapshot.maker}});
}

bool SnapshotRecords::Finish(const Operation::Snapshot& snapshot, std::uint32_t time) const {
  return Update({BySequence(snapshot)}, {{"state", Number(RecordState::kWhole)},
                                         {"create_time", Number(time)},
                                         {"description", snapshot.meta.description},
                                         {"is_locked", snapshot.meta.is_locked},
                                         {"is_app_consistent", snapshot.meta.is_app_consistent},
                                         {"taken_by", snapshot.meta.taken_by}});
}

bool CutRecords::Get(const std::string& cutId, std::optional<CutInfo>& row) const {
  return Table::Get({{"id", cutId}}, ReadCut, row);
}

bool CutRecords::Add(const CutInfo& row) const {
  return Insert({{"id", row.id},
                 {"members", row.members},
                 {"grade", Number(row.grade)},
                 {"is_app_consistent", row.is_app_consistent},
                 {"method", row.method},
                 {"skew_ms", Number(row.skew_ms)},
                 {"held_ms", Number(row.held_ms)},
                 {"is_made_by_sync", row.is_made_by_sync}});
}

bool Records::RemoveSnapshot(const Operation::Snapshot& snapshot) const {
  if (!snapshots.Remove(snapshot)) return false;
  if (snapshot.cut_id.empty()) return true;
  std::optional<SnapshotRow> left;
  return snapshots.GetOneOfCut(snapshot.cut_id, left) && (left || cuts.Remove(snapshot.cut_id));
}

bool VolumeRecords::List(std::vector<VolumeRow>& rows) const {
  return Table::List({}, "name", ReadVolume, rows);
}

bool VolumeRecords::Replace(const VolumeRow& row) const {
  return Delete({{"name", row.name}}) &&
         Insert({{"name", row.name}, {"id", row.id}, {"file_system", row.file_system}});
}

}  // namespace VrelDR
