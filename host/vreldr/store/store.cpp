#include "store/store.h"

#include <algorithm>
#include <ctime>

#include "foundation/records.h"

namespace VrelDR {

Status Store::Open(const std::string& stateDir, std::optional<Store>& store) {
  store.emplace(Store(VrelHost::RecordsAt(stateDir + "/replica.db")));
  Status status = VrelHost::UpgradeRecords(store->db_.Get());
  if (!status.IsOk()) store.reset();
  return status;
}

Status Database::Result(bool good) const {
  return good ? Status() : VrelHost::RecordsFailure(db_);
}

Status Store::GetTarget(const std::string& targetId, std::optional<TargetRow>& row) const {
  Status status = GetTargetOfAnyState(targetId, row);
  if (row && row->state != RecordState::kWhole) row.reset();
  return status;
}

Status Store::GetSnapshot(const std::string& targetId, const std::string& snapId,
                          std::optional<SnapshotRow>& row) const {
  Status status = GetSnapshotOfAnyState(targetId, snapId, row);
  if (row && (!status.IsOk() || row->state != RecordState::kWhole)) row.reset();
  return status;
}

Status Store::CountSnapshots(const std::string& targetId, std::uint64_t& count) const {
  const bool good = db_.GetRecords().snapshots.CountWhole(targetId, count);
  if (!good) count = 0;
  return db_.Result(good);
}

Status Store::AddTarget(const TargetRow& row, const DRPlan* plan) const {
  JournalRow creation;
  creation.op = kOpCreate;
  creation.progress = 100;
  creation.begin_time = static_cast<std::uint32_t>(std::time(nullptr));
  return db_.Transact([&](const Records& records) {
    return records.targets.Add(row) &&
           (plan == nullptr ||
            (records.plans.Add(*plan) && records.journals.Replace(plan->GetPlanId(), creation)));
  });
}

Status Store::FinishTarget(const std::string& targetId) const {
  return db_.Transact([&](const Records& records) {
    return records.targets.SetState(targetId, RecordState::kWhole) &&
           records.plans.FinishThoseTo(targetId);
  });
}

Status Store::RemoveTarget(const std::string& targetId) const {
  return db_.Transact([&](const Records& records) {
    std::vector<PlanRow> plans;
    if (!records.plans.SelectOfAnyState(targetId, plans)) return false;
    return std::ranges::all_of(plans,
                               [&](const PlanRow& each) {
                                 return each.state == RecordState::kWhole ||
                                        records.RemovePlan(each.plan.GetPlanId());
                               }) &&
           records.RemoveSnapshots(targetId) && records.targets.Remove(targetId);
  });
}

Status Store::AddSnapshot(const std::string& targetId, Operation::Snapshot& snapshot,
                          const DRPlan* plan, const std::optional<CutInfo>& cut) const {
  long sequence = 0;
  Status status = db_.Transact([&](const Records& records) {
    return (!cut || records.cuts.Replace(*cut)) &&
           records.snapshots.Add(targetId, snapshot, RecordState::kBuilding, sequence) &&
           (plan == nullptr || records.TakeInHand(*plan, snapshot.snap_id));
  });
  if (status.IsOk()) snapshot.sequence = static_cast<std::uint64_t>(sequence);
  return status;
}

Status Store::AddSnapshots(const std::vector<NewSnapshot>& added) const {
  return db_.Transact([&](const Records& records) {
    return std::ranges::all_of(added, [&](const NewSnapshot& each) {
      long sequence = 0;
      const bool isGood =
          records.snapshots.Add(each.target_id, *each.snapshot, RecordState::kBuilding, sequence);
      each.snapshot->sequence = static_cast<std::uint64_t>(sequence);
      return isGood;
    });
  });
}

Status Store::AddArrived(const TargetRow& replica, const Operation::Snapshot& snapshot,
                         const DRPlan& plan, bool isNewest) const {
  const std::string& targetId = replica.target.GetId();
  const std::string& planId = plan.GetPlanId();
  const std::string& snapId = snapshot.snap_id;
  return db_.Transact([&](const Records& records) {
    long sequence = 0;
    return records.snapshots.Remove(targetId, snapId) &&
           records.snapshots.Add(targetId, snapshot, RecordState::kWhole, sequence) &&
           records.targets.SetLastSnapTime(
               targetId, std::max(replica.last_snap_time, snapshot.create_time)) &&
           records.plans.ForgetReprotection(planId) && records.plans.SetHand(planId, {}) &&
           records.pending.Remove(planId, snapId) &&
           (isNewest ? records.locks.RemoveAll(planId) && records.locks.AddBoth(plan, snapId)
                     : records.locks.Remove(planId, snapId));
  });
}

Status Store::FinishSnapshot(const std::string& targetId, const Operation::Snapshot& snapshot,
                             std::uint32_t time) const {
  return db_.Transact(
      [&](const Records& records) { return records.FinishSnapshot(targetId, snapshot, time); });
}

Status Store::PutInHand(const std::vector<TakenUp>& takenUp, const std::vector<InHand>& inHand,
                        const CutInfo& cut) const {
  return db_.Transact([&](const Records& records) {
    return std::ranges::all_of(takenUp,
                               [&](const TakenUp& each) {
                                 return records.FinishSnapshot(each.target_id, each.snapshot,
                                                               each.snapshot.create_time);
                               }) &&
           std::ranges::all_of(
               inHand,
               [&](const InHand& each) { return records.TakeInHand(each.plan, each.snap_id); }) &&
           (!cut.is_made_by_sync || records.cuts.SetMadeBySync(cut.id));
  });
}

}  // namespace VrelDR
