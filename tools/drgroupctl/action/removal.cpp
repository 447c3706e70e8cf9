#include "action/removal.h"

#include <vreldr/target_operation.h>

#include <algorithm>
#include <set>
#include <utility>

#include "groups/recorded_claims.h"
#include "host/arrived.h"
#include "host/host.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

using VrelDR::Operation::Snapshot;

std::vector<std::string> ClaimsOn(const std::string& target, const std::vector<Snapshot>& snapshots,
                                  const RecordedClaims& records) {
  std::vector<std::string> claims;
  for (const Snapshot& each : snapshots) {
    const std::string named = "snapshot " + Quote(each.snap_id) + " of target " + Quote(target);
    if (each.meta.is_locked) claims.push_back(named + " is locked");
    for (const RecordedClaim& claim : records.On(each.snap_id)) {
      if (claim.target_id == target) claims.push_back(named + " " + claim.text);
    }
  }
  if (snapshots.empty()) return claims;
  for (const Failure& doubt : records.Doubts()) claims.push_back(doubt.message);
  return claims;
}

std::string Place(const std::string& target, const std::string& volume, const std::string& side) {
  return "target " + Quote(target) + (volume.empty() ? "" : " on volume " + Quote(volume)) + " (" +
         side + ")";
}

std::string SideOf(bool isDrSide) {
  return isDrSide ? "the DR side" : "the main side";
}

// The first of them.
std::string ClaimsText(const std::vector<std::string>& claims) {
  constexpr std::size_t kMost = 5;
  const std::vector<std::string> told(
      claims.begin(), claims.begin() + static_cast<long>(std::min(kMost, claims.size())));
  std::string text = Join(told, "; ");
  if (claims.size() > kMost) text += "; and " + Count(claims.size() - kMost, "other claim");
  return text;
}

Json::Value ToJson(const std::vector<std::string>& texts) {
  Json::Value list(Json::arrayValue);
  for (const std::string& each : texts) list.append(each);
  return list;
}

}  // namespace

std::string RemainsText(const VrelDR::TargetRemains& remains) {
  const std::string id = remains.target.GetId();
  return "target " + Quote(id) + " on volume " + Quote(remains.volume) +
         " is being removed and not whole any more; unless that runs now, \"drgroupctl target "
         "remove " +
         Printable(id) + "\" finishes it";
}

std::vector<VrelDR::TargetRemains> RemainsOf(const std::string& target,
                                             const std::vector<VrelDR::TargetRemains>& all) {
  std::vector<VrelDR::TargetRemains> found;
  std::copy_if(all.begin(), all.end(), std::back_inserter(found), [&](const auto& each) {
    return each.target.GetId() == target || each.other_target_id == target;
  });
  return found;
}

std::vector<std::string> ClaimsOn(const std::string& target, const Snapshot& snapshot) {
  return ClaimsOn(target, std::vector<Snapshot>{snapshot}, RecordedClaims({snapshot.snap_id}));
}

Removal::Removal(const std::vector<VrelDR::DRPlan>& plans,
                 const std::vector<std::string>& targets) {
  const std::vector<VrelDR::TargetRemains> all = ListRemains();
  for (const std::string& target : targets) {
    for (VrelDR::TargetRemains& each : RemainsOf(target, all)) remains_.push_back(std::move(each));
  }
  if (plans.empty()) return;
  // What each copy has, and then what is recorded of all of that.
  std::vector<std::vector<Snapshot>> lists;
  std::set<std::string> snapIds;
  for (const VrelDR::DRPlan& plan : plans) {
    Copy copy;
    copy.plan_id = plan.GetPlanId();
    copy.target_id = plan.GetReplicaTargetId();
    copy.side = SideOf(copy.target_id == plan.GetDRTargetId());
    VrelDR::TargetEntry entry;
    if (FindTarget(copy.target_id, entry)) copy.volume = entry.volume;
    const VrelDR::TargetOperation operation(plan.GetProtectedTargetType(), copy.target_id);
    const std::vector<Snapshot>& snapshots = lists.emplace_back(operation.ListSnapshots());
    if (operation.GetErrCode() == 0) copy.snapshots = snapshots.size();
    for (const Snapshot& each : snapshots) snapIds.insert(each.snap_id);
    copies_.push_back(std::move(copy));
  }
  const RecordedClaims records(snapIds);
  for (std::size_t i = 0; i < plans.size(); ++i) {
    Copy& copy = copies_[i];
    copy.claims = ClaimsOn(copy.target_id, lists[i], records);
    if (LookAtArrived(plans[i]).is_going_back) {
      copy.claims.push_back("target " + Quote(copy.target_id) +
                            " may hold what was written there before the reprotection, and nothing "
                            "has been sent to it since: a sync would end that");
    }
  }
}

