#include <vreldr/operation.h>

#include "run.h"

// Every operation writes down its making with all arguments, and its run with the plan's identifier
// alone; the making of plans has the protected target's instead.
namespace VrelDR::Operation {

using scripted_host::Call;
using scripted_host::Record;

PlanSync::PlanSync(const std::string& planId, const DataSyncParam& param)
    : plan_id_(planId), param_(param) {
  Record(Call("PlanSync", planId, param));
}
bool PlanSync::Run(bool checkOnly) {
  return scripted_host::Run(*this, Call("PlanSync", plan_id_), checkOnly);
}

PlanStop::PlanStop(const std::string& planId) : plan_id_(planId) {
  Record(Call("PlanStop", planId));
}
bool PlanStop::Run(bool checkOnly) {
  return scripted_host::Run(*this, Call("PlanStop", plan_id_), checkOnly);
}

PlanDelete::PlanDelete(const std::string& planId, bool isDataDeleted, bool isDRSiteDeleted,
                       bool isLast)
    : plan_id_(planId),
      is_data_deleted_(isDataDeleted),
      is_drsite_deleted_(isDRSiteDeleted),
      is_last_(isLast) {
  Record(Call("PlanDelete", planId, isDataDeleted, isDRSiteDeleted, isLast));
}
bool PlanDelete::Run(bool checkOnly) {
  return scripted_host::Run(*this, Call("PlanDelete", plan_id_), checkOnly);
}

SiteDelete::SiteDelete(const std::string& planId, bool isDataDeleted, bool isLast)
    : plan_id_(planId), is_data_deleted_(isDataDeleted), is_last_(isLast) {
  Record(Call("SiteDelete", planId, isDataDeleted, isLast));
}
bool SiteDelete::Run(bool checkOnly) {
  return scripted_host::Run(*this, Call("SiteDelete", plan_id_), checkOnly);
}

PlanSwitchover::PlanSwitchover(const std::string& planId, const Json::Value& siteParam,
                               const Json::Value& syncParam)
    : plan_id_(planId), site_param_(siteParam), sync_param_(syncParam) {
  Record(Call("PlanSwitchover", planId, siteParam, syncParam));
}
bool PlanSwitchover::Run(bool checkOnly) {
  return scripted_host::Run(*this, Call("PlanSwitchover", plan_id_), checkOnly);
}

PlanFailover::PlanFailover(const std::string& planId, const std::string& snapId,
                           const Json::Value& siteParam)
    : plan_id_(planId), snap_id_(snapId), site_param_(siteParam) {
  Record(Call("PlanFailover", planId, snapId, siteParam));
}
bool PlanFailover::Run(bool checkOnly) {
  return scripted_host::Run(*this, Call("PlanFailover", plan_id_), checkOnly);
}

PlanForcedFailover::PlanForcedFailover(const std::string& planId, const std::string& snapId,
                                       const Json::Value& siteParam)
    : plan_id_(planId), snap_id_(snapId), site_param_(siteParam) {
  Record(Call("PlanForcedFailover", planId, snapId, siteParam));
}
bool PlanForcedFailover::Run(bool checkOnly) {
  return scripted_host::Run(*this, Call("PlanForcedFailover", plan_id_), checkOnly);
}

PlanReprotect::PlanReprotect(const std::string& planId, const std::string& siteId, bool withSync)
    : plan_id_(planId), site_id_(siteId), with_sync_(withSync) {
  Record(Call("PlanReprotect", planId, siteId, withSync));
}
bool PlanReprotect::Run(bool checkOnly) {
  return scripted_host::Run(*this, Call("PlanReprotect", plan_id_), checkOnly);
}

DRSiteReprotect::DRSiteReprotect(const DRPlan& plan, DRPlanOPStatus undone)
    : plan_(plan), undone_(undone) {
  Record(Call("DRSiteReprotect", plan, static_cast<int>(undone)));
}
bool DRSiteReprotect::Run(bool checkOnly) {
  return scripted_host::Run(*this, Call("DRSiteReprotect", plan_.GetPlanId()), checkOnly);
}

SitePromote::SitePromote(const DRPlan& plan) : plan_(plan) {
  Record(Call("SitePromote", plan));
}
bool SitePromote::Run(bool checkOnly) {
  return scripted_host::Run(*this, Call("SitePromote", plan_.GetPlanId()), checkOnly);
}

void PlanCreateBase::GetLocalReplicaConns(const std::string& dstVol, PlanRemoteConn& srcConn,
                                          PlanRemoteConn& dstConn) {
  Record(Call("GetLocalReplicaConns", dstVol, srcConn, dstConn));
  srcConn = scripted_host::Current().local_src_conn;
  dstConn = scripted_host::Current().local_dst_conn;
}

PlanCreateBase::PlanCreateBase(const DRPlan& plan, const std::string& dstVol,
                               const std::string& drTargetId, const AsyncSchedulePolicy& schedule)
    : plan_(plan), dst_vol_(dstVol), dr_target_id_(drTargetId), schedule_(schedule) {}

PlanLocalCreate::PlanLocalCreate(const DRPlan& plan, const std::string& dstVol,
                                 const std::string& drTargetId, const PlanRemoteConn& srcConn,
                                 const PlanRemoteConn& dstConn, const AsyncSchedulePolicy& schedule)
    : PlanCreateBase(plan, dstVol, drTargetId, schedule), src_conn_(srcConn), dst_conn_(dstConn) {
  Record(Call("PlanLocalCreate", plan, dstVol, drTargetId, srcConn, dstConn, schedule));
}
bool PlanLocalCreate::Run(bool checkOnly) {
  return scripted_host::Run(*this, Call("PlanLocalCreate", plan_.GetProtectedTargetId()),
                            checkOnly);
}

PlanCreate::PlanCreate(const DRPlan& plan, const std::string& dstVol, const std::string& drTargetId,
                       const std::vector<PlanRemoteConn>& srcConns,
                       const std::vector<PlanRemoteConn>& dstConns,
                       const AsyncSchedulePolicy& schedule, bool withSync)
    : PlanCreateBase(plan, dstVol, drTargetId, schedule),
      src_conns_(srcConns),
      dst_conns_(dstConns),
      with_sync_(withSync) {
  Record(Call("PlanCreate", plan, dstVol, drTargetId, srcConns, dstConns, schedule, withSync));
}
bool PlanCreate::Run(bool checkOnly) {
  return scripted_host::Run(*this, Call("PlanCreate", plan_.GetProtectedTargetId()), checkOnly);
}

}  // namespace VrelDR::Operation
