#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "plan/host_plan.h"
#include "vreldr/cut.h"

namespace VrelDR {

// Whether what a cut of this process has made counts as the source's new snapshot.
enum class Cuts { kUsed, kUnused };

// One sync of a plan that is claimed: finishes the snapshot that an earlier one had in hand, sends
// the pending ones if asked, and then a new one. Its report is written as it goes.
class PlanSyncer : public Watcher {
 public:
  // `share` is the part of the operation's progress, in percent, that the sync is.
  PlanSyncer(HostPlan& plan, const DataSyncParam& param, int share);

  // Puts the identifier of the new snapshot, which both sides then have, into `snapId`: the one
  // that a cut of this process has put in hand, or one that is taken. What has arrived stays after
  // a failure.
  Status Run(Cuts cuts, std::string& snapId);
  // The snapshot that it takes is to be of this cut.
  void TakeAsOf(std::optional<CutInfo> cut) { cut_ = std::move(cut); }
  // Sends only what waits for that, and takes no snapshot.
  Status RunWaiting();

  void Tell(std::uint64_t done, std::uint64_t total, std::uint64_t sent) override;
  bool GoesOn() override;

 private:
  using Clock = std::chrono::steady_clock;

  // Runs it with a report from its beginning to its end.
  Status Reported(const std::function<Status()>& run);
  Status SendAll(Cuts cuts, std::string& snapId);
  // Finishes what is in hand, or gives it up when it has found no room too often.
  Status SendHand();
  // Gives up what other plans have in hand that has found no room on this replica's volume too
  // often: it would keep the room from this one. A plan that somebody works on is passed over.
  void GiveUpOthers();
  // What is in hand has found no room, which counts for all that stand in each other's way.
  void CountNoRoom();
  // Gives up the snapshot in hand of a plan that is claimed, and notes that.
  Status GiveUp(HostPlan& plan);
  Status SendPending();
  Status TakeNew(Cuts cuts, std::string& snapId);
  // Holds a snapshot of the source against deletion; `found` is false when it is gone.
  Status TakeInHand(const std::string& snapId, bool& found);
  // Opens the replica to be changed, for the snapshot in hand to be sent there, and finds the base
  // to send it from, which the plan holds on both sides afterwards; an empty one when there is
  // none.
  Status ClearWay(const std::string& snapId, HostTarget& replica, std::string& base);
  // The second half, of a replica that has these snapshots.
  Status HoldBase(const HostTarget& replica, std::string& base);
  // Sends the snapshot in hand.
  Status Send(const std::string& snapId);

  HostPlan& plan_;
  DataSyncParam param_;
  std::optional<CutInfo> cut_;
  int share_;
  SyncRow report_;
  SyncRecord before_;  // what the snapshots before the one in hand came to
  Clock::time_point next_write_;
  Clock::time_point next_look_;
  bool goes_on_ = true;
};

// Syncs a plan, as Operation::PlanSync does.
Status SyncPlan(const std::string& planId, const DataSyncParam& param, bool checkOnly);

}  // namespace VrelDR
