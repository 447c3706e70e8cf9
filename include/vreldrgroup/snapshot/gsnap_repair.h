#pragma once

#include <vreldr/target.h>
#include <vreldrcore/err_recorder.h>

#include <map>
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

// Brings a group's catalogue in line with the snapshots that its targets really have: removes group
// snapshots that are only half recorded and sets the status of the others. A bad one stays bad; a
// target that cannot be asked makes its group snapshots unknown, never bad.
//
// Run ends with code 0, 401 (no group identifier) or 407 (anything else). Removals and statuses
// that could not be written are left for the next repair and fail nothing. One object serves one
// run.
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
  // Asks about a target unless that was done before. False when it could not be found out.
  bool SetTarget(const VrelDR::Target& target);
  // The status that the targets' real snapshots give a group snapshot.
  GsnapStatus GetGsnapStatus(const std::string& gsnapId, const std::vector<TargetSnapshot>& tsnaps);

 private:
  std::string groupId_;
  std::map<std::string, GsnapStatus> groupSnapDict_;
  std::map<std::string, std::vector<TargetSnapshot>> targetSnapDict_;
  std::map<VrelDR::Target, TargetInfo> targetDict_;
};

}  // namespace VrelDRGroup::Operation
