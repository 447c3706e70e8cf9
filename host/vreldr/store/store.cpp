#include "store/store.h"

#include <algorithm>
#include <iterator>

#include "foundation/records.h"
#include "store/rows.h"

namespace VrelDR {

using namespace Rows;  // short forms of commands on rows

namespace {

TargetRow ReadTarget(const SqliteValueList& values) {
  TargetRow row;
  row.target = Target(GetText(values, "id"), GetInt(values, "type"));
  row.volume = GetText(values, "volume");
  row.locator = GetText(values, "locator");
  row.state = GetState(values);
  values.GetValue("last_snap_time", row.last_snap_time);
  return row;
}

SnapshotRow ReadSnapshot(const SqliteValueList& values) {
  SnapshotRow row;
  Operation::Snapshot& snapshot = row.snapshot;
  snapshot.sequence = static_cast<std::uint64_t>(GetSeq(values));
  snapshot.snap_id = GetText(values, "snap_id");
  values.GetValue("create_time", snapshot.create_time);
  snapshot.meta.description = GetText(values, "description");
  values.GetValue("is_locked", snapshot.meta.is_locked);
  values.GetValue("is_app_consistent", snapshot.meta.is_app_consistent);
  snapshot.meta.taken_by = GetText(values, "taken_by");
  snapshot.maker = GetText(values, "maker");
  row.state = GetState(values);
  return row;
}

SqliteEqual BySequence(const Operation::Snapshot& snapshot) {
  return SqliteEqual("seq", static_cast<long>(snapshot.sequence));
}

SqliteValueList ValuesOf(const std::string& targetId, const Operation::Snapshot& snapshot,
                         RecordState state) {
  SqliteValueList values;
  values.AddValue("target_id", targetId);
  values.AddValue("snap_id", snapshot.snap_id);
  values.AddValue("create_time", static_cast<long>(snapshot.create_time));
  values.AddValue("state", static_cast<int>(state));
  values.AddValue("description", snapshot.meta.description);
  values.AddValue("is_locked", snapshot.meta.is_locked);
  values.AddValue("is_app_consistent", snapshot.meta.is_app_consistent);
  values.AddValue("taken_by", snapshot.meta.taken_by);
  values.AddValue("maker", snapshot.maker);
  return values;
}

// Of the newest snapshot of a target.
UpdateCommand RememberTime(const std::string& targetId, std::uint32_t time) {
  UpdateCommand command = Update(kTargets, SqliteEqual("id", targetId));
  command.AddFieldValue("last_snap_time", static_cast<long>(time));
  return command;
}

}  // namespace

std::vector<Operation::Snapshot> SnapshotsOf(const std::vector<SnapshotRow>& rows) {
  std::vector<Operation::Snapshot> snapshots;
  snapshots.reserve(rows.size());
  for (const SnapshotRow& each : rows) snapshots.push_back(each.snapshot);
  return snapshots;
}

std::vector<Operation::Snapshot> WholeSnapshotsOf(const std::vector<SnapshotRow>& rows) {
  std::vector<SnapshotRow> whole;
  std::copy_if(rows.begin(), rows.end(), std::back_inserter(whole),
               [](const SnapshotRow& each) { return each.state == RecordState::kWhole; });
  return SnapshotsOf(whole);
}

Status Store::Open(const std::string& stateDir, std::optional<Store>& store) {
  store.emplace(Store(VrelHost::RecordsAt(stateDir + "/replica.db")));
  Status status = VrelHost::UpgradeRecords(store->db_.Get());
  if (!status.IsOk()) store.reset();
  return status;
}

Status Database::Result(bool good) const {
  return good ? Status() : VrelHost::RecordsFailure(db_);
}

Status Store::ListTargets(std::vector<TargetRow>& rows) const {
  return db_.Result(SelectInto(db_, Select(kTargets, {}, "id"), ReadTarget, rows));
}

Status Store::GetTarget(const std::string& targetId, std::optional<TargetRow>& row) const {
  return db_.Result(SelectOne(db_, kTargets, SqliteEqual("id", targetId), ReadTarget, row));
}

Status Store::AddTarget(const TargetRow& row, const DRPlan* plan) const {
  SqliteValueList values;
  values.AddValue("id", row.target.GetId());
  values.AddValue("type", row.target.GetType());
  values.AddValue("volume", row.volume);
  values.AddValue("locator", row.locator);
  values.AddValue("state", static_cast<int>(row.state));
  return db_.Transact([&] {
    return Insert(db_, kTargets, values) && (plan == nullptr || Plans().AddWithin(*plan));
  });
}

Status Store::FinishTarget(const std::string& targetId) const {
  return db_.Transact([&] {
    return SetTargetState(targetId, RecordState::kWhole) && Plans().FinishWithin(targetId);
  });
}

Status Store::MarkTargetDeleting(const std::string& targetId) const {
  return db_.Result(SetTargetState(targetId, RecordState::kDeleting));
}

bool Store::SetTargetState(const std::string& targetId, RecordState state) const {
  return db_.Get().UpdateRecord(UpdateState(kTargets, SqliteEqual("id", targetId), state));
}

Status Store::RemoveTarget(const std::string& targetId) const {
  return db_.Transact([&] {
    return Plans().RemoveUnfinishedWithin(targetId) &&
           Delete(db_, kSnapshots, SqliteEqual("target_id", targetId)) &&
           Delete(db_, kTargets, SqliteEqual("id", targetId));
  });
}

Status Store::ListSnapshots(const std::string& targetId, std::vector<SnapshotRow>& rows) const {
  return db_.Result(SelectInto(db_, Select(kSnapshots, SqliteEqual("target_id", targetId), "seq"),
                               ReadSnapshot, rows));
}

Status Store::AddSnapshot(const std::string& targetId, Operation::Snapshot& snapshot,
                          const DRPlan* plan) const {
  const SqliteValueList values = ValuesOf(targetId, snapshot, RecordState::kBuilding);
  // The sequence number of a row just inserted is the largest one of the table.
  SelectCommand select = Select(kSnapshots, {}, "seq");
  select.AddField("seq");
  select.SetOrderByDESC();
  select.SetLimit(1);
  SqliteValueList row;
  long seq = 0;
  Status status = db_.Transact([&] {
    return Insert(db_, kSnapshots, values) && db_.Get().SelectRecord(select, row) &&
           row.GetValue("seq", seq) &&
           (plan == nullptr || Plans().TakeInHandWithin(*plan, snapshot.snap_id));
  });
  if (status.IsOk()) snapshot.sequence = static_cast<std::uint64_t>(seq);
  return status;
}

Status Store::AddArrived(const TargetRow& replica, const Operation::Snapshot& snapshot,
                         const DRPlan& plan, bool isNewest) const {
  const std::string& targetId = replica.target.GetId();
  const SqliteValueList values = ValuesOf(targetId, snapshot, RecordState::kWhole);
  const UpdateCommand remember =
      RememberTime(targetId, std::max(replica.last_snap_time, snapshot.create_time));
  return db_.Transact([&] {
    return RemoveSnapshotWithin(targetId, snapshot.snap_id) && Insert(db_, kSnapshots, values) &&
           db_.Get().UpdateRecord(remember) && Plans().KeepWithin(plan, snapshot.snap_id, isNewest);
  });
}

bool Store::RemoveSnapshotWithin(const std::string& targetId, const std::string& snapId) const {
  std::vector<long> found;
  const auto look = [&](const SqliteValueList& values) {
    if (GetText(values, "snap_id") == snapId) found.push_back(GetSeq(values));
    return found.empty();
  };
  const SelectCommand ofTarget = Select(kSnapshots, SqliteEqual("target_id", targetId), nullptr);
  return db_.Get().SelectEach(ofTarget, look) && DeleteAll(db_, kSnapshots, found);
}

Status Store::FinishSnapshot(const std::string& targetId, const Operation::Snapshot& snapshot,
                             std::uint32_t time) const {
  UpdateCommand finish = UpdateState(kSnapshots, BySequence(snapshot), RecordState::kWhole);
  finish.AddFieldValue("create_time", static_cast<long>(time));
  const UpdateCommand remember = RememberTime(targetId, time);
  return db_.Transact(
      [&] { return db_.Get().UpdateRecord(finish) && db_.Get().UpdateRecord(remember); });
}

Status Store::MarkSnapshotDeleting(const Operation::Snapshot& snapshot) const {
  return db_.Result(db_.Get().UpdateRecord(
      UpdateState(kSnapshots, BySequence(snapshot), RecordState::kDeleting)));
}

Status Store::RemoveSnapshot(const Operation::Snapshot& snapshot) const {
  return db_.Result(Delete(db_, kSnapshots, BySequence(snapshot)));
}

}  // namespace VrelDR
