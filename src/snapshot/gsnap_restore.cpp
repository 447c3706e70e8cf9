#include "vreldrgroup/snapshot/gsnap_restore.h"

#include <vreldr/target_operation.h>
#include <vreldrcore/json.h>

#include "error_code.h"
#include "log.h"
#include "vreldrgroup/snapshot/gsnap_op.h"

namespace VrelDRGroup::Operation {

namespace {

constexpr char kUnit[] = "snapshot/gsnap_restore";

}  // namespace

GsnapshotRestore::GsnapshotRestore(const std::string& gsnapId) : gsnapId_(gsnapId), info_("") {}

GsnapshotRestore::~GsnapshotRestore() = default;

bool GsnapshotRestore::Run() {
  SetErr(kErrNotCompleted);
  if (gsnapId_.empty()) {
    SetErr(kErrBadArgument);
    LOG_LONG_ERR("Empty gsnapId to restore");
    return false;
  }
  if (!GsnapshotInfoGet(gsnapId_, info_) || info_.gsnap_id.empty() || info_.gsnap_time <= 0) {
    SetErr(kErrGsnapUnusable);
    LOG_LONG_ERR("Failed to get gsnapshot by gsnapId[%s]", gsnapId_.c_str());
    return false;
  }
  if (!RestoreTargetSnapshots(info_.target_snapshots)) return false;
  SetErr(kErrNone);
  return true;
}

bool GsnapshotRestore::RestoreTargetSnapshots(
    const std::vector<TargetSnapshot>& targetSnapshots) const {
  for (const TargetSnapshot& tsnap : targetSnapshots) {
    const Json::Value json = tsnap.ToJson();
    if (!tsnap.IsValid()) {
      SetErr(kErrBadTargetSnapshot, json);
      LOG_LONG_ERR("Invalid target snapshot [%s] to restore",
                   VrelDRCore::JsonUtil::ToString(json).c_str());
      return false;
    }
    const VrelDR::TargetOperation op(tsnap.target);
    if (!op.RestoreSnapshot(tsnap.tsnap_id)) {
      LOG_LONG_ERR("Failed to restore target snapshot[%s] with err[%s]",
                   VrelDRCore::JsonUtil::ToString(json).c_str(),
                   VrelDRCore::JsonUtil::ToString(op.GetErr()).c_str());
      SetErr(op.GetErrCode(), op.GetErrMsg());
      return false;
    }
  }
  return true;
}

}  // namespace VrelDRGroup::Operation
