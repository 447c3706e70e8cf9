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
  std::vector<const RecordedGsnap*> gsnaps;
  bool stays = false;
};

using CutsOfSnapshots = std::map<std::pair<std::string, std::string>, std::string>;

CutsOfSnapshots CutsOf(const SnapshotsByTarget& snapshots) {
  CutsOfSnapshots cuts;
  for (const auto& [target, list] : snapshots) {
    for (const VrelDR::Operation::Snapshot& each : list) cuts[{target, each.snap_id}] = each.cut_id;
  }
  return cuts;
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

bool SyncCuts::Has(const std::string& cutId, Warnings& warnings) {
  const auto found = known_.find(cutId);
  if (found != known_.end()) return found->second;
  VrelDR::CutInfo info;
  const VrelDR::CutReporter reporter;
  const bool isRead = !cutId.empty() && reporter.Find(cutId, info);
  if (!isRead && !cutId.empty() && reporter.GetErrCode() != 0) {
    warnings.Print("the snapshots of a cut stay, as nothing can be told of it: " +
                   HostMessage(reporter));
  }
  return known_[cutId] = isRead && info.is_made_by_sync;
}

std::vector<SurplusGsnap> FindSurplusGsnaps(const RecordedGsnaps& recorded,
                                            const SnapshotsByTarget& snapshots,
                                            const std::set<std::string>& needed,
                                            const std::set<std::string>& ruled, SyncCuts& cuts,
                                            Warnings& warnings) {
  const CutsOfSnapshots known = CutsOf(snapshots);
  const auto isSurplus = [&](const std::string& id) {
    return !id.empty() && cuts.Has(id, warnings);
  };
  std::map<std::string, OfCut> byCut;
  for (const RecordedGsnap& gsnap : recorded) {
    std::set<std::string> own;
    std::vector<const VrelDRGroup::TargetSnapshot*> others;
    bool stays = IsKept(gsnap) || ruled.count(gsnap.group_id) != 0;
    for (const VrelDRGroup::TargetSnapshot& part : gsnap.info.target_snapshots) {
      const std::string& target = part.target.GetId();
      stays = stays || snapshots.count(target) == 0 || needed.count(part.tsnap_id) != 0;
      const auto found = known.find({target, part.tsnap_id});
      if (found != known.end()) {
        own.insert(found->second);
      } else {
        others.push_back(&part);
      }
    }
    if (!stays && std::any_of(own.begin(), own.end(), isSurplus)) {
      stays = std::any_of(others.begin(), others.end(), MayBeThere);
    }
    for (const std::string& each : own) {
      OfCut& cut = byCut[each];
      cut.gsnaps.push_back(&gsnap);
      cut.stays = cut.stays || stays || own.size() > 1;
    }
  }
  std::vector<SurplusGsnap> surplus;
  for (const auto& [id, cut] : byCut) {
    if (cut.stays || !isSurplus(id)) continue;
    for (const RecordedGsnap* each : cut.gsnaps) {
      surplus.push_back({each->group_id, each->info, id});
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
