#pragma once

#include <string>
#include <vector>

#include "plan/plan_lock.h"
#include "target/host.h"
#include "vreldr/arrived.h"

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
  // Something that the journal tells at the operation's end, whatever that is.
  void Note(const std::string& text) { note_ += (note_.empty() ? "" : "; ") + text; }
  // The plan goes with its copy, whose bytes may go piece by piece from now on: neither comes back,
  // and nothing is taken back.
  Status BeginRemoval(const std::string& copyId);
  // Removes the records of the plan.
  Status Remove();
  // Writes how far the sync is; `progress` is the operation's, in percent.
  Status Report(const SyncRow& sync, int progress);
  bool IsStopAsked() const;

  Host& GetHost() const { return *host_; }
  const Store& GetStore() const { return *host_->store; }
  PlanStore Records() const { return host_->store->Plans(); }
  const PlanRow& GetRow() const { return row_; }
  const DRPlan& Get() const { return row_.plan; }
  // Reads the plan's record again.
  Status Refresh();

  // Opens one of the plan's targets to change it.
  Status OpenToWrite(const std::string& targetId, HostTarget& target,
                     const Patience& patience = {}) const;
  // The same to take a snapshot, or while one that a cut has prepared waits for that.
  Status OpenToTake(const std::string& targetId, HostTarget& target,
                    const Patience& patience = {}) const;
  // Nobody writes a copy from now on; it still is what it was.
  Status Quiesce(const std::string& targetId);
  // Good when nobody can write the copy, which was made quiet, any more. kErrInUse otherwise,
  // unless the caller has said that it goes on all the same: then that is noted. `isUnwritable`
  // tells whether nobody can from now on either, as the system refuses it to everybody.
  Status CheckUnwritten(const std::string& targetId, bool& isUnwritable);
  // The same as Quiesce, and it gives up its part.
  Status Demote(const std::string& targetId);
  // Lets a copy work with a snapshot's bytes, or with those it has when `snapId` is empty.
  Status Promote(const std::string& targetId, const std::string& snapId, Manner manner);

  // What links one of the plan's copies to the other, by the records: neither is reached.
  struct Pair {
    TargetPlace source, replica;
    std::unique_ptr<Link> link;
  };
  Status OpenPair(const std::string& fromId, const std::string& toId, Pair& pair) const;
  // The copies are no pair any more, as far as they can be reached.
  Status Detach();
  // Removes what is on its way to a copy, which was opened to be changed, but not what belongs to
  // `keepSnapId`, which may be empty.
  Status DropShipments(const HostTarget& copy, const std::string& keepSnapId);
  // The snapshots that the plan holds on its replica: what it holds on the source alone has not
  // arrived yet. In the order in which it came to hold them.
  Status ListHeld(std::vector<std::string>& snapIds) const;
  // What the replica can take over with. On a failure only what the records tell of it.
  Status LookAtArrived(ArrivedSnapshots& arrived);
  // Gives up the snapshot in hand, whose identifier is in `snapId` afterwards, with what has
  // arrived of it. The source keeps it; nobody holds it, and it does not wait to be sent.
  Status DropShipment(std::string& snapId);
  // The plans, this one among them, whose snapshot in hand has found no room, and whose replica is
  // on the same volume as this one's: what has arrived of theirs takes the room of each other.
  Status ListShortOfRoom(std::vector<PlanRow>& plans) const;
  // The replica's snapshots, oldest first, with one that has arrived and is not recorded yet; all
  // of them, or those of some identifiers.
  Status SelectReplicaSnapshots(const std::vector<std::string>& snapIds,
                                std::vector<Operation::Snapshot>& snapshots);
  Status ListReplicaSnapshots(std::vector<Operation::Snapshot>& snapshots);

 private:
  Status Quiesce(const std::string& targetId, HostTarget& target);
  Status Find(const std::string& planId);
  Status Busy() const;
  // Makes the copies what the plan's record says: the one that works writable, the other one not,
  // and deletes the operation's snapshot of that one.
  Status SetRight();
  // Makes the copies a pair again.
  Status Attach();
  // The snapshot that the plan holds on its replica; an empty one when there is none. Only its
  // identifier is known when neither side has a record of it.
  Status FindRecorded(Operation::Snapshot& recorded) const;
  // The snapshot in hand, when it has arrived as a whole and is not recorded.
  Status FindArrived(Operation::Snapshot& snapshot);
  Status AdoptArrived();

  std::shared_ptr<Host> host_ = TheHost();
  PlanRow row_;
  PlanLock lock_;
  JournalRow journal_;
  std::string note_;
  bool has_ended_ = false;  // recorded as done, or the plan is gone or on its way out
};

// Whether the snapshot is newer than what the plan holds.
Status IsNewest(const HostPlan& plan, const HostTarget& replica,
                const Operation::Snapshot& snapshot, bool& newest);

}  // namespace VrelDR
