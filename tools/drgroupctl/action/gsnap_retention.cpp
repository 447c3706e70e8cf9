#include "action/gsnap_retention.h"

#include <vreldr/target_operation.h>

#include <map>
#include <set>
#include <string>
#include <utility>

#include "action/gsnap_release.h"
#include "action/plan_holds.h"
#include "groups/catalogue.h"
#include "groups/catalogue_rows.h"
#include "groups/catalogue_view.h"
#include "groups/gsnap_removal.h"
#include "groups/known_snapshots.h"
#include "host/host.h"
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
    const std::string needed = group.last_restore.ClaimOn(each.gsnap_id);
    if (!needed.empty()) claims[each.gsnap_id].push_back(needed);
  }
  std::set<std::string> targets;
  for (const VrelDR::Target& each : group.targets) targets.insert(each.GetId());
  const PlanHolds holds(targets);
  std::set<std::string> held;
  const std::set<std::string> ids = holds.SnapIds();
  rows.VisitPartsAmong({ids.begin(), ids.end()}, [&](const CatalogueRows::Part& part) {
    const std::string reason = holds.Find(part.target.GetId(), part.tsnap_id);
    if (reason.empty() || !held.insert(part.gsnap_id).second) return;
    claims[part.gsnap_id].push_back(OfTarget(part) + " " + reason);
  });
  return claims;
}

// What the host says against the deletion of snapshots. Each target is asked once.
class HostClaims {
 public:
  explicit HostClaims(const NeededCuts& needed) : needed_(needed) {}

  // Why the part stays; empty when nothing is against its deletion.
  std::string Of(const TargetSnapshot& part) {
    const auto [found, isNew] = targets_.try_emplace(part.target.GetId());
    if (isNew) found->second = Ask(part);
    const Asked& asked = found->second;
    if (!asked.problem.empty()) return OfTarget(part) + " is out of reach: " + asked.problem;
    if (needed_.snap_ids.count(part.tsnap_id) != 0) {
      return "it is of the newest cut that all replicas have, to which a failover goes";
    }
    return asked.of_cuts.count(part.tsnap_id) == 0
               ? std::string()
               : "it cannot be told whether a failover needs its cut: " + needed_.problem;
  }

 private:
  struct Asked {
    std::string problem;            // why the target is out of reach
    std::set<std::string> of_cuts;  // when it cannot be told which cut is needed
  };

  // About one of its snapshots: one that is out of reach is so with all of them.
  Asked Ask(const TargetSnapshot& part) const {
    Asked asked;
    const VrelDR::TargetOperation operation(part.target);
    if (needed_.are_all) {
      for (const VrelDR::Operation::Snapshot& each : operation.ListSnapshots()) {
        if (needed_.Has(each.cut_id)) asked.of_cuts.insert(each.snap_id);
      }
    } else {
      operation.GetSnapshot(part.tsnap_id);
    }
    const int error = operation.GetErrCode();
    if (error != 0 && error != VrelDR::kErrTargetMissing) asked.problem = HostMessage(operation);
    return asked;
  }

  const NeededCuts& needed_;
  std::map<std::string, Asked> targets_;
};

// The group snapshots that go so far, and their parts. Of a catalogue with a year of history every
// part may go: only their identifiers are kept.
struct Going {
  std::map<std::string, Verdict*> verdicts;
  std::set<std::string> parts;
  std::set<std::string> targets;

  void LetStay(const std::string& gsnapId, const std::string& reason) {
    const auto found = verdicts.find(gsnapId);
    if (found == verdicts.end()) return;
    found->second->stays = true;
    found->second->reasons.push_back(reason);
    verdicts.erase(found);
  }
};

// Takes those that the rule does not keep and the host has nothing against.
Going FindGoing(const CatalogueRows& rows, const NeededCuts& needed,
                std::vector<Verdict>& verdicts) {
  Going going;
  HostClaims claims(needed);
  for (Verdict& verdict : verdicts) {
    if (verdict.stays) continue;
    const std::vector<CatalogueRows::Part> parts = rows.PartsOf(verdict.id);
    going.verdicts.emplace(verdict.id, &verdict);
    for (const CatalogueRows::Part& part : parts) {
      const std::string claim = claims.Of(part);
      if (claim.empty()) continue;
      going.LetStay(verdict.id, claim);
      break;
    }
    if (verdict.stays) continue;
    for (const CatalogueRows::Part& part : parts) {
      going.parts.insert(part.tsnap_id);
      going.targets.insert(part.target.GetId());
    }
  }
  return going;
}

// Lets those stay a part of which another group snapshot has that does: of another group with the
// same target, or of this one. A part is known by its target and its identifier: the copies of a
// snapshot have the same one.
void SpareShared(const CatalogueRows& own, Going& going) {
  std::size_t before = 0;
  do {  // what stays by another one may keep a third
    before = going.verdicts.size();
    std::map<std::pair<std::string, std::string>, std::string> shared;  // with whom
    std::set<std::string> ids;
    VisitAllPartsAmong(
        {going.parts.begin(), going.parts.end()}, [&](const CatalogueRows::Part& part) {
          const std::string& target = part.target.GetId();
          if (going.targets.count(target) == 0 || going.verdicts.count(part.gsnap_id) != 0) return;
          shared.try_emplace({target, part.tsnap_id}, part.gsnap_id);
          ids.insert(part.tsnap_id);
        });
    own.VisitPartsAmong({ids.begin(), ids.end()}, [&](const CatalogueRows::Part& part) {
      const auto found = shared.find({part.target.GetId(), part.tsnap_id});
      if (found == shared.end()) return;
      going.LetStay(part.gsnap_id,
                    OfTarget(part) + " belongs to " + Quote(found->second) + ", too");
    });
  } while (going.verdicts.size() != before && !going.verdicts.empty());
}

// Lets those stay a part of which is held by a plan of a target that has left the group.
void SpareHeldByFormer(const Group& group, const CatalogueRows& rows, Going& going) {
  std::set<std::string> former = going.targets;
  for (const VrelDR::Target& each : group.targets) former.erase(each.GetId());
  if (former.empty()) return;
  const PlanHolds holds(former);
  const std::set<std::string> ids = holds.SnapIds();
  rows.VisitPartsAmong({ids.begin(), ids.end()}, [&](const CatalogueRows::Part& part) {
    const std::string reason = holds.Find(part.target.GetId(), part.tsnap_id);
    if (!reason.empty()) going.LetStay(part.gsnap_id, OfTarget(part) + " " + reason);
  });
}

}  // namespace

Retention JudgeGsnaps(const Group& group, const KeepRule& rule, const NeededCuts& needed) {
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
  Going going = FindGoing(rows, needed, retention.verdicts);
  SpareHeldByFormer(group, rows, going);
  SpareShared(rows, going);
  for (auto each = retention.verdicts.rbegin(); each != retention.verdicts.rend(); ++each) {
    if (!each->stays) retention.going.push_back(*known[each->id]);
  }
  return retention;
}

void DeleteByRule(const Group& group, const Retention& retention) {
  std::size_t count = 0;
  try {
    if (!retention.going.empty()) RequireCatalogue(group.id, Access::kWrite);
    const CatalogueRows rows(group.id);
    for (const VrelDRGroup::Gsnapshot& each : retention.going) {
      GsnapshotInfo info(each);
      for (CatalogueRows::Part& part : rows.PartsOf(each.gsnap_id)) {
        info.target_snapshots.push_back(std::move(part));
      }
      RequireReleased({info});
      RemoveGsnap(group.id, info, AskParts(info, true), OutOfReach::kFail);
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
