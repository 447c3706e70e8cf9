#pragma once

#include <vreldr/target.h>
#include <vreldrcore/err_recorder.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "vreldrgroup/export.h"
#include "vreldrgroup/record/gsnapshot.h"
#include "vreldrgroup/record/target_snapshot.h"

namespace VrelDRGroup::Operation {

// What the replication library said about one target.
struct VRELDRGROUP_API TargetInfo {
  bool isExisted = false;
  std::set<std::string> snapshotIds;  // only filled when the target exists
};

// What a repair makes of one group snapshot.
struct VRELDRGROUP_API RepairVerdict {
  enum class Reason {
    kNoMetadata,     // only its target snapshots are recorded: it goes
    kNoParts,        // none of its target snapshots is recorded: it goes
    kStaysBad,       // it is bad already, and its targets are not asked any more
    kNoId,           // it is recorded without an identifier
    kTargetUnknown,  // the target of `part` cannot be asked
    kTargetGone,     // the target of `part` does not exist
    kSnapshotGone,   // the target of `part` does not have that snapshot
    kAllThere,
  };

  bool IsDeleted() const { return reason == Reason::kNoMetadata || reason == Reason::kNoParts; }

  Reason reason = Reason::kAllThere;
  GsnapStatus status = kGsnapReady;      // that it has afterwards, unless it goes
  const TargetSnapshot* part = nullptr;  // the first that decides, one of those that were judged
};

// Brings a group's catalogue in line with the snapshots that its targets really have: removes group
// snapshots that are only half recorded and sets the status of the others. A bad one stays bad; a
// target that cannot be asked makes its group snapshots unknown, never bad.
//
// Run ends with code 0, 401 (no group identifier) or 407 (anything else). Removals and statuses
// that could not be written are left for the next repair and fail nothing. One object serves one
// run. What Run would do can be asked without doing it: InitGroupSnapDict and InitTargetSnapDict
// read, and Judge tells it of each group snapshot.
class VRELDRGROUP_API GsnapshotRepair : public VrelDRCore::ErrRecorder {
 public:
  explicit GsnapshotRepair(const std::string& groupId);
  GsnapshotRepair(const GsnapshotRepair&) = delete;
  GsnapshotRepair& operator=(const GsnapshotRepair&) = delete;
  ~GsnapshotRepair() override;

  // With a directory the group's database there is initialised and linked first.
  bool Run(const std::string& dbDir);

  // The steps of Run, in its order.
  bool DoRepair();
  bool InitGroupSnapDict();
  bool InitTargetSnapDict();
  void RepairTargetSnapshotTable();
  void RepairGroupSnapMetaTable();
  // What the two Init have read: the status of each group snapshot in "gsnap_meta", and the rows of
  // "target_snap_list" by their group snapshot, in their order.
  const std::map<std::string, GsnapStatus>& GetStatuses() const { return groupSnapDict_; }
  const std::map<std::string, std::vector<TargetSnapshot>>& GetParts() const {
    return targetSnapDict_;
  }
  // What Run does with a group snapshot that either of them has. Asks about its targets, as far as
  // they decide and were not asked about before. The verdict's part is one of GetParts.
  RepairVerdict Judge(const std::string& gsnapId);
  // Asks about a target unless that was done before. False when it could not be found out.
  bool SetTarget(const VrelDR::Target& target);
  // The status that the targets' real snapshots give a group snapshot.
  GsnapStatus GetGsnapStatus(const std::string& gsnapId, const std::vector<TargetSnapshot>& tsnaps);

 private:
  // Nothing when the targets decide.
  std::optional<RepairVerdict> JudgeRecords(const std::string& gsnapId) const;
  RepairVerdict JudgeParts(const std::string& gsnapId, const std::vector<TargetSnapshot>& tsnaps);

  std::string groupId_;
  std::map<std::string, GsnapStatus> groupSnapDict_;
  std::map<std::string, std::vector<TargetSnapshot>> targetSnapDict_;
  std::map<VrelDR::Target, TargetInfo> targetDict_;
};

}  // namespace VrelDRGroup::Operation
