#include "plan/sync.h"

#include <algorithm>
#include <ctime>

#include "base/kill_point.h"
#include "plan/some_snapshots.h"
#include "target/target_snapshot.h"
#include "vreldr/snapshot_history.h"

namespace VrelDR {

namespace {

using Operation::Snapshot;

// Every write of the report is a transaction on disk, and every look at the request to stop one
// that reads.
constexpr std::chrono::milliseconds kWriteEvery(500);
constexpr std::chrono::milliseconds kLookEvery(150);

// As long as it takes to delete or clone a large snapshot of the replica, within reason.
constexpr std::chrono::minutes kMostWaiting(10);

// After which nobody hopes for room any more: what the source has now may need less.
constexpr int kMostHandFailures = 2;

std::uint32_t Now() {
  return static_cast<std::uint32_t>(std::time(nullptr));
}

}  // namespace

PlanSyncer::PlanSyncer(HostPlan& plan, const DataSyncParam& param, int share)
    : plan_(plan),
      param_(param),
      share_(share),
      next_write_(Clock::now() + kWriteEvery),
      next_look_(Clock::now() + kLookEvery) {
  report_.record.begin_time = Now();
}

Status PlanSyncer::Run(Cuts cuts, std::string& snapId) {
  return Reported([&] { return SendAll(cuts, snapId); });
}

Status PlanSyncer::RunWaiting() {
  return Reported([&] {
    Status status = SendHand();
    return status.IsOk() ? SendPending() : status;
  });
}

Status PlanSyncer::Reported(const std::function<Status()>& run) {
  Status status = plan_.Report(report_, 0);
  KillPoint(kSyncRecorded);
  if (status.IsOk()) status = run();
  SyncRecord& record = report_.record;
  if (status.IsOk()) record.total_size_byte = record.sync_size_byte;
  record.end_time = Now();
  report_.state = status.IsOk()                ? OPState::kDone
                  : status.code == kErrStopped ? OPState::kInterrupted
                                               : OPState::kFailed;
  const Status written = plan_.Report(report_, share_);
  KillPoint(kSyncReported);
  return status.IsOk() ? written : status;
}

Status PlanSyncer::SendAll(Cuts cuts, std::string& snapId) {
  const std::string& planId = plan_.Get().GetPlanId();
  if (cuts == Cuts::kUsed && CutParts::IsInHand(planId, plan_.GetRow().hand_snap_id)) {
    snapId = plan_.GetRow().hand_snap_id;
    GiveUpOthers();
    return Send(snapId);
  }
  Status status = SendHand();
  if (status.IsOk() && param_.with_pending) status = SendPending();
  if (status.IsOk()) status = TakeNew(cuts, snapId);
  KillPoint(kSyncTaken);
  if (status.IsOk()) status = Send(snapId);
  return status;
}

Status PlanSyncer::SendHand() {
  const PlanRow row = plan_.GetRow();
  GiveUpOthers();
  if (row.hand_snap_id.empty()) return {};
  if (row.hand_failures >= kMostHandFailures) return GiveUp(plan_);
  HostTarget source(plan_.GetHost());
  Snapshot found;
  Status status = source.OpenToRead(row.plan.GetSourceTargetId());
  if (status.IsOk()) status = FindSnapshot(source, row.hand_snap_id, found);
  if (status.IsOk()) return Send(row.hand_snap_id);
  // Not taken to its end, or gone: there is nothing to go on with.
  return status.code == kErrSnapshotMissing ? plan_.Records().DropHand(row.plan, row.hand_snap_id)
                                            : status;
}

Status PlanSyncer::GiveUp(HostPlan& plan) {
  std::string dropped;
  Status status = plan.DropShipment(dropped);
  if (!status.IsOk() || dropped.empty()) return status;
  plan_.Note("the shipment of snapshot " + Quoted(dropped) + " to target " +
             Quoted(plan.Get().GetReplicaTargetId()) + " was dropped, as it had found no room " +
             std::to_string(kMostHandFailures) + " times; target " +
             Quoted(plan.Get().GetSourceTargetId()) +
             " keeps the snapshot, which no plan holds or is going to send");
  return {};
}

void PlanSyncer::GiveUpOthers() {
  std::vector<PlanRow> found;
  (void)plan_.ListShortOfRoom(found);
  for (const PlanRow& each : found) {
    const std::string& planId = each.plan.GetPlanId();
    if (planId == plan_.Get().GetPlanId() || each.hand_failures < kMostHandFailures) continue;
    HostPlan other;
    if (!other.OpenToRead(planId).IsOk() || !other.Claim().IsOk() || !other.Settle().IsOk())
      continue;
    // Somebody may have sent it before the plan was ours.
    if (other.GetRow().hand_failures >= kMostHandFailures) (void)GiveUp(other);
  }
}

void PlanSyncer::CountNoRoom() {
  std::vector<PlanRow> found;
  const std::string& own = plan_.Get().GetPlanId();
  (void)plan_.ListShortOfRoom(found);
  (void)plan_.Records().CountHandFailure(own);
  for (const PlanRow& each : found) {
    if (each.plan.GetPlanId() != own) (void)plan_.Records().CountHandFailure(each.plan.GetPlanId());
  }
}

Status PlanSyncer::SendPending() {
  std::vector<std::string> listed;
  Status status = plan_.Records().ListPending(plan_.Get().GetPlanId(), listed);
  if (!status.IsOk() || listed.empty()) return status;
  HostTarget source(plan_.GetHost());
  HostTarget replica(plan_.GetHost());
  std::vector<Snapshot> sent;
  std::vector<Snapshot> arrived;
  status = source.OpenToRead(plan_.Get().GetSourceTargetId());
  if (status.IsOk()) status = SelectPresent(source, listed, sent);
  if (status.IsOk()) status = replica.OpenToRead(plan_.Get().GetReplicaTargetId());
  if (status.IsOk()) status = SelectPresent(replica, listed, arrived);
  const std::vector<std::string> still = SnapshotHistory::StillToSend(listed, sent, arrived);
  for (const std::string& each : listed) {
    if (!status.IsOk()) return status;
    if (std::find(still.begin(), still.end(), each) != still.end()) continue;
    status = plan_.Records().RemovePending(plan_.Get().GetPlanId(), each);
  }
  for (const std::string& each : still) {
    if (!status.IsOk()) return status;
    bool found = false;
    status = TakeInHand(each, found);
    if (status.IsOk() && found) status = Send(each);
  }
  return status;
}

Status PlanSyncer::TakeInHand(const std::string& snapId, bool& found) {
  HostTarget source(plan_.GetHost());
  Snapshot snapshot;
  Status status = plan_.OpenToTake(plan_.Get().GetSourceTargetId(), source);
  if (!status.IsOk()) return status;
  status = FindSnapshot(source, snapId, snapshot);
  found = status.IsOk();
  if (status.code == kErrSnapshotMissing) {
    return plan_.Records().RemovePending(plan_.Get().GetPlanId(), snapId);
  }
  return status.IsOk() ? plan_.Records().TakeInHand(plan_.Get(), snapId) : status;
}

Status PlanSyncer::TakeNew(Cuts cuts, std::string& snapId) {
  HostTarget replica(plan_.GetHost());
  HostTarget source(plan_.GetHost());
  Status status = replica.OpenToRead(plan_.Get().GetReplicaTargetId());
  const std::string& sourceId = plan_.Get().GetSourceTargetId();
  if (status.IsOk()) {
    status = cuts == Cuts::kUsed ? plan_.OpenToTake(sourceId, source)
                                 : plan_.OpenToWrite(sourceId, source);
  }
  if (!status.IsOk()) return status;
  SnapshotOrder order;
  order.meta = param_.meta;
  if (order.meta.taken_by.empty()) {
    order.meta.taken_by = GetRetentionLocker(plan_.Get().GetPlanId());
  }
  order.after = replica.GetRow().last_snap_time;
  order.plan = &plan_.Get();
  order.watcher = this;
  order.cut = cut_;
  Snapshot taken;
  status = TakeSnapshotOf(source, order, taken);
  snapId = taken.snap_id;
  return status;
}

Status PlanSyncer::ClearWay(const std::string& snapId, HostTarget& replica, std::string& base) {
  const std::string& replicaId = plan_.Get().GetReplicaTargetId();
  bool isThere = false;
  std::optional<SnapshotRow> recorded;
  Status status = plan_.OpenToWrite(replicaId, replica, {kMostWaiting, this});
  if (status.IsOk()) status = HasBytes(replica, snapId, isThere);
  if (status.IsOk()) status = plan_.GetStore().GetSnapshotOfAnyState(replicaId, snapId, recorded);
  // The record of one whose bytes had gone would let others find, and delete, what arrives.
  if (status.IsOk() && recorded && (!isThere || recorded->state != RecordState::kWhole)) {
    status = plan_.GetStore().RemoveSnapshot(replicaId, recorded->snapshot);
  }
  if (!status.IsOk()) return status;
  // Of another snapshot, it only takes room. What cannot be removed goes with this one's end.
  (void)plan_.DropShipments(replica, snapId);
  return param_.is_full ? status : HoldBase(replica, base);
}

Status PlanSyncer::HoldBase(const HostTarget& replica, std::string& base) {
  const std::string& sourceId = plan_.Get().GetSourceTargetId();
  HostTarget source(plan_.GetHost());
  std::vector<Snapshot> sent;
  std::vector<Snapshot> arrived;
  std::vector<std::string> held;
  Status status = source.OpenToRead(sourceId);
  if (status.IsOk()) status = plan_.ListHeld(held);
  if (status.IsOk()) status = SelectPresent(source, held, sent);
  if (status.IsOk()) status = SelectPresent(replica, held, arrived);
  if (!status.IsOk()) return status;
  base = SnapshotHistory::NewestCommon(sent, arrived);
  if (!base.empty()) return {};
  // Another one than the last that has arrived, as that has gone: somebody may be deleting it.
  HostTarget claimed(plan_.GetHost());
  sent.clear();
  arrived.clear();
  status = replica.ListSnapshots(arrived);
  if (!status.IsOk() || arrived.empty()) return status;
  status = plan_.OpenToTake(sourceId, claimed, {kMostWaiting, this});
  if (status.IsOk()) status = claimed.ListSnapshots(sent);
  base = SnapshotHistory::NewestCommon(sent, arrived);
  if (!status.IsOk() || base.empty()) return status;
  return plan_.Records().MoveLock(plan_.Get(), {}, base);
}

// While bytes go nobody's right to change the targets is kept from him: the snapshot and the base
// are held against deletion, what is on its way is touched by the plan's own operations alone, and
// so is what has arrived until it is recorded.
Status PlanSyncer::Send(const std::string& snapId) {
  HostTarget source(plan_.GetHost());
  HostTarget replica(plan_.GetHost());
  Snapshot snapshot;
  std::string base;
  bool newest = false;
  Status status = source.OpenToRead(plan_.Get().GetSourceTargetId());
  if (status.IsOk()) status = FindSnapshot(source, snapId, snapshot);
  if (status.IsOk()) status = ClearWay(snapId, replica, base);
  if (status.IsOk()) status = IsNewest(plan_, replica, snapshot, newest);
  if (!status.IsOk()) return status;
  (void)replica.ReleaseLock();
  report_.snap_id = snapId;
  before_ = report_.record;
  const std::string cannot = source.Cannot("send a snapshot of") + " to target " +
                             Quoted(replica.GetTarget().GetId()) + " on volume " +
                             Quoted(replica.GetRow().volume);
  std::unique_ptr<Link> link;
  status = FindLink(source, replica, link);
  if (status.IsOk()) {
    status = link->Ship(source.GetPlace(), snapId, base, replica.GetPlace(), *this);
  }
  status = InContext(cannot, status);
  KillPoint(kSyncShipped);
  if (status.code == kErrNoSpace) {
    CountNoRoom();
    status.message +=
        "; after " + std::to_string(kMostHandFailures) +
        " such failures the next sync drops what is on its way and sends a new snapshot";
  }
  if (status.IsOk()) {
    status = plan_.GetStore().AddArrived(replica.GetRow(), snapshot, plan_.Get(), newest);
  }
  KillPoint(kSyncArrived);
  return status;
}

void PlanSyncer::Tell(std::uint64_t done, std::uint64_t total, std::uint64_t sent) {
  SyncRecord& record = report_.record;
  record.sync_size_byte = before_.sync_size_byte + done;
  record.total_size_byte = before_.total_size_byte + total;
  record.sent_size_byte = before_.sent_size_byte + sent;
  if (Clock::now() < next_write_) return;
  next_write_ = Clock::now() + kWriteEvery;
  const auto share = static_cast<std::uint64_t>(share_);
  const std::uint64_t all = std::max<std::uint64_t>(record.total_size_byte, 1);
  const std::uint64_t percent = std::min(record.sync_size_byte, all) * share / all;
  // A report that cannot be written is no reason to end.
  (void)plan_.Report(report_, static_cast<int>(percent));
}

bool PlanSyncer::GoesOn() {
  if (!goes_on_ || Clock::now() < next_look_) return goes_on_;
  next_look_ = Clock::now() + kLookEvery;
  goes_on_ = !plan_.IsStopAsked();
  return goes_on_;
}

}  // namespace VrelDR
