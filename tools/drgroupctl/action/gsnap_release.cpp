#include "action/gsnap_release.h"

#include <set>
#include <string>

#include "action/plan_holds.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

void RequireReleased(const std::vector<VrelDRGroup::GsnapshotInfo>& gsnaps) {
  std::set<std::string> targets;
  for (const VrelDRGroup::GsnapshotInfo& gsnap : gsnaps) {
    for (const VrelDRGroup::TargetSnapshot& each : gsnap.target_snapshots) {
      targets.insert(each.target.GetId());
    }
  }
  if (targets.empty()) return;
  const PlanHolds holds(targets);
  for (const VrelDRGroup::GsnapshotInfo& gsnap : gsnaps) {
    for (const VrelDRGroup::TargetSnapshot& each : gsnap.target_snapshots) {
      const std::string reason = holds.Find(each.target.GetId(), each.tsnap_id);
      if (reason.empty()) continue;
      Failure failure(ExitCode::kRefused, "group snapshot " + Quote(gsnap.gsnap_id) +
                                              " was not deleted: its snapshot of target " +
                                              Quote(each.target.GetId()) + " " + reason);
      failure.details["target_id"] = each.target.GetId();
      failure.details["tsnap_id"] = each.tsnap_id;
      throw failure;
    }
  }
}

}  // namespace drgroupctl
