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

// Records a group snapshot that was not taken here but has arrived by replication: the last
// snapshot that replication has brought over for every target of a group, named after the time of
// the first. Takes and deletes no snapshot.
//
// Make an object, call Run, read GetErr: code 0, 401 (no group identifier, no targets or no
// database directory), 404 (the catalogue refused), 407 (nothing has arrived for a target, or
// `replicaMap` does not name it; the log says which), 634 (a target does not exist; the message is
// the target). After a failure rows of targets before the failing one stay in the catalogue without
// a group snapshot; a repair removes them.
class VRELDRGROUP_API GsnapshotSync : public VrelDRCore::ErrRecorder {
 public:
  // `dbDir` is the directory of the group's database. `replicaMap` is an object from source target
  // identifier to destination target identifier; when it is empty, no replicas are recorded.
  // `group` and `replicaMap` must outlive the object.
  GsnapshotSync(const TargetGroup& group, const GsnapMeta& meta, const std::string& dbDir,
                const Json::Value& replicaMap);
  GsnapshotSync(const GsnapshotSync&) = delete;
  GsnapshotSync& operator=(const GsnapshotSync&) = delete;
  ~GsnapshotSync() override;

  virtual bool Run();

  // The steps of Run: all targets and then the group's row; one target.
  bool DoSyncSnapshot(const std::vector<VrelDR::Target>& targets);
  bool SyncTargetSnapshot(const VrelDR::Target& target);

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
