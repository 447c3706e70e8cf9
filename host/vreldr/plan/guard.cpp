#include "plan/guard.h"

#include "plan/plan_text.h"

namespace VrelDR::Guard {

Status CheckChangeable(const Store& store, const std::string& targetId) {
  std::vector<PlanRow> rows;
  Status status = store.Plans().SelectPlans(targetId, rows);
  for (const PlanRow& each : rows) {
    const std::string& working = each.plan.GetWorkingTargetId();
    if (working == targetId) continue;
    return {kErrLocked, "target " + Quoted(targetId) + " is " +
                            (each.plan.GetStatus() == kPlanFailover
                                 ? "the copy that does not work after the failover"
                                 : "the replica") +
                            " of " + NameOf(each.plan) + "; do it to target " + Quoted(working) +
                            ", which works, or delete the plan"};
  }
  return status;
}

Status CheckRemovable(const Store& store, const std::string& targetId) {
  std::vector<PlanRow> rows;
  Status status = store.Plans().SelectPlans(targetId, rows);
  if (rows.empty()) return status;
  const DRPlan& plan = rows.front().plan;
  const bool isCopy = plan.GetDRTargetId() == targetId;
  return {kErrLocked, "target " + Quoted(targetId) + " is " +
                          (isCopy ? "the DR copy" : "the protected target") + " of " +
                          NameOf(plan) + "; delete the plan first"};
}

Status CheckReleased(const Store& store, const std::string& targetId, const std::string& snapId) {
  std::vector<LockRow> rows;
  Status status = store.Plans().ListLocksOfTarget(targetId, rows);
  for (const LockRow& each : rows) {
    if (!status.IsOk()) break;
    if (each.snap_id != snapId) continue;
    return {kErrLocked, "snapshot " + Quoted(snapId) + " of target " + Quoted(targetId) +
                            " is held by " + Quoted(each.locker) +
                            ", which needs it to send only what changes; a sync lets go of it, or "
                            "delete the plan"};
  }
  return status;
}

}  // namespace VrelDR::Guard
