#include "engine/engine.h"

namespace VrelDR {

Status StorageEngine::LookAtTargets(std::vector<TargetSight>& sights, Watcher& watcher) const {
  for (TargetSight& sight : sights) {
    SnapshotIds snapIds;
    sight.has_target = false;
    sight.status = FindTarget(sight.place, sight.has_target, watcher);
    if (sight.status.IsOk() && !sight.snap_id.empty()) {
      sight.status = ListSnapshots(sight.place, snapIds, watcher);
    }
    const int code = sight.status.code;
    if (code == kErrVolumeMissing || code == kErrUnreachable || code == kErrStopped) {
      return sight.status;  // not of this target alone
    }
    sight.has_snapshot = snapIds.count(sight.snap_id) != 0;
  }
  return {};
}

}  // namespace VrelDR
