#pragma once

#include <vreldrgroup/record/gsnapshot.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "groups/group_store.h"
#include "groups/known_snapshots.h"

namespace drgroupctl {

class Warnings;

// A cut, and whether a sync has made group snapshots of it.
struct SyncCut {
  std::string id;
  bool is_made_by_sync = false;
};

// Which cuts' group snapshots syncs have made; asked of the host once for each cut.
class SyncCuts {
 public:
  // The answer lives as long as the object. False also when it cannot be told, which is warned of.
  const SyncCut& Get(const std::string& cutId, Warnings& warnings);

 private:
  std::unordered_map<std::string, SyncCut> known_;
};

// What has to be known of a snapshot that may go; there may be hundreds of thousands.
struct SpareSnapshot {
  std::string snap_id;
  const SyncCut* cut = nullptr;
  std::uint32_t create_time = 0;
  bool is_going_alone = false;  // it goes when no group snapshot has it
  bool is_of_surplus = false;   // a group snapshot that goes has it
};

// The snapshots that may go of targets that could be asked, by target and in the order of their
// identifiers.
using SparesByTarget = std::map<std::string, std::vector<SpareSnapshot>>;

// A group snapshot that is to be deleted.
struct SurplusGsnap {
  std::string group_id;
  VrelDRGroup::GsnapshotInfo info;
  std::string cut_id;
  bool is_deleted = false;
};

// The group snapshots that syncs have made and that nobody needs, the oldest first; their parts are
// taken out of `recorded` and are marked among `spares`. `spares` has every target that could be
// asked, and at least all of its snapshots that are of a cut that a sync has made and that nobody
// needs; `recorded` all group snapshots that have one of them. All that record a part of a cut go
// together, in whichever catalogue, or none: none goes when one of them is locked, described, half
// recorded or of something else besides, when it has a part of a target that is not among `spares`,
// when one of its parts is `needed`, or when it is of a group that keeps its group snapshots by a
// rule, which are `ruled`.
std::vector<SurplusGsnap> TakeSurplusGsnaps(RecordedGsnaps& recorded, SparesByTarget& spares,
                                            const std::set<std::string>& needed,
                                            const std::set<std::string>& ruled);

// The groups that keep their group snapshots by a rule, the one to be pruned by `rule`: by that
// alone go also those that syncs have made. One whose definition cannot be read counts as one.
std::set<std::string> FindRuled(const RecordedGsnaps& recorded, const Group& group,
                                const KeepRule& rule);

}  // namespace drgroupctl
