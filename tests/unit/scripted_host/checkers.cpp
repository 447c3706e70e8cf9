#include <vreldr/checker.h>

#include "run.h"

namespace VrelDR::Checker {

using scripted_host::Call;
using scripted_host::Record;

PlanSyncChecker::PlanSyncChecker(const std::string& planId) : plan_id_(planId) {
  Record(Call("PlanSyncChecker", planId));
}
bool PlanSyncChecker::Run(bool checkOnly) {
  return scripted_host::Run(*this, Call("PlanSyncChecker", plan_id_), checkOnly);
}

PlanDeleteChecker::PlanDeleteChecker(const std::string& planId) : plan_id_(planId) {
  Record(Call("PlanDeleteChecker", planId));
}
bool PlanDeleteChecker::Run(bool checkOnly) {
  return scripted_host::Run(*this, Call("PlanDeleteChecker", plan_id_), checkOnly);
}

PlanSwitchoverChecker::PlanSwitchoverChecker(const std::string& planId) : plan_id_(planId) {
  Record(Call("PlanSwitchoverChecker", planId));
}
bool PlanSwitchoverChecker::Run(bool checkOnly) {
  return scripted_host::Run(*this, Call("PlanSwitchoverChecker", plan_id_), checkOnly);
}

PlanFailoverChecker::PlanFailoverChecker(const std::string& planId) : plan_id_(planId) {
  Record(Call("PlanFailoverChecker", planId));
}
bool PlanFailoverChecker::Run(bool checkOnly) {
  return scripted_host::Run(*this, Call("PlanFailoverChecker", plan_id_), checkOnly);
}

PlanReprotectChecker::PlanReprotectChecker(const std::string& planId, const std::string& siteId)
    : plan_id_(planId), site_id_(siteId) {
  Record(Call("PlanReprotectChecker", planId, siteId));
}
bool PlanReprotectChecker::Run(bool checkOnly) {
  return scripted_host::Run(*this, Call("PlanReprotectChecker", plan_id_), checkOnly);
}

}  // namespace VrelDR::Checker
