#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "vrelcore/export.h"
#include "vreldr/error.h"
#include "vreldr/plan.h"

namespace VrelDR {

// Something that can be done to a replication plan, or found out about it.
//
// An object is made with all that the operation needs, run, and asked for its error. Making one
// touches nothing. One object belongs to one thread. Of all threads and processes one at a time
// works on a plan: kErrBusy tells who does. An operation that was interrupted is settled by the
// next one on the plan, whichever that is: it is taken back unless it had reached its end.
class VREL_API DROperation : public DRErrRecorder {
 public:
  ~DROperation() override = default;

  // Runs the operation; with `checkOnly` finds out whether it would be refused and changes nothing.
  // False on a failure, which records a code of ErrCode and a message that says which target, which
  // side and why. Unless an operation says otherwise, the plan and both copies then are as they
  // were.
  virtual bool Run(bool checkOnly) = 0;
};

namespace Operation {

// Sends what changed of the source since the newest snapshot that both sides have: takes a snapshot
// of the source, sends it and, if asked, the pending ones, and holds it by the plan's retention
// lock instead of the one before. Afterwards the same snapshot, under one identifier, stands on
// both sides.
//
// Whole snapshots that have arrived stay after a failure or a stop (kErrStopped), and the next sync
// goes on with what has arrived of the one in hand, before it takes and sends its own; one that the
// earlier sync took goes from both sides then. One that has found no room at the replica twice is
// given up instead, as PlanDropShipment does, and the journal says so. kErrPlanState unless the
// plan is in normal state.
//
// While bytes go others may take, clone and delete snapshots of both targets, but for those that
// the plan holds (see TargetOperation). Before it sends it waits for somebody who changes one of
// them: for a source up to five seconds, for a replica ten minutes, or until it is stopped; then
// kErrBusy.
class VREL_API PlanSync : public DROperation {
 public:
  PlanSync(const std::string& planId, const DataSyncParam& param);
  bool Run(bool checkOnly) override;

 private:
  std::string plan_id_;
  DataSyncParam param_;
};

// Sends what the plan has in hand, and the pending snapshots, and takes none: what an interrupted
// sync has left to do. Fine when nothing waits. What is said of PlanSync holds otherwise. The
// library needs nothing of this; it is there for who takes a cut of several plans' sources, which
// all of an earlier one should have gone before.
class VREL_API PlanSendWaiting : public DROperation {
 public:
  explicit PlanSendWaiting(const std::string& planId);
  bool Run(bool checkOnly) override;

 private:
  std::string plan_id_;
};

// Settles what an operation on the plan left that ended before its end, as every operation does
// before it begins, and does nothing else. Checked only, it is good when nobody works on the plan.
// The library needs nothing of this; it is there for who prepares a cut of the plan's source before
// its sync, which could not settle a target that the cut holds.
class VREL_API PlanSettle : public DROperation {
 public:
  explicit PlanSettle(const std::string& planId);
  bool Run(bool checkOnly) override;

 private:
  std::string plan_id_;
};

// Makes a sync that runs end with kErrStopped and waits for its end, a second if all is well. Fine
// when none runs.
class VREL_API PlanStop : public DROperation {
 public:
  explicit PlanStop(const std::string& planId);
  bool Run(bool checkOnly) override;

 private:
  std::string plan_id_;
};

// Gives up the snapshot that a sync has in hand, with what has arrived of it: the next sync takes
// and sends a new one. The source keeps the snapshot; nothing holds it, and it does not wait to be
// sent any more. Fine when none is in hand. Only our own tool asks for it.
class VREL_API PlanDropShipment : public DROperation {
 public:
  explicit PlanDropShipment(const std::string& planId);
  bool Run(bool checkOnly) override;

  // The snapshot that was given up; empty when none was in hand.
  const std::string& GetDropped() const { return dropped_; }

 private:
  std::string plan_id_;
  std::string dropped_;
};

// Forgets a plan, in whatever state it is. The data of the copy that does not work goes only when
// both `isDataDeleted` and `isDRSiteDeleted` say so, and a failure after the first byte of it has
// gone leaves what TargetManager::ListRemains tells of; otherwise it becomes an ordinary target
// that holds the last snapshot that arrived and is there. The copy that works is never touched.
// After a failover either copy may hold what the other has not: kErrPlanState when data is to be
// deleted then. `isLast` says that no other plan of the caller's group follows; this host has no
// use for it.
class VREL_API PlanDelete : public DROperation {
 public:
  PlanDelete(const std::string& planId, bool isDataDeleted, bool isDRSiteDeleted, bool isLast);
  bool Run(bool checkOnly) override;

 private:
  std::string plan_id_;
  bool is_data_deleted_;
  bool is_drsite_deleted_;
  bool is_last_;
};

// Forgets this node's part of a plan: of one between two volumes of this node both sides, as
// PlanDelete does, with the data of the copy that does not work when `isDataDeleted` says so.
class VREL_API SiteDelete : public DROperation {
 public:
  SiteDelete(const std::string& planId, bool isDataDeleted, bool isLast);
  bool Run(bool checkOnly) override;

