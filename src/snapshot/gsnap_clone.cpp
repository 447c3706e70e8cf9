#include "vreldrgroup/snapshot/gsnap_clone.h"

#include <vreldr/protected_target_manager.h>
#include <vreldr/target_operation.h>
#include <vreldr/utils.h>
#include <vreldrcore/json.h>
#include <vreldrcore/uuid.h>

#include <memory>

#include "error_code.h"
#include "log.h"
#include "vreldrgroup/record/gsnapshot.h"
#include "vreldrgroup/snapshot/gsnap_op.h"

namespace VrelDRGroup::Operation {

namespace {

constexpr char kUnit[] = "snapshot/gsnap_clone";

}  // namespace

GsnapshotClone::GsnapshotClone(const std::string& gsnapId) : gsnapId_(gsnapId) {}

GsnapshotClone::~GsnapshotClone() = default;

bool GsnapshotClone::Run() {
  SetErr(kErrNotCompleted);
  if (gsnapId_.empty()) {
    LOG_LONG_ERR("Empty gsnapId");
    SetErr(kErrBadArgument);
    return false;
  }
  GsnapshotInfo info("");
  if (!GsnapshotInfoGet(gsnapId_, info) || info.gsnap_id.empty() || info.gsnap_time <= 0) {
    SetErr(kErrGsnapUnusable);
    return false;
  }
  if (!CloneTargetSnapshots(info.target_snapshots)) {
    DeleteClonedTargets();
    return false;
  }
  SetErr(kErrNone);
  return true;
}

bool GsnapshotClone::CloneTargetSnapshots(const std::vector<TargetSnapshot>& targetSnapshots) {
  for (const TargetSnapshot& tsnap : targetSnapshots) {
    const VrelDR::TargetOperation op(tsnap.target);
    if (!op.IsExisted()) {
      SetErr(kErrTargetMissing);
      LOG_LONG_ERR("Target[%s] is not existed",
                   VrelDRCore::JsonUtil::ToString(tsnap.target.ToJson()).c_str());
      return false;
    }
    if (!op.IsSnapshotExisted(tsnap.tsnap_id)) {
      SetErr(kErrGsnapUnusable);
      LOG_LONG_ERR("Target snapshot[%s] is not existed",
                   VrelDRCore::JsonUtil::ToString(tsnap.ToJson()).c_str());
      return false;
    }
    std::string cloneId;
    if (!op.CloneSnapshot(tsnap.tsnap_id, VrelDRCore::GenerateUUID(), cloneId)) {
      SetErr(op.GetErrCode(), op.GetErrMsg());
      LOG_LONG_ERR("Faled to clone target snapshot[%s] with err[%s]",
                   VrelDRCore::JsonUtil::ToString(tsnap.ToJson()).c_str(),
                   VrelDRCore::JsonUtil::ToString(GetErr()).c_str());
      return false;
    }
    clones_[tsnap.target] = cloneId;
  }
  return true;
}

bool GsnapshotClone::DeleteClonedTargets() {
  using VrelDR::Replication::ProtectedTargetManager;
  for (auto& [target, cloneId] : clones_) {
    if (cloneId.empty()) continue;
    const auto type = static_cast<VrelDR::DRProtectedTargetType>(target.GetType());
    const std::unique_ptr<ProtectedTargetManager> manager = ProtectedTargetManager::Create(type);
    if (!manager) {
      LOG_LONG_WARN("Null pointer to delete %s [%s]", VrelDR::Utils::ToString(type).c_str(),
                    cloneId.c_str());
    } else if (manager->DeleteTarget(cloneId)) {
      cloneId.clear();
    } else {
      LOG_LONG_WARN("Failed to delete cloned %s [%s]", VrelDR::Utils::ToString(type).c_str(),
                    cloneId.c_str());
    }
  }
  return true;
}

}  // namespace VrelDRGroup::Operation
