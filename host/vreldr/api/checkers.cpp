#include "vreldr/checker.h"

#include "base/boundary.h"
#include "plan/checks.h"
#include "plan/plan_work.h"

namespace VrelDR::Checker {

namespace {

// Only checks, whatever a checker's Run is asked for.
bool RunCheck(const DROperation& checker, const std::string& planId, const char* what,
              std::function<Status(HostPlan&)> check) {
  return RunAndRecord(checker, [&] {
    PlanWork work;
    work.what = what;
    work.check = std::move(check);
    return RunPlanWork(planId, true, work);
  });
}

}  // namespace

PlanSyncChecker::PlanSyncChecker(const std::string& planId) : plan_id_(planId) {}

bool PlanSyncChecker::Run(bool /*checkOnly*/) {
  return RunCheck(*this, plan_id_, "sync", Check::Sync);
}

PlanDeleteChecker::PlanDeleteChecker(const std::string& planId) : plan_id_(planId) {}

bool PlanDeleteChecker::Run(bool /*checkOnly*/) {
  return RunCheck(*this, plan_id_, "delete",
                  [](HostPlan& plan) { return Check::Delete(plan, false); });
}

PlanSwitchoverChecker::PlanSwitchoverChecker(const std::string& planId) : plan_id_(planId) {}

bool PlanSwitchoverChecker::Run(bool /*checkOnly*/) {
  return RunCheck(*this, plan_id_, "switch over", Check::Switchover);
}

PlanFailoverChecker::PlanFailoverChecker(const std::string& planId) : plan_id_(planId) {}

bool PlanFailoverChecker::Run(bool /*checkOnly*/) {
  return RunCheck(*this, plan_id_, "fail over", Check::FailoverToLast);
}

PlanReprotectChecker::PlanReprotectChecker(const std::string& planId, const std::string& siteId)
    : plan_id_(planId), site_id_(siteId) {}

bool PlanReprotectChecker::Run(bool /*checkOnly*/) {
  return RunCheck(*this, plan_id_, "reprotect",
                  [this](HostPlan& plan) { return Check::Reprotect(plan, site_id_); });
}

}  // namespace VrelDR::Checker
