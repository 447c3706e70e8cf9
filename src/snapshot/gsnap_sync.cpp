#include "vreldrgroup/snapshot/gsnap_sync.h"

#include <vreldr/target_operation.h>
#include <vreldrcore/json.h>

#include "error_code.h"
#include "log.h"
#include "snapshot/gsnap_record.h"
#include "vreldrgroup/replication/replica_op.h"
#include "vreldrgroup/snapshot/gsnap_utils.h"

namespace VrelDRGroup::Operation {

namespace {

constexpr char kUnit[] = "snapshot/gsnap_sync";

std::string Text(const VrelDR::Target& target) {
  return VrelDRCore::JsonUtil::ToString(target.ToJson());
}

}  // namespace

GsnapshotSync::GsnapshotSync(const TargetGroup& group, const GsnapMeta& meta,
                             const std::string& dbDir, const Json::Value& replicaMap)
    : group_(group), meta_(meta), dbDir_(dbDir), replicaMap_(replicaMap), gsnapshot_("") {}

GsnapshotSync::~GsnapshotSync() = default;

bool GsnapshotSync::Run() {
  std::vector<VrelDR::Target> targets;
  if (!BeginGroupSnapshot({kUnit, "Run"}, *this, group_, meta_, dbDir_, gsnapshot_, targets)) {
    return false;
  }
  // Rows that were written before a failure stay: without the group's row nobody takes them for a
  // group snapshot.
  if (!DoSyncSnapshot(targets)) return false;
  SetErr(kErrNone);
  return true;
}

bool GsnapshotSync::DoSyncSnapshot(const std::vector<VrelDR::Target>& targets) {
  for (const VrelDR::Target& target : targets) {
    if (!SyncTargetSnapshot(target)) {
      LOG_LONG_ERR("Failed to sync target snapshot [%s] of group [%s] since err[%s]",
                   Text(target).c_str(), group_.GetId().c_str(),
                   VrelDRCore::JsonUtil::ToString(GetErr()).c_str());
      return false;
    }
  }
  return FinishGroupSnapshot({kUnit, __func__}, *this, group_, dbDir_, gsnapshot_);
}

bool GsnapshotSync::SyncTargetSnapshot(const VrelDR::Target& target) {
  const std::string& targetId = target.GetId();
  const VrelDR::TargetOperation op(target);
  if (!op.IsExisted()) {
    LOG_LONG_ERR("Failed to sync snapshot of target [%s] of group[%s] since target is not existed",
                 Text(target).c_str(), group_.GetId().c_str());
    SetErr(kErrTargetMissing, target.ToJson());
    return false;
  }

  TargetSnapshot tsnap(target, "");
  // A plan that has not brought anything over yet tells an empty identifier.
  if (ReplicaLastSnapIdGet(targetId, tsnap.tsnap_id) != 0 || tsnap.tsnap_id.empty()) {
    LOG_SHORT_ERR("Failed to get lastest LUN snapshot id of target [%s].", targetId.c_str());
    return false;
  }
  if (gsnapshot_.gsnap_id.empty()) {
    gsnapshot_.gsnap_time = op.GetSnapshot(tsnap.tsnap_id).create_time;
    gsnapshot_.gsnap_id = Utils::ToGsnapId(group_.GetId(), gsnapshot_.gsnap_time);
  }
  if (!Utils::SetTargetSnapshotRecord(tsnap, gsnapshot_.gsnap_id, dbDir_)) {
    LOG_LONG_ERR("Failed to set snapshot record of target[%s]/snap[%s]", Text(target).c_str(),
                 tsnap.tsnap_id.c_str());
    SetErr(kErrDatabase);
    return false;
  }
  if (replicaMap_.empty()) return true;

  if (!VrelDRCore::JsonUtil::HasMember(replicaMap_, targetId)) {
    LOG_LONG_ERR("Failed to get dst_target_id of target [%s]", targetId.c_str());
    return false;
  }
  const TargetReplica replica(
      targetId, VrelDRCore::JsonUtil::AsText(VrelDRCore::JsonUtil::Member(replicaMap_, targetId)));
  if (!Utils::SetTargetReplicaRecord(replica, gsnapshot_.gsnap_id, dbDir_)) {
    LOG_LONG_ERR("Failed to set replica record of target [%s]", targetId.c_str());
    SetErr(kErrDatabase);
    return false;
  }
  return true;
}

}  // namespace VrelDRGroup::Operation
