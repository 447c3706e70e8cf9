#include "groups/known_snapshots.h"

#include <vreldr/report.h>
#include <vreldrgroup/snapshot/gsnap_op.h>

#include <map>
#include <utility>

#include "groups/catalogue.h"
#include "groups/catalogue_view.h"
#include "groups/group_link.h"
#include "groups/group_store.h"
#include "host/arrived.h"
#include "host/host.h"
#include "output/failure.h"

namespace drgroupctl {

std::vector<VrelDRGroup::TargetSnapshotRelationship> RecordedSnapshots(const std::string& groupId) {
  std::map<VrelDR::Target, std::vector<VrelDRGroup::TargetSnapshotRelationship>> byTarget;
  if (!VrelDRGroup::Operation::TargetSnapList(groupId, byTarget)) {
    throw CatalogueFailure(groupId, "cannot list its target snapshots");
  }
  std::vector<VrelDRGroup::TargetSnapshotRelationship> snapshots;
  for (const auto& [target, rows] : byTarget) {
    snapshots.insert(snapshots.end(), rows.begin(), rows.end());
  }
  return snapshots;
}

std::set<std::string> RecordedSnapshotIds() {
  std::set<std::string> ids;
  for (const std::string& groupId : ListGroupIds()) {
    try {
      if (ExamineCatalogue(groupId, Access::kRead, 1)) continue;
      for (const auto& each : RecordedSnapshots(groupId)) ids.insert(each.tsnap_id);
    } catch (const Failure&) {  // "group list" tells of it
    }
  }
  return ids;
}

std::set<std::string> AllRecordedSnapshotIds() {
  std::set<std::string> ids;
  for (const std::string& groupId : ListGroupIds()) {
    RequireCatalogue(groupId, Access::kRead);
    for (const auto& each : RecordedSnapshots(groupId)) ids.insert(each.tsnap_id);
  }
  for (const Failure& each : FindUnlinked()) throw Failure(each);
  return ids;
}

RecordedGsnaps AllRecordedGsnaps() {
  std::map<std::string, RecordedGsnap> gsnaps;
  for (const std::string& groupId : ListGroupIds()) {
    RequireCatalogue(groupId, Access::kRead);
    for (const VrelDRGroup::Gsnapshot& each : ListGsnaps(groupId, false)) {
      gsnaps.insert_or_assign(each.gsnap_id,
                              RecordedGsnap{groupId, VrelDRGroup::GsnapshotInfo(each), true});
    }
    for (const auto& each : RecordedSnapshots(groupId)) {
      RecordedGsnap half{groupId, VrelDRGroup::GsnapshotInfo(each.gsnap_id), false};
      const auto gsnap = gsnaps.try_emplace(each.gsnap_id, std::move(half)).first;
      gsnap->second.info.target_snapshots.push_back(each);
    }
  }
  for (const Failure& each : FindUnlinked()) throw Failure(each);
  RecordedGsnaps all;
  all.reserve(gsnaps.size());
  for (auto& [id, gsnap] : gsnaps) all.push_back(std::move(gsnap));
  return all;
}

void AddNeeded(const VrelDR::DRPlan& plan, std::set<std::string>& needed) {
  VrelDR::RetentionLockReport held;
  const VrelDR::RetentionLockReporter locks(plan.GetPlanId());
  if (!locks.ReadReport(held)) ThrowHostError(locks);
  needed.insert(held.GetSnapshots().begin(), held.GetSnapshots().end());
  needed.insert(LookAtArrived(plan).snap_id);
  VrelDR::PendingSnapReport waiting;
  const VrelDR::PendingSnapReporter pending(plan.GetPlanId());
  if (!pending.ReadReport(waiting)) ThrowHostError(pending);
  needed.insert(waiting.GetSnapshots().begin(), waiting.GetSnapshots().end());
}

}  // namespace drgroupctl