 private:
  std::string plan_id_;
  bool is_data_deleted_;
  bool is_last_;
};

// Lets source and replica change their parts: the source is made unwritable, a last sync as
// `syncParam` (the JSON form of DataSyncParam) says goes over, the replica takes over exactly those
// bytes and works, and the direction is turned. `siteParam` is for hosts whose sites are told more,
// and null here. kErrPlanState unless the plan is in normal state, and kErrInUse while
// somebody can write the source although it has been made unwritable (see InUseAllowed). A failure
// leaves the source working.
class VREL_API PlanSwitchover : public DROperation {
 public:
  PlanSwitchover(const std::string& planId, const Json::Value& siteParam,
                 const Json::Value& syncParam);
  bool Run(bool checkOnly) override;

 private:
  std::string plan_id_;
  Json::Value site_param_;
  Json::Value sync_param_;
};

// Lets the replica take over: it works and holds exactly the bytes of the snapshot, which it must
// have (kErrSnapshotMissing otherwise), and the source is made unwritable and does not work any
// more. Its bytes stay. Fails when the source's volume cannot be reached. `siteParam` is for hosts
// whose sites are told more, and null here. kErrPlanState unless the plan is in normal state. A
// failure leaves the source working.
class VREL_API PlanFailover : public DROperation {
 public:
  PlanFailover(const std::string& planId, const std::string& snapId, const Json::Value& siteParam);
  bool Run(bool checkOnly) override;

 private:
  std::string plan_id_;
  std::string snap_id_;
  Json::Value site_param_;
};

// The same without needing anything of the source: what can be done to stop it is tried, and fails
// without an error.
//
// A plan that was reprotected and not synced since is put back into the failover it came from: the
// copy that works goes on with its bytes, whatever `snapId` is, as no snapshot has newer ones. Only
// when that copy is gone does the other take over.
class VREL_API PlanForcedFailover : public DROperation {
 public:
  PlanForcedFailover(const std::string& planId, const std::string& snapId,
                     const Json::Value& siteParam);
  bool Run(bool checkOnly) override;

 private:
  std::string plan_id_;
  std::string snap_id_;
  Json::Value site_param_;
};

// After a failover, turns the direction: the copy that works becomes the source and works
// throughout, the other becomes its replica. What the other has is kept in a snapshot of it first,
// as it may hold what never was sent. `siteId` is the node that asks, one of the plan's two
// (kErrBadArgument otherwise); `withSync` sends the first data at once, and a failure of that
// leaves the plan reprotected. kErrPlanState unless the plan is failed over.
class VREL_API PlanReprotect : public DROperation {
 public:
  PlanReprotect(const std::string& planId, const std::string& siteId, bool withSync);
  bool Run(bool checkOnly) override;

 private:
  std::string plan_id_;
  std::string site_id_;
  bool with_sync_;
};

// Takes a failover back: the copy that took over is a replica again, its changes since are lost,
// and the source works with the bytes that it had. `undone` is the operation that is taken back,
// which has to be kOpFailover (kErrBadArgument otherwise). kErrPlanState unless the plan is failed
// over.
class VREL_API DRSiteReprotect : public DROperation {
 public:
  DRSiteReprotect(const DRPlan& plan, DRPlanOPStatus undone);
  bool Run(bool checkOnly) override;

 private:
  DRPlan plan_;
  DRPlanOPStatus undone_;
};

// Makes the replica work at the last snapshot that arrived and is there, as a forced failover to it
// does.
class VREL_API SitePromote : public DROperation {
 public:
  explicit SitePromote(const DRPlan& plan);
  bool Run(bool checkOnly) override;

 private:
  DRPlan plan_;
};

// What the two ways of making a plan have in common.
class VREL_API PlanCreateBase : public DROperation {
 public:
  // Fills both connections of a plan between two volumes of this node.
  static void GetLocalReplicaConns(const std::string& dstVol, PlanRemoteConn& srcConn,
                                   PlanRemoteConn& dstConn);

 protected:
  PlanCreateBase(const DRPlan& plan, const std::string& dstVol, const std::string& drTargetId,
                 const AsyncSchedulePolicy& schedule);

  DRPlan plan_;
  std::string dst_vol_;
  std::string dr_target_id_;
  AsyncSchedulePolicy schedule_;
};

// Records a plan between two volumes of this node and makes its DR copy, an empty target of the
// same kind on `dstVol`. The copy is called `drTargetId`, or by the protected target's identifier
// with "-dr" behind it, and a number if that is taken, when it is empty. `plan` says what is
// protected; its identifier is the host's choice. A failure leaves nothing of plan and copy.
class VREL_API PlanLocalCreate : public PlanCreateBase {
 public:
  PlanLocalCreate(const DRPlan& plan, const std::string& dstVol, const std::string& drTargetId,
                  const PlanRemoteConn& srcConn, const PlanRemoteConn& dstConn,
                  const AsyncSchedulePolicy& schedule);
  bool Run(bool checkOnly) override;

 private:
  PlanRemoteConn src_conn_;
  PlanRemoteConn dst_conn_;
};

// The same with the DR copy on another node. `withSync` sends the first data at once. This host's
// engines do not span nodes: it always ends with kErrUnsupported.
class VREL_API PlanCreate : public PlanCreateBase {
 public:
  PlanCreate(const DRPlan& plan, const std::string& dstVol, const std::string& drTargetId,
             const std::vector<PlanRemoteConn>& srcConns,
             const std::vector<PlanRemoteConn>& dstConns, const AsyncSchedulePolicy& schedule,
             bool withSync);
  bool Run(bool checkOnly) override;

 private:
  std::vector<PlanRemoteConn> src_conns_;
  std::vector<PlanRemoteConn> dst_conns_;
  bool with_sync_;
};

}  // namespace Operation

}  // namespace VrelDR
