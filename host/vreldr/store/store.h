#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "../status.h"
#include "vreldr/snapshot.h"
#include "vreldr/target.h"
#include "vreldrcore/sqlite_db.h"

namespace VrelDR {

// How far the thing that a record is about has come. Only kWhole ones exist for callers; the others
// are being worked on, or were when somebody crashed. Kept on disk: never change a value.
enum class RecordState : int { kBuilding = 1, kWhole = 2, kDeleting = 3 };

struct TargetRow {
  Target target;
  std::string volume;
  RecordState state = RecordState::kBuilding;
  std::uint32_t last_snap_time = 0;  // of the newest snapshot ever taken
};

struct SnapshotRow {
  Operation::Snapshot snapshot;
  RecordState state = RecordState::kBuilding;
};

// The host's records: the SQLite file "replica.db" in the state directory. Every call is one
// transaction, on disk when it returns; every failure is kErrStore.
class Store {
 public:
  // Makes what is missing of the state directory and the file, and brings an older schema up to
  // date. Two processes may do so at once.
  static Status Open(const std::string& stateDir, std::optional<Store>& store);

  // Ordered by identifier, in every state.
  Status ListTargets(std::vector<TargetRow>& rows) const;
  Status GetTarget(const std::string& targetId, std::optional<TargetRow>& row) const;
  Status AddTarget(const TargetRow& row) const;
  Status SetTargetState(const std::string& targetId, RecordState state) const;
  // With the records of its snapshots.
  Status RemoveTarget(const std::string& targetId) const;

  // In the order in which they were taken, in every state.
  Status ListSnapshots(const std::string& targetId, std::vector<SnapshotRow>& rows) const;
  // A new snapshot in the state kBuilding. Its sequence number is found in `snapshot` afterwards.
  Status AddSnapshot(const std::string& targetId, Operation::Snapshot& snapshot) const;
  // Makes it whole, of `time`.
  Status FinishSnapshot(const std::string& targetId, const Operation::Snapshot& snapshot,
                        std::uint32_t time) const;
  Status MarkSnapshotDeleting(const Operation::Snapshot& snapshot) const;
  Status RemoveSnapshot(const Operation::Snapshot& snapshot) const;

 private:
  explicit Store(VrelDRCore::SqliteDB&& db) : db_(std::move(db)) {}

  Status Upgrade() const;
  // Good, or what the database recorded last.
  Status Result(bool good) const;
  // Runs `steps`, which return whether to go on, as one transaction: all of them or none.
  template <class Steps>
  Status Transact(Steps&& steps) const;

  VrelDRCore::SqliteDB db_;
};

}  // namespace VrelDR
