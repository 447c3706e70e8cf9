#include "plan/host_plan.h"

#include <unistd.h>

#include <algorithm>
#include <ctime>

#include "plan/plan_text.h"
#include "plan/some_snapshots.h"
#include "target/target_snapshot.h"
#include "target/target_users.h"
#include "vreldr/snapshot_history.h"
#include "vreldr/utils.h"

namespace VrelDR {

namespace {

using Operation::Snapshot;

// Whether the operation changes which copy can be written.
bool ChangesRoles(DRPlanOPStatus op) {
  return op == kOpSwitchover || op == kOpFailover || op == kOpPromote || op == kOpReprotect ||
         op == kOpDelete;
}

// Whether the system lets nobody write a target that is quiet.
bool IsRefusedToAll(Host& host, const std::string& targetId) {
  HostTarget target(host);
  VolumeDescription volume;
  return target.OpenToRead(targetId).IsOk() &&
         target.GetEngine().Describe(volume, host.watcher).IsOk() && volume.is_immutable;
}

}  // namespace

Status HostPlan::Find(const std::string& planId) {
  std::optional<PlanRow> found;
  Status status = host_->store ? Records().GetPlan(planId, found) : Status();
  if (!status.IsOk()) return status;
  if (!found) {
    return {kErrPlanMissing, "plan " + Quoted(planId) + " does not exist; list the plans"};
  }
  row_ = std::move(*found);
  return {};
}

Status HostPlan::OpenToRead(const std::string& planId) {
  Status status = host_->OpenIfMade();  // where no host was ever made there is no plan
  return status.IsOk() ? Find(planId) : status;
}

Status HostPlan::Refresh() {
  return Find(std::string(Get().GetPlanId()));
}

Status HostPlan::Busy() const {
  JournalRow journal;
  Status status = Records().GetJournal(Get().GetPlanId(), journal);
  if (!status.IsOk()) return status;
  if (journal.state != OPState::kRunning) {
    return {kErrBusy, "another process has begun to work on it; run it again when that has ended"};
  }
  return {kErrBusy, Quoted(Utils::ToString(journal.op)) + " has been running on it since " +
                        TimeText(journal.begin_time) + " (process " + std::to_string(journal.pid) +
                        "); wait for its end, or stop it if it is a sync"};
}

Status HostPlan::CheckIdle() const {
  return PlanLock::IsHeld(host_->config.state_dir, Get().GetPlanId()) ? Busy() : Status();
}

Status HostPlan::Claim() {
  bool taken = false;
  Status status = lock_.Acquire(host_->config.state_dir, Get().GetPlanId(), taken);
  if (status.IsOk() && !taken) status = Busy();
  // Somebody may have changed or removed it before the lock was ours.
  return status.IsOk() ? Refresh() : status;
}

Status HostPlan::Settle() {
  Status status = Records().GetJournal(Get().GetPlanId(), journal_);
  if (status.IsOk() && journal_.state == OPState::kRunning) {
    if (ChangesRoles(journal_.op)) status = SetRight();
    if (status.IsOk()) {
      journal_.state = OPState::kInterrupted;
      journal_.message = Quoted(Utils::ToString(journal_.op)) + " ended before its end";
      status = Records().WriteJournal(Get().GetPlanId(), journal_);
    }
    status = InContext("cannot take back the interrupted " + Quoted(Utils::ToString(journal_.op)),
                       status);
  }
  // What cannot be looked at now is adopted by a later call.
  if (status.IsOk()) (void)AdoptArrived();
  return status;
}

Status HostPlan::Begin(DRPlanOPStatus op, const std::string& snapId) {
  journal_ = {};
  journal_.op = op;
  journal_.state = OPState::kRunning;
  journal_.begin_time = static_cast<std::uint32_t>(std::time(nullptr));
  journal_.snap_id = snapId;
  journal_.pid = getpid();
  has_ended_ = false;
  note_.clear();
  return Records().WriteJournal(Get().GetPlanId(), journal_);
}

Status HostPlan::End(Status status) {
  if (has_ended_) return status;
  if (!status.IsOk() && ChangesRoles(journal_.op)) {
    const Status back = SetRight();
    // The journal goes on to say that it runs, which nobody does: the next call settles it.
    if (!back.IsOk()) {
      status.message +=
          "; taking it back failed, which the next operation on the plan tries again: " +
          back.message;
      return status;
    }
  }
  const bool stopped = status.code == kErrStopped;
  journal_.state = status.IsOk() ? OPState::kDone
                   : stopped     ? OPState::kInterrupted
                                 : OPState::kFailed;
  if (status.IsOk()) journal_.progress = 100;
  if (!status.IsOk() && !note_.empty()) status.message += "; " + note_;
  journal_.message = status.IsOk() ? note_ : status.message;
  const Status written = Records().WriteJournal(Get().GetPlanId(), journal_);
  return status.IsOk() ? written : status;
}

Status HostPlan::Commit(const PlanRow& changed) {
  Status status = Records().FinishChange(changed, note_);
  if (!status.IsOk()) return status;
  row_ = changed;
  has_ended_ = true;
  return {};
}

Status HostPlan::BeginRemoval(const std::string& copyId) {
  Status status = Records().BeginRemoval(Get().GetPlanId(), copyId);
  if (status.IsOk()) has_ended_ = true;
  return status;
}

Status HostPlan::Remove() {
  Status status = Records().RemovePlan(Get().GetPlanId());
  if (!status.IsOk()) return status;
  has_ended_ = true;
  PlanLock::Remove(host_->config.state_dir, Get().GetPlanId());
  return {};
}

Status HostPlan::Report(const SyncRow& sync, int progress) {
  journal_.progress = progress;
  return Records().WriteSyncReport(Get().GetPlanId(), sync, progress);
}

bool HostPlan::IsStopAsked() const {
  JournalRow journal;
  return Records().GetJournal(Get().GetPlanId(), journal).IsOk() && journal.is_stop_asked;
}

Status HostPlan::OpenToWrite(const std::string& targetId, HostTarget& target,
                             const Patience& patience) const {
  return InContext(SideOf(Get(), targetId), target.OpenToWrite(targetId, patience));
}

Status HostPlan::OpenToTake(const std::string& targetId, HostTarget& target,
                            const Patience& patience) const {
  return InContext(SideOf(Get(), targetId), target.OpenToTake(targetId, patience));
}

Status HostPlan::SelectReplicaSnapshots(const std::vector<std::string>& snapIds,
                                        std::vector<Snapshot>& snapshots) {
  HostTarget replica(*host_);
  Status status = replica.OpenToRead(Get().GetReplicaTargetId());
  if (status.IsOk()) status = SelectPresent(replica, snapIds, snapshots);
  Snapshot arrived;
  if (status.IsOk() && std::ranges::find(snapIds, row_.hand_snap_id) != snapIds.end() &&
      FindArrived(arrived).IsOk() && !arrived.snap_id.empty()) {
    snapshots.push_back(std::move(arrived));
  }
  return status;
}

Status HostPlan::ListReplicaSnapshots(std::vector<Snapshot>& snapshots) {
  HostTarget replica(*host_);
  Status status = replica.OpenToRead(Get().GetReplicaTargetId());
  if (status.IsOk()) status = replica.ListSnapshots(snapshots);
  Snapshot arrived;
  if (status.IsOk() && FindArrived(arrived).IsOk() && !arrived.snap_id.empty()) {
    snapshots.push_back(std::move(arrived));
  }
  return status;
}

Status HostPlan::ListHeld(std::vector<std::string>& snapIds) const {
  std::vector<LockRow> locks;
  Status status = Records().ListLocksOfPlan(Get().GetPlanId(), locks);
  for (const LockRow& each : locks) {
    if (each.target_id == Get().GetReplicaTargetId()) snapIds.push_back(each.snap_id);
  }
  return status;
}

Status HostPlan::Quiesce(const std::string& targetId) {
  HostTarget target(*host_);
  return Quiesce(targetId, target);
}

Status HostPlan::Quiesce(const std::string& targetId, HostTarget& target) {
  Status status = OpenToWrite(targetId, target);
  if (!status.IsOk()) return status;
  return InContext(target.Cannot("make unwritable"),
                   target.GetEngine().Quiesce(target.GetPlace(), host_->watcher));
}

Status HostPlan::CheckUnwritten(const std::string& targetId, bool& isUnwritable) {
  Status status = CheckUnused(*host_, targetId, PlaceUse::kDemotion);
  isUnwritable = status.IsOk() && IsRefusedToAll(*host_, targetId);
  if (status.IsOk() || !InUseAllowed::IsSaid()) return InContext(SideOf(Get(), targetId), status);
  Note("went on, as was asked for, although: " + status.message);
  return {};
}

Status HostPlan::Demote(const std::string& targetId) {
  HostTarget target(*host_);
  Status status = Quiesce(targetId, target);
  if (!status.IsOk()) return status;
  return InContext(target.Cannot("make a replica of"),
                   target.GetEngine().Demote(target.GetPlace(), host_->watcher));
}

Status HostPlan::Promote(const std::string& targetId, const std::string& snapId, Manner manner) {
  HostTarget target(*host_);
  Status status = OpenToWrite(targetId, target);
  if (!status.IsOk()) return status;
  return InContext(target.Cannot("make writable"),
                   target.GetEngine().Promote(target.GetPlace(), snapId, manner, host_->watcher));
}

Status HostPlan::OpenPair(const std::string& fromId, const std::string& toId, Pair& pair) const {
  std::optional<TargetRow> from;
  std::optional<TargetRow> to;
  Status status = GetStore().GetTarget(fromId, from);
  if (status.IsOk()) status = GetStore().GetTarget(toId, to);
  if (!status.IsOk()) return status;
  if (!from) return NoSuchTarget(fromId);
  if (!to) return NoSuchTarget(toId);
  pair.source = PlaceOf(*from);
  pair.replica = PlaceOf(*to);
  return host_->FindLink(from->volume, to->volume, pair.link);
}

Status HostPlan::Detach() {
  Pair pair;
  Status status = OpenPair(Get().GetSourceTargetId(), Get().GetReplicaTargetId(), pair);
  if (status.IsOk()) status = pair.link->Detach(pair.source, pair.replica, host_->watcher);
  return IsOutOfReach(status) ? Status() : status;
}

Status HostPlan::DropShipments(const HostTarget& copy, const std::string& keepSnapId) {
  const std::string& id = copy.GetTarget().GetId();
  const bool isSource = id == Get().GetSourceTargetId();
  Pair pair;
  Status status =
      OpenPair(isSource ? Get().GetReplicaTargetId() : Get().GetSourceTargetId(), id, pair);
  return status.IsOk() ? pair.link->Drop(pair.replica, keepSnapId, host_->watcher) : status;
}

Status HostPlan::SetRight() {
  const std::string working = Get().GetWorkingTargetId();
  const std::string other =
      working == Get().GetSourceTargetId() ? Get().GetReplicaTargetId() : Get().GetSourceTargetId();
  Status status;
  if (journal_.op == kOpDelete) status = Attach();
  // Unwritable first. One that is known not to be there is written by nobody; of one that could not
  // be asked nobody knows.
  const Status quiet = Demote(other);
  if (status.IsOk()) status = quiet;
  if (quiet.code == kErrUnreachable) return status;
  const Status writable = Promote(working, {}, Manner::kOrderly);
  if (!writable.IsOk()) status = writable;
  if (!status.IsOk() || journal_.snap_id.empty()) return status;
  HostTarget target(*host_);
  status = OpenToWrite(other, target);
  if (status.IsOk()) status = DeleteSnapshotOf(target, journal_.snap_id);
  return status.code == kErrSnapshotMissing ? Status() : status;
}

Status HostPlan::Attach() {
  Pair pair;
  Status status = OpenPair(Get().GetSourceTargetId(), Get().GetReplicaTargetId(), pair);
  return status.IsOk() ? pair.link->Attach(pair.source, pair.replica, host_->watcher) : status;
}

Status HostPlan::FindArrived(Snapshot& snapshot) {
  if (row_.hand_snap_id.empty()) return {};
  HostTarget replica(*host_);
  bool isThere = false;
  std::optional<SnapshotRow> recorded;
  std::optional<SnapshotRow> sent;
  Status status = replica.OpenToRead(Get().GetReplicaTargetId());
  if (status.IsOk()) status = HasBytes(replica, row_.hand_snap_id, isThere);
  if (status.IsOk()) {
    status =
        GetStore().GetSnapshotOfAnyState(Get().GetReplicaTargetId(), row_.hand_snap_id, recorded);
  }
  if (status.IsOk()) {
    status = GetStore().GetSnapshot(Get().GetSourceTargetId(), row_.hand_snap_id, sent);
  }
  if (status.IsOk() && isThere && !recorded && sent) snapshot = std::move(sent->snapshot);
  return status;
}

Status HostPlan::AdoptArrived() {
  Snapshot arrived;
  Status status = FindArrived(arrived);
  if (!status.IsOk() || arrived.snap_id.empty()) return status;
  HostTarget source(*host_);
  HostTarget replica(*host_);
  bool newest = false;
  status = OpenToWrite(Get().GetReplicaTargetId(), replica);
  if (status.IsOk() && source.OpenToRead(Get().GetSourceTargetId()).IsOk()) {
    // Finds all of it there, and does what a crash may have left to be done after that.
    std::unique_ptr<Link> link;
    status = FindLink(source, replica, link);
    if (status.IsOk()) {
      status =
          link->Ship(source.GetPlace(), arrived.snap_id, {}, replica.GetPlace(), host_->watcher);
    }
  }
  if (status.IsOk()) status = IsNewest(*this, replica, arrived, newest);
  if (status.IsOk()) status = GetStore().AddArrived(replica.GetRow(), arrived, Get(), newest);
  return status.IsOk() ? Refresh() : status;
}

Status IsNewest(const HostPlan& plan, const HostTarget& replica, const Snapshot& snapshot,
                bool& newest) {
  std::vector<std::string> held;
  std::vector<Snapshot> snapshots;
  Status status = plan.ListHeld(held);
  if (status.IsOk()) status = SelectPresent(replica, held, snapshots);
  newest = SnapshotHistory::IsNewest(snapshot, snapshots, held);
  return status;
}

}  // namespace VrelDR
