#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "store/plan_store.h"

namespace VrelDR {

// The host's records: the SQLite file "replica.db" in the state directory. Every call is one
// transaction, on disk when it returns; every failure is kErrStore, or kErrBusy when
// another process has held the file for too long. What is not whole is not found but by calls that
// say so.
class Store {
 public:
  // Opens the records of a host that was found, and brings an older schema up to date. Two
  // processes may do so at once. Makes nothing: a file that is missing or holds no records is
  // refused.
  static Status Open(const std::string& stateDir, std::optional<Store>& store);

  // Ordered by identifier.
  Status ListTargets(std::vector<TargetRow>& rows) const {
    return db_.WholeResult(db_.GetRecords().targets.ListOfAnyState(rows), rows);
  }
  Status ListTargetsOfAnyState(std::vector<TargetRow>& rows) const {
    return db_.Result(db_.GetRecords().targets.ListOfAnyState(rows));
  }
  Status GetTarget(const std::string& targetId, std::optional<TargetRow>& row) const;
  Status GetTargetOfAnyState(const std::string& targetId, std::optional<TargetRow>& row) const {
    return db_.Result(db_.GetRecords().targets.GetOfAnyState(targetId, row));
  }
  // With the plan, unless that is null, whose DR copy the target is; its journal tells of its
  // creation.
  Status AddTarget(const TargetRow& row, const DRPlan* plan) const;
  // Makes it whole, and the plan that came with it.
  Status FinishTarget(const std::string& targetId) const;
  Status MarkTargetDeleting(const std::string& targetId) const {
    return db_.Result(db_.GetRecords().targets.SetState(targetId, RecordState::kDeleting));
  }
  // With the records of its snapshots, and of a plan that came, or goes, with it.
  Status RemoveTarget(const std::string& targetId) const;

  // In the order in which they were taken.
  Status ListSnapshots(const std::string& targetId, std::vector<SnapshotRow>& rows) const {
    return db_.WholeResult(db_.GetRecords().snapshots.ListOfAnyState(targetId, rows), rows);
  }
  Status ListSnapshotsOfAnyState(const std::string& targetId,
                                 std::vector<SnapshotRow>& rows) const {
    return db_.Result(db_.GetRecords().snapshots.ListOfAnyState(targetId, rows));
  }
  // Those that are not whole, in the same order: however many the target has, nothing else is read.
  Status ListUnfinishedSnapshots(const std::string& targetId,
                                 std::vector<SnapshotRow>& rows) const {
    return db_.Result(db_.GetRecords().snapshots.ListUnfinished(targetId, rows));
  }
  // One of them, by its name alone; empty when there is none.
  Status GetSnapshot(const std::string& targetId, const std::string& snapId,
                     std::optional<SnapshotRow>& row) const;
  Status GetSnapshotOfAnyState(const std::string& targetId, const std::string& snapId,
                               std::optional<SnapshotRow>& row) const {
    return db_.Result(db_.GetRecords().snapshots.GetOfAnyState(targetId, snapId, row));
  }
  // How many ListSnapshots would find, of a target that is recorded; 0 otherwise.
  Status CountSnapshots(const std::string& targetId, std::uint64_t& count) const;
  // A new snapshot in the state kBuilding. Its sequence number is found in `snapshot` afterwards.
  // With a plan it is in the plan's hand from then on, which takes it to send it. With a cut that
  // is recorded too, as it is now.
  Status AddSnapshot(const std::string& targetId, Operation::Snapshot& snapshot, const DRPlan* plan,
                     const std::optional<CutInfo>& cut = {}) const;
  // The same of a snapshot of each of several targets, all or none.
  struct NewSnapshot {
    std::string target_id;
    Operation::Snapshot* snapshot = nullptr;
  };
  Status AddSnapshots(const std::vector<NewSnapshot>& added) const;
  // A snapshot of the plan's source has arrived at its replica whole: it is neither in hand nor
  // pending any more. When it `isNewest` the plan holds it on both sides, and nothing else. The
  // record of one of that name whose bytes had gone goes.
  Status AddArrived(const TargetRow& replica, const Operation::Snapshot& snapshot,
                    const DRPlan& plan, bool isNewest) const;
  // Makes it whole, of `time`, with what its `meta` says now.
  Status FinishSnapshot(const std::string& targetId, const Operation::Snapshot& snapshot,
                        std::uint32_t time) const;
  // Snapshots of a cut that are being taken become whole, with their times and what their `meta`
  // says; the plans have theirs in hand and hold them. All of it or nothing.
  struct TakenUp {
    std::string target_id;
    Operation::Snapshot snapshot;
  };
  struct InHand {
    DRPlan plan;
    std::string snap_id;
  };
  Status PutInHand(const std::vector<TakenUp>& takenUp, const std::vector<InHand>& inHand,
                   const CutInfo& cut) const;
  Status MarkSnapshotDeleting(const std::string& targetId,
                              const Operation::Snapshot& snapshot) const {
    return db_.Result(db_.GetRecords().snapshots.MarkDeleting(targetId, snapshot));
  }
  Status RemoveSnapshot(const std::string& targetId, const Operation::Snapshot& snapshot) const {
    return db_.Transact(
        [&](const Records& records) { return records.RemoveSnapshot(targetId, snapshot); });
  }

  // What is recorded of a cut goes with the last record of a snapshot of it.
  Status AddCut(const CutInfo& row) const { return db_.Result(db_.GetRecords().cuts.Add(row)); }
  Status GetCut(const std::string& cutId, std::optional<CutInfo>& row) const {
    return db_.Result(db_.GetRecords().cuts.Get(cutId, row));
  }

  Status ListVolumes(std::vector<VolumeRow>& rows) const {
    return db_.Result(db_.GetRecords().volumes.List(rows));
  }
  // Puts the volume's identity in the place of one that it had.
  Status SetVolume(const VolumeRow& row) const {
    return db_.Transact([&](const Records& records) { return records.volumes.Replace(row); });
  }

  // The store must outlive what it gives.
  PlanStore Plans() const { return PlanStore(db_); }

 private:
  explicit Store(VrelDRCore::SqliteDB&& db) : db_(std::move(db)) {}

  Database db_;
};

}  // namespace VrelDR
