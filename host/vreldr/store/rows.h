#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/status.h"
#include "vreldr/cut.h"
#include "vreldr/plan.h"
#include "vreldr/report.h"
#include "vreldr/snapshot.h"
#include "vreldr/target.h"

// The rows of the records' tables, as plain data.
namespace VrelDR {

// How far the thing that a record is about has come. Only kWhole ones exist for callers; the others
// are being worked on, or were when somebody crashed. Kept on disk: never change a value.
enum class RecordState : int { kBuilding = 1, kWhole = 2, kDeleting = 3 };

// Whether what the record is about may be removed as what somebody left half done. A state that
// means nothing, as in a damaged record, says nothing of that.
inline bool IsHalfDone(RecordState state) {
  return state == RecordState::kBuilding || state == RecordState::kDeleting;
}

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

// The snapshots of the records, in their order.
std::vector<Operation::Snapshot> SnapshotsOf(const std::vector<SnapshotRow>& rows);

// The identity that a volume of the configuration was given, as its identity file has it too.
struct VolumeRow {
  std::string name;
  std::string id;
  std::string file_system;
};

struct PlanRow {
  DRPlan plan;
  bool is_reprotected = false;  // turned by a reprotection, and nothing has arrived since
  // The snapshot of the source that is being sent, or was when the sync ended early; empty when
  // there is none.
  std::string hand_snap_id;
  int hand_failures = 0;  // how often that one has found no room at the replica
  RecordState state = RecordState::kBuilding;
  long seq = 0;  // the order in which plans were made
};

struct JournalRow {
  DRPlanOPStatus op = kOpNone;
  OPState state = OPState::kDone;
  int progress = 0;  // in percent
  std::uint32_t begin_time = 0;
  std::string message;
  std::string snap_id;  // a snapshot that goes when the operation is taken back
  long pid = 0;         // of the process that runs, or ran, it
  bool is_stop_asked = false;
};

struct SyncRow {
  OPState state = OPState::kRunning;
  std::string snap_id;
  SyncRecord record;
};

struct LockRow {
  std::string target_id;
  std::string snap_id;
  std::string locker;
};

// What all the tables have of one plan, at one moment.
struct PlanFacts {
  PlanRow row;
  JournalRow journal;
  std::size_t pending_count = 0;
  // Its targets, in any state; none that is not recorded.
  std::optional<TargetRow> source, replica;
  // The newest snapshot that the plan holds on its replica; an empty one when there is none. Only
  // its identifier is known when neither side has a record of it.
  Operation::Snapshot recorded;
  bool is_recorded_whole = false;  // at the replica
};

// The same of many plans. What a spoilt table keeps from them is told here, and empty in all.
struct ManyPlanFacts {
  std::vector<PlanFacts> plans;  // oldest first
  Status journals, pending, recorded;
};

}  // namespace VrelDR
