#pragma once

#include <vreldr/snapshot.h>
#include <vreldrgroup/record/gsnapshot.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "groups/group_store.h"
#include "groups/known_snapshots.h"

namespace drgroupctl {

class Warnings;

// The snapshots of targets that could be asked, by target.
using SnapshotsByTarget = std::map<std::string, std::vector<VrelDR::Operation::Snapshot>>;

// A group snapshot that is to be deleted.
struct SurplusGsnap {
  std::string group_id;
  VrelDRGroup::GsnapshotInfo info;
  std::string cut_id;
  bool is_deleted = false;
};

// Which cuts' group snapshots syncs have made; asked of the host once for each cut.
class SyncCuts {
 public:
  // False also when that cannot be told, which is warned of.
  bool Has(const std::string& cutId, Warnings& warnings);

 private:
  std::map<std::string, bool> known_;
};

// The group snapshots that syncs have made and that nobody needs, the oldest first. `snapshots` has
// every target that could be asked, and at least all of its snapshots that are of a cut that a sync
// has made and that nobody needs; `recorded` all group snapshots that have one of them. All that
// record a part of a cut go together, in whichever catalogue, or none: none goes when one of them
// is locked, described, half recorded or of something else besides, when it has a part of a target
// that is not among `snapshots`, when one of its parts is `needed`, or when it is of a group that
// keeps its group snapshots by a rule, which are `ruled`.
std::vector<SurplusGsnap> FindSurplusGsnaps(const RecordedGsnaps& recorded,
                                            const SnapshotsByTarget& snapshots,
                                            const std::set<std::string>& needed,
                                            const std::set<std::string>& ruled, SyncCuts& cuts,
                                            Warnings& warnings);

// The groups that keep their group snapshots by a rule, the one to be pruned by `rule`: by that
// alone go also those that syncs have made. One whose definition cannot be read counts as one.
std::set<std::string> FindRuled(const RecordedGsnaps& recorded, const Group& group,
                                const KeepRule& rule);

}  // namespace drgroupctl
