#include "groups/repair_plan.h"

#include <vreldrgroup/snapshot/gsnap_repair.h>

#include "groups/catalogue.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

using VrelDRGroup::Operation::GsnapshotRepair;
using VrelDRGroup::Operation::RepairVerdict;

using Reason = RepairVerdict::Reason;

// What is said of the target snapshot that decides.
std::string PartText(Reason reason, const VrelDRGroup::TargetSnapshot& part) {
  const std::string target = "target " + Quote(part.target.GetId());
  if (reason == Reason::kTargetUnknown) return target + " cannot be asked";
  if (reason == Reason::kTargetGone) return target + " does not exist";
  return target + " has no snapshot " + Quote(part.tsnap_id);
}

std::string ReasonText(const RepairVerdict& verdict) {
  if (verdict.part != nullptr) return PartText(verdict.reason, *verdict.part);
  switch (verdict.reason) {
    case Reason::kNoMetadata:
      return "only its target snapshots are recorded";
    case Reason::kNoParts:
      return "none of its target snapshots is recorded";
    case Reason::kStaysBad:
      return "it was bad before";
    case Reason::kNoId:
      return "it has no identifier";
    default:
      return "all its target snapshots are there";
  }
}

RepairPlan PlanRepair(GsnapshotRepair& repair) {
  RepairPlan plan;
  const auto add = [&](const std::string& gsnapId, VrelDRGroup::GsnapStatus status) {
    const RepairVerdict verdict = repair.Judge(gsnapId);
    if (verdict.IsDeleted()) {
      plan.deletions.push_back({gsnapId, ReasonText(verdict)});
    } else if (verdict.status != status) {
      plan.changes.push_back({gsnapId, status, verdict.status, ReasonText(verdict)});
    }
  };
  for (const auto& [gsnapId, parts] : repair.GetParts()) {
    if (repair.GetStatuses().count(gsnapId) == 0) add(gsnapId, VrelDRGroup::kGsnapUnknown);
  }
  for (const auto& [gsnapId, status] : repair.GetStatuses()) add(gsnapId, status);
  return plan;
}

}  // namespace

RepairSight LookForRepair(const std::string& groupId) {
  GsnapshotRepair repair(groupId);
  if (!repair.InitGroupSnapDict() || !repair.InitTargetSnapDict()) {
    throw CatalogueFailure(groupId, "cannot read its records");
  }
  return {repair.GetStatuses(), repair.GetParts(), PlanRepair(repair)};
}

}  // namespace drgroupctl
