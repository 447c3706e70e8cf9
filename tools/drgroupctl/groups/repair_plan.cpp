#include "groups/repair_plan.h"

#include "output/text.h"

namespace drgroupctl {

namespace {

struct Verdict {
  VrelDRGroup::GsnapStatus status;
  std::string reason;
};

// The first target snapshot that is not there, or cannot be asked about, decides.
Verdict Judge(const std::string& gsnapId, const std::vector<VrelDRGroup::TargetSnapshot>& parts,
              const RepairSight& sight) {
  if (gsnapId.empty()) return {VrelDRGroup::kGsnapUnknown, "it has no identifier"};
  for (const VrelDRGroup::TargetSnapshot& each : parts) {
    const std::string target = "target " + Quote(each.target.GetId());
    const auto found = sight.targets.find(each.target);
    if (found == sight.targets.end() || !found->second) {
      return {VrelDRGroup::kGsnapUnknown, target + " cannot be asked"};
    }
    if (!found->second->isExisted) return {VrelDRGroup::kGsnapBad, target + " does not exist"};
    if (found->second->snapshotIds.count(each.tsnap_id) == 0) {
      return {VrelDRGroup::kGsnapBad, target + " has no snapshot " + Quote(each.tsnap_id)};
    }
  }
  return {VrelDRGroup::kGsnapReady, "all its target snapshots are there"};
}

}  // namespace

RepairPlan PlanRepair(const RepairSight& sight) {
  RepairPlan plan;
  for (const auto& [gsnapId, parts] : sight.parts) {
    if (sight.statuses.count(gsnapId) == 0) {
      plan.deletions.push_back({gsnapId, "only its target snapshots are recorded"});
    }
  }
  for (const auto& [gsnapId, status] : sight.statuses) {
    const auto parts = sight.parts.find(gsnapId);
    if (parts == sight.parts.end()) {
      plan.deletions.push_back({gsnapId, "none of its target snapshots is recorded"});
      continue;
    }
    if (status == VrelDRGroup::kGsnapBad) continue;  // never looked at again
    const Verdict verdict = Judge(gsnapId, parts->second, sight);
    if (verdict.status != status) {
      plan.changes.push_back({gsnapId, status, verdict.status, verdict.reason});
    }
  }
  return plan;
}

}  // namespace drgroupctl
