#pragma once

#include <string>
#include <vector>

#include "../host.h"
#include "plan_lock.h"

namespace VrelDR {

// One plan of the host for the time of one call.
class HostPlan {
 public:
  // Opens the host and finds the plan to look at it. kErrPlanMissing unless it is recorded as
  // whole.
  Status OpenToRead(const std::string& planId);
  // Good when nobody works on the plan; kErrBusy, with what is done and since when, otherwise.
  Status CheckIdle() const;
  // Takes the right to work on the plan, which was opened, and reads it again.
  Status Claim();
  // Settles what an interrupted operation left: takes it back, as the plan's record says that it
  // did not reach its end, and records a snapshot that had arrived. After a failure the next call
  // tries again.
  Status Settle();

  // Writes that `op` has begun. A snapshot of that name goes if it is taken back.
  Status Begin(DRPlanOPStatus op, const std::string& snapId);
  // Writes how it ended; a failure is taken back before. `status` comes back with what went wrong
  // with that.
  Status End(Status status);
  // Writes what the operation made of the plan, with which it has reached its end.
  Status Commit(const PlanRow& changed);
  // Removes the records of the plan.
  Status Remove();
  // Writes how far the sync is; `progress` is the operation's, in percent.
  Status Report(const SyncRow& sync, int progress);
  bool IsStopAsked() const;

  Host& GetHost() { return host_; }
  const Store& GetStore() const { return *host_.store; }
  PlanStore Records() const { return host_.store->Plans(); }
  const PlanRow& GetRow() const { return row_; }
  const DRPlan& Get() const { return row_.plan; }
  // Reads the plan's record again.
  Status Refresh();

  // Opens one of the plan's targets to change it. Somebody who works on it is waited for a few
  // seconds.
  Status OpenToWrite(const std::string& targetId, HostTarget& target) const;
  // Makes a copy writable with a snapshot's bytes, or with those it has when `snapId` is empty.
  Status MakeWritable(const std::string& targetId, const std::string& snapId);
  Status MakeUnwritable(const std::string& targetId);
  // The newest snapshot that the plan holds on its replica; empty when there is none.
  Status FindLastArrived(std::string& snapId);
  // The replica's snapshots, oldest first, with one that has arrived and is not recorded yet.
  Status ListReplicaSnapshots(std::vector<Operation::Snapshot>& snapshots);

 private:
  Status Find(const std::string& planId);
  Status Busy() const;
  // Makes the copies what the plan's record says: the one that works writable, the other one not,
  // and deletes the operation's snapshot of that one.
  Status SetRight();
  // The snapshot in hand, when it has arrived as a whole and is not recorded.
  Status FindArrived(Operation::Snapshot& snapshot);
  Status AdoptArrived();

  Host host_;
  PlanRow row_;
  PlanLock lock_;
  JournalRow journal_;
  bool has_ended_ = false;  // recorded as done, or the plan is gone
};

// Whether the snapshot is newer than what the plan holds.
Status IsNewest(const HostPlan& plan, const HostTarget& replica,
                const Operation::Snapshot& snapshot, bool& newest);

}  // namespace VrelDR
