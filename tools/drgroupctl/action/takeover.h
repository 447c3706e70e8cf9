#pragma once

#include <vreldr/plan.h>
#include <vreldrgroup/record/gsnapshot.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "groups/group_store.h"
#include "groups/gsnap_cut.h"
#include "host/arrived.h"
#include "output/report.h"

namespace drgroupctl {

class Warnings;

// How the replica of one target would take over.
struct Takeover {
  std::string target;  // of the group
  std::string driven;  // the copy that the action is asked for, of the same plan
  VrelDR::DRPlan plan;
  std::string snap_id;
  // Of one that goes to the last snapshot that arrived, what is to be told of that.
  Arrived arrived;
  std::uint32_t snap_time = 0;     // 0 when it cannot be told
  std::vector<std::string> newer;  // snapshots that the source has and that would be lost
  bool is_source_known = false;    // whether `newer` is all of them
  bool is_source_alive = false;
  // The source goes on working instead: the plan was reprotected, nothing has been sent since, and
  // a forced failover takes that back. Then there is no snapshot, and nothing is lost.
  bool is_going_back = false;
};

// Takes those targets out of the group of which the group snapshot has no part, with a warning:
// they stay as they are. When it has none at all, the group stays whole.
void KeepCovered(Warnings& warnings, Group& group, const VrelDRGroup::GsnapshotInfo& gsnap);

// Which snapshot each target of the group would take over with: the one of the group snapshot,
// which may be of the group itself or of its DR copies, or without one the last that arrived and is
// there. Throws when a target has no plan or no such snapshot.
std::vector<Takeover> PlanTakeover(const Group& group,
                                   const std::optional<VrelDRGroup::GsnapshotInfo>& gsnap,
                                   bool isForced);

// The same for one plan without a group snapshot; `what` is what a failure refuses.
Takeover PlanTakeoverToLast(const std::string& what, const std::string& target,
                            const VrelDR::DRPlan& plan, bool isForced);

// Finds out what the source has that is newer than the snapshot of the takeover.
void LookAtSource(Takeover& takeover);

// Whether all of them take reprotections back.
bool IsGoingBack(const std::vector<Takeover>& takeovers);

// What to do when some of a group work already on the side that the others would fail over to, as
// after a switchover that ended half way, and cannot fail over as their other copy is out of reach:
// the commands for the others. Empty when it is not so.
std::string HalfWayAdvice(const std::vector<Takeover>& takeovers);

// What to do when those that work stand on both sides of the plans, as after a switchover that
// ended half way: failed over, each would only change sides. Empty when they do not.
std::string BothSidesAdvice(const std::string& groupId, const std::vector<Takeover>& takeovers);

// Whether the last snapshot that arrived is gone from a replica that takes over.
bool IsOlderThanRecorded(const std::vector<Takeover>& takeovers);

// How the snapshots that the replicas take over with were made.
GsnapCut CutOf(const std::vector<Takeover>& takeovers);

// What is given up, a line for each target.
std::string LossDetails(const std::vector<Takeover>& takeovers);
// A line that tells that these snapshots are not of one instant, or that this is not known; empty
// when they are.
std::string CutDetails(const GsnapCut& cut);

// What is lost with one takeover, in one line: "everything written since ...".
std::string LostText(const Takeover& takeover);

// Adds them to a report: the table "takeover".
void AddTakeover(Report& report, const std::vector<Takeover>& takeovers);

}  // namespace drgroupctl
