#include "snapshot/gsnap_record.h"

#include "error_code.h"
#include "log.h"
#include "vreldrgroup/snapshot/gsnap_utils.h"

// The lines are from the operation's own unit.
#define LOG_OF_SOURCE(message, ...) \
  VRELDRGROUP_LOG_AS(LOG_ERR, "ERR", source.function, message __VA_OPT__(, ) __VA_ARGS__)

namespace VrelDRGroup::Operation {

bool BeginGroupSnapshot(LogSource source, const VrelDRCore::ErrRecorder& op,
                        const TargetGroup& group, const GsnapMeta& meta, const std::string& dbDir,
                        Gsnapshot& gsnapshot, std::vector<VrelDR::Target>& targets) {
  const char* const kUnit = source.unit;
  op.SetErr(kErrNotCompleted);
  const std::string groupId = group.GetId();
  if (groupId.empty()) {
    LOG_OF_SOURCE("Empty group id");
    op.SetErr(kErrBadArgument);
    return false;
  }
  targets = group.ListTargets();
  if (targets.empty()) {
    LOG_OF_SOURCE("Empty targets of group [%s] to take snapshot", groupId.c_str());
    op.SetErr(kErrBadArgument);
    return false;
  }
  int err = kErrNone;
  if (!Utils::InitDRGroupDB(dbDir, groupId, err, true)) {
    op.SetErr(err);
    return false;
  }
  Utils::InitGroupSnapshot(gsnapshot, groupId, meta);
  return true;
}

bool FinishGroupSnapshot(LogSource source, const VrelDRCore::ErrRecorder& op,
                         const TargetGroup& group, const std::string& dbDir,
                         const Gsnapshot& gsnapshot) {
  const char* const kUnit = source.unit;
  int err = kErrNone;
  if (Utils::SetGroupSnapRecord(gsnapshot, dbDir, err)) return true;
  LOG_OF_SOURCE("Failed to set snapshot record of group[%s]/gsnapId[%s]", group.GetId().c_str(),
                gsnapshot.gsnap_id.c_str());
  op.SetErr(err);
  return false;
}

}  // namespace VrelDRGroup::Operation