std::vector<std::string> Removal::Claims() const {
  std::vector<std::string> claims;
  for (const Copy& each : copies_) {
    claims.insert(claims.end(), each.claims.begin(), each.claims.end());
  }
  // Of a catalogue that cannot be read every copy tells.
  std::sort(claims.begin(), claims.end());
  claims.erase(std::unique(claims.begin(), claims.end()), claims.end());
  return claims;
}

std::string Removal::Text() const {
  const std::vector<std::string> claims = Claims();
  return Places() + (claims.empty() ? "" : " (" + ClaimsText(claims) + ")");
}

std::string Removal::Places() const {
  std::vector<std::string> texts;
  for (const Copy& each : copies_) {
    texts.push_back(
        Place(each.target_id, each.volume, each.side) + " with " +
        (each.snapshots ? Count(*each.snapshots, "snapshot")
                        : "its snapshots, of which it cannot be told how many there are") +
        (each.claims.empty() ? "" : " and " + Count(each.claims.size(), "claim") + " on them"));
  }
  for (const VrelDR::TargetRemains& each : remains_) {
    texts.push_back("what is left of " +
                    Place(each.target.GetId(), each.volume, SideOf(each.is_dr_side)));
  }
  return Join(texts, ", ");
}

void Removal::RequireUnclaimed(const std::string& title, const Arguments& args) const {
  const std::vector<std::string> claims = Claims();
  if (claims.empty() || args.Has("--force")) return;
  Failure failure(ExitCode::kRefused,
                  title + " is refused, nothing was done: it would remove " + Places() + ": " +
                      ClaimsText(claims) +
                      ": keep the data, delete those group snapshots first, or add --force to "
                      "lose them");
  failure.details["removed"] = Rows();
  failure.details["claims"] = ToJson(claims);
  AddTo(failure.report);
  throw failure;
}

void Removal::Finish() const {
  const VrelDR::TargetManager manager;
  for (const VrelDR::TargetRemains& each : remains_) {
    if (manager.Remove(each.target.GetId(), true)) continue;
    if (manager.GetErrCode() != VrelDR::kErrTargetMissing) ThrowHostError(manager);
  }
}

Json::Value Removal::Rows() const {
  Json::Value rows(Json::arrayValue);
  for (const Copy& each : copies_) {
    Json::Value row(Json::objectValue);
    row["target_id"] = each.target_id;
    row["volume"] = each.volume;
    row["side"] = each.side;
    row["plan_id"] = each.plan_id;
    row["snapshot_count"] =
        each.snapshots ? Json::Value(Json::UInt64(*each.snapshots)) : Json::Value();
    row["claims"] = ToJson(each.claims);
    row["claim_count"] = Json::UInt64(each.claims.size());
    row["is_begun"] = false;
    rows.append(row);
  }
  for (const VrelDR::TargetRemains& each : remains_) {
    Json::Value row(Json::objectValue);
    row["target_id"] = each.target.GetId();
    row["volume"] = each.volume;
    row["side"] = SideOf(each.is_dr_side);
    row["plan_id"] = each.plan_id;
    row["snapshot_count"] = Json::Value();
    row["claims"] = Json::Value(Json::arrayValue);
    row["claim_count"] = 0U;
    row["is_begun"] = true;
    rows.append(row);
  }
  return rows;
}

void Removal::AddTo(Report& report) const {
  report.AddTable({"removed", "Removed"},
                  {{"target_id", "GOES"},
                   {"volume", "VOLUME"},
                   {"side", "SIDE"},
                   {"snapshot_count", "SNAPSHOTS"},
                   {"claim_count", "LOCKED OR RECORDED"},
                   {"is_begun", "BEGUN BEFORE"}},
                  Rows());
}

}  // namespace drgroupctl
