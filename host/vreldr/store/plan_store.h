#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "store/database.h"
#include "store/record_state.h"
#include "vreldr/plan.h"
#include "vreldr/report.h"
#include "vreldr/snapshot.h"

namespace VrelDR {

struct PlanRow {
  DRPlan plan;
  bool is_reprotected = false;  // turned by a reprotection, and nothing has arrived since
  // The snapshot of the source that is being sent, or was when the sync ended early; empty when
  // there is none.
  std::string hand_snap_id;
  int hand_failures = 0;  // how often that one has found no room at the replica
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
  long seq = 0;
  std::string target_id;
  std::string snap_id;
  std::string locker;
};

// The records of plans: the tables that only plans have. Every call is one transaction, on disk
// when it returns, but for those whose name ends with "Within": they are part of a transaction of
// the caller's and return whether to go on with it. Every failure is of Store's codes.
class PlanStore {
 public:
  // The database must outlive the object.
  explicit PlanStore(const Database& db) : db_(db) {}

  // Only plans that are whole exist for whoever asks; nothing is found on a failure.

  // Oldest first.
  Status ListPlans(std::vector<PlanRow>& rows) const;
  // Those that have the target on one of their sides, oldest first; or those in another state.
  Status SelectPlans(const std::string& targetId, std::vector<PlanRow>& rows,
                     RecordState state = RecordState::kWhole) const;
  Status GetPlan(const std::string& planId, std::optional<PlanRow>& row) const;
  // Writes what operations change of a plan: status, direction and the flag of a reprotection. The
  // operation in its journal has reached its end by that, with this to tell.
  Status FinishChange(const PlanRow& row, const std::string& message) const;
  // The plan and the target that goes with it are on their way out and never come back. The plan
  // holds no snapshot any more.
  Status BeginRemoval(const std::string& planId, const std::string& targetId) const;
  // With all that was recorded of it.
  Status RemovePlan(const std::string& planId) const;

  Status GetJournal(const std::string& planId, JournalRow& row) const;
  // Writes the journal anew. A sync report that is still running, of a sync that has ended, tells
  // so from now on.
  Status WriteJournal(const std::string& planId, const JournalRow& row) const;
  Status AskToStop(const std::string& planId) const;

  Status GetSyncReport(const std::string& planId, std::optional<SyncRow>& row) const;
  // Writes the report anew, and the progress of the operation that the sync is, or is a part of.
  Status WriteSyncReport(const std::string& planId, const SyncRow& row, int progress) const;

  // In the order in which they were made.
  Status ListLocksOfTarget(const std::string& targetId, std::vector<LockRow>& rows) const;
  Status ListLocksOfPlan(const std::string& planId, std::vector<LockRow>& rows) const;
  // The plan lets go of one snapshot on both its sides and holds another one instead, or none when
  // `newId` is empty.
  Status MoveLock(const DRPlan& plan, const std::string& oldId, const std::string& newId) const;

  // In the order in which they were added.
  Status ListPending(const std::string& planId, std::vector<std::string>& snapIds) const;
  Status AddPending(const std::string& planId, const std::string& snapId) const;
  Status RemovePending(const std::string& planId, const std::string& snapId) const;

  // The plan begins to send a snapshot that there is, and holds it on the source.
  Status TakeInHand(const DRPlan& plan, const std::string& snapId) const;
  // The plan has nothing in hand any more, and holds on the source no longer what it had.
  Status DropHand(const DRPlan& plan, const std::string& snapId) const;
  // The same, and it does not wait to be sent any more either.
  Status DropShipment(const DRPlan& plan, const std::string& snapId) const;
  // What is in hand has found no room once more.
  Status CountHandFailure(const std::string& planId) const;

  // A plan in the state kBuilding. Its journal tells of its creation.
  bool AddWithin(const DRPlan& plan) const;
  // Makes plans whole whose DR copy is the target.
  bool FinishWithin(const std::string& drTargetId) const;
  // Removes those that have the target and are not whole.
  bool RemoveUnfinishedWithin(const std::string& targetId) const;
  bool TakeInHandWithin(const DRPlan& plan, const std::string& snapId) const;
  // A snapshot has arrived: it is neither in hand nor pending any more. When it `isNewest` the plan
  // holds it on both sides, and nothing else.
  bool KeepWithin(const DRPlan& plan, const std::string& snapId, bool isNewest) const;

 private:
  bool RemoveWithin(const std::string& planId) const;
  bool RemovePendingWithin(const std::string& planId, const std::string& snapId) const;
  // Another one has not failed yet.
  bool SetHandWithin(const DRPlan& plan, const std::string& snapId) const;
  // Of one target; once more is fine.
  bool AddLockWithin(const std::string& targetId, const std::string& snapId,
                     const std::string& planId) const;
  // Of both sides.
  bool AddLocksWithin(const DRPlan& plan, const std::string& snapId) const;
  // By which the plan holds the snapshot on either side; all it has when `snapId` is empty.
  bool RemoveLocksWithin(const std::string& planId, const std::string& snapId) const;

  const Database& db_;
};

}  // namespace VrelDR
