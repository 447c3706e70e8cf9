#include "vreldrgroup/snapshot/gsnap_create.h"

#include <vreldr/target_operation.h>
#include <vreldrcore/json.h>

#include <cstdint>

#include "error_code.h"
#include "log.h"
#include "snapshot/gsnap_record.h"
#include "vreldrgroup/snapshot/gsnap_delete.h"
#include "vreldrgroup/snapshot/gsnap_utils.h"

namespace VrelDRGroup::Operation {

namespace {

constexpr char kUnit[] = "snapshot/gsnap_create";

std::string Text(const VrelDR::Target& target) {
  return VrelDRCore::JsonUtil::ToString(target.ToJson());
}

std::uint32_t CountSnapshots(const VrelDR::TargetOperation& op) {
  return static_cast<std::uint32_t>(op.ListSnapshots().size());
}

}  // namespace

GsnapshotCreate::GsnapshotCreate(const TargetGroup& group, const GsnapMeta& meta,
                                 const std::string& dbDir, const Json::Value& replicaMap)
    : group_(group), meta_(meta), dbDir_(dbDir), replicaMap_(replicaMap), gsnapshot_("") {}

GsnapshotCreate::~GsnapshotCreate() = default;

bool GsnapshotCreate::Run() {
  std::vector<VrelDR::Target> targets;
  if (!BeginGroupSnapshot({kUnit, "Run"}, *this, group_, meta_, dbDir_, gsnapshot_, targets)) {
    return false;
  }
  if (!DoCreateSnapshot(targets)) {
    // Without the group's row, which is written last, this removes the rows written so far and
    // leaves the targets alone. Its outcome changes nothing of this one.
    GsnapshotDelete(gsnapshot_.gsnap_id).Run();
    return false;
  }
  SetErr(kErrNone);
  return true;
}

bool GsnapshotCreate::DoCreateSnapshot(const std::vector<VrelDR::Target>& targets) {
  for (const VrelDR::Target& target : targets) {
    if (!TakeTargetSnapshot(target)) {
      LOG_LONG_ERR("Failed to create target snapshot [%s] of group [%s]since err[%s]",
                   Text(target).c_str(), group_.GetId().c_str(),
                   VrelDRCore::JsonUtil::ToString(GetErr()).c_str());
      return false;
    }
  }
  return FinishGroupSnapshot({kUnit, __func__}, *this, group_, dbDir_, gsnapshot_);
}

bool GsnapshotCreate::TakeTargetSnapshot(const VrelDR::Target& target) {
  const VrelDR::TargetOperation op(target);
  if (!op.IsExisted()) {
    LOG_LONG_ERR("Failed to take snapshot of target [%s] of group[%s] since target is not existed",
                 Text(target).c_str(), group_.GetId().c_str());
    SetErr(kErrTargetMissing, target.ToJson());
    return false;
  }

  TargetSnapshot tsnap(target, "");
  const std::uint32_t before = CountSnapshots(op);
  if (!op.TakeSnapshot(VrelDR::Operation::SnapshotMeta("", false, false, ""), tsnap.tsnap_id)) {
    LOG_LONG_ERR("Failed to take snapshot of target [%s] with err[%s]", Text(target).c_str(),
                 VrelDRCore::JsonUtil::ToString(op.GetErr()).c_str());
    SetErr(op.GetErrCode(), op.GetErrMsg());
    return false;
  }
  // Others may take and remove snapshots meanwhile: worth a notice, no reason to fail.
  const std::uint32_t after = CountSnapshots(op);
  if (after != before + 1) {
    LOG_LONG_NOTICE("NOT expected target snap count of target[%s]: before[%u]/after[%u]/diff[%u]",
                    Text(target).c_str(), before, after, after - before);
  }

  const VrelDR::Operation::Snapshot snap = op.GetSnapshot(tsnap.tsnap_id);
  if (gsnapshot_.gsnap_id.empty()) {
    gsnapshot_.gsnap_time = snap.create_time;
    gsnapshot_.gsnap_id = Utils::ToGsnapId(group_.GetId(), gsnapshot_.gsnap_time);
  }

  // A target snapshot that cannot be recorded goes again at once; its row, if there is one, goes
  // with the others of the group snapshot.
  const auto undo = [&] {
    op.DeleteSnapshot(tsnap.tsnap_id);
    SetErr(kErrDatabase);
    return false;
  };
  if (!Utils::SetTargetSnapshotRecord(tsnap, gsnapshot_.gsnap_id, dbDir_)) {
    LOG_LONG_ERR("Failed to set snapshot record of target[%s]/snap[%s]", Text(target).c_str(),
                 tsnap.tsnap_id.c_str());
    return undo();
  }
  if (replicaMap_.empty()) return true;

  // A target that the map does not name gets an empty destination.
  const std::string& targetId = target.GetId();
  const TargetReplica replica(
      targetId, VrelDRCore::JsonUtil::AsText(VrelDRCore::JsonUtil::Member(replicaMap_, targetId)));
  if (!Utils::SetTargetReplicaRecord(replica, gsnapshot_.gsnap_id, dbDir_)) {
    LOG_LONG_ERR("Failed to set replica record of target [%s]", targetId.c_str());
    return undo();
  }
  return true;
}

}  // namespace VrelDRGroup::Operation
