// The tables of targets, of their snapshots, of cuts and of volumes.
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

std::uint64_t ReadCount(const SqliteValueList& values) {
  return GetNumber<std::uint64_t>(values, "whole");
}

long ReadLast(const SqliteValueList& values) {
  return GetNumber<long>(values, "last");
}

// As SQL says it. No identifier of a target has a zero byte.
std::string TextLiteral(const std::string& text) {
  std::string literal = "'";
  for (const char c : text) literal += c == '\'' ? "''" : std::string(1, c);
  return literal + "'";
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

bool SnapshotView::ListOfTarget(const std::string& targetId, std::vector<SnapshotRow>& rows) const {
  return List({{"target_id", targetId}}, "seq", ReadSnapshot, rows);
}

bool SnapshotView::GetOneOfCut(const std::string& cutId, std::optional<SnapshotRow>& row) const {
  return Get({{"cut_id", cutId}}, ReadSnapshot, row);
}

bool SnapshotView::Count(const std::string& targetId, std::uint64_t& count) const {
  std::optional<std::uint64_t> found;
  const bool good = Get({{"target_id", targetId}}, ReadCount, found);
  count = found.value_or(0);
  return good;
}

bool SequenceRecords::TakeNext(long& next) const {
  std::optional<long> last;
  if (!Get({}, ReadLast, last) || !last) return false;
  next = *last + 1;
  return Update({{"last", *last}}, {{"last", next}});
}

bool SnapshotRecords::Add(const std::string& targetId, const Operation::Snapshot& snapshot,
                          RecordState state, long& seq) const {
  return sequence_.TakeNext(seq) && Insert({{"target_id", targetId},
                                            {"seq", seq},
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

bool SnapshotRecords::Finish(const std::string& targetId, const Operation::Snapshot& snapshot,
                             std::uint32_t time) const {
  return Update({{"target_id", targetId}, BySequence(snapshot)},
                {{"state", Number(RecordState::kWhole)},
                 {"create_time", Number(time)},
                 {"description", snapshot.meta.description},
                 {"is_locked", snapshot.meta.is_locked},
                 {"is_app_consistent", snapshot.meta.is_app_consistent},
                 {"taken_by", snapshot.meta.taken_by}});
}

bool SnapshotRecords::MarkDeleting(const std::string& targetId,
                                   const Operation::Snapshot& snapshot) const {
  return Update({{"target_id", targetId}, BySequence(snapshot)},
                {{"state", Number(RecordState::kDeleting)}});
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

bool CutRecords::RemoveThoseAlone(const std::string& targetId) const {
  const std::string target = TextLiteral(targetId);
  return db_.Exec(
      "DELETE FROM cuts WHERE id IN (SELECT cut_id FROM snapshots WHERE target_id = " + target +
      ") AND NOT EXISTS (SELECT 1 FROM cut_snapshots WHERE cut_id = cuts.id"
      " AND target_id <> " +
      target + ")");
}

bool Records::RemoveSnapshot(const std::string& targetId,
                             const Operation::Snapshot& snapshot) const {
  if (!snapshots.Remove(targetId, snapshot)) return false;
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
