#include "action/snapshot_claims.h"

#include <set>

#include "action/plans.h"
#include "groups/group_store.h"
#include "groups/known_snapshots.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

std::set<std::string> IdsOf(const std::vector<VrelDR::Operation::Snapshot>& snapshots) {
  std::set<std::string> ids;
  for (const auto& each : snapshots) ids.insert(each.snap_id);
  return ids;
}

}  // namespace

SnapshotClaims::SnapshotClaims(const std::string& target,
                               const std::vector<VrelDR::Operation::Snapshot>& snapshots,
                               Evidence evidence)
    : target_(target),
      recorded_(IdsOf(snapshots), evidence, GroupsOfTargets({target})),
      doubts_(recorded_.Doubts()) {
  try {
    for (const VrelDR::DRPlan& plan : PlansOf(target)) {
      std::set<std::string> needed;
      AddNeeded(plan, needed);
      for (const std::string& each : needed) {
        needed_.emplace(each, "is needed by plan " + Quote(plan.GetPlanId()));
      }
    }
    holds_.emplace(std::set<std::string>{target});
  } catch (Failure& failure) {
    failure.message =
        "what plans of target " + Quote(target) + " hold cannot be told: " + failure.message;
    doubts_.push_back(failure);
  }
}

std::vector<std::string> SnapshotClaims::On(const VrelDR::Operation::Snapshot& snapshot) const {
  std::vector<std::string> claims;
  if (snapshot.meta.is_locked) claims.emplace_back("is locked");
  for (const RecordedClaim& each : recorded_.On(snapshot.snap_id)) {
    claims.push_back(each.text +
                     (each.target_id == target_ ? "" : " of target " + Quote(each.target_id)));
  }
  const std::string held = holds_ ? holds_->Find(target_, snapshot.snap_id) : std::string();
  const auto needed = needed_.find(snapshot.snap_id);
  if (!held.empty()) {
    claims.push_back(held);
  } else if (needed != needed_.end()) {
    claims.push_back(needed->second);
  }
  return claims;
}

}  // namespace drgroupctl
