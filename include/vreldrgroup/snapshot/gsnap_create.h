#pragma once

#include <json/value.h>
#include <vreldr/target.h>
#include <vreldrcore/err_recorder.h>

#include <string>
#include <vector>

#include "vreldrgroup/export.h"
#include "vreldrgroup/record/gsnapshot.h"
#include "vreldrgroup/record/target_group.h"

namespace VrelDRGroup::Operation {

// Takes one snapshot of every target of a group and records them as one group snapshot, named after
// the time of the first.
//
// Make an object, call Run, read GetErr: code 0, 401 (no group identifier, no targets or no
// database directory), 404 (the catalogue refused), 634 (a target does not exist; the message is
// the target), or what the target's own operation failed with. After a failure the catalogue shows
// nothing of the group snapshot; snapshots taken on the targets before the failing one stay there.
class VRELDRGROUP_API GsnapshotCreate : public VrelDRCore::ErrRecorder {
 public:
  // `dbDir` is the directory of the group's database. `replicaMap` is an object from source target
  // identifier to destination target identifier; when it is empty, no replicas are recorded.
  // `group` and `replicaMap` must outlive the object.
  GsnapshotCreate(const TargetGroup& group, const GsnapMeta& meta, const std::string& dbDir,
                  const Json::Value& replicaMap);
  GsnapshotCreate(const GsnapshotCreate&) = delete;
  GsnapshotCreate& operator=(const GsnapshotCreate&) = delete;
  ~GsnapshotCreate() override;

  virtual bool Run();

  // The steps of Run: all targets and then the group's row; one target.
  bool DoCreateSnapshot(const std::vector<VrelDR::Target>& targets);
  bool TakeTargetSnapshot(const VrelDR::Target& target);

  // The group snapshot as Run has made it; its identifier is empty before the first target.
  const Gsnapshot& GetGsnapshot() const { return gsnapshot_; }

 private:
  const TargetGroup& group_;
  GsnapMeta meta_;
  std::string dbDir_;
  const Json::Value& replicaMap_;
  Gsnapshot gsnapshot_;
};

}  // namespace VrelDRGroup::Operation
