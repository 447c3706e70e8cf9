#include "store/store.h"

#include <algorithm>
#include <iterator>

#include "foundation/records.h"

namespace VrelDR {

namespace {

using VrelDRCore::InsertCommand;
using VrelDRCore::SelectCommand;
using VrelDRCore::SqliteEqual;
using VrelDRCore::SqliteTableHandler;
using VrelDRCore::SqliteValueList;
using VrelDRCore::UpdateCommand;

SqliteTableHandler Targets() {
  return SqliteTableHandler("targets");
}
SqliteTableHandler Snapshots() {
  return SqliteTableHandler("snapshots");
}

RecordState ReadState(const SqliteValueList& row) {
  int state = 0;
  row.GetValue("state", state);
  return static_cast<RecordState>(state);
}

TargetRow ReadTarget(const SqliteValueList& values) {
  TargetRow row;
  std::string id;
  int type = 0;
  values.GetValue("id", id);
  values.GetValue("type", type);
  row.target = Target(id, type);
  values.GetValue("volume", row.volume);
  row.state = ReadState(values);
  values.GetValue("last_snap_time", row.last_snap_time);
  return row;
}

SnapshotRow ReadSnapshot(const SqliteValueList& values) {
  SnapshotRow row;
  Operation::Snapshot& snapshot = row.snapshot;
  long seq = 0;
  values.GetValue("seq", seq);
  snapshot.sequence = static_cast<std::uint64_t>(seq);
  values.GetValue("snap_id", snapshot.snap_id);
  values.GetValue("create_time", snapshot.create_time);
  values.GetValue("description", snapshot.meta.description);
  values.GetValue("is_locked", snapshot.meta.is_locked);
  values.GetValue("is_app_consistent", snapshot.meta.is_app_consistent);
  values.GetValue("taken_by", snapshot.meta.taken_by);
  values.GetValue("maker", snapshot.maker);
  row.state = ReadState(values);
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
  UpdateCommand command;
  command.SetTable(Targets());
  command.AddFieldValue("last_snap_time", static_cast<long>(time));
  command.SetCondition(SqliteEqual("id", targetId));
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
  SelectCommand command;
  command.SetTable(Targets());
  command.AddOrderField("id");
  return db_.Result(db_.Get().SelectEach(command, [&rows](const SqliteValueList& values) {
    rows.push_back(ReadTarget(values));
    return true;
  }));
}

Status Store::GetTarget(const std::string& targetId, std::optional<TargetRow>& row) const {
  row.reset();
  SelectCommand command;
  command.SetTable(Targets());
  command.SetCondition(SqliteEqual("id", targetId));
  return db_.Result(db_.Get().SelectEach(command, [&row](const SqliteValueList& values) {
    row = ReadTarget(values);
    return false;
  }));
}

Status Store::AddTarget(const TargetRow& row, const DRPlan* plan) const {
  SqliteValueList values;
  values.AddValue("id", row.target.GetId());
  values.AddValue("type", row.target.GetType());
  values.AddValue("volume", row.volume);
  values.AddValue("state", static_cast<int>(row.state));
  InsertCommand command;
  command.SetTable(Targets());
  command.SetFieldValues(values);
  return db_.Transact([&] {
    return db_.Get().InsertRecord(command) && (plan == nullptr || Plans().AddWithin(*plan));
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
  UpdateCommand command;
  command.SetTable(Targets());
  command.AddFieldValue("state", static_cast<int>(state));
  command.SetCondition(SqliteEqual("id", targetId));
  return db_.Get().UpdateRecord(command);
}

Status Store::RemoveTarget(const std::string& targetId) const {
  return db_.Transact([&] {
    return Plans().RemoveUnfinishedWithin(targetId) &&
           db_.Get().DeleteRecord(Snapshots(), SqliteEqual("target_id", targetId)) &&
           db_.Get().DeleteRecord(Targets(), SqliteEqual("id", targetId));
  });
}

Status Store::ListSnapshots(const std::string& targetId, std::vector<SnapshotRow>& rows) const {
  SelectCommand command;
  command.SetTable(Snapshots());
  command.SetCondition(SqliteEqual("target_id", targetId));
  command.AddOrderField("seq");
  return db_.Result(db_.Get().SelectEach(command, [&rows](const SqliteValueList& values) {
    rows.push_back(ReadSnapshot(values));
    return true;
  }));
}

Status Store::AddSnapshot(const std::string& targetId, Operation::Snapshot& snapshot,
                          const DRPlan* plan) const {
  InsertCommand insert;
  insert.SetTable(Snapshots());
  insert.SetFieldValues(ValuesOf(targetId, snapshot, RecordState::kBuilding));
  // The sequence number of a row just inserted is the largest one of the table.
  SelectCommand select;
  select.SetTable(Snapshots());
  select.AddField("seq");
  select.AddOrderField("seq");
  select.SetOrderByDESC();
  select.SetLimit(1);
  SqliteValueList row;
  long seq = 0;
  Status status = db_.Transact([&] {
    return db_.Get().InsertRecord(insert) && db_.Get().SelectRecord(select, row) &&
           row.GetValue("seq", seq) &&
           (plan == nullptr || Plans().TakeInHandWithin(*plan, snapshot.snap_id));
  });
  if (status.IsOk()) snapshot.sequence = static_cast<std::uint64_t>(seq);
  return status;
}

Status Store::AddArrived(const TargetRow& replica, const Operation::Snapshot& snapshot,
                         const DRPlan& plan, bool isNewest) const {
  const std::string& targetId = replica.target.GetId();
  InsertCommand insert;
  insert.SetTable(Snapshots());
  insert.SetFieldValues(ValuesOf(targetId, snapshot, RecordState::kWhole));
  const UpdateCommand remember =
      RememberTime(targetId, std::max(replica.last_snap_time, snapshot.create_time));
  return db_.Transact([&] {
    return RemoveSnapshotWithin(targetId, snapshot.snap_id) && db_.Get().InsertRecord(insert) &&
           db_.Get().UpdateRecord(remember) && Plans().KeepWithin(plan, snapshot.snap_id, isNewest);
  });
}

bool Store::RemoveSnapshotWithin(const std::string& targetId, const std::string& snapId) const {
  SelectCommand command;
  command.SetTable(Snapshots());
  command.SetCondition(SqliteEqual("target_id", targetId));
  std::optional<Operation::Snapshot> found;
  const auto look = [&](const SqliteValueList& values) {
    SnapshotRow row = ReadSnapshot(values);
    if (row.snapshot.snap_id == snapId) found = std::move(row.snapshot);
    return !found;
  };
  return db_.Get().SelectEach(command, look) &&
         (!found || db_.Get().DeleteRecord(Snapshots(), BySequence(*found)));
}

Status Store::FinishSnapshot(const std::string& targetId, const Operation::Snapshot& snapshot,
                             std::uint32_t time) const {
  UpdateCommand finish;
  finish.SetTable(Snapshots());
  finish.AddFieldValue("state", static_cast<int>(RecordState::kWhole));
  finish.AddFieldValue("create_time", static_cast<long>(time));
  finish.SetCondition(BySequence(snapshot));
  const UpdateCommand remember = RememberTime(targetId, time);
  return db_.Transact(
      [&] { return db_.Get().UpdateRecord(finish) && db_.Get().UpdateRecord(remember); });
}

Status Store::MarkSnapshotDeleting(const Operation::Snapshot& snapshot) const {
  UpdateCommand command;
  command.SetTable(Snapshots());
  command.AddFieldValue("state", static_cast<int>(RecordState::kDeleting));
  command.SetCondition(BySequence(snapshot));
  return db_.Result(db_.Get().UpdateRecord(command));
}

Status Store::RemoveSnapshot(const Operation::Snapshot& snapshot) const {
  return db_.Result(db_.Get().DeleteRecord(Snapshots(), BySequence(snapshot)));
}

}  // namespace VrelDR
