#include "groups/recorded_claims.h"

#include "groups/catalogue.h"
#include "groups/catalogue_rows.h"
#include "groups/group_link.h"
#include "groups/group_store.h"
#include "output/text.h"

namespace drgroupctl {

RecordedClaims::RecordedClaims(std::set<std::string> snapIds, Evidence evidence,
                               const std::vector<std::string>& likely) {
  if (snapIds.empty()) return;
  for (const std::string& groupId : LikelyFirst(likely)) {
    try {
      Read(groupId, snapIds);
      if (evidence == Evidence::kAll) continue;
      std::erase_if(snapIds, [this](const auto& each) { return claims_.contains(each); });
    } catch (Failure& failure) {
      failure.message =
          "which snapshots group " + Quote(groupId) + " records cannot be told: " + failure.message;
      doubts_.push_back(failure);
    }
  }
  for (const Failure& each : FindUnlinked()) doubts_.push_back(each);
}

void RecordedClaims::Read(const std::string& groupId, const std::set<std::string>& snapIds) {
  RequireCatalogue(groupId, Access::kRead);
  const CatalogueRows rows(groupId);
  std::vector<CatalogueRows::Part> parts;
  rows.VisitPartsAmong({snapIds.begin(), snapIds.end()},
                       [&parts](const CatalogueRows::Part& part) { parts.push_back(part); });
  std::map<std::string, bool> locked;
  for (const CatalogueRows::Part& each : parts) {
    auto known = locked.find(each.gsnap_id);
    if (known == locked.end()) {
      const auto gsnap = rows.FindGsnap(each.gsnap_id);
      known = locked.emplace(each.gsnap_id, gsnap && gsnap->is_user_locked).first;
    }
    claims_[each.tsnap_id].push_back(
        {each.target.GetId(), "is recorded in group snapshot " + Quote(each.gsnap_id) +
                                  (known->second ? ", which is locked" : "")});
  }
}

const std::vector<RecordedClaim>& RecordedClaims::On(const std::string& snapId) const {
  static const std::vector<RecordedClaim> none;
  const auto found = claims_.find(snapId);
  return found == claims_.end() ? none : found->second;
}

}  // namespace drgroupctl
