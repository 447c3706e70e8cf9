#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "store/database.h"

namespace VrelDR {

// The records of plans. As Store in everything: what calls are, which failures they have, and what
// they find.
class PlanStore {
 public:
  // The database must outlive the object.
  explicit PlanStore(const Database& db) : db_(db) {}

  // Oldest first.
  Status ListPlans(std::vector<PlanRow>& rows) const {
    return db_.WholeResult(db_.GetRecords().plans.ListOfAnyState(rows), rows);
  }
  // Those that have the target on one of their sides, oldest first.
  Status SelectPlans(const std::string& targetId, std::vector<PlanRow>& rows) const {
    return db_.WholeResult(db_.GetRecords().plans.SelectOfAnyState(targetId, rows), rows);
  }
  Status SelectPlansOfAnyState(const std::string& targetId, std::vector<PlanRow>& rows) const {
    return db_.Result(db_.GetRecords().plans.SelectOfAnyState(targetId, rows));
  }
  Status GetPlan(const std::string& planId, std::optional<PlanRow>& row) const;
  // What is recorded of the plans that have one of the targets on one of their sides.
  Status ReadFacts(const std::set<std::string>& targetIds, ManyPlanFacts& facts) const;
  // Writes what operations change of a plan: status, direction and the flag of a reprotection. The
  // operation in its journal has reached its end by that, with this to tell.
  Status FinishChange(const PlanRow& row, const std::string& message) const;
  // The plan and the target that goes with it are on their way out and never come back. The plan
  // holds no snapshot any more.
  Status BeginRemoval(const std::string& planId, const std::string& targetId) const;
  // With all that was recorded of it.
  Status RemovePlan(const std::string& planId) const {
    return db_.Transact([&](const Records& records) { return records.RemovePlan(planId); });
  }

  Status GetJournal(const std::string& planId, JournalRow& row) const;
  // Writes the journal anew. A sync report that is still running, of a sync that has ended, tells
  // so from now on.
  Status WriteJournal(const std::string& planId, const JournalRow& row) const;
  Status AskToStop(const std::string& planId) const {
    return db_.Result(db_.GetRecords().journals.AskToStop(planId));
  }

  Status GetSyncReport(const std::string& planId, std::optional<SyncRow>& row) const {
    return db_.Result(db_.GetRecords().syncs.Get(planId, row));
  }
  // Writes the report anew, and the progress of the operation that the sync is, or is a part of. On
  // disk with what is written next, such as the journal at the operation's end.
  Status WriteSyncReport(const std::string& planId, const SyncRow& row, int progress) const;

  // In the order in which they were made.
  Status ListLocksOfTarget(const std::string& targetId, std::vector<LockRow>& rows) const {
    return db_.Result(db_.GetRecords().locks.ListOfTarget(targetId, rows));
  }
  Status ListLocksOfPlan(const std::string& planId, std::vector<LockRow>& rows) const {
    return db_.Result(db_.GetRecords().locks.ListOfPlan(planId, rows));
  }
  // The plan lets go of one snapshot on both its sides and holds another one instead; of none, or
  // none, when an identifier is empty.
  Status MoveLock(const DRPlan& plan, const std::string& oldId, const std::string& newId) const;

  // In the order in which they were added.
  Status ListPending(const std::string& planId, std::vector<std::string>& snapIds) const {
    return db_.Result(db_.GetRecords().pending.List(planId, snapIds));
  }
  // Once more puts it behind the others.
  Status AddPending(const std::string& planId, const std::string& snapId) const;
  Status RemovePending(const std::string& planId, const std::string& snapId) const;

  // The plan begins to send a snapshot that there is, and holds it on the source.
  Status TakeInHand(const DRPlan& plan, const std::string& snapId) const {
    return db_.Transact([&](const Records& records) { return records.TakeInHand(plan, snapId); });
  }
  // The plan has nothing in hand any more, and holds on the source no longer what it had.
  Status DropHand(const DRPlan& plan, const std::string& snapId) const;
  // The same, and it does not wait to be sent any more either.
  Status DropShipment(const DRPlan& plan, const std::string& snapId) const;
  // What is in hand has found no room once more.
  Status CountHandFailure(const std::string& planId) const;

 private:
  const Database& db_;
};

}  // namespace VrelDR
