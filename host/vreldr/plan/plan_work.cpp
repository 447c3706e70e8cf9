#include "plan/plan_work.h"

#include "plan/plan_text.h"

namespace VrelDR {

namespace {

Status Check(HostPlan& plan, const PlanWork& work) {
  Status status = plan.CheckIdle();
  return status.IsOk() ? work.check(plan) : status;
}

Status Act(HostPlan& plan, const PlanWork& work) {
  Status status = plan.Claim();
  if (!status.IsOk()) return status;
  status = plan.Settle();
  if (status.IsOk() || work.is_forced) status = work.check(plan);
  if (status.IsOk()) status = plan.Begin(work.op, work.snap_id);
  return status.IsOk() ? plan.End(work.act(plan)) : status;
}

}  // namespace

Status RunPlanWork(const std::string& planId, bool checkOnly, const PlanWork& work) {
  HostPlan plan;
  Status status = plan.OpenToRead(planId);
  if (!status.IsOk()) return status;
  const std::string cannot = "cannot " + work.what + " " + NameOf(plan.Get());
  return InContext(cannot, checkOnly ? Check(plan, work) : Act(plan, work));
}

}  // namespace VrelDR
