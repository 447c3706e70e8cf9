// Replication, which this host has not: there are no plans, none can be made, and every call says
// so.
#include <vreldr/checker.h>
#include <vreldr/operation.h>
#include <vreldr/plan.h>
#include <vreldr/report.h>

namespace VrelDR {

namespace {

bool Refuse(const DRErrRecorder& recorder) {
  recorder.SetErr(kErrUnsupported, "this host keeps targets in memory and does not replicate");
  return false;
}

bool NoPlan(const DRErrRecorder& recorder, const std::string& planId) {
  recorder.SetErr(kErrPlanMissing, "plan \"" + planId + "\" does not exist");
  return false;
}

}  // namespace

// Questions have an answer all the same.
namespace PlanAPI {

int GetPlan(const std::string& /*planId*/, DRPlan& /*plan*/) {
  return kErrPlanMissing;
}
DRPlan GetPlan(const std::string& /*planId*/) {
  return {};
}

}  // namespace PlanAPI

namespace Utils {

bool SelectPlans(DRProtectedTargetType /*type*/, const std::string& /*targetId*/,
                 std::vector<DRPlan>& /*plans*/) {
  return true;
}
DRSiteStatus GetPlanLocalSiteStatus(const DRPlan& /*plan*/) {
  return kSiteUnknown;
}

}  // namespace Utils

bool Reporter::ReadReport(Report& /*report*/) const {
  return NoPlan(*this, plan_id_);
}
bool PendingSnapReporter::Add(const Operation::Snapshot& /*snapshot*/) const {
  return NoPlan(*this, plan_id_);
}
bool PendingSnapReporter::Remove(const Operation::Snapshot& /*snapshot*/) const {
  return NoPlan(*this, plan_id_);
}

namespace Operation {

PlanSync::PlanSync(const std::string& planId, const DataSyncParam& param)
    : plan_id_(planId), param_(param) {}
bool PlanSync::Run(bool /*checkOnly*/) {
  return Refuse(*this);
}

PlanStop::PlanStop(const std::string& planId) : plan_id_(planId) {}
bool PlanStop::Run(bool /*checkOnly*/) {
  return Refuse(*this);
}

PlanDelete::PlanDelete(const std::string& planId, bool isDataDeleted, bool isDRSiteDeleted,
                       bool isLast)
    : plan_id_(planId),
      is_data_deleted_(isDataDeleted),
      is_drsite_deleted_(isDRSiteDeleted),
      is_last_(isLast) {}
bool PlanDelete::Run(bool /*checkOnly*/) {
  return Refuse(*this);
}

SiteDelete::SiteDelete(const std::string& planId, bool isDataDeleted, bool isLast)
    : plan_id_(planId), is_data_deleted_(isDataDeleted), is_last_(isLast) {}
bool SiteDelete::Run(bool /*checkOnly*/) {
  return Refuse(*this);
}

PlanSwitchover::PlanSwitchover(const std::string& planId, const Json::Value& siteParam,
                               const Json::Value& syncParam)
    : plan_id_(planId), site_param_(siteParam), sync_param_(syncParam) {}
bool PlanSwitchover::Run(bool /*checkOnly*/) {
  return Refuse(*this);
}

PlanFailover::PlanFailover(const std::string& planId, const std::string& snapId,
                           const Json::Value& siteParam)
    : plan_id_(planId), snap_id_(snapId), site_param_(siteParam) {}
bool PlanFailover::Run(bool /*checkOnly*/) {
  return Refuse(*this);
}

PlanForcedFailover::PlanForcedFailover(const std::string& planId, const std::string& snapId,
                                       const Json::Value& siteParam)
    : plan_id_(planId), snap_id_(snapId), site_param_(siteParam) {}
bool PlanForcedFailover::Run(bool /*checkOnly*/) {
  return Refuse(*this);
}

PlanReprotect::PlanReprotect(const std::string& planId, const std::string& siteId, bool withSync)
    : plan_id_(planId), site_id_(siteId), with_sync_(withSync) {}
bool PlanReprotect::Run(bool /*checkOnly*/) {
  return Refuse(*this);
}

DRSiteReprotect::DRSiteReprotect(const DRPlan& plan, DRPlanOPStatus undone)
    : plan_(plan), undone_(undone) {}
bool DRSiteReprotect::Run(bool /*checkOnly*/) {
  return Refuse(*this);
}

SitePromote::SitePromote(const DRPlan& plan) : plan_(plan) {}
bool SitePromote::Run(bool /*checkOnly*/) {
  return Refuse(*this);
}

void PlanCreateBase::GetLocalReplicaConns(const std::string& /*dstVol*/, PlanRemoteConn& srcConn,
                                          PlanRemoteConn& dstConn) {
  srcConn = PlanRemoteConn();
  dstConn = PlanRemoteConn();
}

PlanCreateBase::PlanCreateBase(const DRPlan& plan, const std::string& dstVol,
                               const std::string& drTargetId, const AsyncSchedulePolicy& schedule)
    : plan_(plan), dst_vol_(dstVol), dr_target_id_(drTargetId), schedule_(schedule) {}

PlanLocalCreate::PlanLocalCreate(const DRPlan& plan, const std::string& dstVol,
                                 const std::string& drTargetId, const PlanRemoteConn& srcConn,
                                 const PlanRemoteConn& dstConn, const AsyncSchedulePolicy& schedule)
    : PlanCreateBase(plan, dstVol, drTargetId, schedule), src_conn_(srcConn), dst_conn_(dstConn) {}
bool PlanLocalCreate::Run(bool /*checkOnly*/) {
  return Refuse(*this);
}

PlanCreate::PlanCreate(const DRPlan& plan, const std::string& dstVol, const std::string& drTargetId,
                       const std::vector<PlanRemoteConn>& srcConns,
                       const std::vector<PlanRemoteConn>& dstConns,
                       const AsyncSchedulePolicy& schedule, bool withSync)
    : PlanCreateBase(plan, dstVol, drTargetId, schedule),
      src_conns_(srcConns),
      dst_conns_(dstConns),
      with_sync_(withSync) {}
bool PlanCreate::Run(bool /*checkOnly*/) {
  return Refuse(*this);
}

}  // namespace Operation

// A checker fails as its operation would.
namespace Checker {

PlanSyncChecker::PlanSyncChecker(const std::string& planId) : plan_id_(planId) {}
bool PlanSyncChecker::Run(bool /*checkOnly*/) {
  return Refuse(*this);
}

PlanDeleteChecker::PlanDeleteChecker(const std::string& planId) : plan_id_(planId) {}
bool PlanDeleteChecker::Run(bool /*checkOnly*/) {
  return Refuse(*this);
}

PlanSwitchoverChecker::PlanSwitchoverChecker(const std::string& planId) : plan_id_(planId) {}
bool PlanSwitchoverChecker::Run(bool /*checkOnly*/) {
  return Refuse(*this);
}

PlanFailoverChecker::PlanFailoverChecker(const std::string& planId) : plan_id_(planId) {}
bool PlanFailoverChecker::Run(bool /*checkOnly*/) {
  return Refuse(*this);
}

PlanReprotectChecker::PlanReprotectChecker(const std::string& planId, const std::string& siteId)
    : plan_id_(planId), site_id_(siteId) {}
bool PlanReprotectChecker::Run(bool /*checkOnly*/) {
  return Refuse(*this);
}

}  // namespace Checker

}  // namespace VrelDR
