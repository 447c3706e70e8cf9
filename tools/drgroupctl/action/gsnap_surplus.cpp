#include "action/gsnap_surplus.h"

#include <vreldr/cut.h>

#include <algorithm>
#include <utility>

#include "host/host.h"
#include "output/console.h"

namespace drgroupctl {

namespace {

// The group snapshots that record a part of a cut.
struct OfCut {
  std::vector<RecordedGsnap*> gsnaps;
  bool stays = false;
};

// Null when it is none of them.
SpareSnapshot* Find(SparesByTarget& spares, const VrelDRGroup::TargetSnapshot& part) {
  const auto target = spares.find(part.target.GetId());
  if (target == spares.end()) return nullptr;
  std::vector<SpareSnapshot>& list = target->second;
  const auto found = std::ranges::lower_bound(list, part.tsnap_id, {}, &SpareSnapshot::snap_id);
  return found == list.end() || found->snap_id != part.tsnap_id ? nullptr : &*found;
}

// Whether somebody has said of the group snapshot that it is to stay, or it is not whole.
bool IsKept(const RecordedGsnap& gsnap) {
  return !gsnap.is_listed || gsnap.info.is_user_locked || !gsnap.info.desc.empty();
}

// Whether a part of something else exists. One that is gone, as after a deletion that was
// interrupted, is in nobody's way.
bool MayBeThere(const VrelDRGroup::TargetSnapshot* part) {
  return AskSnapshot(part->target, part->tsnap_id).presence != Presence::kMissing;
}

}  // namespace

const SyncCut& SyncCuts::Get(const std::string& cutId, Warnings& warnings) {
  const auto [found, isNew] = known_.try_emplace(cutId, SyncCut{cutId});
  if (!isNew || cutId.empty()) return found->second;
  VrelDR::CutInfo info;
  const VrelDR::CutReporter reporter;
  if (reporter.Find(cutId, info)) {
    found->second.is_made_by_sync = info.is_made_by_sync;
  } else if (reporter.GetErrCode() != 0) {
    warnings.Print("the snapshots of a cut stay, as nothing can be told of it: " +
                   HostMessage(reporter));
  }
  return found->second;
}

std::vector<SurplusGsnap> TakeSurplusGsnaps(RecordedGsnaps& recorded, SparesByTarget& spares,
                                            const std::set<std::string>& needed,
                                            const std::set<std::string>& ruled) {
  std::map<const SyncCut*, OfCut> byCut;
  for (RecordedGsnap& gsnap : recorded) {
    std::set<const SyncCut*> own;
    std::vector<const VrelDRGroup::TargetSnapshot*> others;
    bool stays = IsKept(gsnap) || ruled.count(gsnap.group_id) != 0;
    for (const VrelDRGroup::TargetSnapshot& part : gsnap.info.target_snapshots) {
      stays = stays || spares.count(part.target.GetId()) == 0 || needed.count(part.tsnap_id) != 0;
      if (const SpareSnapshot* found = Find(spares, part)) {
        own.insert(found->cut);
      } else {
        others.push_back(&part);
      }
    }
    if (!stays && std::ranges::any_of(own, &SyncCut::is_made_by_sync)) {
      stays = std::ranges::any_of(others, MayBeThere);
    }
    for (const SyncCut* each : own) {
      OfCut& cut = byCut[each];
      cut.gsnaps.push_back(&gsnap);
      cut.stays = cut.stays || stays || own.size() > 1;
    }
  }
  std::vector<SurplusGsnap> surplus;
  for (const auto& [cut, of] : byCut) {
    if (of.stays || !cut->is_made_by_sync) continue;
    for (RecordedGsnap* each : of.gsnaps) {
      for (const auto& part : each->info.target_snapshots) {
        if (SpareSnapshot* found = Find(spares, part)) found->is_of_surplus = true;
      }
      surplus.push_back({each->group_id, std::move(each->info), cut->id});
    }
  }
  std::sort(surplus.begin(), surplus.end(), [](const SurplusGsnap& a, const SurplusGsnap& b) {
    return std::pair(a.info.gsnap_time, a.info.gsnap_id) <
           std::pair(b.info.gsnap_time, b.info.gsnap_id);
  });
  return surplus;
}

std::set<std::string> FindRuled(const RecordedGsnaps& recorded, const Group& group,
                                const KeepRule& rule) {
  std::set<std::string> others;
  for (const RecordedGsnap& each : recorded) others.insert(each.group_id);
  others.erase(group.id);
  std::set<std::string> ruled;
  if (!rule.IsEmpty()) ruled.insert(group.id);
  for (const std::string& each : others) {
    try {
      if (LoadGroup(each).keep.IsEmpty()) continue;
    } catch (const Failure&) {  // "group list" tells of it
    }
    ruled.insert(each);
  }
  return ruled;
}

}  // namespace drgroupctl
