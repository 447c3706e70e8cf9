#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/status.h"
#include "store/database.h"
#include "store/plan_store.h"
#include "store/record_state.h"
#include "vreldr/snapshot.h"
#include "vreldr/target.h"

namespace VrelDR {

struct TargetRow {
  Target target;
  std::string volume;
  std::string locator;  // how the volume's engine reaches it; given by the engine when it was made
  RecordState state = RecordState::kBuilding;
  std::uint32_t last_snap_time = 0;  // of the newest snapshot ever taken
};

struct SnapshotRow {
  Operation::Snapshot snapshot;
  RecordState state = RecordState::kBuilding;
};

// The snapshots of the records, in every state, in their order; and of those that are whole.
std::vector<Operation::Snapshot> SnapshotsOf(const std::vector<SnapshotRow>& rows);
std::vector<Operation::Snapshot> WholeSnapshotsOf(const std::vector<SnapshotRow>& rows);

// The identity that a volume of the configuration was given, as its identity file has it too.
struct VolumeRow {
  std::string name;
  std::string id;
  std::string file_system;
};

// The host's records: the SQLite file "replica.db" in the state directory. Every call is one
// transaction, on disk when it returns; every failure is kErrStore, or kErrBusy when
// another process has held the file for too long.
class Store {
 public:
  // Opens the records of a host that was found, and brings an older schema up to date. Two
  // processes may do so at once. Makes nothing: a file that is missing or holds no records is
  // refused.
  static Status Open(const std::string& stateDir, std::optional<Store>& store);

  // Ordered by identifier, in every state.
  Status ListTargets(std::vector<TargetRow>& rows) const;
  Status GetTarget(const std::string& targetId, std::optional<TargetRow>& row) const;
  // With the plan, unless that is null, whose DR copy the target is.
  Status AddTarget(const TargetRow& row, const DRPlan* plan) const;
  // Makes it whole, and the plan that came with it.
  Status FinishTarget(const std::string& targetId) const;
  Status MarkTargetDeleting(const std::string& targetId) const;
  // With the records of its snapshots, and of a plan that came, or goes, with it.
  Status RemoveTarget(const std::string& targetId) const;

  // In the order in which they were taken, in every state.
  Status ListSnapshots(const std::string& targetId, std::vector<SnapshotRow>& rows) const;
  // A new snapshot in the state kBuilding. Its sequence number is found in `snapshot` afterwards.
  // With a plan it is in the plan's hand from then on, which takes it to send it.
  Status AddSnapshot(const std::string& targetId, Operation::Snapshot& snapshot,
                     const DRPlan* plan) const;
  // A snapshot of the plan's source has arrived at its replica whole; see PlanStore::KeepWithin.
  // The record of one of that name whose bytes had gone goes.
  Status AddArrived(const TargetRow& replica, const Operation::Snapshot& snapshot,
                    const DRPlan& plan, bool isNewest) const;
  // Makes it whole, of `time`.
  Status FinishSnapshot(const std::string& targetId, const Operation::Snapshot& snapshot,
                        std::uint32_t time) const;
  Status MarkSnapshotDeleting(const Operation::Snapshot& snapshot) const;
  Status RemoveSnapshot(const Operation::Snapshot& snapshot) const;

  Status ListVolumes(std::vector<VolumeRow>& rows) const;
  // Puts the volume's identity in the place of one that it had.
  Status SetVolume(const VolumeRow& row) const;

  // The store must outlive what it gives.
  PlanStore Plans() const { return PlanStore(db_); }

 private:
  explicit Store(VrelDRCore::SqliteDB&& db) : db_(std::move(db)) {}

  bool RemoveSnapshotWithin(const std::string& targetId, const std::string& snapId) const;
  bool SetTargetState(const std::string& targetId, RecordState state) const;

  Database db_;
};

}  // namespace VrelDR
