#include "groups/known_snapshots.h"

#include <vreldr/report.h>
#include <vreldrgroup/snapshot/gsnap_op.h>

#include <map>
#include <optional>
#include <utility>

#include "groups/catalogue.h"
#include "groups/catalogue_rows.h"
#include "groups/group_link.h"
#include "groups/group_store.h"
#include "host/arrived.h"
#include "host/host.h"
#include "output/failure.h"

namespace drgroupctl {

namespace {

// Moves those that the group's catalogue records.
void MoveRecorded(const std::string& groupId, std::set<std::string>& snapIds,
                  std::set<std::string>& recorded) {
  std::set<std::string> found;
  CatalogueRows(groupId).VisitPartsAmong(
      {snapIds.begin(), snapIds.end()},
      [&found](const auto& part) { found.insert(part.tsnap_id); });
  for (const std::string& each : found) snapIds.erase(each);
  recorded.merge(found);
}

// Adds the group snapshots of a catalogue that have one of the target snapshots. One of a name that
// another catalogue has, too, becomes one with the parts of both, and is whole where both are.
void AddGsnapsWith(const Identifiers& snapIds, const std::string& groupId,
                   std::map<std::string, RecordedGsnap>& gsnaps) {
  const CatalogueRows rows(groupId);
  const auto add = [&](RecordedGsnap gsnap) {
    const auto found = gsnaps.find(gsnap.info.gsnap_id);
    if (found == gsnaps.end()) {
      gsnaps.emplace(gsnap.info.gsnap_id, std::move(gsnap));
      return;
    }
    RecordedGsnap& known = found->second;
    known.is_listed = known.is_listed && gsnap.is_listed;
    for (auto& each : gsnap.info.target_snapshots) {
      known.info.target_snapshots.push_back(std::move(each));
    }
  };
  std::set<std::string> ids;
  rows.VisitPartsAmong(snapIds, [&](const CatalogueRows::Part& part) {
    if (!part.gsnap_id.empty()) {
      ids.insert(part.gsnap_id);
      return;
    }
    RecordedGsnap nameless{groupId, VrelDRGroup::GsnapshotInfo(""), false};
    nameless.info.target_snapshots.push_back(part);
    add(std::move(nameless));
  });
  for (const std::string& id : ids) {
    const std::optional<VrelDRGroup::Gsnapshot> listed = rows.FindGsnap(id);
    RecordedGsnap gsnap{groupId, VrelDRGroup::GsnapshotInfo(id), listed.has_value()};
    if (listed) gsnap.info = VrelDRGroup::GsnapshotInfo(*listed);
    const std::vector<CatalogueRows::Part> parts = rows.PartsOf(id);
    gsnap.info.target_snapshots.assign(parts.begin(), parts.end());
    add(std::move(gsnap));
  }
}

}  // namespace

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

std::set<std::string> RecordedAmong(std::set<std::string> snapIds) {
  std::set<std::string> recorded;
  for (const std::string& groupId : ListGroupIds()) {
    try {
      if (ExamineCatalogue(groupId, Access::kRead, 1)) continue;
      MoveRecorded(groupId, snapIds, recorded);
    } catch (const Failure&) {  // "group list" tells of it
    }
  }
  return recorded;
}

std::set<std::string> AllRecordedAmong(std::set<std::string> snapIds,
                                       const std::vector<std::string>& likely) {
  std::set<std::string> recorded;
  for (const std::string& groupId : LikelyFirst(likely)) {
    RequireCatalogue(groupId, Access::kRead);
    MoveRecorded(groupId, snapIds, recorded);
  }
  for (const Failure& each : FindUnlinked()) throw Failure(each);
  return recorded;
}

RecordedGsnaps AllGsnapsWith(const Identifiers& snapIds) {
  std::map<std::string, RecordedGsnap> gsnaps;
  for (const std::string& groupId : ListGroupIds()) {
    RequireCatalogue(groupId, Access::kRead);
    AddGsnapsWith(snapIds, groupId, gsnaps);
  }
  for (const Failure& each : FindUnlinked()) throw Failure(each);
  RecordedGsnaps all;
  all.reserve(gsnaps.size());
  for (auto& [id, gsnap] : gsnaps) all.push_back(std::move(gsnap));
  return all;
}

void VisitAllPartsAmong(const Identifiers& snapIds,
                        const std::function<void(const CatalogueRows::Part&)>& visit) {
  if (snapIds.empty()) return;
  for (const std::string& groupId : ListGroupIds()) {
    RequireCatalogue(groupId, Access::kRead);
    CatalogueRows(groupId).VisitPartsAmong(snapIds, visit);
  }
  for (const Failure& each : FindUnlinked()) throw Failure(each);
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
