#include "action/gsnap_retention.h"

#include <vreldr/target_operation.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "action/common_cut.h"
#include "action/plan_holds.h"
#include "action/plans.h"
#include "groups/catalogue.h"
#include "groups/catalogue_rows.h"
#include "groups/catalogue_view.h"
#include "groups/gsnap_removal.h"
#include "groups/known_snapshots.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

using VrelDRGroup::GsnapshotInfo;
using VrelDRGroup::TargetSnapshot;

std::string OfTarget(const TargetSnapshot& part) {
  return "its snapshot of target " + Quote(part.target.GetId());
}

// Why group snapshots stay, by what the catalogue and the plans say; one reason of each kind.
std::map<std::string, std::vector<std::string>> FindClaims(
    const Group& group, const CatalogueRows& rows,
    const std::vector<VrelDRGroup::Gsnapshot>& gsnaps) {
  std::map<std::string, std::vector<std::string>> claims;
  for (const VrelDRGroup::Gsnapshot& each : gsnaps) {
    if (each.is_user_locked) claims[each.gsnap_id].emplace_back("it is locked");
  }
  std::set<std::string> targets;
  for (const VrelDR::Target& each : group.targets) targets.insert(each.GetId());
  const PlanHolds holds(targets);
  std::set<std::string> held;
  rows.VisitPartsAmong(holds.SnapIds(), [&](const CatalogueRows::Part& part) {
    const std::string reason = holds.Find(part.target.GetId(), part.tsnap_id);
    if (reason.empty() || !held.insert(part.gsnap_id).second) return;
    claims[part.gsnap_id].push_back(OfTarget(part) + " " + reason);
  });
  return claims;
}

// Why a group snapshot stays by what the host says of its parts; empty when nothing is against its
// deletion.
std::string ClaimOfHost(const GsnapshotInfo& info, const NeededCuts& needed) {
  for (const TargetSnapshot& each : info.target_snapshots) {
    const VrelDR::TargetOperation operation(each.target);
    const VrelDR::Operation::Snapshot found = operation.GetSnapshot(each.tsnap_id);
    const int error = operation.GetErrCode();
    if (error != 0 && error != VrelDR::kErrTargetMissing) {
      return OfTarget(each) + " is out of reach: " + HostMessage(operation);
    }
    if (!needed.Has(found.cut_id)) continue;
    return needed.are_all
               ? "it cannot be told whether a failover needs its cut: " + needed.problem
               : "it is of the newest cut that all replicas have, to which a failover goes";
  }
  return {};
}

void LetStay(const std::string& gsnapId, const std::string& reason, Retention& retention) {
  for (Verdict& each : retention.verdicts) {
    if (each.id != gsnapId) continue;
    each.stays = true;
    each.reasons.push_back(reason);
  }
  std::erase_if(retention.going,
                [&](const GsnapshotInfo& each) { return each.gsnap_id == gsnapId; });
}

// Lets those stay a part of which another group snapshot has that does: of another group with the
// same target, or of this one.
void SpareShared(Retention& retention) {
  // Of a part, by its target and its identifier: the copies of a snapshot have the same one.
  std::map<std::pair<std::string, std::string>, std::vector<std::string>> owners;
  std::set<std::string> parts;
  for (const GsnapshotInfo& each : retention.going) {
    for (const TargetSnapshot& part : each.target_snapshots) {
      parts.insert(part.tsnap_id);
      owners[{part.target.GetId(), part.tsnap_id}].push_back(each.gsnap_id);
    }
  }
  if (parts.empty()) return;
  std::set<std::string> going;
  for (const auto& [part, ids] : owners) going.insert(ids.begin(), ids.end());
  for (const RecordedGsnap& other : AllGsnapsWith(parts)) {
    if (going.count(other.info.gsnap_id) != 0) continue;
    for (const TargetSnapshot& part : other.info.target_snapshots) {
      const auto found = owners.find({part.target.GetId(), part.tsnap_id});
      if (found == owners.end()) continue;
      for (const std::string& each : found->second) {
        LetStay(each, OfTarget(part) + " belongs to " + Quote(other.info.gsnap_id) + ", too",
                retention);
      }
      owners.erase(found);
    }
  }
}

}  // namespace

Retention JudgeGsnaps(const Group& group, const KeepRule& rule) {
  const CatalogueRows rows(group.id);
  const std::vector<VrelDRGroup::Gsnapshot> gsnaps = ListGsnaps(group.id, false);
  auto claims = FindClaims(group, rows, gsnaps);
  std::vector<Candidate> candidates;
  candidates.reserve(gsnaps.size());
  std::map<std::string, const VrelDRGroup::Gsnapshot*> known;
  for (const VrelDRGroup::Gsnapshot& each : gsnaps) {
    candidates.push_back({each.gsnap_id, each.gsnap_time, std::move(claims[each.gsnap_id])});
    known[each.gsnap_id] = &each;
  }
  Retention retention;
  retention.verdicts = Judge(rule, std::move(candidates));
  std::vector<VrelDR::DRPlan> plans;
  for (const VrelDR::Target& each : group.targets) {
    std::ranges::move(PlansOf(each.GetId()), std::back_inserter(plans));
  }
  const NeededCuts needed = plans.empty() ? NeededCuts() : FindNeededCuts(plans);
  for (auto verdict = retention.verdicts.rbegin(); verdict != retention.verdicts.rend();
       ++verdict) {
    if (verdict->stays) continue;
    GsnapshotInfo info(*known[verdict->id]);
    for (CatalogueRows::Part& part : rows.PartsOf(verdict->id)) {
      info.target_snapshots.push_back(std::move(part));
    }
    const std::string claim = ClaimOfHost(info, needed);
    if (claim.empty()) {
      retention.going.push_back(std::move(info));
    } else {
      verdict->stays = true;
      verdict->reasons.push_back(claim);
    }
  }
  SpareShared(retention);
  return retention;
}

void DeleteByRule(const Group& group, const Retention& retention) {
  std::size_t count = 0;
  try {
    if (!retention.going.empty()) RequireCatalogue(group.id, Access::kWrite);
    for (const VrelDRGroup::GsnapshotInfo& each : retention.going) {
      RemoveGsnap(group.id, each, AskParts(each, true), OutOfReach::kFail);
      ++count;
    }
  } catch (const Failure& failure) {
    Failure stopped(failure.code,
                    "group " + Quote(group.id) + ": " + std::to_string(count) + " of " +
                        Count(retention.going.size(), "group snapshot") +
                        " deleted by the rule, the same command goes on: " + failure.message);
    stopped.details = failure.details;
    throw stopped;
  }
}

void AddVerdicts(const Retention& retention, Report& report) {
  Json::Value rows(Json::arrayValue);
  for (const Verdict& each : retention.verdicts) {
    Json::Value row(Json::objectValue);
    row["gsnap_id"] = each.id;
    row["time"] = Json::Int64(each.time);
    row["stays"] = each.stays;
    row["reasons"] = Json::Value(Json::arrayValue);
    for (const std::string& reason : each.reasons) row["reasons"].append(reason);
    row["reason_text"] = each.stays ? Join(each.reasons, "; ") : "no part of the rule keeps it";
    rows.append(row);
  }
  report.AddTable({"verdicts", "By the rule"},
                  {{"gsnap_id", "GROUP SNAPSHOT"},
                   {"time", "TIME", Shown::kTime},
                   {"stays", "STAYS"},
                   {"reason_text", "WHY"}},
                  rows);
}

}  // namespace drgroupctl
