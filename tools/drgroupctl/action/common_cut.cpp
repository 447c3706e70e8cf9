#include "action/common_cut.h"

#include <vreldr/target_operation.h>

#include <algorithm>
#include <cstdint>
#include <unordered_map>

#include "action/plans.h"
#include "groups/group_store.h"
#include "host/host.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

using VrelDR::Operation::Snapshot;

// A snapshot of a cut. A replica may have thousands: what nobody asks for is not kept.
struct CutSnapshot {
  std::string snap_id;
  std::uint32_t time = 0;
};

// A replica's snapshots that were taken in cuts, by the cut.
struct Replica {
  Takeover* takeover = nullptr;
  std::unordered_map<std::string, CutSnapshot> cuts = {};
  std::string last_cut = {};  // of the snapshot that it would take over with; empty for none
  std::string problem = {};   // why it could not be asked
};

Replica LookAt(const VrelDR::DRPlan& plan, Takeover* takeover) {
  Replica replica{takeover};
  const VrelDR::TargetOperation operation(plan.GetProtectedTargetType(), plan.GetReplicaTargetId());
  for (const Snapshot& each : operation.ListSnapshots()) {
    if (takeover != nullptr && each.snap_id == takeover->snap_id) replica.last_cut = each.cut_id;
    if (!each.cut_id.empty()) replica.cuts[each.cut_id] = {each.snap_id, each.create_time};
  }
  if (operation.GetErrCode() != 0) replica.problem = HostMessage(operation);
  return replica;
}

// The newest cut that all of them have; empty when there is none. No two snapshots of a target have
// the same time.
std::string NewestCommon(const std::vector<Replica>& replicas) {
  std::string newest;
  std::uint32_t time = 0;
  for (const auto& cut : replicas.front().cuts) {
    if (!newest.empty() && cut.second.time <= time) continue;
    const bool isCommon = std::all_of(replicas.begin(), replicas.end(), [&](const Replica& each) {
      return each.cuts.count(cut.first) != 0;
    });
    if (!isCommon) continue;
    newest = cut.first;
    time = cut.second.time;
  }
  return newest;
}

// Adds the cut that the group with these plans needs.
void AddNewest(const std::vector<VrelDR::DRPlan>& plans, NeededCuts& needed) {
  std::vector<Replica> replicas;
  for (const VrelDR::DRPlan& each : plans) {
    replicas.push_back(LookAt(each, nullptr));
    if (replicas.back().problem.empty()) continue;
    needed.are_all = true;
    needed.problem = replicas.back().problem;
    return;
  }
  const std::string cut = NewestCommon(replicas);
  if (cut.empty()) return;
  needed.ids.insert(cut);
  for (const Replica& each : replicas) needed.snap_ids.insert(each.cuts.at(cut).snap_id);
}

bool AreOfOneCut(const std::vector<Replica>& replicas) {
  const std::string& first = replicas.front().last_cut;
  return !first.empty() && std::all_of(replicas.begin(), replicas.end(),
                                       [&](const Replica& each) { return each.last_cut == first; });
}

}  // namespace

CommonCut GoToCommonCut(std::vector<Takeover>& takeovers) {
  std::vector<Replica> replicas;
  for (Takeover& each : takeovers) {
    if (!each.is_going_back && each.arrived.presence != Presence::kUnknown) {
      replicas.push_back(LookAt(each.plan, &each));
    }
  }
  if (replicas.size() < 2 || AreOfOneCut(replicas)) return {};
  const bool hasCut = std::any_of(replicas.begin(), replicas.end(),
                                  [](const Replica& each) { return !each.last_cut.empty(); });
  const std::string cut = hasCut ? NewestCommon(replicas) : std::string();
  if (!cut.empty()) {
    for (const Replica& each : replicas) {
      const CutSnapshot& snapshot = each.cuts.at(cut);
      each.takeover->snap_id = snapshot.snap_id;
      each.takeover->snap_time = snapshot.time;
      LookAtSource(*each.takeover);
    }
    return {true, {}};
  }
  std::string text;
  for (const Replica& each : replicas) {
    text += (text.empty() ? "" : "; ") + Quote(each.takeover->plan.GetReplicaTargetId()) + " has " +
            Printable(each.takeover->snap_id) + " of " +
            (each.last_cut.empty() ? "no cut" : "cut " + each.last_cut);
  }
  return {
      false,
      "the last snapshots that arrived were not taken in one cut, and the replicas have none in "
      "common that is as new: " +
          text};
}

NeededCuts FindNeededCuts(const std::vector<VrelDR::DRPlan>& plans) {
  NeededCuts needed;
  std::set<std::string> wanted;
  for (const VrelDR::DRPlan& each : plans) wanted.insert(each.GetPlanId());
  for (const std::string& groupId : ListGroupIds()) {
    std::vector<VrelDR::DRPlan> own;
    bool isWanted = false;
    try {
      for (const VrelDR::Target& target : LoadGroup(groupId).targets) {
        for (VrelDR::DRPlan& plan : PlansOf(target.GetId())) {
          isWanted = isWanted || wanted.count(plan.GetPlanId()) != 0;
          own.push_back(std::move(plan));
        }
      }
    } catch (const Failure& failure) {
      needed.are_all = true;
      needed.problem = failure.message;
      continue;
    }
    if (isWanted) AddNewest(own, needed);
  }
  return needed;
}

}  // namespace drgroupctl
